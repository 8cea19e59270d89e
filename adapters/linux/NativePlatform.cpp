#include <morvellacinto/native/NativePlatform.h>

#include "Diagnostics.h"
#include "MainQueue.h"
#include "WorkerPool.h"
#include "basics/NativeDeveloperLog.h"
#include "basics/NativeDispatch.h"
#include "basics/NativeSystemVersion.h"
#include "basics/StandardError.h"
#include "basics/SystemClock.h"
#include "device/NativeDevice.h"
#include "device/NativeTracking.h"
#include "http/CurlUrlParser.h"
#include "http/HttpTransport.h"
#include "location/NativeLocation.h"
#include "network/NativeNetwork.h"
#include "settings/SqliteDefaults.h"
#include "telephony/NativeTelephony.h"

#include "morvellacinto/platform/AssertionHandler.h"

#include <cerrno> // program_invocation_short_name
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

class ThrowingAssertionHandler final : public platform::AssertionHandler {};

Diagnostics diagnosticsTo(std::function<void(std::string_view)> write) {
    return [write = std::move(write)](std::string_view sentence) {
        if (write == nullptr) {
            writeLineToStandardError("morvellacinto: ", sentence);
            return;
        }
        try {
            write(sentence);
        } catch (...) {
            // A sink that fails has nowhere else to tell it.
        }
    };
}

std::filesystem::path absolutePathIn(const char* variable) {
    const char* value = std::getenv(variable);
    std::filesystem::path path(value != nullptr ? value : "");
    return path.is_absolute() ? path : std::filesystem::path();
}

std::filesystem::path dataDirectoryOr(const std::filesystem::path& chosen) {
    if (!chosen.empty()) {
        return std::filesystem::absolute(chosen);
    }
    if (const auto data = absolutePathIn("XDG_DATA_HOME"); !data.empty()) {
        return data / "morvellacinto";
    }
    if (const auto home = absolutePathIn("HOME"); !home.empty()) {
        return home / ".local/share/morvellacinto";
    }
    throw std::invalid_argument("dataDirectory is empty, and neither XDG_DATA_HOME nor HOME is set "
                                "to an absolute path that could stand for it");
}

} // namespace

struct NativePlatform::Services {
    explicit Services(NativeOptions options)
        : diagnostics(diagnosticsTo(std::move(options.diagnostics))),
          dataDirectory(dataDirectoryOr(options.dataDirectory)),
          developerLog(std::move(options.developerLog)),
          device(std::move(options.bundleIdentifier)),
          http({.trustAnchors = std::move(options.trustAnchors)}, workers) {}

    // Made when first asked for: finding the bundle's name may open a file.
    SqliteDefaults& settings() {
        std::call_once(settingsMade, [this] {
            defaults.emplace(dataDirectory,
                             device.bundleIdentifier().value_or(program_invocation_short_name),
                             diagnostics);
        });
        return *defaults;
    }

    const Diagnostics diagnostics;
    const std::filesystem::path dataDirectory;
    const std::shared_ptr<MainQueue> mainQueue = std::make_shared<MainQueue>();
    // Before what posts to it: it is destroyed after that.
    WorkerPool workers{[queue = mainQueue](std::exception_ptr exception) {
        queue->rethrowLater(std::move(exception));
    }};
    NativeDispatch dispatch{*mainQueue, workers};
    SystemClock clock;
    NativeDeveloperLog developerLog;
    ThrowingAssertionHandler assertionHandler;
    NativeSystemVersion systemVersion;
    NativeDevice device;
    NativeTracking tracking{workers};
    NativeTelephony telephony;
    NativeNetwork network;
    NativeLocation location{mainQueue};
    CurlUrlParser urlParser;
    HttpTransport http;
    std::once_flag settingsMade;
    std::optional<SqliteDefaults> defaults;
    const pid_t process = getpid();
};

std::shared_ptr<NativePlatform> NativePlatform::create(NativeOptions options) {
    return std::shared_ptr<NativePlatform>(new NativePlatform(std::move(options)));
}

NativePlatform::NativePlatform(NativeOptions options)
    : services_(std::make_unique<Services>(std::move(options))) {}

NativePlatform::~NativePlatform() {
    NativePlatform::shutdown();
    if (getpid() != services_->process) {
        // A forked child has none of the threads that these objects would wait for.
        static_cast<void>(services_.release());
    }
}

int NativePlatform::descriptor() const noexcept { return services_->mainQueue->descriptor(); }

// A block may let go of the last reference to the platform, so the queue is held meanwhile.
void NativePlatform::drain() {
    const std::shared_ptr<MainQueue> queue = services_->mainQueue;
    queue->drain();
}

void NativePlatform::run() {
    const std::shared_ptr<MainQueue> queue = services_->mainQueue;
    queue->run();
}

void NativePlatform::stop() { services_->mainQueue->stop(); }

platform::Dispatch& NativePlatform::dispatch() { return services_->dispatch; }

platform::Clock& NativePlatform::clock() { return services_->clock; }

platform::DeveloperLog& NativePlatform::developerLog() { return services_->developerLog; }

platform::AssertionHandler& NativePlatform::assertionHandler() {
    return services_->assertionHandler;
}

platform::SystemVersion& NativePlatform::systemVersion() { return services_->systemVersion; }

platform::UserDefaults& NativePlatform::standardUserDefaults() { return services_->settings(); }

platform::UrlParser& NativePlatform::urlParser() { return services_->urlParser; }

platform::LocationServices& NativePlatform::locationServices() { return services_->location; }

platform::Telephony& NativePlatform::telephony() { return services_->telephony; }

platform::Device& NativePlatform::device() { return services_->device; }

platform::Tracking& NativePlatform::tracking() { return services_->tracking; }

platform::Network& NativePlatform::network() { return services_->network; }

std::shared_ptr<platform::HttpSession>
NativePlatform::makeHttpSession(platform::HttpSessionConfiguration configuration,
                                platform::HttpSessionDelegate* delegate) {
    return services_->http.makeSession(std::move(configuration), delegate);
}

Object NativePlatform::storedSettings() const { return services_->settings().contents(); }

void NativePlatform::shutdown() {
    if (getpid() != services_->process) {
        return;
    }
    // Transfers before the workers: they hand their completions to them, and must be cancelled in
    // time even while a worker is busy with code of the host.
    services_->mainQueue->shutdown();
    services_->http.shutdown();
    services_->workers.shutdown();
    services_->settings().close();
}

} // namespace morvellacinto::native
