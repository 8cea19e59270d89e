#include "morvellacinto/audience/KRAudienceManager.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/AssertionHandler.h"
#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

#include <fstream>
#include <thread>

namespace morvellacinto {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class GeoTags : public ScriptedPhoneTest {
protected:
    void fetch(const std::string& name = "done") {
        manager.kovraTagsWithCompletion([this, name](const auto& answer, const auto& error) {
            calls.push_back(name + (answer ? "" : " " + error->domain));
        });
    }

    // The members of the latest upload, none of which the base payload has.
    std::string locationMembers() {
        const Value body = *readJson(*phone->http().requests().back().request.body);
        Object members;
        for (const char* key : {"lat", "lon", "speed", "course"}) {
            if (const Value* value = body.asObject().find(key)) {
                members.set(key, *value);
            }
        }
        return writeJson(members);
    }

    std::size_t uploads() { return phone->http().requests().size(); }

    void deliverFix() {
        phone->locationServices().deliver({{59.3293371, 18.0685808, 1.123456789012345, 270.5}});
        phone->settle();
    }

    KRAudienceManager manager{Uuid()};
    std::vector<std::string> calls;
};

// The data inventory lists them in backquotes in the first column of its table.
TEST_F(GeoTags, sendsTheFieldsThatTheInventoryLists) {
    fetch();
    deliverFix();
    const platform::HttpRequest request = phone->http().requests().back().request;
    const Value body = *readJson(*request.body);
    std::vector<std::string> sent;
    for (const Object::Member& member : body.asObject()) {
        sent.emplace_back(member.key());
    }
    for (const platform::HttpHeader& header : request.headers) {
        sent.push_back(header.name);
    }
    std::ifstream inventory(MORVELLACINTO_DATA_INVENTORY);
    std::vector<std::string> listed;
    for (std::string line; std::getline(inventory, line);) {
        if (line.starts_with("| `")) {
            listed.push_back(line.substr(3, line.find('`', 3) - 3));
        }
    }
    EXPECT_EQ(sent, listed);
}

TEST_F(GeoTags, coarsensTheLocationAndKeepsSpeedAndCourse) {
    const struct {
        float decimals;
        const char* members;
    } cases[] = {
        {5.0F, R"({"lat":59.32934,"lon":18.06858,"speed":1.123456789012345,"course":270.5})"},
        {3.0F, R"({"lat":59.329,"lon":18.069,"speed":1.123456789012345,"course":270.5})"},
        {2.9F, R"({"lat":59.33,"lon":18.07,"speed":1.123456789012345,"course":270.5})"},
        {0.0F, R"({"lat":59,"lon":18,"speed":1.123456789012345,"course":270.5})"},
    };
    for (const auto& [decimals, members] : cases) {
        manager.setGeoFixDecimals(decimals);
        phone->http().plan({.body = "{}"});
        phone->clock().advance(91s);
        fetch();
        deliverFix();
        EXPECT_EQ(locationMembers(), members) << decimals;
    }
    EXPECT_EQ(calls.size(), std::size(cases));
}

TEST_F(GeoTags, failsWithALogLineWhenTheCoordinateIsNotANumber) {
    manager.setGeoFixDecimals(-1);
    fetch();
    deliverFix();
    EXPECT_THAT(phone->takeLog(), ElementsAre("tags failed"));
    EXPECT_EQ(uploads(), 0U);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(GeoTags, uploadsZerosWhenTheFixFails) {
    phone->http().plan({.body = "{}"});
    fetch();
    phone->locationServices().fail(KRError{"gps", 1, {}});
    phone->settle();
    EXPECT_EQ(locationMembers(), R"({"lat":0,"lon":0,"speed":0,"course":0})");
    EXPECT_THAT(calls, ElementsAre("done"));
}

TEST_F(GeoTags, uploadsWithoutALocationFromAnyThreadWhenItMayNotBeUsed) {
    phone->script()->location.authorizationStatus = 2;
    phone->http().plan({.body = "{}"});
    std::thread([this] { fetch(); }).join();
    phone->settle();
    EXPECT_EQ(locationMembers(), "{}");
    EXPECT_THAT(calls, ElementsAre("done"));
    EXPECT_EQ(phone->locationServices().startCount(), 0);
}

TEST_F(GeoTags, assertsTheMainThreadWhenLocationMayBeUsed) {
    std::thread([this] { EXPECT_THROW(fetch(), platform::AssertionFailure); }).join();
    phone->settle();
    const auto failures = phone->assertionHandler().takeFailures();
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].function, "-[KRAudienceManager kovraTagsWithCompletion:]");
    EXPECT_EQ(failures[0].file, "KRAudienceManager");
    EXPECT_EQ(failures[0].line, 115);
    EXPECT_EQ(failures[0].description,
              "kovraTagsWithCompletion has to be called on the main thread");
    EXPECT_EQ(phone->locationServices().startCount(), 0);

    phone->assertionHandler().returnAfterFailure(true);
    std::thread([this] { fetch(); }).join();
    EXPECT_EQ(phone->assertionHandler().takeFailures().size(), 1U);
    EXPECT_EQ(phone->locationServices().startCount(), 1);
}

TEST_F(GeoTags, supersedesACallThatStillWaits) {
    phone->http().plan({.body = "{}"});
    fetch("first");
    fetch("second");
    deliverFix();
    EXPECT_EQ(uploads(), 1U);
    EXPECT_THAT(calls, ElementsAre("second"));
}

TEST_F(GeoTags, uploadsOnceForEachCallOfTheWaiter) {
    phone->http().plan({.body = "{}"});
    fetch();
    phone->locationServices().changeAuthorization(2);
    phone->settle();
    EXPECT_EQ(locationMembers(), R"({"lat":0,"lon":0,"speed":0,"course":0})");
    phone->clock().advance(91s);
    phone->http().plan({.body = "{}"});
    KRLocationManager::shared().locationManager()->startUpdatingLocation();
    deliverFix();
    EXPECT_EQ(uploads(), 2U);
    EXPECT_THAT(calls, ElementsAre("done", "done"));
}

TEST_F(GeoTags, runsOnceMoreAfterTheTrackingAnswerOnlyWhereItIsAsked) {
    phone->script()->trackingAnswer = 2;
    const struct {
        const char* version;
        bool wanted;
        std::uint64_t status;
        int asked;
    } cases[] = {
        {"14.0", false, 0, 0}, {"13.9", true, 0, 0}, {"14.0", true, 1, 0}, {"14.0", true, 0, 1}};
    for (const auto& expected : cases) {
        phone->script()->systemVersion = expected.version;
        phone->script()->trackingAuthorization = expected.status;
        manager.setRequestTrackingAuthorization(expected.wanted);
        const int startsBefore = phone->locationServices().startCount();
        fetch();
        EXPECT_EQ(phone->locationServices().startCount(), startsBefore + 1)
            << "it waits for the answer";
        phone->settle();
        EXPECT_EQ(phone->tracking().requestCount(), expected.asked);
        EXPECT_EQ(phone->locationServices().startCount(), startsBefore + 1 + expected.asked);
    }
    phone->http().plan({.body = "{}"});
    deliverFix();
    EXPECT_THAT(calls, ElementsAre("done"));
}

} // namespace
} // namespace morvellacinto
