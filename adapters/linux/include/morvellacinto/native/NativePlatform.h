// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"
#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Platform.h"
#include <morvellacinto/native/UploadConsent.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace morvellacinto::native {

/// What a host may choose; every member has a default that works.
struct NativeOptions {
    /// Such as "com.example.host": what the device reports and what the settings are filed under.
    /// Absent or empty: the Flatpak's identifier. Outside of Flatpak the device then reports none,
    /// and the settings are filed under the program's name.
    std::optional<std::string> bundleIdentifier = std::nullopt;

    /// Where the settings live; made when it is missing. Empty: "morvellacinto" in $XDG_DATA_HOME,
    /// else in ~/.local/share.
    std::filesystem::path dataDirectory = {};

    /// PEM files of certificates to trust besides the system's.
    std::vector<std::filesystem::path> trustAnchors = {};

    /// Receives each line of the developer log, without a line break. Absent: standard error.
    std::function<void(std::string_view)> developerLog = {};

    /// Receives a sentence for each of the library's `platform::Diagnostic` records, and when
    /// something underneath it is not as it should be. Absent: standard error.
    ///
    /// Both functions are called on any thread, also on several at once, with no lock held; what
    /// they throw is swallowed.
    std::function<void(std::string_view)> diagnostics = {};

    /// Receives every `platform::Diagnostic` record, the routine ones too: what is uploaded, asked
    /// and answered, and how long it took. Called as the two above. Absent: routine records are not
    /// even made.
    std::function<void(const platform::Diagnostic&)> observer = {};

    /// Asks the user whether they may be tracked and, once, on any thread, hands over the answer: a
    /// `platform::TrackingAuthorization` other than 0. Called on the main queue, when the library
    /// is told to ask and the user has not answered in this or an earlier run. Absent: the answer
    /// is that tracking is denied.
    std::function<void(std::function<void(std::uint64_t status)> answer)> trackingQuestion = {};

    /// Holds until `setUploadConsent` is called, in whatever run, and where that cannot be read.
    UploadConsent uploadConsent = UploadConsent::allowed;

    /// Called on the main queue, once for each request while consent is `asked`, with all that
    /// would leave but HTTP's own headers. What is not answered before the request's deadline is
    /// refused, as all is where this is absent.
    UploadQuestion beforeUpload = {};

    /// How long a location update waits for its first fix before it fails.
    std::chrono::milliseconds locationTimeout = std::chrono::seconds(30);

    /// Told when the library is called as it must not be. Absent: throws
    /// `platform::AssertionFailure`.
    std::shared_ptr<platform::AssertionHandler> assertionHandler = {};

    /// The service's base URL while that has not moved the library to another: https, path /v5, no
    /// trailing slash. Absent: the one that was chosen when the library was built.
    std::optional<std::string> defaultServiceUrl = std::nullopt;

    /// The proxy of all requests but those to loopback, such as "http://proxy.example:3128"; empty:
    /// none. Absent: $https_proxy, $HTTPS_PROXY, $all_proxy or $ALL_PROXY, with the exceptions in
    /// $no_proxy or $NO_PROXY.
    std::optional<std::string> proxy = std::nullopt;
};

/// The library's platform on a Linux phone.
///
/// The thread that calls `create` is the main thread: its loop polls `descriptor()` and calls
/// `drain()` when that is readable, or it has no loop of its own and calls `run()`. Nothing else
/// may run the main queue. All other operations may be called on any thread.
///
/// Creating the platform starts no thread and opens nothing but two event descriptors, closed on
/// exec; it reads the files in `NativeOptions::trustAnchors` and, without a bundle identifier, the
/// Flatpak's. Threads, other files and connections come with the first use of what needs them.
///
/// The last reference may be let go on any thread, also by a callback that the platform is running;
/// that shuts it down as `shutdown` does. A child made by fork() may only exec or exit.
class MORVELLACINTO_EXPORT NativePlatform final : public platform::Platform {
public:
    /// Throws std::system_error when no descriptor is left, std::runtime_error for a trust anchor
    /// that cannot be read, and std::invalid_argument when `dataDirectory` is empty and neither
    /// $XDG_DATA_HOME nor $HOME is an absolute path.
    [[nodiscard]] static std::shared_ptr<NativePlatform> create(NativeOptions options = {});
    ~NativePlatform() override;

    /// Polls readable while blocks wait for the main thread, or an exception waits to be rethrown
    /// there. Only for polling; stays open, and silent, after shutdown until the platform is
    /// destroyed.
    [[nodiscard]] int descriptor() const noexcept;

    /// Runs the blocks that wait at this moment, in order; those that they add are left for the
    /// next call. Throws first of all, one a call, an exception that escaped from a block on a
    /// background thread; an exception of a block that runs here goes to the caller too, and the
    /// blocks after it stay queued. May be called inside a block. Does nothing after shutdown.
    /// Throws std::logic_error on any thread but the main one.
    void drain();

    /// Runs blocks as they come, until `stop` or shutdown; throws as `drain` does, and may be
    /// called again afterwards.
    void run();

    /// Makes `run` return once the block that it is running has ended; what waits stays queued.
    /// With no `run` under way, the next one returns at once. Not for signal handlers.
    void stop();

    /// Gives the user another advertising identifier, for a host that offers them that.
    void resetAdvertisingIdentifier();
    /// Records that the user changed their mind about being tracked: a
    /// `platform::TrackingAuthorization`, 0 to have them asked again. It holds in this process in
    /// any case; true when it would also survive loss of power. When it is false, the next
    /// `synchronize()` of the defaults tries again. Throws std::invalid_argument for any other
    /// number.
    [[nodiscard]] bool setTrackingAuthorization(std::uint64_t status);

    /// Records what the user decided, or reads it; waits up to 5 seconds, or half a second, for who
    /// writes just now. No hop of any request begins without asking for it, redirects included;
    /// what has begun is not called back. True when it holds in all of the application's processes
    /// and survives loss of power; else consent is withheld in this one until it is set again. A
    /// decision that cannot be read when a hop begins counts as withheld, too.
    [[nodiscard]] bool setUploadConsent(UploadConsent consent);
    [[nodiscard]] UploadConsent uploadConsent() const; ///< as the next hop finds it

    /// Erases, without a trace in any file, all that the library has stored under its prefix, such
    /// as the cached answer and the moved base URL, its identifiers, and databases that were set
    /// aside. The decisions on consent and tracking and the host's own settings stay. An answer on
    /// its way reaches its completion and is not stored, nor is what other processes remember. In
    /// this process it holds at once; true when it is done on disk too. When it is false, or the
    /// process is killed meanwhile, whoever uses the settings next goes on with it.
    [[nodiscard]] bool eraseStoredData();

    [[nodiscard]] platform::Dispatch& dispatch() override;
    [[nodiscard]] platform::Clock& clock() override;
    [[nodiscard]] platform::DeveloperLog& developerLog() override;
    [[nodiscard]] platform::Diagnostics* diagnostics() noexcept override;
    [[nodiscard]] std::optional<std::string> defaultServiceUrl() override;
    [[nodiscard]] platform::AssertionHandler& assertionHandler() override;
    [[nodiscard]] platform::SystemVersion& systemVersion() override;
    [[nodiscard]] platform::UserDefaults& standardUserDefaults() override;
    [[nodiscard]] platform::UrlParser& urlParser() override;
    [[nodiscard]] platform::LocationServices& locationServices() override;
    [[nodiscard]] platform::Telephony& telephony() override;
    [[nodiscard]] platform::Device& device() override;
    [[nodiscard]] platform::Tracking& tracking() override;
    [[nodiscard]] platform::Network& network() override;
    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeHttpSession(platform::HttpSessionConfiguration configuration,
                    platform::HttpSessionDelegate* delegate) override;

    /// Everything in the persistent defaults, sorted by key, the host's own entries included: for
    /// tools that show it. Any thread.
    [[nodiscard]] Object storedSettings() const;

    /// See `platform::shutdown`, which calls it. Any thread, more than once if need be.
    void shutdown() override;

private:
    struct Services;
    explicit NativePlatform(NativeOptions options);
    std::unique_ptr<Services> services_;
};

} // namespace morvellacinto::native
