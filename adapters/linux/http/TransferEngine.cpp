#include "TransferEngine.h"

#include <algorithm>
#include <exception>
#include <new>
#include <sys/resource.h>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr rlim_t fewestTransfers = 16;
constexpr rlim_t mostTransfers = 2048;

// Each has a descriptor, and at least half of them are the host's.
std::size_t transfersAtATime() {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    return std::clamp(descriptors.rlim_cur / 2, fewestTransfers, mostTransfers);
}

// What fails in `step` fails for this one transfer.
template <class Step>
bool attempt(const std::shared_ptr<Transfer>& transfer, Step step) {
    try {
        step();
        return true;
    } catch (const HttpFailure& failure) {
        transfer->fail(failure);
    } catch (const std::exception& exception) {
        transfer->fail(
            {HttpErrorCode::other, std::string("The transfer failed (") + exception.what() + ")."});
    }
    return false;
}

} // namespace

TransferEngine::TransferEngine(ExchangeContext context)
    : context_(std::move(context)), multi_(curl_multi_init()), queue_(transfersAtATime()) {
    if (!multi_) {
        throw std::bad_alloc();
    }
    context_.found = [this](const std::string& origin, ExchangeContext::Way way) {
        queue_.found(origin, way == ExchangeContext::Way::newConnection, Clock::now());
    };
    // With those kept for later.
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(transfersAtATime()));
}

void TransferEngine::add(std::shared_ptr<Transfer> transfer) {
    attempt(transfer, [&] {
        transfer->openRoute();
        queue_.add(transfer, Clock::now());
    });
}

bool TransferEngine::step() {
    startWaiting();
    int running = 0;
    curl_multi_perform(handle(), &running);
    bool anyEnded = false;
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(handle(), &left)) {
        if (message->msg == CURLMSG_DONE) {
            end(message->easy_handle, message->data.result);
            anyEnded = true;
        }
    }
    return anyEnded;
}

void TransferEngine::wait(Clock::time_point limit) {
    const Clock::time_point until = std::min(limit, queue_.nextEvent().value_or(limit));
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    const auto bounded = std::clamp(left, std::chrono::milliseconds(0),
                                    std::chrono::milliseconds(std::chrono::minutes(1)));
    curl_multi_poll(handle(), nullptr, 0, static_cast<int>(bounded.count()), nullptr);
}

TransferEngine::Transfers TransferEngine::abandon() {
    Transfers all = queue_.takeAll();
    for (auto& [handle, running] : running_) {
        curl_multi_remove_handle(multi_.get(), handle);
        running.transfer->dropExchange();
        all.push_back(std::move(running.transfer));
    }
    running_.clear();
    return all;
}

void TransferEngine::startWaiting() {
    const Clock::time_point now = Clock::now();
    while (const std::shared_ptr<Transfer> expired = queue_.nextExpired(now)) {
        expired->fail({HttpErrorCode::timedOut,
                       "The request timed out while it waited for a free connection."});
    }
    while (const std::shared_ptr<Transfer> next = queue_.nextToStart(now)) {
        begin(next);
    }
}

void TransferEngine::begin(const std::shared_ptr<Transfer>& transfer) {
    const std::string origin = transfer->origin();
    const bool begun = attempt(transfer, [&] {
        CURL* const easy = transfer->beginExchange(context_, Clock::now());
        running_.emplace(easy, Running{transfer, origin});
        if (curl_multi_add_handle(handle(), easy) != CURLM_OK) {
            running_.erase(easy);
            throw std::bad_alloc();
        }
    });
    if (!begun) {
        queue_.finished(origin, Clock::now());
    }
}

void TransferEngine::end(CURL* easy, CURLcode result) {
    curl_multi_remove_handle(handle(), easy);
    const auto place = running_.find(easy);
    const Running running = std::move(place->second);
    running_.erase(place);
    queue_.finished(running.origin, Clock::now());
    attempt(running.transfer, [&] {
        if (running.transfer->endExchange(result)) {
            queue_.add(running.transfer, Clock::now());
        } else {
            running.transfer->succeed();
        }
    });
}

} // namespace morvellacinto::native
