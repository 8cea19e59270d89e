// SPDX-License-Identifier: MIT
#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/UserDefaults.h"
#include <morvellacinto/native/NativePlatform.h>

#include <chrono>

// A host that is itself a plug-in. Uses all that has threads or descriptors of its own, calls
// `reached` with a request to `url` under way, and then shuts down. The milliseconds that this
// takes.
extern "C" __attribute__((visibility("default"))) int
useThePlatform(const char* url, const char* directory, void (*reached)()) {
    using namespace morvellacinto;
    const auto platform = native::NativePlatform::create(
        {"com.example.plugin", directory, {}, nullptr, [](std::string_view) {}});
    platform::install(platform);
    bool located = false;
    KRLocationManager::shared().addLocationUpdateBlock(
        [&located](const auto&, const auto&) { located = true; }, "key");
    while (!located) {
        platform->drain();
    }
    platform->standardUserDefaults().setObjectForKey(1, "key");
    static_cast<void>(platform->standardUserDefaults().synchronize());
    platform->makeHttpSession({}, nullptr)->dataTask({"GET", url, {}, {}}, nullptr)->resume();
    reached();
    const auto start = std::chrono::steady_clock::now();
    platform::shutdown();
    return static_cast<int>((std::chrono::steady_clock::now() - start) /
                            std::chrono::milliseconds(1));
}
