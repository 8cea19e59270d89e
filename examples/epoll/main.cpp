// SPDX-License-Identifier: MIT
// A host whose own loop runs the library's main queue beside its own events.

#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/native/NativePlatform.h>

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <iostream>

using namespace morvellacinto;

namespace {

void watch(int loop, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &event);
}

} // namespace

int main() {
    const auto phone = native::NativePlatform::create({.bundleIdentifier = "com.example.epoll"});
    platform::install(phone);

    const int loop = epoll_create1(EPOLL_CLOEXEC);
    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec everySecond{{1, 0}, {1, 0}};
    timerfd_settime(clock, 0, &everySecond, nullptr);
    watch(loop, phone->descriptor());
    watch(loop, clock);

    bool done = false;
    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"));
    manager.kovraTagsWithCompletion([&](const auto& answer, const auto& error) {
        std::cout << (answer ? writeJson(*answer) : writeJson(error->userInfo)) << '\n';
        done = true;
    });

    while (!done) {
        epoll_event event{};
        if (epoll_wait(loop, &event, 1, -1) != 1) {
            continue;
        }
        if (event.data.fd == phone->descriptor()) {
            phone->drain();
        } else {
            std::uint64_t ticks = 0;
            if (read(clock, &ticks, sizeof ticks) == sizeof ticks) {
                std::cout << "the host's own loop goes on\n";
            }
        }
    }
    platform::shutdown();
    close(clock);
    close(loop);
}
