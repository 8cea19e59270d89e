// SPDX-License-Identifier: MIT
// Attacks the gate: attack_gate ROUNDS. In a network of its own, with a listener and a name server,
// a process under strace uploads and requests: with consent withheld nobody hears of it, and no
// call is seen that would reach for the network. With consent given all three notice.

#include "SilentNameServer.h"
#include "support/TemporaryDirectory.h"

#include "morvellacinto/Morvellacinto.h"
#include <morvellacinto/native/HttpError.h>
#include <morvellacinto/native/NativePlatform.h>

#include <atomic>
#include <iostream>
#include <poll.h>
#include <sys/wait.h>

namespace {

using namespace morvellacinto;
using native::UploadConsent;

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

// What runs under strace: the folder of the settings, a port of ours, how often, 1 when withheld.
int useLibrary(char** arguments) {
    const bool isWithheld = arguments[4] == std::string("1");
    const auto phone = native::NativePlatform::create({.dataDirectory = arguments[1]});
    platform::install(phone);
    require(phone->uploadConsent() ==
                (isWithheld ? UploadConsent::withheld : UploadConsent::allowed),
            "another consent was kept");
    std::atomic<int> waiting = 0;
    const auto hear = [&](const KRError& error) {
        const auto withheld = static_cast<std::int64_t>(native::HttpErrorCode::uploadWithheld);
        if ((error.code == withheld) != isWithheld) {
            std::cerr << "code " << error.code << '\n';
            std::_Exit(1);
        }
        --waiting;
    };
    const KRNetworkManager::SuccessCallback succeed = [](const auto&) { std::_Exit(1); };
    const KRAudienceManager::Completion complete = [&](const auto&, const auto& error) {
        error ? hear(*error) : std::_Exit(1);
    };
    KRAudienceManager manager(std::nullopt);
    const std::string port = arguments[2];
    for (int round = std::stoi(arguments[3]); round > 0; --round) {
        for (const std::string& base : {"https://a-name.invalid/" + port,
                                        "http://127.0.0.1:" + port, "https://127.0.0.1:" + port}) {
            KRSettingsManager::setLocalSetting(base, "KRServiceURL");
            waiting += 3;
            manager.collect(Object{{"round", round}}, complete, true);
            KRNetworkManager::request(KRRequest::requestWithType(KRRequestTypeGet, base), succeed,
                                      hear);
            KRNetworkManager::request(KRRequest::requestWithType(KRRequestTypePost, base), succeed,
                                      hear);
        }
        while (waiting > 0) {
            pollfd blocks{phone->descriptor(), POLLIN, 0};
            poll(&blocks, 1, 5);
            phone->drain();
        }
    }
    platform::shutdown();
    return 0;
}

// Resets each connection at once, and counts them.
int countConnections(int listener) {
    int count = 0;
    constexpr linger reset{1, 0};
    for (int socket = 0; (socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;
         ++count) {
        setsockopt(socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        close(socket);
    }
    return count;
}

void attack(UploadConsent consent, int rounds, const std::filesystem::path& program,
            testing::SilentNameServer& names) {
    const testing::TemporaryDirectory directory;
    const bool isWithheld = consent == UploadConsent::withheld;
    require(native::NativePlatform::create(
                {.bundleIdentifier = program.filename(), .dataDirectory = directory.path()})
                ->setUploadConsent(consent),
            "consent could not be stored");
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof place;
    require(bind(listener, reinterpret_cast<sockaddr*>(&place), length) == 0 &&
                listen(listener, SOMAXCONN) == 0 &&
                getsockname(listener, reinterpret_cast<sockaddr*>(&place), &length) == 0,
            "no listener");
    const std::string trace = directory.path() / "trace";
    const pid_t child = fork();
    if (child == 0) {
        execlp("strace", "strace", "-f", "-e", "trace=connect,sendto,sendmsg,sendmmsg", "-o",
               trace.c_str(), program.c_str(), directory.path().c_str(),
               std::to_string(ntohs(place.sin_port)).c_str(), std::to_string(rounds).c_str(),
               isWithheld ? "1" : "0", nullptr);
        _exit(127); // without strace
    }
    int status = 0;
    int connections = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        pollfd arrival{listener, POLLIN, 0};
        poll(&arrival, 1, 10);
        connections += countConnections(listener);
    }
    connections += countConnections(listener);
    close(listener);
    require(status == 0, "the process ended with " + std::to_string(status));
    int calls = 0;
    std::ifstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        calls += line.find("AF_INET") != std::string::npos ? 1 : 0;
    }
    const int questions = names.countQuestions();
    std::cout << (isWithheld ? "withheld: " : "allowed: ") << rounds * 9 << " requests, "
              << connections << " connections, " << questions << " look-ups, " << calls
              << " calls\n";
    require((connections == 0 && questions == 0 && calls == 0) == isWithheld &&
                (isWithheld || (connections > 0 && questions > 0 && calls > 0)),
            "that is not what consent says");
}

} // namespace

int main(int count, char** arguments) {
    try {
        if (count == 5) {
            return useLibrary(arguments);
        }
        require(count == 2, "usage: attack_gate ROUNDS");
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        const auto names = testing::SilentNameServer::start();
        require(names != nullptr, "no network of its own can be made");
        attack(UploadConsent::withheld, std::stoi(arguments[1]), program, *names);
        attack(UploadConsent::allowed, 1, program, *names);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
