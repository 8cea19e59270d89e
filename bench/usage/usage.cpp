// SPDX-License-Identifier: MIT
// What the library uses of a process, each figure with the most that it may be:
//
//     usage            prints all, each measured in a process of its own
//     usage <figure>   measures one; fails when it is over its limit

#include "JsonTexts.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Clock.h"
#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/ProcessCounts.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"
#include <morvellacinto/native/NativePlatform.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::atomic<std::size_t> allocations = 0;

} // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace morvellacinto {
namespace {

using native::NativePlatform;
using testing::FaultServer;

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

class Host {
public:
    explicit Host(std::vector<std::filesystem::path> trusted = {})
        : phone_(NativePlatform::create({.bundleIdentifier = "com.example.host",
                                         .dataDirectory = folder_.path(),
                                         .trustAnchors = std::move(trusted)})) {
        platform::install(phone_);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() { platform::shutdown(); }

    void cacheAnswer() {
        const Value answer = *readJson(bench::answerText(5000));
        require(KRSettingsManager::setLocalSetting(phone_->clock().now(), "KRAudienceUpdate") &&
                    KRSettingsManager::setLocalSetting(answer, "KRAudiences"),
                "nothing was cached");
    }

    /// Returns when the completion has run.
    void collect(bool force = false) {
        bool ended = false;
        std::array<void*, 4> captured{}; // as hosts capture more than a std::function has room for
        manager_.collect(
            payload_,
            [&ended, captured](const auto& answer, const auto&) {
                require(answer.has_value() && captured[0] == nullptr, "there was no answer");
                ended = true;
            },
            force);
        while (!ended) {
            pollfd ready{phone_->descriptor(), POLLIN, 0};
            require(poll(&ready, 1, 60'000) == 1, "no completion");
            phone_->drain();
        }
    }

    [[nodiscard]] KRAudienceManager& manager() { return manager_; }

private:
    const testing::TemporaryDirectory folder_;
    const std::shared_ptr<NativePlatform> phone_;
    KRAudienceManager manager_{Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42")};
    Object payload_ = readJson(bench::payloadText())->asObject();
};

// Of most runs. Every 100 ms a read looks at the files of the settings, which allocates.
template <class Work>
double usualAllocations(Work work) {
    std::array<std::size_t, 101> counts{};
    for (std::size_t& count : counts) {
        const std::size_t before = allocations;
        work();
        count = allocations - before;
    }
    std::nth_element(counts.begin(), counts.begin() + counts.size() / 2, counts.end());
    return static_cast<double>(counts[counts.size() / 2]);
}

double allocationsOfCachedTags() {
    Host host;
    host.cacheAnswer();
    require(host.manager().cachedTags(KRTagsTypeTags).has_value(), "nothing is cached");
    return usualAllocations([&] { static_cast<void>(host.manager().cachedTags(KRTagsTypeTags)); });
}

double allocationsOfCachedCollect() {
    Host host;
    host.cacheAnswer();
    return usualAllocations([&] { host.collect(); });
}

double allocationsOfQueryString() {
    const Object answer = readJson(bench::answerText(5000))->asObject();
    Array texts;
    for (const Object::Member& member : answer.at("tags").asObject()) {
        texts.append(member.key());
    }
    const Object tags{{"seg", texts}};
    return usualAllocations(
        [&] { require(KRAudienceManager::toQueryString(tags).size() > 1, ""); });
}

double allocationsOfJsonText() {
    const Value answer = *readJson(bench::answerText(5000));
    return usualAllocations([&] { require(writeJson(answer).size() >= 5000, "no text"); });
}

// Runs a server in a process of its own, so that only the client's use counts.
class Service {
public:
    explicit Service(const std::string& body) {
        int port[2];
        require(pipe(port) == 0, "no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            FaultServer server(authority_.serverContext("IP:127.0.0.1"),
                               {.onRequest = [&](auto& connection, const auto&) {
                                   connection.write(testing::answer(200, body));
                               }});
            const int number = server.port();
            require(write(port[1], &number, sizeof number) == sizeof number, "no pipe");
            for (;;) {
                pause();
            }
        }
        require(pid_ > 0 && read(port[0], &port_, sizeof port_) == sizeof port_, "no server");
        close(port[0]);
        close(port[1]);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    [[nodiscard]] std::string url() const { return "https://127.0.0.1:" + std::to_string(port_); }
    [[nodiscard]] const std::filesystem::path& authority() const { return authority_.file(); }

private:
    const testing::TestAuthority authority_;
    pid_t pid_ = -1;
    int port_ = 0;
};

enum class Use { none, cache, upload };

template <class Count>
double usedBy(Use use, Count count) {
    const Service service(R"({"tags": {"seg": ["a"]}})");
    const auto before = count();
    Host host({service.authority()});
    if (use == Use::cache) {
        host.cacheAnswer();
        host.collect();
    } else if (use == Use::upload) {
        require(KRSettingsManager::setLocalSetting(service.url(), "KRServiceURL"), "not stored");
        host.collect(true);
    }
    return static_cast<double>(count() - before);
}

template <Use use>
double threads() {
    return usedBy(use, [] { return testing::threadCount(); });
}

template <Use use>
double descriptors() {
    return usedBy(use, [] { return testing::descriptorCount(); });
}

// Of this program alone; what getrusage tells begins with what its parent had.
double peakBytes() {
    std::ifstream status("/proc/self/status");
    std::string word;
    double kilobytes = 0;
    while (status >> word && word != "VmHWM:") {
    }
    status >> kilobytes;
    return kilobytes * 1024;
}

// From the request to the parsed answer, which is then still there.
double peakOfLargeAnswer() {
    constexpr std::size_t bodyBytes = 60'000'000;
    std::string body = R"({"tags":[)";
    while (body.size() < bodyBytes) {
        body += '"' + std::string(1024, 'x') + "\",";
    }
    body += "1]}";
    const auto bytes = static_cast<double>(body.size());
    const Service service(body);
    // The peak is never told lower than it was: begin anew in a process without the server's text.
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    testing::ChildProcess client({program, "read", service.url(), service.authority()});
    return std::stod(client.readLine()) / bytes;
}

int readLargeAnswer(const char* url, const char* authority) {
    const Host host({authority});
    const double before = peakBytes();
    std::atomic<bool> ended = false;
    KRNetworkManager::request(
        KRRequest::requestWithType(KRRequestTypeGet, url),
        [&](const std::optional<Value>& answer) {
            std::printf("%.0f\n", answer ? peakBytes() - before : -1);
            ended = true;
            ended.notify_one();
        },
        [&](const KRError&) { std::_Exit(1); });
    ended.wait(false);
    std::fflush(stdout);
    return 0;
}

struct Figure {
    const char* name;
    double most;
    double (*measure)();
};

constexpr Figure figures[] = {
    {"allocations-of-cached-tags", 0, allocationsOfCachedTags},
    {"allocations-of-cached-collect", 3, allocationsOfCachedCollect},
    {"allocations-of-query-string", 1, allocationsOfQueryString},
    {"allocations-of-json-text", 5, allocationsOfJsonText},
    {"threads-idle", 0, threads<Use::none>},
    {"threads-after-cached-collect", 0, threads<Use::cache>},
    {"threads-after-upload", 2, threads<Use::upload>},
    {"descriptors-idle", 2, descriptors<Use::none>},
    {"descriptors-after-cached-collect", 6, descriptors<Use::cache>},
    {"descriptors-after-upload", 9, descriptors<Use::upload>},
    {"peak-bytes-per-byte-of-60-MB-answer", 3, peakOfLargeAnswer},
};

bool measure(const Figure& figure) {
    const double reached = figure.measure();
    std::printf("| %-36s | %6.4g | %4.4g |\n", figure.name, reached, figure.most);
    return reached >= 0 && reached <= figure.most;
}

int measureAll(const std::string& program) {
    std::puts("| figure | measured | at most |\n|---|---|---|");
    int result = 0;
    for (const Figure& figure : figures) {
        testing::ChildProcess child({program, figure.name});
        const testing::Finished finished = child.finish();
        std::fputs((finished.output + finished.errors).c_str(), stdout);
        result |= finished.status;
    }
    return result;
}

} // namespace
} // namespace morvellacinto

int main(int count, char** arguments) {
    using namespace morvellacinto;
    if (count == 4) {
        return readLargeAnswer(arguments[2], arguments[3]);
    }
    if (count == 1) {
        return measureAll(std::filesystem::read_symlink("/proc/self/exe"));
    }
    const auto* const figure =
        std::find_if(std::begin(figures), std::end(figures), [&](const Figure& each) {
            return std::string_view(each.name) == arguments[1];
        });
    if (figure == std::end(figures)) {
        std::fprintf(stderr, "there is no figure \"%s\"\n", arguments[1]);
        return 2;
    }
    return measure(*figure) ? 0 : 1;
}
