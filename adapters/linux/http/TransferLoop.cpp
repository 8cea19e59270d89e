#include "TransferLoop.h"

#include "ExitGuard.h"
#include "threads/SignalsBlocked.h"
#include "TransferEngine.h"
#include "basics/KeepForever.h"

#include <dlfcn.h>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// A name look-up that hangs is left behind on a thread that still runs libcurl's code when the host
// has unloaded this library and with it the last user of libcurl.
void keepLibcurlMapped() {
    Dl_info libcurl{};
    if (dladdr(reinterpret_cast<const void*>(&curl_easy_init), &libcurl) != 0) {
        // Fails for what is part of the program itself, which stays mapped anyway.
        dlopen(libcurl.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

void failAll(const std::vector<std::shared_ptr<Transfer>>& transfers,
             const std::exception& exception) {
    for (const std::shared_ptr<Transfer>& transfer : transfers) {
        transfer->fail({HttpErrorCode::other,
                        std::string("Transfers are not possible (") + exception.what() + ")."});
    }
}

CURLcode initialiseLibcurl() {
    keepLibcurlMapped();
    return curl_global_init(CURL_GLOBAL_DEFAULT);
}

} // namespace

TransferLoop::TransferLoop(HttpOptions options)
    : options_(std::move(options)), process_(getpid()), trust_(options_.trustAnchors) {}

void TransferLoop::submit(const std::shared_ptr<Transfer>& transfer) {
    transfer->start(Transfer::Clock::now());
    std::unique_lock lock(mutex_);
    if (stopped_) {
        lock.unlock(); // dropping the transfer drops the host's completion
        return;
    }
    submitted_.push_back(transfer);
    if (threadTakesMore_) {
        if (wakeable_ != nullptr && submitted_.size() == 1) {
            curl_multi_wakeup(wakeable_);
        }
        return;
    }
    try {
        startThread();
    } catch (const std::exception&) {
        submitted_.pop_back();
        lock.unlock();
        transfer->fail({HttpErrorCode::other, "The thread for transfers could not be started."});
    }
}

void TransferLoop::halt() {
    if (inForkedChild()) {
        return;
    }
    std::thread thread;
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        if (wakeable_ != nullptr) {
            curl_multi_wakeup(wakeable_);
        }
        thread.swap(thread_);
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else if (thread.joinable()) {
        thread.join();
    }
}

void TransferLoop::stop() {
    if (inForkedChild()) {
        // The child has this object but not its thread: leave all as it is, for good.
        keepForever(shared_from_this());
        return;
    }
    halt();
    Transfers released; // with no lock held: the completions in it are the host's
    {
        const std::lock_guard lock(mutex_);
        released.swap(abandoned_);
    }
}

bool TransferLoop::inForkedChild() const noexcept { return getpid() != process_; }

void TransferLoop::startThread() {
    haltAtExit(weak_from_this());
    const SignalsBlocked blocked;
    // The thread before this one has taken its last look and is cleaning up.
    const auto previous = std::make_shared<std::thread>(std::move(thread_));
    try {
        thread_ = std::thread([self = shared_from_this(), previous] {
            if (previous->joinable()) {
                previous->join();
            }
            self->run();
        });
    } catch (...) {
        thread_ = std::move(*previous);
        throw;
    }
    threadTakesMore_ = true;
}

void TransferLoop::run() noexcept {
    pthread_setname_np(pthread_self(), "morvellacinto");
    try {
        work();
    } catch (const std::exception& exception) {
        Transfers failed;
        {
            const std::lock_guard lock(mutex_);
            threadTakesMore_ = false;
            failed.swap(submitted_);
        }
        failAll(failed, exception);
    }
}

void TransferLoop::work() {
    static const CURLcode initialised = initialiseLibcurl(); // never undone
    if (initialised != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(initialised));
    }
    makeShare();
    TransferEngine engine({share_.get(), trust_, options_.userAgent});
    try {
        serve(engine);
    } catch (const std::exception& exception) {
        {
            const std::lock_guard lock(mutex_);
            wakeable_ = nullptr;
        }
        failAll(engine.abandon(), exception);
        throw;
    }
}

void TransferLoop::serve(TransferEngine& engine) {
    auto idleSince = Transfer::Clock::now();
    bool idleTooLong = false;
    while (!takeSubmitted(engine, idleTooLong)) {
        const bool anyEnded = engine.step();
        const auto now = Transfer::Clock::now();
        if (anyEnded || !engine.isIdle()) {
            idleSince = now;
        }
        idleTooLong = now >= idleSince + options_.idleTime;
        if (!anyEnded && !idleTooLong) {
            engine.wait(engine.isIdle() ? idleSince + options_.idleTime
                                        : Transfer::Clock::time_point::max());
        }
    }
}

void TransferLoop::makeShare() {
    if (share_) {
        return;
    }
    share_.reset(curl_share_init());
    if (!share_) {
        throw std::bad_alloc();
    }
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

bool TransferLoop::takeSubmitted(TransferEngine& engine, bool idleTooLong) {
    Transfers taken;
    {
        const std::lock_guard lock(mutex_);
        if (stopped_) {
            abandoned_ = engine.abandon();
            std::move(submitted_.begin(), submitted_.end(), std::back_inserter(abandoned_));
            submitted_.clear();
        } else {
            taken.swap(submitted_);
        }
        const bool over = stopped_ || (taken.empty() && idleTooLong);
        threadTakesMore_ = !over;
        wakeable_ = over ? nullptr : engine.handle();
        if (over) {
            return true;
        }
    }
    for (std::shared_ptr<Transfer>& transfer : taken) {
        engine.add(std::move(transfer));
    }
    return false;
}

} // namespace morvellacinto::native
