// SPDX-License-Identifier: MIT
// http_attack ROUNDS: storms of requests, allocations that fail, and exits in the middle of it.
// Status 1 when one of them did harm.

#include "http/CurlSession.h"
#include "http/TransferLoop.h"
#include "support/FaultServer.h"
#include "support/TestCertificates.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <future>
#include <latch>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

using namespace morvellacinto;
using namespace std::chrono_literals;

namespace {

// Which of the allocations on other threads than the first is to fail; none below 1.
std::atomic<long> untilFailure = 0;
thread_local bool isFirstThread = false;

bool failsNow() { return !isFirstThread && untilFailure > 0 && --untilFailure == 0; }

} // namespace

void* operator new(std::size_t size) {
    void* const memory = failsNow() ? nullptr : std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

int harm = 0;

void expect(bool isSo, const std::string& what) {
    if (!isSo) {
        std::printf("FAILED: %s\n", what.c_str());
        ++harm;
    }
}

// In a process of its own: its threads would not survive their process's exit.
class Server {
public:
    Server() {
        int ready[2];
        if (pipe(ready) != 0 || (process_ = fork()) < 0) {
            throw std::runtime_error("no process can be made");
        }
        if (process_ == 0) {
            testing::FaultServer server(authority.serverContext("IP:127.0.0.1"),
                                        {.onRequest = [](auto& connection, const auto& request) {
                                            request.path() == "/stall"
                                                ? connection.stall()
                                                : connection.write(
                                                      testing::answer(200, request.body));
                                        }});
            const std::string where = server.url("");
            static_cast<void>(write(ready[1], where.c_str(), where.size()));
            alarm(600); // should this process end badly
            pause();
        }
        char text[64]{};
        static_cast<void>(read(ready[0], text, sizeof text - 1));
        url = text;
    }
    ~Server() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }

    const testing::TestAuthority authority;
    std::string url;

private:
    pid_t process_ = -1;
};

struct Client {
    explicit Client(const Server& server)
        : loop(std::make_shared<native::TransferLoop>(
              native::HttpOptions{.trustAnchors = {server.authority.file()}}, pool)) {}
    ~Client() { loop->stop(); }

    void send(const std::string& url, std::string body, std::chrono::milliseconds timeout,
              std::function<void(const std::optional<std::string>&, bool)> ended) const {
        std::make_shared<native::CurlSession>(platform::HttpSessionConfiguration{{}, timeout, true},
                                              loop, pool)
            ->dataTask(
                {"POST", url, {}, std::move(body)},
                [ended = std::move(ended)](const auto& data, const auto&, const auto& error) {
                    ended(data, error.has_value());
                })
            ->resume();
    }

    mutable native::WorkerPool pool{[](const std::exception_ptr&) {}};
    const std::shared_ptr<native::TransferLoop> loop;
};

// A thousand requests at once: each gets its own answer, or its time-out.
void storm(const Server& server, const std::string& path, std::chrono::milliseconds timeout) {
    constexpr int threads = 50;
    constexpr int requestsEach = 20;
    const Client client(server);
    std::latch all(threads * requestsEach);
    std::atomic<int> right = 0;
    std::vector<std::thread> senders;
    const auto start = std::chrono::steady_clock::now();
    for (int thread = 0; thread < threads; ++thread) {
        senders.emplace_back([&, thread] {
            for (int i = 0; i < requestsEach; ++i) {
                const std::string body = std::to_string(thread) + "/" + std::to_string(i);
                client.send(server.url + path, body, timeout,
                            [&, body](const auto& data, bool failed) {
                                right += path == "/stall" ? failed : !failed && data == body;
                                all.count_down();
                            });
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    all.wait();
    const auto took = std::chrono::steady_clock::now() - start;
    std::printf("1,000 requests to %s: %ld ms\n", path.c_str(), static_cast<long>(took / 1ms));
    expect(right == threads * requestsEach,
           std::to_string(right) + " of 1,000 ended as they should");
    if (path == "/stall") {
        expect(took < timeout + 5s, "the time-outs came in time");
    }
}

// The first request of a loop, with each allocation in turn failing: it ends all the same.
void failAllocations(const Server& server, int rounds) {
    int failures = 0;
    long points = 0;
    const long step = std::max(1, 100 / rounds);
    for (long point = 1, fine = 0; fine < 3; point += step) {
        ++points;
        std::promise<bool> ended;
        const Client client(server);
        untilFailure = point;
        client.send(server.url + "/", "body", 10s, [&](const auto&, bool failed) {
            const long left = untilFailure.exchange(0);
            fine = left > 0 ? fine + 1 : 0; // nothing has failed
            failures += failed;
            ended.set_value(failed);
        });
        const bool isOver = ended.get_future().wait_for(15s) == std::future_status::ready;
        expect(isOver, "the request ends when allocation " + std::to_string(point) + " fails");
        untilFailure = 0;
        if (!isOver) {
            std::_Exit(1);
        }
    }
    std::printf("allocations: %d of %ld requests ended with an error\n", failures, points);
    expect(failures > 0, "allocations fail");
}

void exitInTheMiddle(const Server& server, int rounds) {
    std::minstd_rand random(std::random_device{}());
    int badly = 0;
    for (int round = 0; round < rounds * 20; ++round) {
        const auto pause = std::chrono::microseconds(random() % 30'000);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            static Client* const client = new Client(server); // left to the exit, as hosts do
            for (int i = 0; i < 30; ++i) {
                client->send(server.url + "/", "body", 10s, [](const auto&, bool) {});
            }
            std::this_thread::sleep_for(pause);
            std::exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        badly += status != 0;
    }
    std::printf("exits: %d of %d ended badly\n", badly, rounds * 20);
    expect(badly == 0, "a process may exit at any time");
}

} // namespace

int main(int count, char** arguments) {
    isFirstThread = true;
    const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 10;
    const Server server;
    exitInTheMiddle(server, rounds); // before this process has threads
    for (int round = 0; round < (rounds + 2) / 3; ++round) {
        storm(server, "/", 60s);
        storm(server, "/stall", 1s);
    }
    failAllocations(server, rounds);
    return harm == 0 ? 0 : 1;
}
