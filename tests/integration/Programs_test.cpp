// SPDX-License-Identifier: MIT
#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

namespace morvellacinto::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using Words = std::vector<std::string>;

Words operator+(Words left, const Words& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Runs the host against services of its own, with one folder of settings for the whole test.
struct Programs : ::testing::Test {
    struct Service {
        std::unique_ptr<ChildProcess> process;
        std::string url;
        std::string caFile;
        std::string uploadsFile;

        [[nodiscard]] std::vector<json> uploads() const {
            std::vector<json> records;
            std::ifstream file(uploadsFile);
            for (std::string line; std::getline(file, line);) {
                records.push_back(json::parse(line));
            }
            return records;
        }
    };

    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(folder.path() / name) << content;
        return folder.path() / name;
    }
    Service startService(const json& scenario = json::array()) const {
        Service service;
        service.uploadsFile = folder.path() / "uploads";
        service.process = std::make_unique<ChildProcess>(
            Words{MORVELLACINTO_SERVICE, "--ca-out", folder.path() / "ca.pem", "--uploads",
                  service.uploadsFile, "--scenario", file("scenario.json", scenario.dump())});
        const json ready = json::parse(service.process->readLine());
        service.url = ready.at("url");
        service.caFile = ready.at("ca");
        return service;
    }
    Finished host(const Words& words, const std::string& input = {}) const {
        return ChildProcess(program + words, input).finish();
    }
    /// A client of `service` that runs on a scripted phone.
    Finished client(const Service& service, const Words& words) const {
        return host(
            Words{"--device", phone, "--ca-file", service.caFile, "--service-url", service.url} +
            words);
    }

    const TemporaryDirectory folder;
    const Words program{MORVELLACINTO_HOST, "--data-dir", folder.path() / "data", "--bundle", "b"};
    const std::string phone = file("phone.json", R"({"location": {"delaySeconds": 0}})");
};

TEST_F(Programs, WrongUsageEndsWithTwoAndOneLineThatSaysWhatIsWrong) {
    const std::string array = file("array.json", "[]");
    const std::string badStep = file("steps.json", R"([{}, {"status": 600}])");
    const std::string missing = folder.path() / "missing";
    const std::string needed = "an array where an object was expected";
    const Words service{MORVELLACINTO_SERVICE};
    const std::tuple<Words, Words, std::string> cases[] = {
        {program, {}, "command"},
        {program, {"--token", "1234", "url"}, "\"1234\" is not a UUID"},
        {program, {"--decimals", "3000000000", "url"}, "3000000000"},
        {program, {"--wait", "nan", "url"}, "nan"},
        {program, {"round", "--", "", "2"}, "value: is empty"},
        {program, {"settings", "list", "--data-dir", array}, array + "\" is no folder"},
        {program, {"cached", "apples"}, "apples"},
        {program, {"collect", "--payload", array}, needed},
        {program, {"request", "post", "x", "--payload", file("5.json", "5")}, "an integer where"},
        {program, {"query", file("broken.json", R"({"a": )")}, "broken.json"},
        {program, {"query", file("tags.json", R"({"sizes": [1]})")}, "sizes"},
        {program, {"settings", "set", "key", "1, 2"}, "1, 2"},
        {program, {"--device", file("0.json", R"({"model": 0})"), "payload"}, "model is 0"},
        {program, {"--ca-file", missing, "url"}, missing},
        {service, {"--cert", array}, "--key"},
        {service, {"--cert", array, "--key", array}, array},
        {service, {"--answer", array}, needed},
        {service, {"--scenario", badStep}, "step 2: \"status\" must be an integer from 200 to 599"},
        {service, {"--uploads", missing + "/uploads"}, missing}};
    for (const auto& [command, words, reason] : cases) {
        const Finished finished = ChildProcess(command + words).finish();
        EXPECT_EQ(finished.status, 2) << reason;
        EXPECT_EQ(finished.output, "") << reason;
        EXPECT_THAT(finished.errors, HasSubstr(reason));
        EXPECT_EQ(std::ranges::count(finished.errors, '\n'), 1) << finished.errors;
    }
}

TEST_F(Programs, CommandsThatNeedNoServicePrintTheirResultAloneAndSayWhatIsMissing) {
    const std::string unchanged =
        R"({"domain":"morvellacinto.host","code":1,"message":"the setting was not changed"})"
        "\n";
    const std::tuple<Words, int, std::string, std::string> cases[] = {
        {{"round", "59.3293371", "5"}, 0, "59.32934\n", ""},
        {{"round", "--", "-2.5", "0"}, 0, "-3\n", ""},
        {{"query", "-"}, 0, "a=1%202&a=3\n", ""},
        {{"--times", "2", "cached", "tags"}, 4, "", "there is no cached \"tags\"\n"},
        {{"settings", "set", "flag", "true"}, 0, "", ""},
        {{"settings", "set", "deep", R"({"a": [1.5, "x"]})"}, 0, "", ""},
        {{"settings", "list"}, 0, "{\"deep\":{\"a\":[1.5,\"x\"]},\"flag\":true}\n", ""},
        {{"settings", "remove", "flag"}, 0, "", ""},
        {{"settings", "set", "deep", "null"}, 1, "", unchanged},
        {{"settings", "list"}, 0, "{\"deep\":{\"a\":[1.5,\"x\"]}}\n", ""},
        {{"settings", "set-date", "when", "-2000000000.5"}, 0, "", ""},
        {{"--service-url", "https://a.invalid/v5", "url"}, 0, "https://a.invalid/v5\n", ""}};
    for (const auto& [words, status, output, errors] : cases) {
        const Finished finished = host(words, R"({"a": ["1 2", "3"]})");
        EXPECT_EQ(finished.status, status) << words.back() << finished.errors;
        EXPECT_EQ(finished.output, output) << words.back();
        EXPECT_EQ(finished.errors, errors) << words.back();
    }
    EXPECT_THAT(host({"settings", "get", "when"}).output,
                ::testing::MatchesRegex(R"(\{"date":"19[6-9][0-9T:-]+\.[0-9]+Z"\}.)"));
    EXPECT_THAT(host({"--version"}).output, ::testing::StartsWith("@(#)PROGRAM:Morvellacinto"));
}

TEST_F(Programs, OutputThatCannotBeWrittenIsAFailure) {
    for (const std::string command :
         {MORVELLACINTO_HOST " --help", MORVELLACINTO_HOST " round 1 2", MORVELLACINTO_SERVICE}) {
        const auto finished = ChildProcess({"/bin/sh", "-c", command + " >/dev/full"}).finish();
        EXPECT_EQ(finished.status, 1) << command;
        EXPECT_THAT(finished.errors, HasSubstr("standard output cannot be written")) << command;
    }
}

TEST_F(Programs, ThePageOfTheProgramsTellsTheirOptionsAndExitCodesAndItsFilesAreTaken) {
    std::ifstream stream(MORVELLACINTO_TOOLS_PAGE);
    const std::string page{std::istreambuf_iterator<char>(stream), {}};
    const auto service = page.find("## `morvellacinto-service`");
    const auto matches = [](const std::string& text, const char* pattern) {
        const std::regex expression(pattern);
        return std::set<std::string>(
            std::sregex_token_iterator(text.begin(), text.end(), expression, 1), {});
    };
    const auto sampleOf = [&](const std::string& path, const std::string& section) {
        const std::string help = ChildProcess({path, "--help"}).finish().output;
        EXPECT_EQ(matches(help, "(--[a-z][a-z-]+)"), matches(section, "`(--[a-z][a-z-]+)"));
        for (const std::string& status : matches(help, "\n  ([0-9]  [^\n]+)")) {
            const std::string row = "| " + status.substr(0, 1) + " | " + status.substr(3) + " |";
            EXPECT_THAT(section, HasSubstr(row));
        }
        return *matches(section.substr(section.find("### The file of")), "```json\n([^`]+)")
                    .begin();
    };
    const std::string sample =
        file("sample.json", sampleOf(MORVELLACINTO_HOST, page.substr(0, service)));
    EXPECT_EQ(host({"payload", "--device", sample}).output,
              host({"--device", phone, "payload"}).output);
    startService(json::parse(sampleOf(MORVELLACINTO_SERVICE, page.substr(service))));
}

TEST_F(Programs, AScriptedPhoneIsAskedForTrackingAndTakesItsTime) {
    const std::string slow =
        file("slow.json", R"({"trackingAuthorization": 0, "location": {"delaySeconds": 60}})");
    const Finished early = host({"--device", slow, "--decimals", "-1", "--wait", "0.1",
                                 "--ask-tracking", "--verbose", "tags"});
    EXPECT_THAT(early.errors, HasSubstr("permissionAsked"));
    EXPECT_THAT(early.errors, ::testing::Not(HasSubstr("tags failed")));
    ChildProcess service({MORVELLACINTO_SERVICE});
    const std::string authority = json::parse(service.readLine()).at("ca");
    EXPECT_TRUE(std::filesystem::exists(authority));
    service.send(SIGTERM);
    EXPECT_EQ(service.finish().status, 0);
    EXPECT_FALSE(std::filesystem::exists(authority));
}

TEST_F(Programs, TagsAreFetchedOnceAndThenServedFromTheCacheAlsoByLaterLaunches) {
    const Service service = startService();
    const Finished first = client(service, {"--decimals", "3", "--track-id", "me", "tags"});
    ASSERT_EQ(first.status, 0) << first.errors;
    const json answer = json::parse(first.output);
    EXPECT_EQ(answer["tags"]["place"], json::array({"59.329,18.069"}));
    EXPECT_EQ(answer["mapping"]["device"], "me");

    const Finished again = client(service, {"--times", "3", "tags"});
    EXPECT_EQ(again.output, first.output + first.output + first.output);
    EXPECT_EQ(json::parse(host({"cached", "tags"}).output), answer["tags"]);
    EXPECT_EQ(json::parse(host({"cached", "mapping"}).output), answer["mapping"]);
    EXPECT_EQ(host({"query"}).output, "locale=sv_SE&bundle=b&place=59.329,18.069\n");
    EXPECT_THAT(service.uploads(), SizeIs(1));

    ASSERT_EQ(host({"settings", "set-date", "KRAudienceUpdate", "-91"}).status, 0);
    EXPECT_EQ(client(service, {"tags"}).status, 0);
    EXPECT_EQ(client(service, {"--times", "2", "collect", "--force"}).status, 0);
    EXPECT_THAT(service.uploads(), SizeIs(4));
}

TEST_F(Programs, UploadsGoOutWithTheHeadersThatTheServiceKnowsAndTheirBodiesUnchanged) {
    const Service service = startService();
    const json payload{{"bundle", std::string(2'000'000, 'b')}, {"lat", 59.5}, {"lon", -0.25}};
    const std::string path = file("payload.json", payload.dump());
    const std::string token = "6e1f3c1a-8c5b-4c0e-9b57-5f3b1d0a7c42";
    ASSERT_EQ(client(service, {"--token", token, "collect", "--payload", path}).status, 0);
    ASSERT_EQ(client(service, {"request", "post", service.url + "/audience/"}).status, 0);
    const Finished elsewhere = client(service, {"request", "post", service.url + "/other"});
    EXPECT_THAT(elsewhere.output, HasSubstr("uploads go to"));
    const Finished got = client(service, {"request", "get", service.url + "/audience/"});
    EXPECT_THAT(got.output, HasSubstr("uploads are made by POST"));
    const std::vector<json> uploads = service.uploads();
    ASSERT_THAT(uploads, SizeIs(2));
    const json& headers = uploads[0]["headers"];
    EXPECT_EQ(headers.value("API_TOKEN", ""), "6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42");
    EXPECT_EQ(headers.value("Accept-Encoding", ""), "gzip");
    EXPECT_EQ(headers.value("Content-Type", ""), "application/x-www-form-urlencoded");
    EXPECT_FALSE(headers.contains("Expect") || headers.contains("REMOTE_ADDR"));
    EXPECT_EQ(uploads[0]["body"], payload);
    EXPECT_FALSE(uploads[1]["headers"].contains("API_TOKEN"));
}

TEST_F(Programs, WhatTheServiceDoesDecidesHowACommandEnds) {
    const std::tuple<json, int, std::string, std::string> cases[] = {
        {{{"status", 500}, {"body", R"({"a":1})"}}, 0, "{\"a\":1}\n", ""},
        {{{"body", R"({"b":"ääää"})"}, {"gzip", true}}, 0, "{\"b\":\"ääää\"}\n", ""},
        {{{"delaySeconds", 0.1}, {"dripBytesPerSecond", 200}, {"body", "{}"}}, 0, "{}\n", ""},
        {{{"body", "busy"}, {"status", 503}}, 3, "", "note: the answer with status 503 and 4 byte"},
        {{{"close", "before-headers"}}, 1, "", R"("domain":"morvellacinto.http","code":15)"},
        {{{"redirect", "https://127.0.0.1:1/"}}, 1, "", R"("code":24)"},
        {{{"serviceurl", "https://next.invalid"}}, 0, "", ""}};
    json scenario = json::array();
    for (const auto& each : cases) {
        scenario.push_back(std::get<json>(each));
    }
    const Service service = startService(scenario);
    for (const auto& [step, status, output, errors] : cases) {
        const Finished finished =
            client(service, {"--wait", status == 3 ? "1" : "60", "collect", "--force"});
        EXPECT_EQ(finished.status, status) << step << finished.errors;
        EXPECT_TRUE(output.empty() || finished.output == output) << step << finished.output;
        EXPECT_THAT(finished.errors, HasSubstr(errors)) << step;
    }
    EXPECT_EQ(host({"url"}).output, "https://next.invalid\n");
}

} // namespace
} // namespace morvellacinto::testing
