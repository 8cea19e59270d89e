#include "ProgramsTest.h"

#include <chrono>
#include <csignal>

namespace morvellacinto::testing {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::SizeIs;

const std::string token = "6e1f3c1a-8c5b-4c0e-9b57-5f3b1d0a7c42";

TEST_F(ProgramsTest, TagsAreFetchedOnceAndThenServedFromTheCacheAlsoByLaterLaunches) {
    const Service service = startService();
    const Finished first = phoneHost(service, {"--decimals", "3", "tags"});
    ASSERT_EQ(first.status, 0) << first.errors;
    const json answer = json::parse(first.output);
    EXPECT_EQ(answer["tags"]["place"], json::array({"59.329,18.069"}));

    const Finished again = phoneHost(service, {"--times", "3", "tags"});
    EXPECT_EQ(again.output, first.output + first.output + first.output);
    EXPECT_EQ(json::parse(host({"cached", "tags"}).output), answer["tags"]);
    EXPECT_EQ(json::parse(host({"cached", "mapping"}).output), answer["mapping"]);
    EXPECT_EQ(host({"query"}).output, "locale=sv_SE&bundle=com.example.host&place=59.329,18.069\n");
    EXPECT_THAT(service.uploads(), SizeIs(1));

    ASSERT_EQ(host({"settings", "set-date", "KRAudienceUpdate", "-91"}).status, 0);
    EXPECT_EQ(phoneHost(service, {"tags"}).status, 0);
    EXPECT_EQ(phoneHost(service, {"--times", "2", "collect", "--force"}).status, 0);
    EXPECT_THAT(service.uploads(), SizeIs(4));
}

TEST_F(ProgramsTest, UploadsGoOutWithTheHeadersThatTheServiceKnowsAndTheirBodiesUnchanged) {
    const Service service = startService();
    const json payload{{"bundle", std::string(2'000'000, 'b')}, {"lat", 59.5}, {"lon", -0.25}};
    const std::string path = file("payload.json", payload.dump());
    ASSERT_EQ(phoneHost(service, {"--token", token, "collect", "--payload", path}).status, 0);
    ASSERT_EQ(phoneHost(service, {"request", "post", service.url + "/audience/"}).status, 0);

    const std::vector<json> uploads = service.uploads();
    ASSERT_THAT(uploads, SizeIs(2));
    const json& headers = uploads[0]["headers"];
    EXPECT_EQ(headers.value("API_TOKEN", ""), "6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42");
    EXPECT_EQ(headers.value("Accept-Encoding", ""), "gzip");
    EXPECT_EQ(headers.value("Content-Type", ""), "application/x-www-form-urlencoded");
    EXPECT_FALSE(headers.contains("Expect"));
    EXPECT_EQ(uploads[0]["body"], payload);
    EXPECT_FALSE(uploads[1]["headers"].contains("API_TOKEN"));
    EXPECT_EQ(uploads[1]["bytes"], 32);
}

TEST_F(ProgramsTest, WhatTheServiceDoesDecidesHowACommandEnds) {
    struct Case {
        json step;
        int status;
        std::string output;
        std::string errors;
    };
    const std::vector<Case> cases = {
        {{{"status", 500}, {"body", R"({"a":1})"}}, 0, "{\"a\":1}\n", ""},
        {{{"body", R"({"b":"ääää"})"}, {"gzip", true}}, 0, "{\"b\":\"ääää\"}\n", ""},
        {{{"delaySeconds", 0.2}, {"dripBytesPerSecond", 200}, {"body", R"({"c":[]})"}},
         0,
         "{\"c\":[]}\n",
         ""},
        {{{"body", "[1]"}}, 3, "", "no completion"},
        {{{"body", "busy"}, {"status", 503}}, 3, "", "no completion"},
        {{{"close", "before-headers"}}, 1, "", R"("domain":"morvellacinto.http","code":15)"},
        {{{"redirect", "https://127.0.0.1:1/"}}, 1, "", R"("code":24)"},
        {{{"delaySeconds", 30}}, 3, "", "no completion"},
    };
    json scenario = json::array();
    for (const Case& each : cases) {
        scenario.push_back(each.step);
    }
    const Service service = startService(scenario);
    for (const Case& each : cases) {
        const Finished finished =
            phoneHost(service, {"--wait", each.status == 3 ? "1" : "60", "collect", "--force"});
        EXPECT_EQ(finished.status, each.status) << each.step << finished.errors;
        EXPECT_EQ(finished.output, each.output) << each.step;
        EXPECT_THAT(finished.errors, HasSubstr(each.errors)) << each.step;
    }
}

TEST_F(ProgramsTest, AnAnswerThatHasNotComeWholeInTenSecondsIsAnError) {
    const Service late = startService({{{"delaySeconds", 40}}});
    const Service slow = startService({{{"dripBytesPerSecond", 2}}});
    const auto start = steady_clock::now();
    ChildProcess second(hostCommand(phoneWords(slow, {"--wait", "60", "collect", "--force"})));
    for (const Finished& finished :
         {phoneHost(late, {"--wait", "60", "collect", "--force"}), second.finish()}) {
        EXPECT_EQ(finished.status, 1);
        EXPECT_THAT(finished.errors, HasSubstr(R"("domain":"morvellacinto.http","code":14)"));
    }
    EXPECT_GE(steady_clock::now() - start, seconds(10));
    EXPECT_LT(steady_clock::now() - start, seconds(20));
}

TEST_F(ProgramsTest, AServiceWithAnUntrustedCertificateGetsNoUpload) {
    const Service service = startService();
    const Finished finished =
        host({"--device", phone, "--service-url", service.url, "--token", token, "tags"});
    EXPECT_EQ(finished.status, 1);
    const json error = json::parse(finished.errors);
    EXPECT_EQ(error["domain"], "morvellacinto.http");
    EXPECT_EQ(error["code"], 13);
    EXPECT_THAT(finished.errors, Not(HasSubstr("6E1F3C1A")));
    EXPECT_THAT(service.uploads(), SizeIs(0));
}

TEST_F(ProgramsTest, TheServiceMovesTheHostToAnotherUrlForGood) {
    const Service next = startService();
    const Service service = startService({{{"serviceurl", next.url}}});
    EXPECT_EQ(phoneHost(service, {"collect"}).status, 0);
    EXPECT_EQ(host({"url"}).output, next.url + "\n");

    const Finished moved =
        host({"--device", phone, "--ca-file", next.caFile, "collect", "--force"});
    EXPECT_EQ(moved.status, 0) << moved.errors;
    EXPECT_THAT(service.uploads(), SizeIs(1));
    EXPECT_THAT(next.uploads(), SizeIs(1));
}

TEST_F(ProgramsTest, MalformedUploadsAreToldWhatIsWrongWithThem) {
    const Service service = startService();
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"[]", "an array where an object"},
        {R"({"lat": "59", "lon": 18})", R"("lat" is a string)"},
        {R"({"lat": 59.3})", "come together"},
        {R"({"lat": 59.3, "lon": -181})", "-181, which is not on earth"},
        {R"({"vendorId": 7})", R"("vendorId" is an integer)"},
    };
    for (const auto& [payload, reason] : cases) {
        const Finished finished = phoneHost(service, {"request", "post", service.url + "/audience/",
                                                      "--payload", file("payload.json", payload)});
        EXPECT_THAT(json::parse(finished.output)["error"].get<std::string>(), HasSubstr(reason));
    }
    EXPECT_THAT(service.uploads(), SizeIs(cases.size()));
    EXPECT_THAT(phoneHost(service, {"request", "get", service.url + "/audience/"}).output,
                HasSubstr("by POST"));
    EXPECT_THAT(phoneHost(service, {"request", "get", service.url}).output,
                HasSubstr("/v5/audience/"));
}

TEST_F(ProgramsTest, TheServiceEndsOnSigtermWithAnAnswerPending) {
    const Service service = startService({{{"delaySeconds", 60}}});
    ChildProcess waiting(hostCommand(phoneWords(service, {"--wait", "60", "collect", "--force"})));
    while (service.uploads().empty()) {
        std::this_thread::yield();
    }
    service.process->send(SIGTERM);
    const auto start = steady_clock::now();
    EXPECT_EQ(service.process->finish().status, 0);
    EXPECT_LT(steady_clock::now() - start, seconds(2));
    EXPECT_EQ(waiting.finish().status, 1);
}

} // namespace
} // namespace morvellacinto::testing
