// SPDX-License-Identifier: MIT
#include "Require.h"

#include "http/CurlSession.h"
#include "http/TransferLoop.h"
#include "threads/WorkerPool.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sched.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

using namespace morvellacinto;
using namespace std::chrono_literals;

namespace {

// This process gets a network of its own, so that no redirect leads out of it. Done before there
// are other threads, which inherit it.
const bool isAlone = [] {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return false;
    }
    const int any = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{{"lo"}, {}};
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool works = ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
    ::close(any);
    return works;
}();

/// Answers whatever it is asked with the same bytes, and ends the connection.
class Server {
public:
    Server() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof place;
        auto* const address = reinterpret_cast<sockaddr*>(&place);
        require(::bind(listener_, address, length) == 0 && ::listen(listener_, SOMAXCONN) == 0 &&
                    ::getsockname(listener_, address, &length) == 0,
                "a server can listen on loopback");
        url = "http://127.0.0.1:" + std::to_string(ntohs(place.sin_port)) + "/v5/audience/";
        std::thread([this] { serve(); }).detach();
    }

    void setAnswer(std::string_view answer) {
        auto next = std::make_shared<const std::string>(answer);
        const std::lock_guard lock(mutex_);
        answer_ = std::move(next);
    }

    std::string url;

private:
    std::shared_ptr<const std::string> answer() {
        const std::lock_guard lock(mutex_);
        return answer_;
    }

    [[noreturn]] void serve() {
        while (true) {
            const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            std::string request;
            char bytes[4096];
            ssize_t count = 0;
            while (request.find("\r\n\r\n") == std::string::npos &&
                   (count = ::recv(connection, bytes, sizeof bytes, 0)) > 0) {
                request.append(bytes, static_cast<std::size_t>(count));
            }
            if (count > 0) {
                // A client that has heard enough may end before all is sent.
                const auto sent = answer();
                ::send(connection, sent->data(), sent->size(), MSG_NOSIGNAL);
            }
            ::close(connection);
        }
    }

    int listener_;
    std::mutex mutex_;
    std::shared_ptr<const std::string> answer_;
};

struct Ending {
    std::optional<std::string> data;
    std::optional<platform::HttpResponse> response;
    std::optional<KRError> error;
};

bool mayLeadAway(std::string_view answer) {
    constexpr std::string_view name = "location";
    return std::search(answer.begin(), answer.end(), name.begin(), name.end(),
                       [](char a, char b) { return strncasecmp(&a, &b, 1) == 0; }) != answer.end();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Live until the process ends: the server's thread does.
    static Server& server = *new Server;
    static auto& pool = *new native::WorkerPool(
        [](const std::exception_ptr&) { require(false, "no exception escapes on a worker"); });
    static const auto& loop =
        *new auto(std::make_shared<native::TransferLoop>(native::HttpOptions{}, pool));

    const std::string_view answer(reinterpret_cast<const char*>(data), size);
    if (!isAlone && mayLeadAway(answer)) {
        return -1;
    }
    server.setAnswer(answer);
    const auto calls = std::make_shared<std::atomic<int>>(0);
    const auto ended = std::make_shared<std::promise<Ending>>();
    std::future<Ending> ending = ended->get_future();
    const auto session = std::make_shared<native::CurlSession>(
        platform::HttpSessionConfiguration{{{"Accept-Encoding", "gzip"}}, 2s, true}, loop, pool);
    session
        ->dataTask({"GET", server.url, {}, {}},
                   [calls, ended](auto body, auto response, auto error) {
                       require(++*calls == 1, "a request ends once");
                       ended->set_value({std::move(body), std::move(response), std::move(error)});
                   })
        ->resume();
    session->finishTasksAndInvalidate();
    require(ending.wait_for(10s) == std::future_status::ready, "a request ends in time");
    const Ending got = ending.get();
    require(got.error || (got.data && got.response), "a request without an error has an answer");
    require(!got.response || got.response->url.starts_with("http"), "no other scheme is opened");
    return 0;
}
