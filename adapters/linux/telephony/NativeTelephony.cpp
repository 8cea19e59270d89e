#include "NativeTelephony.h"

#include "MobileCountries.h"
#include "bus/BusConnection.h"
#include "bus/BusValues.h"

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>

namespace morvellacinto::native {

namespace {

using platform::Carrier;

constexpr const char* serviceName = "org.freedesktop.ModemManager1";
constexpr const char* managerPath = "/org/freedesktop/ModemManager1";
constexpr const char* modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char* networkInterface = "org.freedesktop.ModemManager1.Modem.Modem3gpp";
constexpr const char* simInterface = "org.freedesktop.ModemManager1.Sim";
constexpr std::uint32_t anyTechnology = 0xFFFFFFFF;
constexpr std::size_t countryCodeLength = 3;

struct Modem {
    std::string path;
    Object properties;
    Object network;
    Object sim;
};

const Object* interfaceIn(const Object& interfaces, std::string_view name) {
    const Value* properties = interfaces.find(name);
    return properties != nullptr ? properties->ifObject() : nullptr;
}

Object copyOf(const Object* object) { return object != nullptr ? *object : Object(); }

// Paths end in numbers without leading zeros.
bool numberedBefore(const Modem& left, const Modem& right) {
    return std::pair(left.path.size(), std::string_view(left.path)) <
           std::pair(right.path.size(), std::string_view(right.path));
}

std::vector<Modem> modemsIn(const Object& objects) {
    std::vector<Modem> modems;
    for (const Object::Member& object : objects) {
        const Object* known = object.value.ifObject();
        const Object* modem = known != nullptr ? interfaceIn(*known, modemInterface) : nullptr;
        if (modem == nullptr) {
            continue;
        }
        modems.push_back(
            {std::string(object.key()), *modem, copyOf(interfaceIn(*known, networkInterface)), {}});
    }
    std::sort(modems.begin(), modems.end(), numberedBefore);
    return modems;
}

std::vector<Modem> askForModems(Bus& bus) {
    BusConnection connection(bus);
    const BusReply objects = connection.call(
        {serviceName, managerPath, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", {}});
    std::vector<Modem> modems = modemsIn(propertiesIn(objects));
    std::vector<BusCall> calls;
    std::vector<std::size_t> askedFor;
    for (std::size_t index = 0; index < modems.size(); ++index) {
        if (const auto sim = pathMember(modems[index].properties, "Sim")) {
            calls.push_back(readProperties(serviceName, *sim, simInterface));
            askedFor.push_back(index);
        }
    }
    const auto replies = connection.callAll(calls);
    for (std::size_t index = 0; index < replies.size(); ++index) {
        modems[askedFor[index]].sim = propertiesIn(replies[index]);
    }
    return modems;
}

// An operator's code is the country's three digits and two or three of the network's.
bool isOperatorCode(const std::string& code) {
    return (code.size() == 5 || code.size() == 6) &&
           std::all_of(code.begin(), code.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<std::string> operatorCode(const Object& object, std::string_view key) {
    auto code = textMember(object, key);
    return code && isOperatorCode(*code) ? code : std::nullopt;
}

std::optional<Carrier> carrierOf(const Modem& modem) {
    auto name = nonEmptyMember(modem.sim, "OperatorName");
    auto code = operatorCode(modem.sim, "OperatorIdentifier");
    const auto networkName = nonEmptyMember(modem.network, "OperatorName");
    const auto networkCode = operatorCode(modem.network, "OperatorCode");
    if (!name && (!code || code == networkCode)) {
        name = networkName;
        code = networkCode;
    }
    if (!name && !code) {
        return std::nullopt;
    }
    Carrier carrier{std::move(name), std::nullopt, std::nullopt};
    if (code) {
        carrier.isoCountryCode = countryOfMobileCode(code->substr(0, countryCodeLength));
        carrier.mobileNetworkCode = code->substr(countryCodeLength);
    }
    return carrier;
}

class ModemInfo final : public platform::TelephonyInfo {
public:
    explicit ModemInfo(Bus& bus) : bus_(bus) {}

    [[nodiscard]] std::optional<Carrier> subscriberCellularProvider() const override {
        const auto& all = modems();
        return all.empty() ? std::nullopt : carrierOf(all.front());
    }

    [[nodiscard]] std::optional<std::string> currentRadioAccessTechnology() const override {
        const auto technologies = serviceCurrentRadioAccessTechnology();
        return technologies && !technologies->empty() ? std::optional(technologies->front())
                                                      : std::nullopt;
    }

    [[nodiscard]] std::optional<std::vector<std::optional<Carrier>>>
    serviceSubscriberCellularProviders() const override {
        if (modems().empty()) {
            return std::nullopt;
        }
        std::vector<std::optional<Carrier>> carriers;
        for (const Modem& modem : modems()) {
            carriers.push_back(carrierOf(modem));
        }
        return carriers;
    }

    [[nodiscard]] std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const override {
        if (modems().empty()) {
            return std::nullopt;
        }
        std::vector<std::string> technologies;
        for (const Modem& modem : modems()) {
            const auto bits = integerMember(modem.properties, "AccessTechnologies").value_or(0);
            if (const char* name = nameOfTechnology(static_cast<std::uint32_t>(bits))) {
                technologies.emplace_back(name);
            }
        }
        return technologies;
    }

private:
    [[nodiscard]] const std::vector<Modem>& modems() const {
        std::call_once(asked_, [this] { modems_ = askForModems(bus_); });
        return modems_;
    }

    Bus& bus_;
    mutable std::once_flag asked_;
    mutable std::vector<Modem> modems_;
};

} // namespace

const char* nameOfTechnology(std::uint32_t accessTechnologies) {
    struct Technology {
        std::uint32_t bits;
        const char* name;
    };
    constexpr std::uint32_t newRadio = 1U << 15;
    constexpr std::uint32_t longTermEvolution = 1U << 14 | 1U << 16 | 1U << 17;
    // Newest generation first, and the fastest of each.
    constexpr Technology technologies[] = {
        {newRadio, "NR"},
        {longTermEvolution, "LTE"},
        {1U << 7 | 1U << 8 | 1U << 9, "HSUPA"},
        {1U << 6, "HSDPA"},
        {1U << 13, "CDMAEVDORevB"},
        {1U << 12, "CDMAEVDORevA"},
        {1U << 11, "CDMAEVDORev0"},
        {1U << 5, "WCDMA"},
        {1U << 4, "Edge"},
        {1U << 1 | 1U << 2 | 1U << 3, "GPRS"},
        {1U << 10, "CDMA1x"},
    };
    if (accessTechnologies == anyTechnology) {
        return nullptr;
    }
    if ((accessTechnologies & newRadio) != 0 && (accessTechnologies & longTermEvolution) != 0) {
        return "NRNSA"; // the newer radio on the older network
    }
    const auto* found = std::find_if(
        std::begin(technologies), std::end(technologies),
        [&](const Technology& known) { return (accessTechnologies & known.bits) != 0; });
    return found != std::end(technologies) ? found->name : nullptr;
}

NativeTelephony::NativeTelephony(Bus& bus) : bus_(bus) {}

std::unique_ptr<platform::TelephonyInfo> NativeTelephony::makeInfo() const {
    return std::make_unique<ModemInfo>(bus_);
}

} // namespace morvellacinto::native
