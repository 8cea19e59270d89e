#include "adapters/linux/NativeFixtures.h"
#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"

#include <httplib.h>

#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace morvellacinto::contract {
namespace {

// Answers each path with what `serve` was told to answer there, and records the requests.
class LoopbackServer {
public:
    LoopbackServer() {
        const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            const std::lock_guard lock(mutex_);
            platform::HttpRequest record;
            record.method = request.method;
            record.url = request.path;
            record.body = request.body;
            for (const auto& [name, value] : request.headers) {
                record.headers.push_back({name, value});
            }
            received_.push_back(std::move(record));
            const Answer& answer = answers_.at(std::stoul(request.path.substr(1)));
            response.status = answer.status;
            response.set_content(answer.body, "application/json");
        };
        server_.Get("/.*", handler).Post("/.*", handler);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer() {
        while (!server_.is_running()) { // stop() does nothing before the server has started
            std::this_thread::yield();
        }
        server_.stop();
        thread_.join();
    }

    std::string serve(Answer answer) {
        const std::lock_guard lock(mutex_);
        answers_.push_back(std::move(answer));
        return "http://127.0.0.1:" + std::to_string(port_) + "/" +
               std::to_string(answers_.size() - 1);
    }

    std::vector<platform::HttpRequest> received() {
        const std::lock_guard lock(mutex_);
        return received_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::vector<Answer> answers_;
    std::vector<platform::HttpRequest> received_;
};

// A port of the loopback that refuses connections for as long as this lives: bound, not listening.
class DeadPort {
public:
    DeadPort() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(socket_, generic, size), 0);
        EXPECT_EQ(getsockname(socket_, generic, &size), 0);
        url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    }
    DeadPort(const DeadPort&) = delete;
    DeadPort& operator=(const DeadPort&) = delete;
    ~DeadPort() { close(socket_); }

    [[nodiscard]] const std::string& url() const { return url_; }

private:
    int socket_;
    std::string url_;
};

class NativeSubject final : public Subject {
public:
    [[nodiscard]] platform::Platform& platform() override { return *platform_; }

    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) override {
        return native::pumpUntil(*platform_, done);
    }

    void settle() override {
        for (int round = 0; round < 2; ++round) {
            // Held by the blocks that are still to run, so that dropped ones do not keep us.
            auto token = std::make_shared<int>();
            platform::Dispatch& dispatch = platform_->dispatch();
            dispatch.asyncGlobal([&dispatch, token] { dispatch.asyncMain([token] {}); });
            EXPECT_TRUE(pumpUntil([&] { return token.use_count() == 1; }));
        }
    }

    [[nodiscard]] std::string serve(Answer answer) override {
        return server_.serve(std::move(answer));
    }
    [[nodiscard]] std::vector<platform::HttpRequest> received() override {
        return server_.received();
    }
    [[nodiscard]] std::string deadUrl() override { return deadPort_.url(); }

private:
    native::TemporaryDirectory directory_;
    LoopbackServer server_;
    DeadPort deadPort_;
    std::shared_ptr<native::NativePlatform> platform_ = native::NativePlatform::create(
        {"com.example.contract", directory_.path(), {}, nullptr, nullptr});
};

} // namespace
} // namespace morvellacinto::contract

MORVELLACINTO_INSTANTIATE_CONTRACTS(Linux, [] { return std::make_unique<NativeSubject>(); });
