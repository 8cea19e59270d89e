#include "NativeTelephony.h"

#include "MobileCountries.h"
#include "bus/BusValues.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

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

// Paths end in numbers without leading zeros.
bool numberedBefore(const Modem& left, const Modem& right) {
    return std::pair(left.path.size(), std::string_view(left.path)) <
           std::pair(right.path.size(), std::string_view(right.path));
}

std::vector<Modem> askForModems(Bus& bus) {
    BusConnection connection(bus);
    const BusReply objects = connection.call(
        {serviceName, managerPath, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"});
    std::vector<Modem> modems;
    for (const Object::Member& object : objectAt(objects.body, 0)) {
        const Object* interfaces = object.value.ifObject();
        if (interfaces != nullptr && interfaces->contains(modemInterface)) {
            modems.push_back({std::string(object.key()),
                              objectMember(*interfaces, modemInterface),
                              objectMember(*interfaces, networkInterface),
                              {}});
        }
    }
    std::sort(modems.begin(), modems.end(), numberedBefore);
    std::vector<BusCall> calls;
    for (const Modem& modem : modems) { // without a SIM, of an object that is none
        const std::string sim = pathMember(modem.properties, "Sim").value_or("/");
        calls.push_back(readProperties(serviceName, sim, simInterface));
    }
    const auto replies = connection.callAll(calls);
    for (std::size_t index = 0; index < modems.size(); ++index) {
        modems[index].sim = objectAt(replies[index].body, 0);
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
    auto name = textMember(modem.sim, "OperatorName");
    auto code = operatorCode(modem.sim, "OperatorIdentifier");
    const auto networkName = textMember(modem.network, "OperatorName");
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
    explicit ModemInfo(std::vector<Modem> modems) : modems_(std::move(modems)) {}

    [[nodiscard]] std::optional<Carrier> subscriberCellularProvider() const override {
        return modems_.empty() ? std::nullopt : carrierOf(modems_.front());
    }

    [[nodiscard]] std::optional<std::string> currentRadioAccessTechnology() const override {
        const auto technologies = serviceCurrentRadioAccessTechnology();
        return technologies && !technologies->empty() ? std::optional(technologies->front())
                                                      : std::nullopt;
    }

    [[nodiscard]] std::optional<std::vector<std::optional<Carrier>>>
    serviceSubscriberCellularProviders() const override {
        if (modems_.empty()) {
            return std::nullopt;
        }
        std::vector<std::optional<Carrier>> carriers;
        for (const Modem& modem : modems_) {
            carriers.push_back(carrierOf(modem));
        }
        return carriers;
    }

    [[nodiscard]] std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const override {
        if (modems_.empty()) {
            return std::nullopt;
        }
        std::vector<std::string> technologies;
        for (const Modem& modem : modems_) {
            const auto bits = integerMember(modem.properties, "AccessTechnologies").value_or(0);
            if (const char* name = nameOfTechnology(static_cast<std::uint32_t>(bits))) {
                technologies.emplace_back(name);
            }
        }
        return technologies;
    }

private:
    const std::vector<Modem> modems_;
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

std::unique_ptr<platform::TelephonyInfo> NativeTelephony::makeInfo() const {
    return std::make_unique<ModemInfo>(askForModems(bus_));
}

} // namespace morvellacinto::native
