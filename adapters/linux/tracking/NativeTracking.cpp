// SPDX-License-Identifier: MIT
#include "NativeTracking.h"

#include "threads/MainQueue.h"

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace morvellacinto::native {

namespace {

namespace status = platform::TrackingAuthorization;

constexpr std::string_view keptStatus = "trackingAuthorization";

std::uint64_t statusIn(const std::optional<std::string>& text) {
    const bool isKnown = text && text->size() == 1 && text->front() >= '1' && text->front() <= '3';
    return isKnown ? static_cast<std::uint64_t>(text->front() - '0') : status::notDetermined;
}

} // namespace

// What is known of the user's will: what is kept, which another process of the application may
// change at any time. Shared with answers that may come when the platform is gone. Values are read
// and flushed with the mutex open: the store may have something to tell the host.
class NativeTracking::Decision : public std::enable_shared_from_this<Decision> {
public:
    Decision(std::shared_ptr<MainQueue> mainQueue, const KeptValues& kept, Question question)
        : identifier(kept, keptAdvertisingIdentifier), mainQueue_(std::move(mainQueue)),
          kept_(kept), question_(std::move(question)) {}

    [[nodiscard]] std::uint64_t current() const {
        const std::uint64_t kept = statusIn(kept_.read(keptStatus).text);
        return kept == status::notDetermined && isDeniedForNow_ ? status::denied : kept;
    }

    [[nodiscard]] bool set(std::uint64_t decided) {
        kept_.set(keptStatus, std::to_string(decided));
        isDeniedForNow_ = false;
        return kept_.flush();
    }

    void request(Answer answer) {
        std::unique_lock lock(mutex_);
        waiting_.push_back(std::move(answer));
        const bool isFirst = waiting_.size() == 1;
        lock.unlock();
        if (current() != status::notDetermined) {
            answerWaiting();
        } else if (isFirst) {
            ask();
        }
    }

    KeptUuid identifier;

private:
    void ask() {
        const auto give = [weak = weak_from_this(),
                           isGiven = std::make_shared<std::atomic<bool>>()](std::uint64_t answer) {
            if (const auto decision = weak.lock(); decision && !isGiven->exchange(true)) {
                decision->settle(answer);
            }
        };
        // To let go of the way to answer is an answer too.
        const std::shared_ptr<void> hold(nullptr, [give](auto) {
            try {
                give(status::notDetermined);
            } catch (...) {
                // Without memory there is nothing to tell it by.
            }
        });
        if (question_) {
            mainQueue_->post([question = question_, give, hold] {
                question([give, hold](std::uint64_t answer) { give(answer); });
            });
        }
    }

    // What is no decision leaves what was decided meanwhile.
    void settle(std::uint64_t answer) {
        if (answer != status::notDetermined && answer <= status::authorized) {
            kept_.set(keptStatus, std::to_string(answer));
        } else {
            isDeniedForNow_ = true;
        }
        answerWaiting();
        static_cast<void>(kept_.flush()); // which may take its time
    }

    void answerWaiting() {
        const std::uint64_t decided = current();
        std::unique_lock lock(mutex_);
        std::vector<Answer> waiting = std::exchange(waiting_, {});
        lock.unlock();
        for (Answer& answer : waiting) {
            mainQueue_->post([answer = std::move(answer), decided] { answer(decided); });
        }
    }

    const std::shared_ptr<MainQueue> mainQueue_;
    const KeptValues kept_;
    const Question question_;
    std::atomic<bool> isDeniedForNow_ = false; // for this process, as long as nothing is decided
    std::mutex mutex_;
    std::vector<Answer> waiting_;
};

NativeTracking::NativeTracking(std::shared_ptr<MainQueue> mainQueue, const KeptValues& kept,
                               Question question)
    : decision_(std::make_shared<Decision>(std::move(mainQueue), kept, std::move(question))) {}

NativeTracking::~NativeTracking() = default;

std::optional<Uuid> NativeTracking::advertisingIdentifier() const {
    return isAdvertisingTrackingEnabled() ? decision_->identifier.get() : Uuid();
}

bool NativeTracking::isAdvertisingTrackingEnabled() const {
    return decision_->current() == status::authorized;
}

std::uint64_t NativeTracking::trackingAuthorizationStatus() const { return decision_->current(); }

void NativeTracking::requestTrackingAuthorization(Answer answer) {
    decision_->request(std::move(answer));
}

void NativeTracking::resetAdvertisingIdentifier() { decision_->identifier.makeAnew(); }

bool NativeTracking::setTrackingAuthorization(std::uint64_t newStatus) {
    if (newStatus > status::authorized) {
        throw std::invalid_argument(std::to_string(newStatus) +
                                    " is no tracking authorization status (0 to 3)");
    }
    return decision_->set(newStatus);
}

} // namespace morvellacinto::native
