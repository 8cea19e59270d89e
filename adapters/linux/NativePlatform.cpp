// SPDX-License-Identifier: MIT
#include <morvellacinto/native/NativePlatform.h>

#include "Diagnostics.h"
#include "KeptValues.h"
#include "basics/SystemFiles.h"
#include "bus/Bus.h"
#include "device/NativeDevice.h"
#include "http/CurlSession.h"
#include "http/CurlUrl.h"
#include "http/TransferLoop.h"
#include "location/NativeLocation.h"
#include "network/NativeNetwork.h"
#include "settings/SqliteDefaults.h"
#include "telephony/NativeTelephony.h"
#include "threads/MainQueue.h"
#include "threads/StopSignal.h"
#include "threads/WorkerPool.h"
#include "tracking/NativeTracking.h"

#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/platform/DeveloperLog.h"
#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/platform/UrlParser.h"

#include <cerrno> // program_invocation_short_name too
#include <csignal>
#include <ctime>
#include <stdexcept>
#include <unistd.h>

namespace morvellacinto::native {

namespace {

class SystemClock final : public platform::Clock {
public:
    [[nodiscard]] Date now() const override {
        using Seconds = std::chrono::duration<double>;
        return {Seconds(std::chrono::system_clock::now().time_since_epoch()).count()};
    }
};

// The generation of services that this adapter offers, whatever the distribution calls itself.
class NativeSystemVersion final : public platform::SystemVersion {
public:
    [[nodiscard]] bool isAtLeast(int major, int minor) const override {
        return std::pair(14, 0) >= std::pair(major, minor);
    }
};

// The opinion of the parser that transfers use.
class NativeUrlParser final : public platform::UrlParser {
public:
    [[nodiscard]] std::optional<std::string> parse(std::string_view text) const override {
        const std::optional<CurlUrl> url = CurlUrl::parse(text);
        return url ? std::optional(url->text()) : std::nullopt;
    }
};

class NativeDispatch final : public platform::Dispatch {
public:
    NativeDispatch(MainQueue& mainQueue, WorkerPool& workers)
        : mainQueue_(mainQueue), workers_(workers) {}

    void asyncMain(Block block) override { mainQueue_.post(std::move(block)); }
    void asyncGlobal(Block block) override { workers_.post(std::move(block)); }
    [[nodiscard]] bool isMainThread() const noexcept override { return mainQueue_.isMainThread(); }

private:
    MainQueue& mainQueue_;
    WorkerPool& workers_;
};

// In one piece, and without SIGPIPE when nobody reads it any more.
void writeToStandardError(const std::string& line) noexcept {
    sigset_t brokenPipe;
    sigset_t before;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    if (write(STDERR_FILENO, line.data(), line.size()) < 0 && errno == EPIPE) {
        constexpr timespec atOnce{0, 0};
        sigtimedwait(&brokenPipe, nullptr, &atOnce);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// Lines for a function of the host, or for standard error.
Diagnostics linesTo(Diagnostics host, std::string_view prefix) {
    const auto shared = std::make_shared<const Diagnostics>(std::move(host));
    return [shared, prefix](std::string_view line) {
        const auto held = shared; // NOLINT(performance-*): the host may let go of this meanwhile
        const auto& write = *held;
        try {
            write ? write(line) : writeToStandardError(std::string(prefix).append(line) + '\n');
        } catch (...) {
            // This is where failures are told; one of its own has nowhere to go.
        }
    };
}

class NativeLog final : public platform::DeveloperLog, public platform::Diagnostics {
public:
    using Observer = std::function<void(const platform::Diagnostic&)>;

    NativeLog(native::Diagnostics lines, native::Diagnostics sentences, Observer observer)
        : lines_(std::move(lines)), sentences_(std::move(sentences)),
          observer_(std::make_shared<const Observer>(std::move(observer))) {}

    void log(std::string_view text) noexcept override { lines_(text); }
    /// What the adapter's own parts have to say.
    void note(std::string_view sentence) noexcept {
        try {
            tell(platform::PlatformNote{std::string(sentence)});
        } catch (...) {
            // There is no memory to say it.
        }
    }
    [[nodiscard]] bool wantsRoutine() const noexcept override { return *observer_ != nullptr; }
    void tell(const platform::Diagnostic& record) noexcept override {
        try {
            const auto observer = observer_; // the host may let go of this meanwhile
            const bool isRoutine =
                std::visit([]<class R>(const R&) { return platform::isRoutine<R>; }, record);
            isRoutine ? void() : sentences_(sentenceOf(record));
            *observer ? (*observer)(record) : void();
        } catch (...) {
            // The observer threw, or there is no memory to say it.
        }
    }

private:
    const native::Diagnostics lines_;
    const native::Diagnostics sentences_;
    const std::shared_ptr<const Observer> observer_;
};

std::filesystem::path dataDirectoryOr(const std::filesystem::path& chosen) {
    if (!chosen.empty()) {
        return std::filesystem::absolute(chosen).lexically_normal();
    }
    for (const auto& [variable, folder] : {std::pair("XDG_DATA_HOME", "morvellacinto"),
                                           std::pair("HOME", ".local/share/morvellacinto")}) {
        if (const std::filesystem::path base(environment(variable)); base.is_absolute()) {
            return (base / folder).lexically_normal();
        }
    }
    throw std::invalid_argument("dataDirectory is empty, and neither XDG_DATA_HOME nor HOME is set "
                                "to an absolute path that could stand for it");
}

KeptValues keptIn(const std::shared_ptr<SqliteDefaults>& settings) {
    return {[settings](std::string_view name) { return settings->adapterValue(name); },
            [settings](std::string_view name, std::string_view text) {
                settings->setAdapterValue(name, text);
            },
            [settings] { return settings->synchronize(); }};
}

constexpr std::string_view keptConsent = "uploadConsent";

UploadConsent consentIn(const SqliteDefaults& settings, UploadConsent undecided) {
    const KeptText kept = settings.freshAdapterValue(keptConsent);
    const std::string text = kept.text.value_or("");
    const bool isKnown = text.size() == 1 && text >= "0" && text <= "2";
    if (!isKnown) {
        return undecided;
    }
    // A decision that another process may have changed, nobody can tell, counts as withheld.
    return kept.isCertain ? static_cast<UploadConsent>(text.front() - '0')
                          : UploadConsent::withheld;
}

UploadQuestion onMainQueue(const std::shared_ptr<MainQueue>& queue, UploadQuestion host) {
    const auto ask = std::make_shared<const UploadQuestion>(std::move(host));
    return [queue, ask](const platform::HttpRequest& request, const UploadAnswer& answer) {
        *ask ? queue->post([=] { (*ask)(request, answer); }) : answer(std::nullopt);
    };
}

} // namespace

struct NativePlatform::Services {
    explicit Services(NativeOptions options)
        : log(std::make_shared<NativeLog>(
              linesTo(std::move(options.developerLog), ""),
              linesTo(std::move(options.diagnostics), "morvellacinto: "),
              std::move(options.observer))),
          defaultServiceUrl(std::move(options.defaultServiceUrl)),
          bundle(findBundleIdentifier(std::move(options.bundleIdentifier))),
          settings(std::make_shared<SqliteDefaults>(dataDirectoryOr(options.dataDirectory),
                                                    bundle.value_or(program_invocation_short_name),
                                                    diagnostics)),
          assertionHandler(options.assertionHandler
                               ? std::move(options.assertionHandler)
                               : std::make_shared<platform::AssertionHandler>()),
          undecided(options.uploadConsent), device(bundle, bus, keptIn(settings)),
          tracking(mainQueue, keptIn(settings), std::move(options.trackingQuestion)),
          location(std::make_shared<NativeLocation>(
              mainQueue, bus, workers, LocationOptions{bundle, options.locationTimeout})),
          http(std::make_shared<TransferLoop>(
              HttpOptions{
                  .trustAnchors = std::move(options.trustAnchors),
                  .proxy = std::move(options.proxy),
                  .consent = [settings = settings,
                              undecided = undecided] { return consentIn(*settings, undecided); },
                  .ask = onMainQueue(mainQueue, std::move(options.beforeUpload))},
              workers)) {}

    const std::shared_ptr<NativeLog> log;
    const Diagnostics diagnostics = [log = log](std::string_view sentence) { log->note(sentence); };
    const std::optional<std::string> defaultServiceUrl;
    const std::optional<std::string> bundle;
    const std::shared_ptr<SqliteDefaults> settings;
    StopSignal stopSignal;
    const std::shared_ptr<MainQueue> mainQueue = std::make_shared<MainQueue>();
    // Before what posts to it: it is destroyed after that.
    WorkerPool workers{[queue = mainQueue](const std::exception_ptr& exception) {
        queue->rethrowLater(exception);
    }};
    NativeDispatch dispatch{*mainQueue, workers};
    SystemClock clock;
    const std::shared_ptr<platform::AssertionHandler> assertionHandler;
    NativeSystemVersion systemVersion;
    const UploadConsent undecided;
    Bus bus{diagnostics, stopSignal};
    NativeDevice device;
    NativeTracking tracking;
    NativeTelephony telephony{bus};
    NativeNetwork network{bus};
    const std::shared_ptr<NativeLocation> location;
    NativeUrlParser urlParser;
    const std::shared_ptr<TransferLoop> http;
};

std::shared_ptr<NativePlatform> NativePlatform::create(NativeOptions options) {
    return std::shared_ptr<NativePlatform>(new NativePlatform(std::move(options)));
}

NativePlatform::NativePlatform(NativeOptions options)
    : services_(std::make_unique<Services>(std::move(options))) {}

// A forked child has none of the threads that these objects would wait for: it leaves all as it is.
NativePlatform::~NativePlatform() {
    if (services_->stopSignal.isForkedChild()) {
        static_cast<void>(services_.release());
    } else {
        NativePlatform::shutdown();
    }
}

int NativePlatform::descriptor() const noexcept { return services_->mainQueue->descriptor(); }

// A block may let go of the last reference to the platform, so the queue is held meanwhile.
void NativePlatform::drain() { std::shared_ptr(services_->mainQueue)->drain(); }

void NativePlatform::run() { std::shared_ptr(services_->mainQueue)->run(); }

void NativePlatform::stop() { services_->mainQueue->stop(); }

void NativePlatform::resetAdvertisingIdentifier() {
    services_->tracking.resetAdvertisingIdentifier();
}

bool NativePlatform::setTrackingAuthorization(std::uint64_t status) {
    return services_->tracking.setTrackingAuthorization(status);
}

UploadConsent NativePlatform::uploadConsent() const {
    return consentIn(*services_->settings, services_->undecided);
}

bool NativePlatform::setUploadConsent(UploadConsent consent) {
    services_->settings->setAdapterValue(keptConsent, std::to_string(static_cast<int>(consent)));
    const bool isDurable = services_->settings->synchronize();
    if (!isDurable && consent != UploadConsent::withheld) {
        static_cast<void>(setUploadConsent(UploadConsent::withheld));
    }
    return isDurable;
}

bool NativePlatform::eraseStoredData() { return services_->settings->erase(); }

platform::Dispatch& NativePlatform::dispatch() { return services_->dispatch; }

platform::Clock& NativePlatform::clock() { return services_->clock; }

platform::DeveloperLog& NativePlatform::developerLog() { return *services_->log; }

platform::Diagnostics* NativePlatform::diagnostics() noexcept { return services_->log.get(); }

std::optional<std::string> NativePlatform::defaultServiceUrl() {
    return services_->defaultServiceUrl;
}

platform::AssertionHandler& NativePlatform::assertionHandler() {
    return *services_->assertionHandler;
}

platform::SystemVersion& NativePlatform::systemVersion() { return services_->systemVersion; }

platform::UserDefaults& NativePlatform::standardUserDefaults() { return *services_->settings; }

platform::UrlParser& NativePlatform::urlParser() { return services_->urlParser; }

platform::LocationServices& NativePlatform::locationServices() { return *services_->location; }

platform::Telephony& NativePlatform::telephony() { return services_->telephony; }

platform::Device& NativePlatform::device() { return services_->device; }

platform::Tracking& NativePlatform::tracking() { return services_->tracking; }

platform::Network& NativePlatform::network() { return services_->network; }

std::shared_ptr<platform::HttpSession>
NativePlatform::makeHttpSession(platform::HttpSessionConfiguration configuration,
                                platform::HttpSessionDelegate* /*delegate*/) {
    return std::make_shared<CurlSession>(std::move(configuration), services_->http,
                                         services_->workers);
}

Object NativePlatform::storedSettings() const { return services_->settings->contents(); }

void NativePlatform::shutdown() {
    if (services_->stopSignal.isForkedChild()) {
        return;
    }
    // Transfers before the workers: they hand their completions to them, and must be cancelled in
    // time even while a worker is busy with code of the host.
    services_->mainQueue->shutdown();
    services_->stopSignal.raise();
    services_->settings->endWaits();
    services_->location->shutdown();
    services_->http->stop();
    services_->workers.shutdown();
    services_->settings->close();
    services_->mainQueue->awaitBlock();
}

} // namespace morvellacinto::native
