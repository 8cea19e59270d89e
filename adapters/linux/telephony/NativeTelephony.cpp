// SPDX-License-Identifier: MIT
#include "NativeTelephony.h"

#include "bus/BusValues.h"

#include <algorithm>

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

// Of the package mobile-broadband-provider-info, the rest from ITU-T E.212.
// clang-format off
constexpr std::string_view countries =
    "202gr 204nl 206be 208fr 212mc 213ad 214es 216hu 218ba 219hr 220rs 221xk 222it 225va "
    "226ro 228ch 230cz 231sk 232at 234gb 235gb 238dk 240se 242no 244fi 246lt 247lv 248ee "
    "250ru 255ua 257by 259md 260pl 262de 266gi 268pt 270lu 272ie 274is 276al 278mt 280cy "
    "282ge 283am 284bg 286tr 288fo 289ge 290gl 292sm 293si 294mk 295li 297me 302ca 308pm "
    "310us 311us 312us 313us 314us 315us 316us 330pr 332vi 334mx 338jm 340gp 342bb 344ag "
    "346ky 348vg 350bm 352gd 354ms 356kn 358lc 360vc 362cw 363aw 364bs 365ai 366dm 368cu "
    "370do 372ht 374tt 376tc 400az 401kz 402bt 404in 405in 406in 410pk 412af 413lk 414mm "
    "415lb 416jo 417sy 418iq 419kw 420sa 421ye 422om 424ae 425il 426bh 427qa 428mn 429np "
    "430ae 431ae 432ir 434uz 436tj 437kg 438tm 440jp 441jp 450kr 452vn 454hk 455mo 456kh "
    "457la 460cn 461cn 466tw 467kp 470bd 472mv 502my 505au 510id 514tl 515ph 520th 525sg "
    "528bn 530nz 535gu 536nr 537pg 539to 540sb 541vu 542fj 543wf 544as 545ki 546nc 547pf "
    "548ck 549ws 550fm 551mh 552pw 553tv 554tk 555nu 602eg 603dz 604ma 605tn 606ly 607gm "
    "608sn 609mr 610ml 611gn 612ci 613bf 614ne 615tg 616bj 617mu 618lr 619sl 620gh 621ng "
    "622td 623cf 624cm 625cv 626st 627gq 628ga 629cg 630cd 631ao 632gw 633sc 634sd 635rw "
    "636et 637so 638dj 639ke 640tz 641ug 642bi 643mz 645zm 646mg 647re 648zw 649na 650mw "
    "651ls 652bw 653sz 654km 655za 657er 658sh 659ss 702bz 704gt 706sv 708hn 710ni 712cr "
    "714pa 716pe 722ar 724br 730cl 732co 734ve 736bo 738gy 740ec 742gf 744py 746sr 748uy "
    "750fk ";
// clang-format on

bool isNumber(std::string_view text) {
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

struct Modem {
    std::string path;
    Object properties;
    Object network;
    Object sim;
};

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
    // Paths end in numbers without leading zeros.
    std::sort(modems.begin(), modems.end(), [](const Modem& left, const Modem& right) {
        return std::pair(left.path.size(), left.path) < std::pair(right.path.size(), right.path);
    });
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

// The country's three digits and two or three of the network's.
std::optional<std::string> operatorCode(const Object& object, std::string_view key) {
    auto code = textMember(object, key);
    const bool isCode = code && (code->size() == 5 || code->size() == 6) && isNumber(*code);
    return isCode ? code : std::nullopt;
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
    explicit ModemInfo(const std::vector<Modem>& modems) {
        if (!modems.empty()) {
            carriers_.emplace();
            technologies_.emplace();
        }
        for (const Modem& modem : modems) {
            carriers_->push_back(carrierOf(modem));
            const auto bits = integerMember(modem.properties, "AccessTechnologies").value_or(0);
            if (const char* name = nameOfTechnology(static_cast<std::uint32_t>(bits))) {
                technologies_->emplace_back(name);
            }
        }
    }

    [[nodiscard]] std::optional<Carrier> subscriberCellularProvider() const override {
        return carriers_ ? carriers_->front() : std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> currentRadioAccessTechnology() const override {
        return technologies_ && !technologies_->empty() ? std::optional(technologies_->front())
                                                        : std::nullopt;
    }

    [[nodiscard]] std::optional<std::vector<std::optional<Carrier>>>
    serviceSubscriberCellularProviders() const override {
        return carriers_;
    }

    [[nodiscard]] std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const override {
        return technologies_;
    }

private:
    std::optional<std::vector<std::optional<Carrier>>> carriers_; // nothing without a modem
    std::optional<std::vector<std::string>> technologies_;        // as well
};

} // namespace

const char* nameOfTechnology(std::uint32_t accessTechnologies) {
    constexpr std::uint32_t newRadio = 1U << 15;
    constexpr std::uint32_t longTermEvolution = 1U << 14 | 1U << 16 | 1U << 17;
    // Newest generation first, and the fastest of each.
    constexpr std::pair<std::uint32_t, const char*> technologies[] = {
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
    for (const auto& [bits, name] : technologies) {
        if ((accessTechnologies & bits) != 0) {
            return name;
        }
    }
    return nullptr;
}

std::optional<std::string> countryOfMobileCode(std::string_view mobileCountryCode) {
    const bool isCode = mobileCountryCode.size() == 3 && isNumber(mobileCountryCode);
    const std::size_t place = isCode ? countries.find(mobileCountryCode) : std::string_view::npos;
    return place == std::string_view::npos
               ? std::nullopt
               : std::optional(std::string(countries.substr(place + 3, 2)));
}

std::unique_ptr<platform::TelephonyInfo> NativeTelephony::makeInfo() const {
    return std::make_unique<ModemInfo>(askForModems(bus_));
}

} // namespace morvellacinto::native
