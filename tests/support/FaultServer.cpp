// SPDX-License-Identifier: MIT
#include "support/FaultServer.h"

#include <csignal>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace morvellacinto::testing {

std::string answer(int status, std::string_view body, std::string_view extraHeaders) {
    return "HTTP/1.1 " + std::to_string(status) +
           " Status\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
           std::string(extraHeaders) + "\r\n" + std::string(body);
}

std::string FaultServer::Request::path() const {
    const std::size_t start = head.find(' ') + 1;
    return head.substr(start, head.find(' ', start) - start);
}

void FaultServer::Connection::write(std::string_view bytes) {
    while (!bytes.empty() && !ended) {
        const int chunk = static_cast<int>(std::min<std::size_t>(bytes.size(), 1 << 20));
        const ssize_t written =
            tls != nullptr ? SSL_write(tls, bytes.data(), chunk)
                           : ::send(socket, bytes.data(), static_cast<std::size_t>(chunk), 0);
        if (written <= 0) {
            ended = true;
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void FaultServer::Connection::pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(server->mutex_);
    ended |= server->changed_.wait_for(lock, duration, [this] { return server->stopping_; });
}

void FaultServer::Connection::close() {
    ::shutdown(socket, SHUT_RDWR);
    ended = true;
}

FaultServer::FaultServer(std::shared_ptr<SSL_CTX> tls, Script script)
    : tls_(std::move(tls)), script_(std::move(script)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in place{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof place;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&place), length) != 0 ||
        ::listen(listener_, SOMAXCONN) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&place), &length) != 0) {
        throw std::runtime_error("cannot listen on loopback");
    }
    port_ = ntohs(place.sin_port);
    acceptor_ = std::thread([this] { acceptAll(); });
}

FaultServer::~FaultServer() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        for (const Connection& connection : connections_) {
            ::shutdown(connection.socket, SHUT_RDWR);
        }
        changed_.notify_all();
    }
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (Connection& connection : connections_) {
        connection.thread.join();
        ::close(connection.socket);
    }
    ::close(listener_);
}

std::string FaultServer::url(std::string_view path, std::string_view host) const {
    return (tls_ ? "https://" : "http://") + std::string(host) + ":" + std::to_string(port_) +
           std::string(path);
}

std::vector<FaultServer::Request> FaultServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

bool FaultServer::waitFor(const std::atomic<int>& counter, int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return counter >= count; });
}

void FaultServer::acceptAll() {
    // So that SIGPIPE still ends a test whose code under test lets it through.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    for (int socket = 0; (socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        const std::lock_guard lock(mutex_);
        const int on = 1;
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        Connection& connection = connections_.emplace_back();
        connection.server = this;
        connection.socket = socket;
        if (stopping_) {
            ::shutdown(socket, SHUT_RDWR);
        }
        ++connectionCount_;
        connection.thread = std::thread([this, &connection] { serve(connection); });
        changed_.notify_all();
    }
}

void FaultServer::serve(Connection& connection) {
    std::unique_ptr<SSL, decltype(&SSL_free)> tls(nullptr, &SSL_free);
    script_.onAccept(connection);
    if (tls_ && !connection.ended) {
        tls.reset(SSL_new(tls_.get()));
        SSL_set_fd(tls.get(), connection.socket);
        if (SSL_accept(tls.get()) != 1) {
            connection.close();
        }
        connection.tls = tls.get();
    }
    std::string buffer;
    Request request;
    while (!connection.ended && readRequest(connection, buffer, request)) {
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
            ++requestCount_;
            changed_.notify_all();
        }
        script_.onRequest(connection, request);
    }
    connection.close();
    const std::lock_guard lock(mutex_);
    ++closedCount_;
    changed_.notify_all();
}

bool FaultServer::readRequest(Connection& connection, std::string& buffer, Request& request) {
    constexpr std::string_view lengthName = "\r\nContent-Length: ";
    for (;;) {
        if (const auto headEnd = buffer.find("\r\n\r\n"); headEnd != std::string::npos) {
            request.head = buffer.substr(0, headEnd + 4);
            const auto length = request.head.find(lengthName);
            const std::size_t size =
                length == std::string::npos
                    ? 0
                    : std::stoul(request.head.substr(length + lengthName.size()));
            if (buffer.size() >= request.head.size() + size) {
                request.body = buffer.substr(request.head.size(), size);
                buffer.erase(0, request.head.size() + size);
                return true;
            }
        }
        char bytes[16384];
        const auto count =
            connection.tls != nullptr
                ? SSL_read(connection.tls, bytes, sizeof bytes)
                : static_cast<int>(::recv(connection.socket, bytes, sizeof bytes, 0));
        if (count <= 0) {
            return false;
        }
        buffer.append(bytes, static_cast<std::size_t>(count));
    }
}

} // namespace morvellacinto::testing
