#include "adapters/linux/NativeFixtures.h"

#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <atomic>
#include <chrono>

// A host that is itself a plug-in, for the test that loads and unloads it.

using namespace morvellacinto;

namespace {

std::shared_ptr<native::NativePlatform> make(const char* directory) {
    return native::NativePlatform::create(
        {"com.example.plugin", directory, {}, nullptr, [](std::string_view) {}});
}

} // namespace

// Uses all that has threads or descriptors of its own and ends it. Zero when everything was as
// expected.
extern "C" __attribute__((visibility("default"))) int useThePlatform(const char* url,
                                                                     const char* directory) {
    const auto platform = make(directory);
    platform::install(platform);
    std::atomic<int> status = 0;
    bool back = false;
    bool located = false;
    KRLocationManager::shared().addLocationUpdateBlock(
        [&located](const auto&, const auto&) { located = true; }, "key");
    platform::HttpRequest request;
    request.url = url;
    platform->makeHttpSession({}, nullptr)
        ->dataTask(std::move(request),
                   [&](const auto&, const auto& response, const auto&) {
                       status = response ? response->status : -1;
                       platform->dispatch().asyncMain([&] { back = true; });
                   })
        ->resume();
    platform->standardUserDefaults().setObjectForKey(1, "key");
    const bool kept = platform->standardUserDefaults().synchronize();
    const bool done = native::pumpUntil(*platform, [&] { return back && located; });
    platform::shutdown();
    return done && kept && status == 200 ? 0 : 1;
}

// Calls `reached` with a request under way and then shuts down. The milliseconds that this takes.
extern "C" __attribute__((visibility("default"))) int
shutDownAtOnce(const char* url, const char* directory, void (*reached)()) {
    const auto platform = make(directory);
    platform::HttpRequest request;
    request.url = url;
    platform->makeHttpSession({}, nullptr)->dataTask(std::move(request), nullptr)->resume();
    reached();
    const auto start = std::chrono::steady_clock::now();
    platform->shutdown();
    return static_cast<int>((std::chrono::steady_clock::now() - start) /
                            std::chrono::milliseconds(1));
}
