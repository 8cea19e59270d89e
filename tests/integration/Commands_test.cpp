#include "ProgramsTest.h"

#include <algorithm>

namespace morvellacinto::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(ProgramsTest, WrongUsageEndsWithTwoAndOneLineThatSaysWhatIsWrong) {
    const std::string array = file("array.json", "[]");
    const std::string broken = file("broken.json", R"({"a": )");
    const std::string badPhone =
        file("bad.json", R"({"location": {"fixes": [{"latitude": "n"}]}})");
    const std::string badAnswer = file("answer.json", R"({"trackingAnswer": 0})");
    const std::string badStep = file("steps.json", R"([{}, {"delaySeconds": "long"}])");
    const std::string missing = folder.path() / "missing";
    struct Case {
        Words words;
        std::string reason;
        bool isService = false;
    };
    const std::vector<Case> cases = {
        {{}, "command"},
        {{"dance"}, "dance"},
        {{"--token", "1234", "url"}, "\"1234\" is not a UUID"},
        {{"--decimals", "many", "url"}, "many"},
        {{"--decimals", "3000000000", "url"}, "3000000000"},
        {{"--times", "0", "url"}, "0"},
        {{"--wait", "-1", "url"}, "-1"},
        {{"--wait", "nan", "url"}, "nan"},
        {{"cached", "apples"}, "apples"},
        {{"round", "x", "1"}, "x"},
        {{"collect", "--payload", missing}, missing},
        {{"collect", "--payload", folder.path()}, folder.path()},
        {{"collect", "--payload", array}, "an array where an object was expected"},
        {{"query", broken}, broken},
        {{"query", file("tags.json", R"({"sizes": [1]})")}, "sizes"},
        {{"settings", "set", "key", "{1}"}, "{1}"},
        {{"--device", missing, "payload"}, missing},
        {{"--device", badPhone, "payload"}, "location.fixes[0].latitude is \"n\""},
        {{"--device", badAnswer, "payload"}, "trackingAnswer is 0"},
        {{"--ca-file", missing, "url"}, missing},
        {{"--port", "65536"}, "65536", true},
        {{"--cert", array}, "--key", true},
        {{"--cert", array, "--key", array}, array, true},
        {{"--answer", array}, "an array where an object was expected", true},
        {{"--scenario", badStep}, "step 2: \"delaySeconds\" must be", true},
        {{"--uploads", missing + "/uploads"}, missing, true},
    };
    for (const Case& each : cases) {
        Words service{MORVELLACINTO_SERVICE};
        service.insert(service.end(), each.words.begin(), each.words.end());
        const Finished finished =
            each.isService ? ChildProcess(service).finish() : host(each.words);
        EXPECT_EQ(finished.status, 2) << each.reason;
        EXPECT_EQ(finished.output, "") << each.reason;
        EXPECT_THAT(finished.errors, HasSubstr(each.reason));
        EXPECT_EQ(std::count(finished.errors.begin(), finished.errors.end(), '\n'), 1)
            << finished.errors;
    }
}

TEST_F(ProgramsTest, CommandsThatNeedNoServicePrintTheirResultAlone) {
    struct Case {
        Words words;
        int status;
        std::string output;
        std::string input = {};
    };
    const std::vector<Case> cases = {
        {{"round", "59.3293371", "5"}, 0, "59.32934\n"},
        {{"round", "--", "-2.5", "0"}, 0, "-3\n"},
        {{"query", "-"}, 0, "a=1%202&a=3\n", R"({"a": ["1 2", "3"]})"},
        {{"cached", "tags"}, 4, ""},
        {{"settings", "get", "flag"}, 4, ""},
        {{"settings", "set", "flag", "true"}, 0, ""},
        {{"settings", "set", "deep", R"({"a": [1.5, "x"]})"}, 0, ""},
        {{"settings", "list"}, 0, "{\"deep\":{\"a\":[1.5,\"x\"]},\"flag\":true}\n"},
        {{"settings", "remove", "flag"}, 0, ""},
        {{"settings", "list"}, 0, "{\"deep\":{\"a\":[1.5,\"x\"]}}\n"},
        {{"settings", "set", "deep", "null"}, 1, ""},
        {{"settings", "get", "deep"}, 0, "{\"a\":[1.5,\"x\"]}\n"},
        {{"--service-url", "https://a.invalid/v5", "url"}, 0, "https://a.invalid/v5\n"},
    };
    for (const Case& each : cases) {
        const Finished finished = host(each.words, each.input);
        EXPECT_EQ(finished.status, each.status) << each.words.back() << finished.errors;
        EXPECT_EQ(finished.output, each.output) << each.words.back();
    }
    EXPECT_THAT(host({"--version"}).output,
                StartsWith("@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n1"));
}

TEST_F(ProgramsTest, ADateIsSetRelativeToNowAndPrintedInUtcWithMilliseconds) {
    ASSERT_EQ(host({"settings", "set-date", "when", "-3600.5"}).status, 0);
    const json when = json::parse(host({"settings", "get", "when"}).output);
    EXPECT_THAT(when.at("date").get<std::string>(),
                ::testing::MatchesRegex(
                    "20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9].[0-9]+Z"));
}

TEST_F(ProgramsTest, TheScriptedPhoneStandsForTheDeviceAndTheOptionsForTheRest) {
    const Finished whole = host({"--device", phone, "--bundle", "com.other", "payload"});
    const json payload = json::parse(whole.output);
    EXPECT_EQ(payload.size(), 19U);
    EXPECT_EQ(payload["bundle"], "com.other");
    EXPECT_EQ(payload["carrierName"], "Telco");

    const Finished partial =
        host({"--device", file("unknown.json", R"({"model": null})"), "payload"});
    EXPECT_EQ(json::parse(partial.output).size(), 4U);
    EXPECT_EQ(partial.errors, "log: payload failed\n");

    const Finished unrounded = host({"--device", phone, "--decimals", "-1", "--wait", "1", "tags"});
    EXPECT_EQ(unrounded.status, 3);
    EXPECT_THAT(unrounded.errors, StartsWith("log: tags failed\n"));
}

} // namespace
} // namespace morvellacinto::testing
