#pragma once

#include "http/HttpTransport.h"
#include "support/FaultServer.h"
#include "support/TestCertificates.h"

#include "morvellacinto/foundation/KRError.h"
#include <morvellacinto/native/HttpError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>
#include <string>

namespace morvellacinto::native {

using namespace std::chrono_literals;
using morvellacinto::testing::answer;
using morvellacinto::testing::FaultServer;
using morvellacinto::testing::TestAuthority;

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

/// A transport that trusts `authority`, and sessions as the library makes them.
class HttpTest : public ::testing::Test {
protected:
    using Request = FaultServer::Request;
    using Connection = FaultServer::Connection;

    [[nodiscard]] platform::HttpSessionConfiguration
    configuration(std::chrono::milliseconds timeout = 30s) const {
        return {{{"Accept-Encoding", "gzip"}}, timeout, true};
    }

    /// Each request has its own session, which is dropped while the transfer runs.
    std::future<Ending> send(platform::HttpRequest request,
                             std::chrono::milliseconds timeout = 30s) {
        const auto promise = std::make_shared<std::promise<Ending>>();
        const auto session = transport().makeSession(configuration(timeout), nullptr);
        session
            ->dataTask(std::move(request),
                       [promise](auto data, auto response, auto error) {
                           promise->set_value({data, response, error});
                       })
            ->resume();
        session->finishTasksAndInvalidate();
        return promise->get_future();
    }
    std::future<Ending> get(const std::string& url, std::chrono::milliseconds timeout = 30s) {
        return send({"GET", url, {}, std::nullopt}, timeout);
    }
    std::future<Ending> post(const std::string& url, std::chrono::milliseconds timeout = 30s) {
        return send({"POST", url, {{"API_TOKEN", "secret-token"}}, "secret-body"}, timeout);
    }
    static Ending result(std::future<Ending> future) {
        if (future.wait_for(60s) != std::future_status::ready) {
            ADD_FAILURE() << "no completion";
            return {};
        }
        return future.get();
    }

    [[nodiscard]] HttpTransport& transport() {
        if (!transport_) {
            transport_.emplace(options, pool);
        }
        return *transport_;
    }
    /// Of 127.0.0.1 alone.
    [[nodiscard]] std::shared_ptr<SSL_CTX> tls() const {
        return authority.serverContext("IP:127.0.0.1,IP:127.0.0.2");
    }

    TestAuthority authority;
    std::promise<std::exception_ptr> escaped;
    WorkerPool pool{[this](std::exception_ptr exception) { escaped.set_value(exception); }};
    HttpOptions options{{authority.file()}};

private:
    std::optional<HttpTransport> transport_;
};

} // namespace morvellacinto::native
