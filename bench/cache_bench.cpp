// SPDX-License-Identifier: MIT
// What is answered from the cache, on a Linux phone.

#include "Comparison.h"
#include "JsonTexts.h"
#include "Peers.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/platform/Dispatch.h"
#include "support/ChildProcess.h"
#include <morvellacinto/native/NativePlatform.h>

#include <cstdio>
#include <filesystem>
#include <thread>

namespace morvellacinto::bench {
namespace {

using native::NativePlatform;
using Clock = std::chrono::steady_clock;

class Host {
public:
    Host()
        : phone_(NativePlatform::create({.bundleIdentifier = "com.example.bench",
                                         .dataDirectory = folder_.file("settings")})) {
        platform::install(phone_);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() { platform::shutdown(); }

    [[nodiscard]] NativePlatform& phone() { return *phone_; }
    [[nodiscard]] KRAudienceManager& manager() { return manager_; }
    [[nodiscard]] Folder& folder() { return folder_; }

    /// As if the service had answered `text` just now.
    void cache(const std::string& text) {
        require(KRSettingsManager::setLocalSetting(phone_->clock().now(), "KRAudienceUpdate") &&
                    KRSettingsManager::setLocalSetting(readJson(text), "KRAudiences"),
                "nothing was cached");
    }

private:
    Folder folder_;
    std::shared_ptr<NativePlatform> phone_;
    KRAudienceManager manager_{Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42")};
};

// Reading it back through a prepared statement, as a host would that keeps the answer as text.
class StoredText {
public:
    explicit StoredText(const std::string& path) : database_(path) {
        statement_ = database_.prepare("SELECT value FROM entry WHERE key = ?1");
    }
    StoredText(const StoredText&) = delete;
    StoredText& operator=(const StoredText&) = delete;
    ~StoredText() { sqlite3_finalize(statement_); }

    void store(const std::string& text) { database_.store("answer", text); }
    [[nodiscard]] Value tags() {
        sqlite3_bind_blob(statement_, 1, "answer", 6, SQLITE_STATIC);
        require(sqlite3_step(statement_) == SQLITE_ROW, "no row");
        const std::string_view text(static_cast<const char*>(sqlite3_column_blob(statement_, 0)),
                                    static_cast<std::size_t>(sqlite3_column_bytes(statement_, 0)));
        Value tags = readJson(text)->asObject().at("tags");
        sqlite3_reset(statement_);
        return tags;
    }

private:
    BareSqlite database_;
    sqlite3_stmt* statement_ = nullptr;
};

void compareCachedTags(Host& host, const std::string& row, const std::string& text) {
    const auto map = std::make_shared<MapUnderMutex>();
    map->set("KRAudiences", *readJson(text));
    const auto stored = std::make_shared<StoredText>(host.folder().file(row.c_str()));
    stored->store(text);
    const auto read = [&host] { return host.manager().cachedTags(KRTagsTypeTags); };
    const auto cacheOnce = [&host, text, cached = false]() mutable {
        if (!std::exchange(cached, true)) {
            host.cache(text);
        }
        require(host.manager().cachedTags(KRTagsTypeTags).has_value(), "nothing is cached");
    };
    // After a pause it looks for what other processes may have changed unseen.
    const auto afterPause = [read] {
        std::this_thread::sleep_for(std::chrono::milliseconds(110));
        return secondsOf([&] { benchmark::DoNotOptimize(read()); });
    };
    const auto fromMap = [map] { return map->find("KRAudiences")->asObject().at("tags"); };
    compare(row, {prepared(cacheOnce, repeated("ours", read)),
                  repeated("map under a shared mutex", fromMap, 3),
                  repeated("SQLite select and parse", [stored] { return stored->tags(); })});
    compare(row + ", first after a pause",
            {prepared(cacheOnce, {"ours", afterPause}),
             repeated("SQLite select and parse", [stored] { return stored->tags(); })});
}

// Seconds that `call` takes when nothing waits on the main queue, which is drained afterwards: in
// the same time or, when `completion` is not to be counted, out of it.
template <class Call>
std::function<double()> onEmptyQueue(Host& host, bool countCompletion,
                                     const std::shared_ptr<int>& completed, Call call) {
    return [=, &host] {
        constexpr int times = 1000;
        *completed = 0;
        Clock::duration passed{};
        for (int index = 0; index < times; ++index) {
            const auto begun = Clock::now();
            call();
            if (countCompletion) {
                host.phone().drain();
            }
            passed += Clock::now() - begun;
            host.phone().drain();
        }
        require(*completed == times, "a completion was not called");
        return std::chrono::duration<double>(passed).count() / times;
    };
}

void compareCollect(Host& host) {
    const auto payload = std::make_shared<Object>(readJson(payloadText())->asObject());
    const auto completed = std::make_shared<int>(0);
    const auto collect = [&host, payload, completed] {
        host.manager().collect(*payload, [completed](const auto& answer, const auto&) {
            *completed += answer.has_value() ? 1 : 0;
        });
    };
    const auto dispatch = [&host, completed] {
        host.phone().dispatch().asyncMain([completed] { ++*completed; });
    };
    for (const bool completion : {false, true}) {
        compare(completion ? "collect from the cache, to completion"
                           : "collect from the cache, to return",
                {prepared([&host] { host.cache(answerText(600)); },
                          {"ours", onEmptyQueue(host, completion, completed, collect)}),
                 {"one dispatch to the main queue",
                  onEmptyQueue(host, completion, completed, dispatch), 2}});
    }
}

// Told on standard output by a new process, whose settings hold an answer.
int firstCollect(const char* settings) {
    Object payload = readJson(payloadText())->asObject();
    const auto phone = NativePlatform::create(
        {.bundleIdentifier = "com.example.bench", .dataDirectory = settings});
    platform::install(phone);
    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"));
    bool answered = false;
    const double seconds = secondsOf([&] {
        manager.collect(payload, [&](const auto& answer, const auto&) { answered = bool(answer); });
    });
    phone->drain();
    require(answered, "the cache did not answer");
    std::printf("%.9f\n", seconds);
    platform::shutdown();
    return 0;
}

// The least that such a process can do: open its database, read the answer and parse it.
int firstSelect(const char* database) {
    Value answer;
    std::printf("%.9f\n", secondsOf([&] { answer = StoredText(database).tags(); }));
    return 0;
}

void compareFirstCollect(Host& host) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    const std::string database = host.folder().file("first");
    const auto stored = std::make_shared<StoredText>(database);
    stored->store(answerText(600));
    const auto first = [stored, program](const char* which, const std::string& path) {
        return [stored, program, which, path] {
            return std::stod(testing::ChildProcess({program, which, path}).readLine());
        };
    };
    compare("first collect of a process, to return",
            {prepared([&host] { host.cache(answerText(600)); },
                      {"ours", first("collect", host.folder().file("settings"))}),
             {"opening SQLite, select and parse", first("select", database)}});
}

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto::bench;
    if (count == 3) {
        return std::string_view(arguments[1]) == "collect" ? firstCollect(arguments[2])
                                                           : firstSelect(arguments[2]);
    }
    Host host;
    compareCachedTags(host, "cachedTags of 600 B", answerText(600));
    compareCachedTags(host, "cachedTags of 5 MB", answerText(5'000'000));
    compareCollect(host);
    compareFirstCollect(host);
    return runComparisons(count, arguments);
}
