// SPDX-License-Identifier: MIT
#include "adapters/linux/NativeFixtures.h"

#include "settings/SqliteDefaults.h"
#include "support/FaultServer.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Tracking.h"

#include <morvellacinto/native/HttpError.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

namespace morvellacinto::native {

using namespace std::chrono_literals;
using testing::answer;
using testing::FaultServer;
using ::testing::IsEmpty;

struct Gate : ::testing::Test {
    /// Each is what a process of the application has.
    std::shared_ptr<NativePlatform> make(UploadQuestion ask = {}) const {
        return NativePlatform::create({.bundleIdentifier = "com.example.gate",
                                       .dataDirectory = directory.path(),
                                       .diagnostics = [](std::string_view) {},
                                       .beforeUpload = std::move(ask)});
    }
    /// The code of the error that a request ends with; 0 for none.
    static std::int64_t post(NativePlatform& phone, const std::string& url,
                             std::chrono::milliseconds timeout = 30s) {
        std::atomic<std::int64_t> code = -1;
        phone.makeHttpSession({{}, timeout}, nullptr)
            ->dataTask({"POST", url, {}, "body"},
                       [&](const auto&, const auto&, const auto& error) {
                           code = error ? error->code : 0;
                       })
            ->resume();
        EXPECT_TRUE(pumpUntil(phone, [&] { return code != -1; }));
        return code;
    }
    [[nodiscard]] std::string disk() const {
        std::string bytes;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            std::ifstream file(entry.path(), std::ios::binary);
            bytes.append(std::istreambuf_iterator(file), {});
        }
        return bytes;
    }
    static void store(platform::UserDefaults& defaults, std::string_view key, Value value) {
        defaults.setObjectForKey(std::move(value), key);
        EXPECT_TRUE(defaults.synchronize());
    }
    SqliteDefaults defaults() const { return {directory.path(), "com.example.gate", {}}; }

    static constexpr auto withheld = static_cast<std::int64_t>(HttpErrorCode::uploadWithheld);
    static constexpr auto refused = static_cast<std::int64_t>(HttpErrorCode::uploadRefused);
    const TemporaryDirectory directory;
};

TEST_F(Gate, WithheldConsentStopsTheNextHopInEveryProcessAndAcrossLaunches) {
    FaultServer server(nullptr, {.onRequest = [&](auto& connection, const auto& request) {
                           if (request.path() == "/withhold") {
                               EXPECT_TRUE(make()->setUploadConsent(UploadConsent::withheld));
                               connection.write(answer(307, "", "Location: /next\r\n"));
                           }
                           connection.write(answer(200, "{}"));
                       }});
    const auto one = make();
    const auto other = make();
    EXPECT_EQ(post(*other, server.url("/")), 0);
    EXPECT_EQ(post(*one, server.url("/withhold")), withheld);
    EXPECT_EQ(post(*other, server.url("/")), withheld);
    EXPECT_EQ(post(*make(), server.url("/")), withheld);
    EXPECT_THAT(server.requests(), ::testing::SizeIs(2));
    EXPECT_TRUE(other->setUploadConsent(UploadConsent::allowed));
    EXPECT_EQ(post(*one, server.url("/")), 0);
}

TEST_F(Gate, AskedTheHostSendsChangesOrRefusesOnceForAllHops) {
    FaultServer server(nullptr, {.onRequest = [](auto& connection, const auto& request) {
                           connection.write(request.path() == "/"
                                                ? answer(307, "", "Location: /next\r\n")
                                                : answer(200, "{}"));
                       }});
    UploadAnswer kept;
    const auto send = [](auto request, const auto& give) { give(request), give(std::nullopt); };
    const auto change = [](auto request, const auto& give) {
        request.body = "other", give(request);
    };
    const auto misdirect = [](auto request, const auto& give) {
        request.url = "http://example.invalid/";
        give(request);
    };
    const std::tuple<UploadQuestion, std::int64_t, std::string> cases[] = {
        {send, 0, "body"},
        {change, 0, "other"},
        {misdirect, static_cast<std::int64_t>(HttpErrorCode::schemeRefused), ""},
        {[](const auto&, const auto& give) { give(std::nullopt); }, refused, ""},
        {[&](const auto&, const auto& give) { kept = give; }, refused, ""}};
    for (const auto& [question, code, body] : cases) {
        const auto before = server.requests().size();
        int questions = 0;
        const auto phone = make([&, ask = question](const auto& request, const auto& give) {
            ++questions;
            ask(request, give);
        });
        EXPECT_TRUE(phone->setUploadConsent(UploadConsent::asked));
        EXPECT_EQ(post(*phone, server.url("/"), code == refused ? 200ms : 30s), code);
        EXPECT_EQ(questions, 1);
        ASSERT_THAT(server.requests(), ::testing::SizeIs(before + (body.empty() ? 0 : 2)));
        EXPECT_EQ(body.empty() ? "" : server.requests().back().body, body);
    }
    EXPECT_EQ(post(*make(), server.url("/")), refused) << "nobody is there to be asked";
    kept(platform::HttpRequest()); // nobody is left who could send it
}

TEST_F(Gate, ErasedDataIsInNoFileAndDecisionsAndTheHostsOwnStay) {
    const auto phone = make();
    const auto other = make();
    std::vector<std::string> erased{"an older answer", "the cached answer"};
    for (const std::string& answer : erased) {
        store(phone->standardUserDefaults(), "se.kovra.v5.KRAudiences", answer);
    }
    store(phone->standardUserDefaults(), "host", "kept");
    EXPECT_TRUE(phone->setTrackingAuthorization(platform::TrackingAuthorization::authorized));
    EXPECT_TRUE(phone->setUploadConsent(UploadConsent::withheld));
    const auto identifier = other->tracking().advertisingIdentifier();
    erased.push_back(identifier->text());
    erased.emplace_back("set aside");
    std::ofstream(directory.path() / "com.example.gate.v1.db.damaged-wal") << erased.back();
    const std::string before = disk();
    EXPECT_TRUE(phone->eraseStoredData());
    const std::string after = disk();
    for (const std::string& text : erased) {
        EXPECT_THAT(before, ::testing::HasSubstr(text));
        EXPECT_THAT(after, Not(::testing::HasSubstr(text)));
    }
    for (const auto& each : {other, phone, make()}) {
        EXPECT_EQ(each->uploadConsent(), UploadConsent::withheld);
        EXPECT_EQ(each->storedSettings(), Object({{"host", "kept"}}));
        EXPECT_NE(each->tracking().advertisingIdentifier(), identifier);
    }
}

TEST_F(Gate, AnotherProcessWritesNothingBackOfWhatWasErased) {
    auto other = defaults();
    EXPECT_THAT(other.contents(), IsEmpty()) << "what it knows before";
    other.setObjectForKey("pending", "se.kovra.v5.KRServiceURL");
    other.setObjectForKey("pending", "host");
    EXPECT_TRUE(defaults().erase());
    EXPECT_TRUE(other.synchronize());
    EXPECT_EQ(defaults().contents(), Object({{"host", "pending"}}));
}

TEST_F(Gate, WhatIsSetWhileAnErasureWaitsForTheDiskIsKept) {
    auto own = defaults();
    own.endWaits();
    const int folder = open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    EXPECT_FALSE(own.erase());
    own.setObjectForKey("new", "se.kovra.v5.KRServiceURL");
    close(folder);
    auto other = defaults();
    store(other, "host", "theirs");
    EXPECT_TRUE(own.synchronize());
    EXPECT_EQ(defaults().contents(),
              Object({{"host", "theirs"}, {"se.kovra.v5.KRServiceURL", "new"}}));
}

TEST_F(Gate, APreviewIsWhatLeavesAndAnAnswerOnItsWayDuringAnErasureIsNotStored) {
    const auto phone = make();
    platform::install(phone);
    FaultServer server(nullptr, {.onRequest = [&](auto& connection, const auto&) {
                           EXPECT_TRUE(defaults().erase());
                           connection.write(answer(200, R"({"tags": {}})"));
                       }});
    store(phone->standardUserDefaults(), "se.kovra.v5.KRServiceURL", server.url(""));
    bool isComplete = false;
    KRAudienceManager manager(std::nullopt, 5, "me");
    Object payload{{"a", 0.1F}};
    const std::string preview = manager.previewUpload(payload);
    manager.collect(payload, [&](const auto& given, const auto&) {
        EXPECT_TRUE(given.has_value());
        isComplete = true;
    });
    EXPECT_TRUE(pumpUntil(*phone, [&] { return isComplete; }));
    EXPECT_EQ(server.requests().at(0).body, preview);
    EXPECT_THAT(phone->storedSettings(), IsEmpty());
    EXPECT_THAT(defaults().contents(), IsEmpty());
}

} // namespace morvellacinto::native
