// SPDX-License-Identifier: MIT
#include "morvellacinto/platform/Platform.h"

#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Dispatch.h"

#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace morvellacinto::platform {

AssertionFailure::~AssertionFailure() = default;
Interface::~Interface() = default;

void AssertionHandler::handleFailureInFunction(std::string_view function, std::string_view file,
                                               int line, std::string_view description) {
    throw AssertionFailure(std::string(description) + " (" + std::string(function) + ", " +
                           std::string(file) + ":" + std::to_string(line) + ")");
}

namespace {

struct Installation {
    std::shared_mutex mutex;
    std::shared_ptr<Platform> platform;
    bool used = false;
    bool isEnding = false;
    // By the first shutdown. Later ones wait for what that one could not, being on a thread of the
    // platform's.
    std::thread::id endedBy;
    std::weak_ptr<Platform> ended;
    std::atomic<void (*)()> release = nullptr;
};

// Made at first use and never destroyed, so that neither loading the library nor leaving the
// process without a shutdown runs any code.
Installation& installation() {
    static auto* const instance = new Installation;
    return *instance;
}

} // namespace

void install(std::shared_ptr<Platform> platform) {
    if (platform == nullptr) {
        throw std::invalid_argument("platform::install was given no platform");
    }
    const Diagnostics* const diagnostics = platform->diagnostics();
    const Told heard = diagnostics == nullptr        ? Told::nothing
                       : diagnostics->wantsRoutine() ? Told::everything
                                                     : Told::problems;
    Installation& slot = installation();
    const std::unique_lock lock(slot.mutex);
    if (slot.used) {
        throw std::logic_error("platform::install was called a second time; a process installs "
                               "its platform once");
    }
    slot.used = true;
    slot.platform = std::move(platform);
    told = heard;
}

std::shared_ptr<Platform> current() {
    Installation& slot = installation();
    const std::shared_lock lock(slot.mutex);
    if (slot.platform == nullptr) {
        throw std::logic_error(slot.used ? "the platform has been shut down"
                                         : "no platform is installed; call "
                                           "morvellacinto::platform::install first");
    }
    return slot.platform;
}

void shutdown() {
    Installation& slot = installation();
    std::shared_ptr<Platform> ending;
    bool isFirst = false;
    {
        const std::unique_lock lock(slot.mutex);
        isFirst = slot.platform != nullptr && !slot.isEnding;
        if (isFirst) {
            slot.isEnding = true;
            slot.endedBy = std::this_thread::get_id();
            slot.ended = slot.platform;
        } else if (slot.platform != nullptr && slot.endedBy == std::this_thread::get_id()) {
            return; // by what the first one drops
        }
        ending = slot.ended.lock();
    }
    // What is running meanwhile still finds the platform, so that it can end what it has begun and
    // destructors of dropped callbacks may call the library.
    struct Ended {
        Installation& slot;
        bool isFirst;
        ~Ended() {
            const std::unique_lock lock(slot.mutex);
            if (isFirst) {
                slot.platform = nullptr;
            }
        }
    };
    const Ended ended{slot, isFirst};
    if (ending != nullptr) {
        ending->shutdown();
    }
    if (const auto release = slot.release.load();
        isFirst && release != nullptr && ending->dispatch().isMainThread()) {
        release();
    }
}

void detail::atShutdown(void (*release)()) noexcept { installation().release = release; }

bool isShutDown() noexcept {
    Installation& slot = installation();
    const std::shared_lock lock(slot.mutex);
    return slot.isEnding;
}

} // namespace morvellacinto::platform
