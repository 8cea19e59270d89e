// SPDX-License-Identifier: MIT
#include "TransferLoop.h"

#include "CurlSession.h"
#include "HttpFailure.h"

#include <openssl/crypto.h>
#include <sys/resource.h>

#include <algorithm>
#include <utility>

namespace morvellacinto::native {

namespace {

using namespace std::chrono_literals;

constexpr rlim_t fewestConnections = 4;
constexpr rlim_t mostConnections = 256;
constexpr std::chrono::milliseconds longestWait = std::chrono::minutes(1);
constexpr std::chrono::milliseconds gateInterval(20); // while the host is being asked

// At least half of the descriptors are the host's.
long connectionLimit() {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    return static_cast<long>(
        std::clamp(descriptors.rlim_cur / 2, fewestConnections, mostConnections));
}

} // namespace

TransferLoop::TransferLoop(HttpOptions options, WorkerPool& pool)
    : options_(std::move(options)), pool_(pool),
      trust_(options_.trustAnchors, options_.systemRoots) {}

void TransferLoop::submit(const std::shared_ptr<Transfer>& transfer) {
    Transfers one{transfer};
    std::unique_lock lock(mutex_);
    if (isStopped_) {
        return;
    }
    submitted_.splice(submitted_.end(), one);
    if (isRunning_) {
        if (multi_ && submitted_.size() == 1) {
            curl_multi_wakeup(multi_.get());
        }
        return;
    }
    try {
        guardLibcurlAtExit();
        pool_.postLasting([self = shared_from_this()] { self->run(); });
        isRunning_ = true;
        return;
    } catch (const std::exception&) {
        submitted_.pop_back();
    }
    lock.unlock();
    transfer->fail({HttpErrorCode::other, "The thread for transfers could not be started."});
    postCompletion(transfer);
}

void TransferLoop::stop() {
    Transfers released; // with no lock held: the completions in it are the host's
    std::unique_lock lock(mutex_);
    isStopped_ = true;
    if (multi_) {
        curl_multi_wakeup(multi_.get());
    }
    if (thread_ != std::this_thread::get_id()) {
        ended_.wait(lock, [this] { return !isRunning_; });
    }
    released.swap(submitted_);
}

void TransferLoop::postCompletion(const std::shared_ptr<Transfer>& transfer) {
    transfer->session().queue().post([transfer, self = shared_from_this()] {
        if (!self->isStopped_) {
            transfer->complete();
        }
    });
}

void TransferLoop::run() {
    thread_ = std::this_thread::get_id();
    do {
        auto idleEnd = Clock::now() + options_.idleTime;
        bool isIdle = false;
        while (!isIdle && !isStopped_) {
            passGate();
            Transfers ended = step();
            const bool haveEnded = !ended.empty();
            deliver(ended);
            if (haveEnded || !active_.empty() || !next_.empty()) {
                idleEnd = Clock::now() + options_.idleTime;
            }
            isIdle = !multi_ || Clock::now() >= idleEnd;
            if (!haveEnded && !isIdle) {
                auto until = active_.empty() ? idleEnd : Clock::now() + longestWait;
                for (const std::shared_ptr<Transfer>& transfer : active_) {
                    until = std::min(until, transfer->deadline());
                }
                if (!next_.empty()) {
                    until = std::min(until, Clock::now() + gateInterval);
                }
                const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
                curl_multi_poll(multi_.get(), nullptr, 0,
                                static_cast<int>(std::clamp(left, 0ms, longestWait).count()),
                                nullptr);
            }
        }
    } while (!close());
}

// Host code may run: outside of a turn.
void TransferLoop::passGate() {
    open(); // from here on what is submitted wakes the thread
    std::unique_lock lock(mutex_);
    next_.splice(next_.end(), submitted_);
    lock.unlock();
    if (next_.empty()) {
        return;
    }
    auto consent = UploadConsent::withheld; // when there is no memory to find out
    try {
        consent = options_.consent();
    } catch (const std::exception&) {
    }
    for (const std::shared_ptr<Transfer>& transfer : next_) {
        transfer->passGate(consent, options_.ask);
    }
}

// Does what can be done at once. The transfers that have ended.
TransferLoop::Transfers TransferLoop::step() {
    Transfers ended;
    const LibcurlTurn turn;
    if (!turn || isStopped_) {
        isStopped_ = true;
        return ended;
    }
    // What would wait in libcurl would be past the gate.
    const auto limit = static_cast<std::size_t>(next_.empty() ? 0 : connectionLimit());
    for (auto next = next_.begin(); next != next_.end();) {
        const auto transfer = next++;
        if ((*transfer)->mayBegin(active_.size() < limit ||
                                  (*transfer)->deadline() <= Clock::now())) {
            const bool hasBegun =
                (*transfer)->begin(multi_.get(), tlsSessions_.get(), trust_, options_.proxy);
            Transfers& to = hasBegun ? active_ : ended;
            to.splice(to.end(), next_, transfer);
        }
    }
    int count = 0;
    curl_multi_perform(multi_.get(), &count);
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &count)) {
        void* transfer = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
        const auto place = std::find_if(active_.begin(), active_.end(),
                                        [&](const auto& each) { return each.get() == transfer; });
        end(place, message->data.result, ended);
    }
    // libcurl has an eye on the time only of those that have a connection.
    const auto now = Clock::now();
    for (auto next = active_.begin(); next != active_.end();) {
        if (const auto transfer = next++; (*transfer)->deadline() <= now) {
            end(transfer, CURLE_OPERATION_TIMEDOUT, ended);
        }
    }
    OPENSSL_thread_stop(); // what is left would go with the thread, maybe while exit() cleans up
    return ended;
}

// Without a multi handle, for want of memory, transfers fail.
void TransferLoop::open() {
    const LibcurlTurn turn;
    if (multi_ || !turn || !initialiseLibcurl()) {
        return;
    }
    if (!tlsSessions_) {
        tlsSessions_.reset(curl_share_init());
        curl_share_setopt(tlsSessions_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    CURLM* const multi = curl_multi_init();
    // Those kept included. No limit for a host: requests must not wait for one another.
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, connectionLimit());
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, connectionLimit());
    OPENSSL_thread_stop(); // as at the end of a step
    const std::lock_guard lock(mutex_);
    multi_.reset(multi);
}

void TransferLoop::end(Transfers::iterator transfer, CURLcode result, Transfers& ended) {
    const bool goesOn = (*transfer)->end(result);
    Transfers& to = goesOn ? next_ : ended;
    to.splice(to.end(), active_, transfer);
    if (goesOn) {
        curl_multi_wakeup(multi_.get()); // to pass the gate
    }
}

void TransferLoop::deliver(Transfers& ended) noexcept {
    for (; !ended.empty(); ended.pop_front()) {
        try {
            postCompletion(ended.front());
        } catch (...) { // no worker can be had
            try {
                isStopped_ ? void() : ended.front()->complete();
            } catch (...) { // nor can one be had to tell of this
            }
        }
    }
}

// False when there is more to do after all. Else what is still active or waiting is left for `stop`
// to release.
bool TransferLoop::close() {
    const LibcurlTurn turn;
    for (const std::shared_ptr<Transfer>& transfer : active_) {
        if (turn) {
            transfer->leaveMulti();
        }
    }
    const std::lock_guard lock(mutex_);
    multi_.reset();
    turn ? OPENSSL_thread_stop() : void();
    if (!isStopped_ && !(submitted_.empty() && next_.empty())) {
        return false;
    }
    submitted_.splice(submitted_.end(), active_);
    submitted_.splice(submitted_.end(), next_);
    isRunning_ = false;
    thread_ = std::thread::id();
    ended_.notify_all();
    return true;
}

} // namespace morvellacinto::native
