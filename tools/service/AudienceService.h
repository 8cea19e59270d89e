// SPDX-License-Identifier: MIT
#pragma once

#include "Scenario.h"
#include "Upload.h"

#include <httplib.h>

#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace morvellacinto::service {

struct Answer {
    int status = 200;
    std::string body;
    std::optional<std::string> location; ///< where a redirect leads
};

class Inspector;

/// Binds `port` of 127.0.0.1, or any that is free for 0, and gives the port. Throws
/// std::runtime_error.
[[nodiscard]] int bindToLoopback(httplib::Server& server, int port);

/// The audience service over HTTPS on 127.0.0.1.
class AudienceService {
public:
    /// Takes over a TLS server that has its certificate. `fixedAnswer` replaces the answer that
    /// depends on the upload; `records`, when open, gets a line for each upload; `inspector`,
    /// unless null, must live as long.
    AudienceService(std::unique_ptr<httplib::SSLServer> server, std::optional<Object> fixedAnswer,
                    std::unique_ptr<Scenario> scenario, std::ofstream records,
                    Inspector* inspector);

    /// As `bindToLoopback`.
    [[nodiscard]] int bind(int port) { return bindToLoopback(*server_, port); }

    /// Answers requests; never returns of itself.
    void run();

private:
    void handle(const httplib::Request& request, const std::string& body,
                httplib::Response& response);
    [[nodiscard]] Answer audienceAnswer(const Upload& upload, const Step& step);
    void record(const Upload& upload);

    std::unique_ptr<httplib::SSLServer> server_;
    std::optional<Object> fixedAnswer_;
    std::unique_ptr<Scenario> scenario_;
    std::mutex recordsMutex_;
    std::ofstream records_;
    Inspector* inspector_;
};

} // namespace morvellacinto::service
