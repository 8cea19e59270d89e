#pragma once

#include "http/CurlSession.h"
#include "http/TransferLoop.h"
#include "support/FaultServer.h"
#include "support/TestCertificates.h"

#include <morvellacinto/native/HttpError.h>

#include <gmock/gmock.h>

#include <future>

namespace morvellacinto::native {

using namespace std::chrono_literals;
using morvellacinto::testing::answer;
using morvellacinto::testing::FaultServer;
using morvellacinto::testing::TestAuthority;
using Clock = std::chrono::steady_clock;
using Connection = FaultServer::Connection;
using Request = FaultServer::Request;

/// What a completion was called with.
struct Ending {
    std::optional<std::string> data;
    std::optional<platform::HttpResponse> response;
    std::optional<KRError> error;

    [[nodiscard]] HttpErrorCode code() const {
        return error ? static_cast<HttpErrorCode>(error->code) : HttpErrorCode{};
    }
    [[nodiscard]] std::string message() const {
        return error ? std::string(error->userInfo.at(KRError::messageKey).asString()) : "";
    }
};

/// A loop that trusts `authority`, and sessions as the library makes them.
class HttpTest : public ::testing::Test {
protected:
    ~HttpTest() override { stop(); }

    /// The next request makes another loop.
    void stop() {
        if (const auto stopped = std::exchange(loop_, nullptr)) {
            stopped->stop();
        }
    }

    /// Each request has its own session, which is dropped while the transfer runs.
    std::future<Ending> send(platform::HttpRequest request,
                             std::chrono::milliseconds timeout = 30s) {
        const auto promise = std::make_shared<std::promise<Ending>>();
        const auto session = std::make_shared<CurlSession>(
            platform::HttpSessionConfiguration{{{"Accept-Encoding", "gzip"}}, timeout, true},
            loop(), pool);
        session
            ->dataTask(std::move(request),
                       [promise](auto data, auto response, auto error) {
                           promise->set_value({data, response, error});
                       })
            ->resume();
        session->finishTasksAndInvalidate();
        return promise->get_future();
    }
    static Ending result(std::future<Ending> future) {
        if (future.wait_for(60s) != std::future_status::ready) {
            ADD_FAILURE() << "no completion";
            return {};
        }
        return future.get();
    }
    Ending get(const std::string& url, std::chrono::milliseconds timeout = 30s) {
        return result(send({"GET", url, {}, std::nullopt}, timeout));
    }
    Ending post(const std::string& url, std::chrono::milliseconds timeout = 30s) {
        return result(send({"POST", url, {{"API_TOKEN", "secret-token"}}, "secret-body"}, timeout));
    }

    [[nodiscard]] const std::shared_ptr<TransferLoop>& loop() {
        if (!loop_) {
            loop_ = std::make_shared<TransferLoop>(options, pool);
        }
        return loop_;
    }
    [[nodiscard]] std::shared_ptr<SSL_CTX> tls() const {
        return authority.serverContext("IP:127.0.0.1,DNS:localhost");
    }

    const TestAuthority authority;
    WorkerPool pool{[](const std::exception_ptr&) { ADD_FAILURE() << "an exception"; }, 0ms};
    HttpOptions options{.trustAnchors = {authority.file()}};

private:
    std::shared_ptr<TransferLoop> loop_;
};

} // namespace morvellacinto::native
