#include "adapters/linux/NativeFixtures.h"

#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <chrono>

// A host that is itself a plug-in, for the test that loads and unloads it. Uses all that has
// threads or descriptors of its own, calls `reached` with a request to `url` under way, and then
// shuts down. The milliseconds that this takes; -1 when not everything was as expected.
extern "C" __attribute__((visibility("default"))) int
useThePlatform(const char* url, const char* directory, void (*reached)()) {
    using namespace morvellacinto;
    const auto platform = native::NativePlatform::create(
        {"com.example.plugin", directory, {}, nullptr, [](std::string_view) {}});
    platform::install(platform);
    bool located = false;
    KRLocationManager::shared().addLocationUpdateBlock(
        [&located](const auto&, const auto&) { located = true; }, "key");
    platform->standardUserDefaults().setObjectForKey(1, "key");
    const bool isUsed = platform->standardUserDefaults().synchronize() &&
                        native::pumpUntil(*platform, [&] { return located; });
    platform->makeHttpSession({}, nullptr)->dataTask({"GET", url, {}, {}}, nullptr)->resume();
    reached();
    const auto start = std::chrono::steady_clock::now();
    platform::shutdown();
    const auto took = std::chrono::steady_clock::now() - start;
    return isUsed ? static_cast<int>(took / std::chrono::milliseconds(1)) : -1;
}
