#include "PrivateBus.h"

#include "telephony/NativeTelephony.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvellacinto::native {
namespace {

constexpr const char* serviceName = "org.freedesktop.ModemManager1";
constexpr const char* modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char* networkInterface = "org.freedesktop.ModemManager1.Modem.Modem3gpp";

class TelephonyTest : public ::testing::Test {
protected:
    template <class... Objects>
    [[nodiscard]] auto infoOf(int count, Objects... objects) {
        daemon.reply("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager",
                     "GetManagedObjects", "a{oa{sa{sv}}}", count, objects...);
        return NativeTelephony(daemon.bus).makeInfo();
    }

    PrivateBus daemon{{serviceName}};
};

std::string told(const std::optional<platform::Carrier>& carrier) {
    const auto orNone = [](const auto& text) { return text.value_or("-"); };
    return !carrier ? "none"
                    : orNone(carrier->carrierName) + " " + orNone(carrier->isoCountryCode) + " " +
                          orNone(carrier->mobileNetworkCode);
}

TEST_F(TelephonyTest, TheCarrierIsTheSimsElseThatOfTheNetworkWhichServesIt) {
    struct Case {
        const char *networkName, *networkCode, *sim, *simName, *simCode, *carrier;
    };
    const Case cases[] = {{"Roamed", "26201", "/sim", "Ten", "310260", "Ten us 260"},
                          {"Home", "24001", "/sim", "", "24001", "Home se 01"},
                          {"Foreign", "26201", "/sim", "", "24007", "- se 07"},
                          {"Served", "26202", "/", "unseen", "310260", "Served de 02"},
                          {"", "", "/", "", "", "none"},
                          {"Net", "2620x", "/sim", "", "24", "Net - -"},
                          {"Net", "2620", "/absent", "", "", "Net - -"},
                          {"Net", "2620123", "/", "", "", "Net - -"}};
    for (const auto& [networkName, networkCode, sim, simName, simCode, carrier] : cases) {
        daemon.reply("/sim", "org.freedesktop.ModemManager1.Sim", "GetAll", "a{sv}", 2,
                     "OperatorName", "s", simName, "OperatorIdentifier", "s", simCode);
        const auto info = infoOf(1, "/Modem/0", 2, modemInterface, 2, "AccessTechnologies", "u",
                                 1U << 14, "Sim", "o", sim, networkInterface, 2, "OperatorName",
                                 "s", networkName, "OperatorCode", "s", networkCode);
        EXPECT_EQ(told(info->subscriberCellularProvider()), carrier);
        EXPECT_EQ(info->currentRadioAccessTechnology(), "LTE");
    }
}

TEST_F(TelephonyTest, EachModemIsAServiceInTheOrderOfTheirNumbers) {
    const auto info = infoOf(4, "/Modem/10", 1, modemInterface, 1, "AccessTechnologies", "u",
                             1U << 15, "/Modem/9", 2, modemInterface, 1, "AccessTechnologies", "u",
                             1U << 4, networkInterface, 1, "OperatorName", "s", "Nine", "/Modem/8",
                             1, modemInterface, 1, "AccessTechnologies", "s", "fast", "/Call/1", 0);
    EXPECT_THAT(info->serviceCurrentRadioAccessTechnology(),
                ::testing::Optional(::testing::ElementsAre("Edge", "NR")));
    const auto carriers = info->serviceSubscriberCellularProviders();
    ASSERT_EQ(carriers->size(), 3U);
    EXPECT_EQ(told(carriers->at(1)), "Nine - -");
}

TEST(NameOfTechnology, IsThatOfTheNewestGeneration) {
    const char* const names[] = {nullptr,  "GPRS",         "GPRS",         "GPRS",         "Edge",
                                 "WCDMA",  "HSDPA",        "HSUPA",        "HSUPA",        "HSUPA",
                                 "CDMA1x", "CDMAEVDORev0", "CDMAEVDORevA", "CDMAEVDORevB", "LTE",
                                 "NR",     "LTE",          "LTE",          nullptr};
    for (std::size_t bit = 0; bit < std::size(names); ++bit) {
        EXPECT_STREQ(nameOfTechnology(1U << bit), names[bit]) << bit;
    }
    EXPECT_STREQ(nameOfTechnology(1U << 14 | 1U << 9 | 1U << 10), "LTE");
    EXPECT_STREQ(nameOfTechnology(1U << 15 | 1U << 14), "NRNSA");
    EXPECT_STREQ(nameOfTechnology(0xFFFFFFFF), nullptr) << "any";
}

TEST(MobileCountries, KnowsCountriesAndNothingElse) {
    const std::pair<const char*, const char*> cases[] = {
        {"202", "gr"}, {"240", "se"}, {"310", "us"}, {"425", "il"}, {"750", "fk"}, {"901", ""}};
    for (const auto& [code, country] : cases) {
        EXPECT_EQ(countryOfMobileCode(code).value_or(""), country) << code;
    }
}

} // namespace
} // namespace morvellacinto::native
