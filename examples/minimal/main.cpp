// SPDX-License-Identifier: MIT
#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/native/NativePlatform.h>

#include <iostream>
#include <poll.h>

using namespace morvellacinto;

int main() {
    const auto phone = native::NativePlatform::create({.bundleIdentifier = "com.example.host"});
    platform::install(phone);
    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42").value());
    bool isOver = false;
    manager.kovraTagsWithCompletion([&](const auto& answer, const auto& error) {
        if (answer) {
            std::cout << writeJson(*answer) << '\n';
        } else {
            std::cerr << error->domain << ' ' << error->code << ": "
                      << error->userInfo.at(KRError::messageKey).asString() << '\n';
        }
        isOver = true;
    });
    pollfd blocks{phone->descriptor(), POLLIN, 0};
    while (!isOver && poll(&blocks, 1, 45'000) > 0) { // 30 s for a location, 10 for the upload
        phone->drain();
    }
    platform::shutdown();
}
