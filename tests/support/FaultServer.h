// SPDX-License-Identifier: MIT
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace morvellacinto::testing {

/// The status line, headers and body of an answer that leaves the connection open.
[[nodiscard]] std::string answer(int status, std::string_view body,
                                 std::string_view extraHeaders = {});

/// An HTTP/1.1 server on 127.0.0.1 that misbehaves as told, at the level of bytes.
class FaultServer {
public:
    struct Request {
        std::string head; ///< up to and with the empty line, as it came
        std::string body;

        [[nodiscard]] std::string path() const;
    };

    struct Connection {
        void write(std::string_view bytes);
        /// Shorter when the server is being destroyed.
        void pause(std::chrono::milliseconds duration);
        void stall() { pause(std::chrono::hours(1)); }
        /// Ends the connection in the middle of whatever was going on; `closeTls` says so first.
        void close();
        void closeTls() { SSL_shutdown(tls), close(); }

        FaultServer* server = nullptr;
        int socket = -1;
        SSL* tls = nullptr;
        bool ended = false;
        std::thread thread;
    };

    struct Script {
        /// Called on a new connection before anything is read or, with TLS, the handshake made.
        std::function<void(Connection&)> onAccept = [](Connection&) {};
        std::function<void(Connection&, const Request&)> onRequest =
            [](Connection& connection, const Request&) { connection.write(answer(200, "{}")); };
    };

    FaultServer(std::shared_ptr<SSL_CTX> tls, Script script); ///< plain HTTP without `tls`
    ~FaultServer();

    [[nodiscard]] std::string url(std::string_view path, std::string_view host = "127.0.0.1") const;
    [[nodiscard]] int port() const { return port_; }
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] int connections() const { return connectionCount_; }
    /// Whether so many connections or requests come, or connections end, within half a minute.
    [[nodiscard]] bool waitForConnections(int count) { return waitFor(connectionCount_, count); }
    [[nodiscard]] bool waitForRequests(int count) { return waitFor(requestCount_, count); }
    [[nodiscard]] bool waitForClosed(int count) { return waitFor(closedCount_, count); }

private:
    void acceptAll();
    void serve(Connection& connection);
    [[nodiscard]] bool waitFor(const std::atomic<int>& counter, int count);
    [[nodiscard]] static bool readRequest(Connection& connection, std::string& buffer,
                                          Request& request);

    const std::shared_ptr<SSL_CTX> tls_;
    const Script script_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<int> connectionCount_ = 0;
    std::atomic<int> requestCount_ = 0;
    std::atomic<int> closedCount_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::list<Connection> connections_;
    std::vector<Request> requests_;
    std::thread acceptor_;
};

} // namespace morvellacinto::testing
