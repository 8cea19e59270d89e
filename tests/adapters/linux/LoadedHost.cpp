#include "adapters/linux/NativeFixtures.h"

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <atomic>

// A host that is itself a plug-in, for the test that loads and unloads it: uses all that has
// threads or descriptors of its own and ends it. Zero when everything was as expected.
extern "C" __attribute__((visibility("default"))) int useThePlatform(const char* url,
                                                                     const char* directory) {
    using namespace morvellacinto;
    const auto platform =
        native::NativePlatform::create({"com.example.plugin", directory, {}, nullptr, nullptr});
    std::atomic<int> status = 0;
    bool back = false;
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
    const bool done = native::pumpUntil(*platform, [&] { return back; });
    platform->shutdown();
    return done && kept && status == 200 ? 0 : 1;
}
