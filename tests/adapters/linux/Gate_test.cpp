#include "adapters/linux/NativeFixtures.h"

#include "settings/SqliteDefaults.h"
#include "support/FaultServer.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Tracking.h"

#include <morvellacinto/native/HttpError.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace morvellacinto::native {
namespace {

using namespace std::chrono_literals;
using testing::answer;
using testing::FaultServer;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Gate : public ::testing::Test {
protected:
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
    /// Whether any file still has that text in it.
    [[nodiscard]] bool isOnDisk(const std::string& text) const {
        const std::filesystem::directory_iterator files(directory.path());
        return std::any_of(begin(files), end(files), [&](const auto& entry) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes{std::istreambuf_iterator(file), {}};
            return bytes.find(text) != std::string::npos;
        });
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

TEST_F(Gate, AWithheldConsentHoldsAtOnceInEveryProcessAndAcrossLaunches) {
    FaultServer server(nullptr, {});
    const auto one = make();
    const auto other = make();
    EXPECT_EQ(post(*other, server.url("/")), 0);
    EXPECT_TRUE(one->setUploadConsent(UploadConsent::withheld));
    EXPECT_EQ(post(*other, server.url("/")), withheld);
    EXPECT_EQ(post(*make(), server.url("/")), withheld);
    EXPECT_THAT(server.requests(), SizeIs(1));
    EXPECT_TRUE(other->setUploadConsent(UploadConsent::allowed));
    EXPECT_EQ(post(*one, server.url("/")), 0);
}

TEST_F(Gate, ARedirectIsNotFollowedOnceConsentIsWithheld) {
    const auto phone = make();
    FaultServer server(nullptr, {.onRequest = [&](auto& connection, const auto&) {
                           EXPECT_TRUE(make()->setUploadConsent(UploadConsent::withheld));
                           connection.write(answer(307, "", "Location: /next\r\n"));
                       }});
    EXPECT_EQ(post(*phone, server.url("/")), withheld);
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(Gate, AskedTheHostSendsChangesOrRefusesOnceForAllHops) {
    FaultServer server(nullptr, {.onRequest = [](auto& connection, const auto& request) {
                           connection.write(request.path() == "/"
                                                ? answer(307, "", "Location: /next\r\n")
                                                : answer(200, "{}"));
                       }});
    UploadAnswer kept;
    const auto send = [&](auto request, const auto& give) {
        give(request);
        give(std::nullopt);
    };
    const auto change = [](auto request, const auto& give) {
        EXPECT_EQ(request.body, "body");
        request.body = "other";
        give(request);
    };
    const auto changeScheme = [](auto request, const auto& give) {
        request.url = "http://example.invalid/";
        give(request);
    };
    const std::tuple<UploadQuestion, std::int64_t, std::vector<std::string>> cases[] = {
        {send, 0, {"body", "body"}},
        {change, 0, {"other", "other"}},
        {changeScheme, static_cast<std::int64_t>(HttpErrorCode::schemeRefused), {}},
        {[](const auto&, const auto& give) { give(std::nullopt); }, refused, {}},
        {[&](const auto&, const auto& give) { kept = give; }, refused, {}},
        {nullptr, refused, {}}};
    std::size_t arrived = 0;
    for (const auto& [question, code, bodies] : cases) {
        int questions = 0;
        const auto phone = make([&, ask = question](const auto& request, const auto& give) {
            ++questions;
            ask(request, give);
        });
        EXPECT_TRUE(phone->setUploadConsent(UploadConsent::asked));
        EXPECT_EQ(post(question ? *phone : *make(), server.url("/"), code == refused ? 200ms : 30s),
                  code);
        EXPECT_EQ(questions, question ? 1 : 0);
        ASSERT_THAT(server.requests(), SizeIs(arrived + bodies.size()));
        for (const std::string& body : bodies) {
            EXPECT_EQ(server.requests()[arrived++].body, body);
        }
    }
    kept(platform::HttpRequest()); // nobody is left who could send it
}

TEST_F(Gate, ErasedDataIsInNoFileAndDecisionsAndTheHostsOwnStay) {
    const auto phone = make();
    std::vector<std::string> erased{"the cached answer"};
    auto& settings = phone->standardUserDefaults();
    for (const char* old : {"an older answer", "an answer before that", "the cached answer"}) {
        erased.emplace_back(old);
        store(settings, "se.kovra.v5.KRAudiences", Object{{"tags", std::string(old)}});
    }
    store(settings, "host", "kept");
    EXPECT_TRUE(phone->setTrackingAuthorization(platform::TrackingAuthorization::authorized));
    EXPECT_TRUE(phone->setUploadConsent(UploadConsent::withheld));
    erased.push_back(phone->tracking().advertisingIdentifier()->text());
    std::ofstream(directory.path() / "com.example.gate.v1.db.damaged-wal") << erased.front();
    for (const std::string& text : erased) {
        EXPECT_TRUE(isOnDisk(text)) << text;
    }
    EXPECT_TRUE(phone->eraseStoredData());
    for (const std::string& text : erased) {
        EXPECT_FALSE(isOnDisk(text)) << text;
    }
    for (const auto& each : {phone, make()}) {
        EXPECT_EQ(each->storedSettings(), Object({{"host", "kept"}}));
        EXPECT_EQ(each->uploadConsent(), UploadConsent::withheld);
        EXPECT_NE(each->tracking().advertisingIdentifier()->text(), erased.back());
    }
}

TEST_F(Gate, AnotherProcessWritesNothingBackOfWhatWasErased) {
    auto other = defaults();
    KeptUuid identifier(
        {[&](std::string_view name) { return other.adapterValue(name); },
         [&](std::string_view name, std::string_view text) { other.setAdapterValue(name, text); },
         [&] { return other.synchronize(); }},
        keptVendorIdentifier);
    const Uuid before = identifier.get();
    other.setObjectForKey("pending", "se.kovra.v5.KRServiceURL");
    other.setObjectForKey("pending", "host");
    EXPECT_TRUE(defaults().erase());
    EXPECT_TRUE(other.synchronize());
    EXPECT_EQ(defaults().contents(), Object({{"host", "pending"}}));
    EXPECT_NE(identifier.get(), before);
}

TEST_F(Gate, AnAnswerThatWasOnItsWayIsDeliveredAndNotStored) {
    const auto phone = make();
    platform::install(phone);
    FaultServer server(nullptr, {.onRequest = [&](auto& connection, const auto&) {
                           EXPECT_TRUE(defaults().erase());
                           connection.write(answer(200, R"({"tags": {}})"));
                       }});
    store(phone->standardUserDefaults(), "se.kovra.v5.KRServiceURL", server.url(""));
    bool isComplete = false;
    KRAudienceManager manager(std::nullopt);
    manager.collect(Object{{"a", 1}}, [&](const auto& answer, const auto&) {
        EXPECT_TRUE(answer.has_value());
        isComplete = true;
    });
    EXPECT_TRUE(pumpUntil(*phone, [&] { return isComplete; }));
    EXPECT_THAT(phone->storedSettings(), IsEmpty());
    EXPECT_THAT(defaults().contents(), IsEmpty());
}

} // namespace
} // namespace morvellacinto::native
