#include "MockService.h"
#include "PrivateBus.h"

#include "telephony/MobileCountries.h"
#include "telephony/NativeTelephony.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvellacinto::native {
namespace {

constexpr const char* modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char* networkInterface = "org.freedesktop.ModemManager1.Modem.Modem3gpp";

class TelephonyTest : public ::testing::Test {
protected:
    [[nodiscard]] auto infoOf(const MockService::Method& objects) {
        mock.onCall("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager",
                    "GetManagedObjects", [objects](sd_bus_message* call) { reply(call, objects); });
        return NativeTelephony(daemon.bus).makeInfo();
    }

    PrivateBus daemon;
    MockService mock{"org.freedesktop.ModemManager1"};
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
        mock.onCall(
            "/sim", "org.freedesktop.ModemManager1.Sim", "GetAll",
            answer("a{sv}", 2, "OperatorName", "s", simName, "OperatorIdentifier", "s", simCode));
        const auto info =
            infoOf(answer("a{oa{sa{sv}}}", 1, "/Modem/0", 2, modemInterface, 2,
                          "AccessTechnologies", "u", 1U << 14, "Sim", "o", sim, networkInterface, 2,
                          "OperatorName", "s", networkName, "OperatorCode", "s", networkCode));
        EXPECT_EQ(told(info->subscriberCellularProvider()), carrier);
        EXPECT_EQ(info->currentRadioAccessTechnology(), "LTE");
    }
}

TEST_F(TelephonyTest, EachModemIsAServiceInTheOrderOfTheirNumbers) {
    const auto info =
        infoOf(answer("a{oa{sa{sv}}}", 4, "/Modem/10", 1, modemInterface, 1, "AccessTechnologies",
                      "u", 1U << 15, "/Modem/9", 2, modemInterface, 1, "AccessTechnologies", "u",
                      1U << 4, networkInterface, 1, "OperatorName", "s", "Nine", "/Modem/8", 1,
                      modemInterface, 1, "AccessTechnologies", "s", "fast", "/Call/1", 0));
    EXPECT_THAT(info->serviceCurrentRadioAccessTechnology(),
                ::testing::Optional(::testing::ElementsAre("Edge", "NR")));
    const auto carriers = info->serviceSubscriberCellularProviders();
    ASSERT_EQ(carriers->size(), 3U);
    EXPECT_EQ(told(carriers->at(1)), "Nine - -");
}

TEST_F(TelephonyTest, NoModemAndAWrongAnswerAreNoTelephony) {
    for (const auto& wrong :
         {MockService::Method(answer("a{oa{sa{sv}}}", 0)),
          MockService::Method(answer("a{ss}", 1, "/Modem/0", "no interfaces"))}) {
        const auto info = infoOf(wrong);
        EXPECT_EQ(info->serviceSubscriberCellularProviders(), std::nullopt);
        EXPECT_EQ(info->serviceCurrentRadioAccessTechnology(), std::nullopt);
        EXPECT_EQ(info->currentRadioAccessTechnology(), std::nullopt);
        EXPECT_EQ(info->subscriberCellularProvider(), std::nullopt);
    }
}

TEST(NameOfTechnology, IsThatOfTheNewestGeneration) {
    const std::pair<std::uint32_t, const char*> cases[] = {{1U << 1, "GPRS"},
                                                           {1U << 3 | 1U << 4, "Edge"},
                                                           {1U << 5 | 1U << 4, "WCDMA"},
                                                           {1U << 6 | 1U << 5, "HSDPA"},
                                                           {1U << 7, "HSUPA"},
                                                           {1U << 10, "CDMA1x"},
                                                           {1U << 11 | 1U << 10, "CDMAEVDORev0"},
                                                           {1U << 12, "CDMAEVDORevA"},
                                                           {1U << 13 | 1U << 12, "CDMAEVDORevB"},
                                                           {1U << 14 | 1U << 9, "LTE"},
                                                           {1U << 17, "LTE"},
                                                           {1U << 15, "NR"},
                                                           {1U << 15 | 1U << 14, "NRNSA"},
                                                           {0, ""},
                                                           {1, ""},
                                                           {0xFFFFFFFFU, ""}};
    for (const auto& [bits, name] : cases) {
        const char* given = nameOfTechnology(bits);
        EXPECT_STREQ(given != nullptr ? given : "", name) << bits;
    }
}

TEST(MobileCountries, KnowsCountriesAndNothingElse) {
    const std::pair<const char*, const char*> cases[] = {
        {"202", "gr"}, {"240", "se"}, {"234", "gb"}, {"310", "us"}, {"316", "us"}, {"724", "br"},
        {"750", "fk"}, {"425", "il"}, {"466", "tw"}, {"001", ""},   {"901", ""},   {"000", ""}};
    for (const auto& [code, country] : cases) {
        EXPECT_EQ(countryOfMobileCode(code).value_or(""), country) << code;
    }
}

} // namespace
} // namespace morvellacinto::native
