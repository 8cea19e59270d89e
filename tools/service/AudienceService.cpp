// SPDX-License-Identifier: MIT
#include "AudienceService.h"

#include "Gzip.h"
#include "Inspector.h"

#include "morvellacinto/foundation/Json.h"

#include <sys/socket.h>

#include <array>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace morvellacinto::service {

namespace {

constexpr const char* host = "127.0.0.1";
constexpr std::string_view audiencePath = "/v5/audience/";
constexpr int workerCount = 64; // each holds one connection, idle ones included
constexpr int temporaryRedirect = 307;

// The connection that this worker serves. The server hands out none, but makes the handshake on
// the thread that then handles the requests.
thread_local int currentConnection = -1;

void rememberConnection(const SSL* tls, int where, int /*result*/) {
    if ((where & SSL_CB_HANDSHAKE_START) != 0) {
        currentConnection = SSL_get_fd(tls);
    }
}

bool isHeaderOfTheServer(const std::string& name) {
    // What the server adds to those that came over the wire.
    static constexpr std::array added = {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"};
    return std::find(added.begin(), added.end(), name) != added.end();
}

Upload uploadOf(const httplib::Request& request, const std::string& body) {
    Upload upload{request.method,
                  request.path,
                  {},
                  body,
                  request.remote_addr + ":" + std::to_string(request.remote_port)};
    for (const auto& [name, value] : request.headers) {
        if (!isHeaderOfTheServer(name)) {
            upload.headers.emplace_back(name, value);
        }
    }
    return upload;
}

Answer refusal(int status, const std::string& sentence) {
    return {status, writeJson(Object{{"error", sentence}}), std::nullopt};
}

void send(httplib::Response& response, const Answer& answer, const Step& step) {
    response.status = answer.status;
    if (answer.location) {
        response.set_header("Location", *answer.location);
    }
    std::string bytes = answer.body;
    if (step.gzip) {
        response.set_header("Content-Encoding", "gzip");
        bytes = gzip(bytes);
    }
    if (bytes.empty()) {
        return;
    }
    const auto length = bytes.size();
    // A provider, because the server would compress a plain body on its own.
    response.set_content_provider(
        length, "application/json",
        [bytes = std::move(bytes), rate = step.dripBytesPerSecond](
            std::size_t offset, std::size_t left, httplib::DataSink& sink) {
            if (!rate) {
                return sink.write(bytes.data() + offset, left);
            }
            if (offset > 0) {
                std::this_thread::sleep_for(std::chrono::duration<double>(1 / *rate));
            }
            return sink.write(bytes.data() + offset, 1);
        });
}

} // namespace

int bindToLoopback(httplib::Server& server, int port) {
    server.new_task_queue = [] { return new httplib::ThreadPool(workerCount); };
    // Without SO_REUSEPORT, which the server sets by itself and which lets two share a port.
    server.set_socket_options([](int socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const int bound =
        port == 0 ? server.bind_to_any_port(host) : (server.bind_to_port(host, port) ? port : -1);
    if (bound < 0) {
        throw std::runtime_error("port " + std::to_string(port) + " of 127.0.0.1 cannot be bound");
    }
    return bound;
}

AudienceService::AudienceService(std::unique_ptr<httplib::SSLServer> server,
                                 std::optional<Object> fixedAnswer,
                                 std::unique_ptr<Scenario> scenario, std::ofstream records,
                                 Inspector* inspector)
    : server_(std::move(server)), fixedAnswer_(std::move(fixedAnswer)),
      scenario_(std::move(scenario)), records_(std::move(records)), inspector_(inspector) {
    SSL_CTX_set_info_callback(server_->ssl_context(), &rememberConnection);
    // A reader of its own, because the server limits form-encoded bodies to 8 KiB.
    server_->Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                               const httplib::ContentReader& reader) {
        std::string body;
        reader([&body](const char* data, std::size_t length) {
            body.append(data, length);
            return true;
        });
        handle(request, body, response);
    });
    server_->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, "", response);
    });
}

void AudienceService::run() { server_->listen_after_bind(); }

void AudienceService::handle(const httplib::Request& request, const std::string& body,
                             httplib::Response& response) {
    const Step step = scenario_->next();
    const Upload upload = uploadOf(request, body);
    const bool isUpload = request.path == audiencePath && request.method == "POST";
    Answer answer;
    if (isUpload) {
        record(upload);
        answer = audienceAnswer(upload, step);
    } else if (request.path == audiencePath) {
        answer = refusal(405, "uploads are made by POST");
    } else {
        answer = refusal(404, "uploads go to " + std::string(audiencePath));
    }
    if (step.redirect) {
        answer = {temporaryRedirect, "", step.redirect};
    }
    answer.status = step.status.value_or(answer.status);
    answer.body = step.body.value_or(answer.body);

    if (isUpload && inspector_ != nullptr) {
        inspector_->show(upload, step.closeBeforeHeaders ? nullptr : &answer);
    }
    std::this_thread::sleep_for(step.delay);
    if (step.closeBeforeHeaders) {
        ::shutdown(currentConnection, SHUT_RDWR);
        return;
    }
    send(response, answer, step);
}

Answer AudienceService::audienceAnswer(const Upload& upload, const Step& step) {
    if (const auto fault = upload.fault()) {
        return refusal(400, *fault);
    }
    Object answer = fixedAnswer_ ? *fixedAnswer_ : upload.answer();
    if (const Value tags = inspector_ != nullptr ? inspector_->tags() : Value(); !tags.isNull()) {
        answer.set("tags", tags);
    }
    if (step.serviceUrl) {
        answer.set("serviceurl", *step.serviceUrl);
    }
    return {200, writeJson(answer), std::nullopt};
}

void AudienceService::record(const Upload& upload) {
    const std::lock_guard lock(recordsMutex_);
    if (records_.is_open()) {
        records_ << writeJson(upload.record()) << std::endl;
    }
}

} // namespace morvellacinto::service
