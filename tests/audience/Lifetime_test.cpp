#include "morvellacinto/audience/KRAudienceManager.h"
#include "support/ScriptedPhoneTest.h"

#include <atomic>
#include <cmath>
#include <thread>

namespace morvellacinto {
namespace {

using namespace std::chrono_literals;

class Lifetime : public ScriptedPhoneTest {
protected:
    // A completion that holds something of which it is counted where it dies.
    KRAudienceManager::Completion mortal() {
        ++made;
        const std::shared_ptr<void> held(this, [](void* self) {
            auto& test = *static_cast<Lifetime*>(self);
            ++(test.phone->dispatch().isMainThread() ? test.onMain : test.elsewhere);
        });
        return [held](const auto&, const auto&) {};
    }

    void collect(double x = 0, bool force = true) {
        std::thread([&] { manager.collect({{"x", x}}, mortal(), force); }).join();
    }
    void collect(scripted::HttpAnswer answer) {
        phone->http().plan(std::move(answer));
        collect();
    }
    void fetch(bool fails = false) {
        manager.kovraTagsWithCompletion(mortal());
        if (fails) {
            phone->locationServices().fail({"gps", 1, {}});
        }
    }
    void ask() {
        manager.setRequestTrackingAuthorization(true);
        phone->script()->trackingAuthorization = 0;
        fetch();
    }

    KRAudienceManager manager{Uuid()};
    std::atomic<int> made = 0;
    std::atomic<int> onMain = 0;
    std::atomic<int> elsewhere = 0;
};

TEST_F(Lifetime, ofWhatACompletionHoldsEndsOnTheMainQueueHoweverTheOperationEnds) {
    const KRError lost{"net", 1, {}};
    const struct {
        const char* ending;
        std::function<void()> begin;
    } ways[] = {
        {"an answer", [&] { collect({.body = "{}"}); }},
        {"the cached answer", [&] { collect(0, false); }},
        {"an answer that is dropped", [&] { collect({.body = "[]"}); }},
        {"an error", [&] { collect({.error = lost}); }},
        {"tags failed", [&] { collect(std::nan("")); }},
        {"a fix", [&] { fetch(); }},
        {"a later call", [&] { fetch(), fetch(); }},
        {"a failed location", [&] { fetch(true); }},
        {"the tracking question", [&] { ask(); }},
    };
    std::atomic<bool> isOver = false;
    std::thread background([&] {
        while (!isOver) {
            phone->runBackground();
            std::this_thread::yield();
        }
    });
    constexpr int rounds = 100;
    for (const auto& [ending, begin] : ways) {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        for (int round = 0; round < rounds; ++round) {
            begin();
            while (onMain + elsewhere < made && std::chrono::steady_clock::now() < deadline) {
                phone->drainMain();
                phone->locationServices().deliver({{1, 2, 3, 4}});
            }
        }
        EXPECT_EQ(onMain.exchange(0), made.exchange(0)) << ending;
        EXPECT_EQ(elsewhere.exchange(0), 0) << ending;
    }
    isOver = true;
    background.join();
    phone->settle();
    EXPECT_EQ(phone->takeLog(), std::vector<std::string>(rounds, "tags failed"));
}

TEST_F(Lifetime, endsWithAShutdownAtTheLatest) {
    collect(); // waits for its answer
    fetch();
    platform::shutdown();
    EXPECT_EQ(onMain, 2);
}

} // namespace
} // namespace morvellacinto
