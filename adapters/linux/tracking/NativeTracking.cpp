#include "NativeTracking.h"

#include "MainQueue.h"
#include "basics/RandomUuid.h"

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace morvellacinto::native {

namespace {

namespace status = platform::TrackingAuthorization;

constexpr std::string_view keptStatus = "trackingAuthorization";
constexpr std::string_view keptIdentifier = "advertisingIdentifier";

bool isDecided(std::uint64_t answer) {
    return answer != status::notDetermined && answer <= status::authorized;
}

std::uint64_t statusIn(const std::optional<std::string>& text) {
    const bool isKnown = text && text->size() == 1 && text->front() >= '1' && text->front() <= '3';
    return isKnown ? static_cast<std::uint64_t>(text->front() - '0') : status::notDetermined;
}

} // namespace

// What is known of the user's will. Shared with answers that may come when the platform is gone.
// Values are read and written with the mutex open: the store may have something to tell the host.
class NativeTracking::Decision : public std::enable_shared_from_this<Decision> {
public:
    Decision(std::shared_ptr<MainQueue> mainQueue, KeptValues kept, Question question)
        : mainQueue_(std::move(mainQueue)), kept_(std::move(kept)), question_(std::move(question)) {
    }

    [[nodiscard]] std::uint64_t current() {
        load();
        const std::lock_guard lock(mutex_);
        return status_;
    }

    [[nodiscard]] Uuid identifier() {
        if (current() != status::authorized) {
            return {};
        }
        {
            const std::lock_guard lock(mutex_);
            if (identifier_) {
                return *identifier_;
            }
        }
        const Uuid fresh = randomUuid();
        {
            const std::lock_guard lock(mutex_);
            if (identifier_) {
                return *identifier_;
            }
            identifier_ = fresh;
        }
        kept_.write(keptIdentifier, fresh.text());
        return fresh;
    }

    void resetIdentifier() {
        load();
        const Uuid fresh = randomUuid();
        {
            const std::lock_guard lock(mutex_);
            identifier_ = fresh;
        }
        kept_.write(keptIdentifier, fresh.text());
    }

    void set(std::uint64_t decided) {
        load();
        {
            const std::lock_guard lock(mutex_);
            status_ = decided;
        }
        kept_.write(keptStatus, std::to_string(decided));
    }

    void request(Answer answer);

    void settle(std::uint64_t decided, bool keep) {
        std::vector<Answer> waiting;
        {
            const std::lock_guard lock(mutex_);
            status_ = decided;
            waiting.swap(waiting_);
        }
        for (Answer& answer : waiting) {
            give(std::move(answer), decided);
        }
        if (keep) {
            kept_.write(keptStatus, std::to_string(decided));
        }
    }

private:
    void load() {
        {
            const std::lock_guard lock(mutex_);
            if (isLoaded_) {
                return;
            }
        }
        const std::uint64_t kept = statusIn(kept_.read(keptStatus));
        const auto text = kept_.read(keptIdentifier);
        const std::lock_guard lock(mutex_);
        if (!std::exchange(isLoaded_, true)) {
            status_ = kept;
            identifier_ = text ? Uuid::parse(*text) : std::nullopt;
        }
    }

    void give(Answer answer, std::uint64_t decided) const {
        mainQueue_->post([answer = std::move(answer), decided] { answer(decided); });
    }

    const std::shared_ptr<MainQueue> mainQueue_;
    const KeptValues kept_;
    const Question question_;
    std::mutex mutex_;
    bool isLoaded_ = false;
    std::uint64_t status_ = status::notDetermined;
    std::optional<Uuid> identifier_;
    std::vector<Answer> waiting_;
};

// The host's way to answer; going away unused is an answer too.
class NativeTracking::PendingAnswer {
public:
    explicit PendingAnswer(std::weak_ptr<Decision> decision) : decision_(std::move(decision)) {}
    PendingAnswer(const PendingAnswer&) = delete;
    PendingAnswer& operator=(const PendingAnswer&) = delete;
    ~PendingAnswer() { settle(status::denied, false); }

    void give(std::uint64_t answer) {
        const bool isAnswer = isDecided(answer);
        settle(isAnswer ? answer : status::denied, isAnswer);
    }

private:
    void settle(std::uint64_t answer, bool keep) {
        const auto decision = decision_.lock();
        if (!isGiven_.exchange(true) && decision != nullptr) {
            decision->settle(answer, keep);
        }
    }

    const std::weak_ptr<Decision> decision_;
    std::atomic<bool> isGiven_ = false;
};

void NativeTracking::Decision::request(Answer answer) {
    load();
    std::uint64_t decided = status::notDetermined;
    {
        const std::lock_guard lock(mutex_);
        if (status_ == status::notDetermined) {
            waiting_.push_back(std::move(answer));
            if (waiting_.size() > 1) {
                return;
            }
        }
        decided = status_;
    }
    if (decided != status::notDetermined) {
        // Moved above only when nothing is decided. NOLINTNEXTLINE(bugprone-use-after-move)
        give(std::move(answer), decided);
        return;
    }
    const auto pending = std::make_shared<PendingAnswer>(weak_from_this());
    if (question_) {
        mainQueue_->post([question = question_, pending] {
            question([pending](std::uint64_t given) { pending->give(given); });
        });
    }
}

NativeTracking::NativeTracking(std::shared_ptr<MainQueue> mainQueue, KeptValues kept,
                               Question question)
    : decision_(
          std::make_shared<Decision>(std::move(mainQueue), std::move(kept), std::move(question))) {}

NativeTracking::~NativeTracking() = default;

std::optional<Uuid> NativeTracking::advertisingIdentifier() const {
    return decision_->identifier();
}

bool NativeTracking::isAdvertisingTrackingEnabled() const {
    return decision_->current() == status::authorized;
}

std::uint64_t NativeTracking::trackingAuthorizationStatus() const { return decision_->current(); }

void NativeTracking::requestTrackingAuthorization(Answer answer) {
    decision_->request(std::move(answer));
}

void NativeTracking::resetAdvertisingIdentifier() { decision_->resetIdentifier(); }

void NativeTracking::setTrackingAuthorization(std::uint64_t newStatus) {
    if (newStatus > status::authorized) {
        throw std::invalid_argument(std::to_string(newStatus) +
                                    " is no tracking authorization status (0 to 3)");
    }
    decision_->set(newStatus);
}

} // namespace morvellacinto::native
