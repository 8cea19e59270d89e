// SPDX-License-Identifier: MIT
#pragma once

#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

namespace morvellacinto::testing {

/// A network for the thread that makes it, and for the threads that one makes, in which nothing but
/// a name server is to be found that answers no question. Look-ups give up after some seconds; that
/// of "localhost" gives an address where nobody listens.
class SilentNameServer {
public:
    /// Null when the test may not make networks.
    [[nodiscard]] static std::unique_ptr<SilentNameServer> start() {
        if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return nullptr;
        }
        bool isMounted =
            replace("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:2 attempts:1\n");
        isMounted = replace("/etc/hosts", "127.0.0.5 localhost\n") && isMounted;
        if (std::filesystem::exists("/etc/nsswitch.conf")) { // may name services on other sockets
            isMounted = replace("/etc/nsswitch.conf", "hosts: files dns\n") && isMounted;
        }
        std::unique_ptr<SilentNameServer> server(new SilentNameServer);
        ifreq loopback{{"lo"}, {}};
        loopback.ifr_flags = IFF_UP | IFF_RUNNING;
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(53);
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool works =
            isMounted && ioctl(server->socket_, SIOCSIFFLAGS, &loopback) == 0 &&
            bind(server->socket_, reinterpret_cast<sockaddr*>(&place), sizeof place) == 0;
        return works ? std::move(server) : nullptr;
    }
    SilentNameServer(const SilentNameServer&) = delete;
    SilentNameServer& operator=(const SilentNameServer&) = delete;
    ~SilentNameServer() { close(socket_); }

    /// Waits for a question. False when none comes within half a minute.
    [[nodiscard]] bool isAsked() {
        char question[512];
        return recv(socket_, question, sizeof question, 0) > 0;
    }

    /// How many questions have come since it was asked last.
    [[nodiscard]] int countQuestions() {
        int count = 0;
        for (char question; recv(socket_, &question, 1, MSG_DONTWAIT) > 0; ++count) {
        }
        return count;
    }

private:
    static bool replace(const char* file, const char* content) {
        const std::string other = std::filesystem::temp_directory_path() /
                                  ("names-from-nowhere-" + std::to_string(getpid()));
        std::ofstream(other) << content;
        const int mounted = mount(other.c_str(), file, nullptr, MS_BIND, nullptr);
        std::filesystem::remove(other);
        return mounted == 0;
    }
    SilentNameServer() {
        const timeval patience{30, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    const int socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

} // namespace morvellacinto::testing
