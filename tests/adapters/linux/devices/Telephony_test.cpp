#include "MockService.h"
#include "PrivateBus.h"

#include "bus/Bus.h"
#include "telephony/MobileCountries.h"
#include "telephony/NativeTelephony.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <systemd/sd-bus.h>

namespace morvellacinto::native {
namespace {

constexpr const char* modemManager = "org.freedesktop.ModemManager1";
const std::string modemPath = "/org/freedesktop/ModemManager1/Modem/";
const std::string simPath = "/org/freedesktop/ModemManager1/SIM/";

class ModemManagerMock : public MockService {
public:
    ModemManagerMock() : MockService(modemManager) {}

    void addModem(const std::string& number, Append technologies, const std::string& networkName,
                  const std::string& networkCode, bool hasSim = true) {
        setProperties(modemPath + number, "org.freedesktop.ModemManager1.Modem",
                      {{"AccessTechnologies", std::move(technologies)},
                       {"Sim", path(hasSim ? simPath + number : "/")}});
        setProperties(modemPath + number, "org.freedesktop.ModemManager1.Modem.Modem3gpp",
                      {{"OperatorName", text(networkName)}, {"OperatorCode", text(networkCode)}});
    }
    void addSim(const std::string& number, Append name, Append code) {
        setProperties(simPath + number, "org.freedesktop.ModemManager1.Sim",
                      {{"OperatorName", std::move(name)}, {"OperatorIdentifier", std::move(code)}});
    }
};

std::string told(const std::optional<platform::Carrier>& carrier) {
    return !carrier
               ? "none"
               : carrier->carrierName.value_or("-") + " " + carrier->isoCountryCode.value_or("-") +
                     " " + carrier->mobileNetworkCode.value_or("-");
}

class TelephonyTest : public ::testing::Test {
protected:
    [[nodiscard]] std::vector<std::string> carriers() {
        std::vector<std::string> all;
        const auto given = NativeTelephony(bus).makeInfo()->serviceSubscriberCellularProviders();
        for (const auto& carrier :
             given.value_or(std::vector<std::optional<platform::Carrier>>())) {
            all.push_back(told(carrier));
        }
        return all;
    }

    PrivateBus daemon;
    Bus bus{[](std::string_view) {}};
};

TEST_F(TelephonyTest, EachModemIsAServiceInTheOrderOfTheirNumbers) {
    ModemManagerMock mock;
    mock.addModem("10", unsignedNumber(1U << 14), "Roamed", "26201");
    mock.addSim("10", text("Ten"), text("310260"));
    mock.addModem("9", unsignedNumber(0), "Home", "24001");
    mock.addSim("9", text(""), text("24001"));
    mock.addModem("8", unsignedNumber(0xFFFFFFFF), "Foreign", "26201");
    mock.addSim("8", text(""), text("24007"));
    mock.addModem("7", unsignedNumber(1U << 5 | 1U << 9), "Served", "26202", false);
    mock.addModem("6", text("fast"), "", "", false);
    mock.addModem("5", unsignedNumber(1U << 4), "Net", "2620x");
    mock.addSim("5", unsignedNumber(1), text("24"));
    EXPECT_THAT(carriers(), ::testing::ElementsAre("Net - -", "none", "Served de 02", "- se 07",
                                                   "Home se 01", "Ten us 260"));
    const auto info = NativeTelephony(bus).makeInfo();
    EXPECT_THAT(info->serviceCurrentRadioAccessTechnology(),
                ::testing::Optional(::testing::ElementsAre("Edge", "HSUPA", "LTE")));
    EXPECT_EQ(told(info->subscriberCellularProvider()), "Net - -");
    EXPECT_EQ(info->currentRadioAccessTechnology(), "Edge");
}

TEST_F(TelephonyTest, NoServiceNoModemAndAWrongAnswerAreNoTelephony) {
    EXPECT_EQ(NativeTelephony(bus).makeInfo()->serviceSubscriberCellularProviders(), std::nullopt);
    ModemManagerMock mock;
    EXPECT_EQ(NativeTelephony(bus).makeInfo()->serviceCurrentRadioAccessTechnology(), std::nullopt);
    mock.onCall("GetManagedObjects", [](sd_bus_message* call) {
        reply(call, [](sd_bus_message* message) {
            sd_bus_message_append(message, "a{ss}", 1, "/a/Modem/0", "no interfaces");
        });
    });
    EXPECT_EQ(NativeTelephony(bus).makeInfo()->subscriberCellularProvider(), std::nullopt);
    EXPECT_EQ(NativeTelephony(bus).makeInfo()->currentRadioAccessTechnology(), std::nullopt);
}

TEST(NameOfTechnology, IsThatOfTheNewestGeneration) {
    const std::pair<std::uint32_t, const char*> cases[] = {
        {1U << 1, "GPRS"},
        {1U << 3 | 1U << 4, "Edge"},
        {1U << 5 | 1U << 4, "WCDMA"},
        {1U << 6 | 1U << 5, "HSDPA"},
        {1U << 7, "HSUPA"},
        {1U << 10, "CDMA1x"},
        {1U << 11 | 1U << 10, "CDMAEVDORev0"},
        {1U << 13 | 1U << 12, "CDMAEVDORevB"},
        {1U << 14 | 1U << 9, "LTE"},
        {1U << 17, "LTE"},
        {1U << 15, "NR"},
        {1U << 15 | 1U << 14, "NRNSA"},
    };
    for (const auto& [bits, name] : cases) {
        EXPECT_STREQ(nameOfTechnology(bits), name) << bits;
    }
    for (const std::uint32_t bits : {0U, 1U, 1U << 20, 0xFFFFFFFFU}) {
        EXPECT_EQ(nameOfTechnology(bits), nullptr) << bits;
    }
}

TEST(MobileCountries, KnowsCountriesAndNothingElse) {
    const std::pair<const char*, const char*> cases[] = {
        {"202", "gr"}, {"240", "se"}, {"234", "gb"}, {"310", "us"}, {"316", "us"},
        {"724", "br"}, {"750", "fk"}, {"425", "il"}, {"466", "tw"},
    };
    for (const auto& [code, country] : cases) {
        EXPECT_EQ(countryOfMobileCode(code), country) << code;
    }
    for (const char* code : {"", "24", "2400", "24x", "-24", "001", "901", "999", "000"}) {
        EXPECT_EQ(countryOfMobileCode(code), std::nullopt) << code;
    }
}

} // namespace
} // namespace morvellacinto::native
