#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

namespace morvellacinto::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Words = std::vector<std::string>;

Words operator+(Words left, const Words& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Runs the host against services of its own, with one folder of settings for the whole test.
class Programs : public ::testing::Test {
protected:
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
    Words hostCommand(const Words& words) const {
        return Words{MORVELLACINTO_HOST, "--data-dir", folder.path() / "data"} + words;
    }
    Finished host(const Words& words, const std::string& input = {}) const {
        return ChildProcess(hostCommand(words), input).finish();
    }
    /// Of a client of `service` that runs on a scripted phone.
    Words clientWords(const Service& service, const Words& words) const {
        return Words{"--device", phone, "--ca-file", service.caFile, "--service-url", service.url} +
               words;
    }
    Finished client(const Service& service, const Words& words) const {
        return host(clientWords(service, words));
    }

    const TemporaryDirectory folder;
    const std::string phone = file("phone.json", R"({"location": {"delaySeconds": 0}})");
};

TEST_F(Programs, WrongUsageEndsWithTwoAndOneLineThatSaysWhatIsWrong) {
    const std::string array = file("array.json", "[]");
    const std::string badStep = file("steps.json", R"([{}, {"status": 600}])");
    const std::string missing = folder.path() / "missing";
    const std::string url = "https://a.invalid";
    const std::string needed = "an array where an object was expected";
    const Words program = hostCommand({});
    const Words service{MORVELLACINTO_SERVICE};
    const std::tuple<Words, Words, std::string> cases[] = {
        {program, {}, "command"},
        {program, {"dance"}, "dance"},
        {program, {"--token", "1234", "url"}, "\"1234\" is not a UUID"},
        {program, {"--decimals", "3000000000", "url"}, "3000000000"},
        {program, {"--times", "0", "url"}, "0"},
        {program, {"--wait", "nan", "url"}, "nan"},
        {program, {"--decimals", "", "url"}, "--decimals: is empty"},
        {program, {"round", "--", "", "2"}, "value: is empty"},
        {program, {"settings", "list", "--data-dir", array}, array + "\" is no folder"},
        {program, {"settings", "list", "--data-dir", array + "/below"}, "/below\" is no folder"},
        {program, {"cached", "apples"}, "apples"},
        {program, {"collect", "--payload", folder.path()}, folder.path()},
        {program, {"collect", "--payload", array}, needed},
        {program, {"query", file("broken.json", R"({"a": )")}, "broken.json"},
        {program, {"query", file("tags.json", R"({"sizes": [1]})")}, "sizes"},
        {program, {"settings", "set", "key", "1,2"}, "1,2"},
        {program, {"request", "post", url, "--payload", file("5.json", "5")}, "is an integer"},
        {program, {"--device", file("0.json", R"({"model": 0})"), "payload"}, "model is 0"},
        {program, {"--ca-file", missing, "url"}, missing},
        {service, {"--port", "65536"}, "65536"},
        {service, {"--cert", array}, "--key"},
        {service, {"--cert", array, "--key", array}, array},
        {service, {"--answer", array}, needed},
        {service, {"--scenario", badStep}, "step 2: \"status\" must be an integer from 200 to 599"},
        {service, {"--uploads", missing + "/uploads"}, missing},
    };
    for (const auto& [command, words, reason] : cases) {
        const Finished finished = ChildProcess(command + words).finish();
        EXPECT_EQ(finished.status, 2) << reason;
        EXPECT_EQ(finished.output, "") << reason;
        EXPECT_THAT(finished.errors, HasSubstr(reason));
        EXPECT_EQ(std::ranges::count(finished.errors, '\n'), 1) << finished.errors;
    }
}

TEST_F(Programs, CommandsThatNeedNoServicePrintTheirResultAloneAndSayWhatIsMissing) {
    const std::tuple<Words, int, std::string, std::string> cases[] = {
        {{"round", "59.3293371", "5"}, 0, "59.32934\n", ""},
        {{"round", "--", "-2.5", "0"}, 0, "-3\n", ""},
        {{"query", "-"}, 0, "a=1%202&a=3\n", ""},
        {{"--times", "2", "query"}, 4, "", "there is no cached \"tags\" that is an object\n"},
        {{"cached", "tags"}, 4, "", "there is no cached \"tags\"\n"},
        {{"settings", "get", "url"}, 4, "", "there is no setting \"url\"\n"},
        {{"settings", "set", "flag", "true"}, 0, "", ""},
        {{"settings", "set", "deep", R"({"a": [1.5, "x"]})"}, 0, "", ""},
        {{"settings", "list"}, 0, "{\"deep\":{\"a\":[1.5,\"x\"]},\"flag\":true}\n", ""},
        {{"settings", "remove", "flag"}, 0, "", ""},
        {{"settings", "set", "deep", "null"},
         1,
         "",
         "{\"domain\":\"morvellacinto.host\",\"code\":1,\"message\":\"the setting was not "
         "changed\"}\n"},
        {{"settings", "list"}, 0, "{\"deep\":{\"a\":[1.5,\"x\"]}}\n", ""},
        {{"settings", "set-date", "when", "-3e9"}, 0, "", ""},
        {{"--service-url", "https://a.invalid/v5", "url"}, 0, "https://a.invalid/v5\n", ""},
    };
    for (const auto& [words, status, output, errors] : cases) {
        const Finished finished = host(words, R"({"a": ["1 2", "3"]})");
        EXPECT_EQ(finished.status, status) << words.back() << finished.errors;
        EXPECT_EQ(finished.output, output) << words.back();
        EXPECT_EQ(finished.errors, errors) << words.back();
    }
    EXPECT_THAT(host({"settings", "get", "when"}).output,
                ::testing::MatchesRegex(R"(\{"date":"19[0-9T:-]+\.[0-9]+Z"\}.)"));
    EXPECT_THAT(host({"--version"}).output, StartsWith("@(#)PROGRAM:Morvellacinto"));
}

TEST_F(Programs, OutputThatCannotBeWrittenIsAFailure) {
    for (const std::string command : {MORVELLACINTO_HOST " --help", MORVELLACINTO_HOST " round 1 2",
                                      MORVELLACINTO_SERVICE " --help", MORVELLACINTO_SERVICE}) {
        const auto finished = ChildProcess({"/bin/sh", "-c", command + " >/dev/full"}).finish();
        EXPECT_EQ(finished.status, 1) << command;
        EXPECT_THAT(finished.errors, HasSubstr("standard output cannot be written")) << command;
    }
}

TEST_F(Programs, ThePageOfTheProgramsTellsTheirOptionsExitCodesAndFiles) {
    std::ifstream stream(MORVELLACINTO_TOOLS_PAGE);
    const std::string page{std::istreambuf_iterator<char>(stream), {}};
    const auto service = page.find("## `morvellacinto-service`");
    ASSERT_NE(service, std::string::npos);
    const auto matches = [](const std::string& text, const char* pattern) {
        const std::regex expression(pattern);
        return std::set<std::string>(
            std::sregex_token_iterator(text.begin(), text.end(), expression, 1), {});
    };
    const auto expectTold = [&](const Words& program, const std::string& section,
                                const std::string& fileOption,
                                const std::vector<std::string>& unknown, const Words& more) {
        const std::string help = ChildProcess(program + Words{"--help"}).finish().output;
        EXPECT_EQ(matches(help, "(--[a-z][a-z-]+)"), matches(section, "`(--[a-z][a-z-]+)"));
        for (const std::string& status : matches(help, "\n  ([0-9]  [^\n]+)")) {
            const std::string row = "| " + status.substr(0, 1) + " | " + status.substr(3) + " |";
            EXPECT_THAT(section, HasSubstr(row));
        }
        std::set<std::string> known;
        for (const std::string& content : unknown) {
            const Words words{fileOption, file("unknown.json", content)};
            const Finished finished = ChildProcess(program + words + more).finish();
            EXPECT_EQ(finished.status, 2) << content;
            known.merge(
                matches(finished.errors.substr(finished.errors.find("here:")), " ([A-Za-z]+)"));
        }
        const std::string format = section.substr(section.find("### The file of"));
        EXPECT_EQ(known, matches(format, "\"([A-Za-z]+)\": "));
        file("sample.json", *matches(format, "```json\n([^`]+)").begin());
    };
    expectTold({MORVELLACINTO_HOST}, page.substr(0, service), "--device",
               {R"({"x": 0})", R"({"carriers": [{"x": 0}]})", R"({"location": {"x": 0}})",
                R"({"wifi": [{"interface": "", "x": 0}]})",
                R"({"location": {"error": {"domain": "", "code": 0, "x": 0}}})",
                R"({"location": {"fixes": [{"latitude": 0, "longitude": 0, "x": 0}]}})"},
               {"payload"});
    const std::string sample = folder.path() / "sample.json";
    EXPECT_EQ(host({"payload", "--device", sample}).output,
              host({"--device", phone, "payload"}).output);
    expectTold({MORVELLACINTO_SERVICE}, page.substr(service), "--scenario", {R"([{"x": 0}])"}, {});
    const Service first = startService(json::parse(std::ifstream(sample)));
    const auto port = first.url.substr(18, first.url.find("/v5") - 18);
    const auto second = ChildProcess({MORVELLACINTO_SERVICE, "--port", port}).finish();
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "port " + port + " of 127.0.0.1 cannot be bound\n");
}

TEST_F(Programs, TheScriptedPhoneStandsForTheDeviceAndTheOptionsForTheRest) {
    const json payload = json::parse(host({"--device", phone, "--bundle", "b", "payload"}).output);
    EXPECT_EQ(payload.size(), 19U);
    EXPECT_EQ(payload["bundle"], "b");
    EXPECT_EQ(payload["carrierName"], "Telco");

    const Finished unrounded = host({"--device", phone, "--decimals", "-1", "--wait", "1", "tags"});
    EXPECT_EQ(unrounded.status, 3);
    EXPECT_THAT(unrounded.errors, StartsWith("log: tags failed\n"));
    const std::string slow =
        file("slow.json", R"({"trackingAuthorization": 0, "location": {"delaySeconds": 60}})");
    const Finished early = host({"--device", slow, "--decimals", "-1", "--wait", "0.1",
                                 "--ask-tracking", "--verbose", "tags"});
    EXPECT_THAT(early.errors, HasSubstr("permissionAsked"));
    EXPECT_THAT(early.errors, ::testing::Not(HasSubstr("tags failed")));
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
    EXPECT_EQ(host({"query"}).output, "locale=sv_SE&bundle=com.example.host&place=59.329,18.069\n");
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
    const Finished untrusted = host({"--device", phone, "collect", "--force"});
    EXPECT_EQ(json::parse(untrusted.errors)["code"], 13) << "without the authority's certificate";

    const std::vector<json> uploads = service.uploads();
    ASSERT_THAT(uploads, SizeIs(2));
    const json& headers = uploads[0]["headers"];
    EXPECT_EQ(headers.value("API_TOKEN", ""), "6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42");
    EXPECT_EQ(headers.value("Accept-Encoding", ""), "gzip");
    EXPECT_EQ(headers.value("Content-Type", ""), "application/x-www-form-urlencoded");
    EXPECT_FALSE(headers.contains("Expect") || headers.contains("REMOTE_ADDR"));
    EXPECT_EQ(uploads[0]["body"], payload);
    EXPECT_FALSE(uploads[1]["headers"].contains("API_TOKEN"));
    EXPECT_EQ(uploads[1]["bytes"], 32);
}

TEST_F(Programs, WhatTheServiceDoesDecidesHowACommandEnds) {
    const std::tuple<json, int, std::string, std::string> cases[] = {
        {{{"status", 500}, {"body", R"({"a":1})"}}, 0, "{\"a\":1}\n", ""},
        {{{"body", R"({"b":"ääää"})"}, {"gzip", true}}, 0, "{\"b\":\"ääää\"}\n", ""},
        {{{"delaySeconds", 0.1}, {"dripBytesPerSecond", 200}, {"body", "{}"}}, 0, "{}\n", ""},
        {{{"body", "busy"}, {"status", 503}}, 3, "", "note: the answer with status 503 and 4 byte"},
        {{{"close", "before-headers"}}, 1, "", R"("domain":"morvellacinto.http","code":15)"},
        {{{"redirect", "https://127.0.0.1:1/"}}, 1, "", R"("code":24)"},
        {{{"serviceurl", "https://next.invalid"}}, 0, "", ""},
    };
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

TEST_F(Programs, MalformedUploadsAreToldWhatIsWrongWithThem) {
    const Service service = startService();
    const std::string url = service.url + "/audience/";
    const std::pair<const char*, const char*> cases[] = {
        {"[]", "an array where an object"},
        {R"({"lat": "59", "lon": 18})", R"("lat" is a string)"},
        {R"({"lat": 59.3})", "come together"},
        {R"({"lat": 59.3, "lon": -181})", "-181, which is not on earth"},
        {R"({"lat": 90.5, "lon": 18})", "90.5, which is not on earth"},
        {R"({"vendorId": 7})", R"("vendorId" is an integer)"},
    };
    for (const auto& [payload, reason] : cases) {
        const std::string path = file("payload.json", payload);
        const Finished finished = client(service, {"request", "post", url, "--payload", path});
        EXPECT_THAT(json::parse(finished.output)["error"].get<std::string>(), HasSubstr(reason));
    }
    EXPECT_THAT(client(service, {"request", "get", url}).output, HasSubstr("by POST"));
    EXPECT_THAT(client(service, {"request", "get", service.url}).output,
                HasSubstr("/v5/audience/"));
}

TEST_F(Programs, TheServiceEndsOnSigtermWithAnAnswerPendingAndLeavesNoFile) {
    const Service service = startService({{{"delaySeconds", 60}}});
    ChildProcess waiting(hostCommand(clientWords(service, {"--wait", "60", "collect", "--force"})));
    while (service.uploads().empty()) {
        std::this_thread::yield();
    }
    service.process->send(SIGTERM);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(service.process->finish().status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(waiting.finish().status, 1);
    ChildProcess other({MORVELLACINTO_SERVICE});
    const std::string authority = json::parse(other.readLine()).at("ca");
    EXPECT_TRUE(std::filesystem::exists(authority));
    other.send(SIGTERM);
    EXPECT_EQ(other.finish().status, 0);
    EXPECT_FALSE(std::filesystem::exists(authority));
}

} // namespace
} // namespace morvellacinto::testing
