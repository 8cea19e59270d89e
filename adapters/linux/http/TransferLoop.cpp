#include "TransferLoop.h"

#include "CurlSession.h"
#include "HttpFailure.h"

#include <sys/resource.h>

#include <algorithm>
#include <utility>

namespace morvellacinto::native {

namespace {

using namespace std::chrono_literals;

constexpr rlim_t fewestConnections = 4;
constexpr rlim_t mostConnections = 256;
constexpr std::chrono::milliseconds longestWait = std::chrono::minutes(1);

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

void TransferLoop::answer(const std::weak_ptr<Transfer>& asked,
                          std::optional<platform::HttpRequest> request) {
    const std::lock_guard lock(mutex_);
    if (!asked.expired()) {
        answers_.emplace_back(asked, std::move(request));
    }
    if (multi_) {
        curl_multi_wakeup(multi_.get());
    }
}

void TransferLoop::run() {
    thread_ = std::this_thread::get_id();
    do {
        auto idleEnd = Clock::now() + options_.idleTime;
        bool isIdle = false;
        while (!isIdle && !isStopped_) {
            Transfers ended;
            takeArrived(ended);
            passGate(ended);
            if (!isStopped_) {
                step(ended);
            }
            const bool goesOn = !ended.empty() || !next_.empty();
            deliver(ended);
            if (goesOn || !active_.empty() || !waiting_.empty()) {
                idleEnd = Clock::now() + options_.idleTime;
            }
            isIdle = !multi_ || Clock::now() >= idleEnd;
            if (!goesOn && !isIdle) {
                const bool isAtRest = active_.empty() && waiting_.empty();
                auto until = isAtRest ? idleEnd : Clock::now() + longestWait;
                for (const Transfers* transfers : {&active_, &waiting_}) {
                    for (const std::shared_ptr<Transfer>& transfer : *transfers) {
                        until = std::min(until, transfer->deadline());
                    }
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

void TransferLoop::takeArrived(Transfers& ended) {
    open(); // from here on whoever submits or answers wakes the thread
    std::unique_lock lock(mutex_);
    next_.splice(next_.end(), submitted_);
    auto answers = std::exchange(answers_, {});
    lock.unlock();
    for (auto& [asked, request] : answers) {
        const auto place = std::find(waiting_.begin(), waiting_.end(), asked.lock());
        if (place == waiting_.end()) {
            continue; // its time is over
        }
        if (request) {
            (*place)->approve(*std::move(request));
            next_.splice(next_.end(), waiting_, place);
        } else {
            (*place)->refuse({HttpErrorCode::uploadRefused, "The host refused to send it."});
            ended.splice(ended.end(), waiting_, place);
        }
    }
    for (auto next = waiting_.begin(); next != waiting_.end();) {
        if (const auto transfer = next++; (*transfer)->deadline() <= Clock::now()) {
            (*transfer)->refuse(
                {HttpErrorCode::uploadRefused, "The host did not say in time whether to send it."});
            ended.splice(ended.end(), waiting_, transfer);
        }
    }
}

// Host code may run: neither in a turn nor with a lock held.
void TransferLoop::passGate(Transfers& ended) {
    if (next_.empty()) {
        return;
    }
    UploadConsent consent = UploadConsent::withheld; // when there is no memory to find out
    try {
        consent = options_.consent();
    } catch (const std::exception&) {
    }
    for (auto next = next_.begin(); next != next_.end();) {
        const auto transfer = next++;
        if (consent == UploadConsent::withheld) {
            (*transfer)->refuse({HttpErrorCode::uploadWithheld, "Consent to upload is withheld."});
        } else if (consent == UploadConsent::allowed || (*transfer)->isApproved()) {
            (*transfer)->approve();
            continue;
        } else if (ask(*transfer)) {
            waiting_.splice(waiting_.end(), next_, transfer);
            continue;
        }
        ended.splice(ended.end(), next_, transfer);
    }
}

// False when nobody can be asked.
bool TransferLoop::ask(const std::shared_ptr<Transfer>& transfer) noexcept {
    try {
        if (options_.question) {
            options_.question(transfer->request(),
                              [self = weak_from_this(), asked = std::weak_ptr(transfer),
                               isGiven = std::make_shared<std::atomic<bool>>()](auto request) {
                                  if (const auto loop = self.lock();
                                      loop && !isGiven->exchange(true)) {
                                      loop->answer(asked, std::move(request));
                                  }
                              });
            return true;
        }
    } catch (const std::exception&) {
    }
    transfer->refuse({HttpErrorCode::uploadRefused, "Nobody can be asked whether to send it."});
    return false;
}

// Does what can be done at once.
void TransferLoop::step(Transfers& ended) {
    const LibcurlTurn turn;
    if (!turn) {
        isStopped_ = true;
        return;
    }
    while (!next_.empty()) {
        beginFirst(ended);
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
}

// Without a multi handle, for want of memory, transfers fail.
void TransferLoop::open() {
    if (multi_) {
        return;
    }
    const LibcurlTurn turn;
    if (!turn || !initialiseLibcurl()) {
        return;
    }
    if (!tlsSessions_) {
        tlsSessions_.reset(curl_share_init());
        curl_share_setopt(tlsSessions_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    CURLM* const multi = curl_multi_init();
    // Beyond that, transfers wait in libcurl. No limit for a host: requests must not wait for one
    // another.
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, connectionLimit());
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, connectionLimit()); // those kept included
    const std::lock_guard lock(mutex_);
    multi_.reset(multi);
}

void TransferLoop::beginFirst(Transfers& ended) {
    const bool hasBegun =
        next_.front()->begin(multi_.get(), tlsSessions_.get(), trust_, options_.proxy);
    Transfers& to = hasBegun ? active_ : ended;
    to.splice(to.end(), next_, next_.begin());
}

void TransferLoop::end(Transfers::iterator transfer, CURLcode result, Transfers& ended) {
    Transfers& to = (*transfer)->end(result) ? next_ : ended;
    to.splice(to.end(), active_, transfer);
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
    if (!isStopped_ && !(submitted_.empty() && waiting_.empty())) {
        return false;
    }
    for (Transfers* left : {&waiting_, &next_, &active_}) {
        submitted_.splice(submitted_.end(), *left);
    }
    isRunning_ = false;
    thread_ = std::thread::id();
    ended_.notify_all();
    return true;
}

} // namespace morvellacinto::native
