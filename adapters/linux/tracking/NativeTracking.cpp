#include "NativeTracking.h"

#include "threads/MainQueue.h"
#include "basics/RandomUuid.h"

#include <atomic>
#include <functional>
#include <map>
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

// What is known of the user's will: what is kept, which another process of the application may
// change at any time. Shared with answers that may come when the platform is gone. Values are read
// and written with the mutex open: the store may have something to tell the host.
class NativeTracking::Decision : public std::enable_shared_from_this<Decision> {
public:
    Decision(std::shared_ptr<MainQueue> mainQueue, KeptValues kept, Question question)
        : mainQueue_(std::move(mainQueue)), kept_(std::move(kept)), question_(std::move(question)) {
    }

    [[nodiscard]] std::uint64_t current() {
        const std::uint64_t kept = statusIn(read(keptStatus));
        const std::lock_guard lock(mutex_);
        return kept == status::notDetermined && isDeniedForNow_ ? status::denied : kept;
    }

    [[nodiscard]] Uuid identifier() {
        if (current() != status::authorized) {
            return {};
        }
        if (const auto kept = keptIdentity()) {
            return *kept;
        }
        const Uuid made = madeOnce();
        note(keptIdentifier, made.text());
        store();
        return keptIdentity().value_or(made); // that of a process which was faster
    }

    void resetIdentifier() {
        const Uuid fresh = randomUuid();
        {
            const std::lock_guard lock(mutex_);
            made_ = fresh;
        }
        note(keptIdentifier, fresh.text());
        store();
    }

    void set(std::uint64_t decided) {
        decide(decided);
        store();
    }

    void request(Answer answer);

    void settle(std::uint64_t decided) {
        decide(decided);
        answerWaiting();
        store(); // which may take its time
    }

    // The question went away unanswered; what was decided meanwhile stays.
    void settleWithoutAnswer() {
        {
            const std::lock_guard lock(mutex_);
            isDeniedForNow_ = true;
        }
        answerWaiting();
    }

private:
    // What is being written counts already.
    [[nodiscard]] std::optional<std::string> read(std::string_view name) {
        {
            const std::lock_guard lock(mutex_);
            if (const auto found = unwritten_.find(name); found != unwritten_.end()) {
                return found->second;
            }
        }
        return kept_.read(name);
    }

    void note(std::string_view name, std::string text) {
        const std::lock_guard lock(mutex_);
        unwritten_.insert_or_assign(std::string(name), std::move(text));
    }

    void decide(std::uint64_t decided) {
        note(keptStatus, std::to_string(decided));
        const std::lock_guard lock(mutex_);
        isDeniedForNow_ = false;
    }

    // The thread that is writing writes also what others want kept meanwhile: the last one wins in
    // the store as it does here.
    void store() {
        std::unique_lock lock(mutex_);
        if (std::exchange(isWriting_, true)) {
            return;
        }
        // Also when memory runs out; the mutex is held then, or taken again.
        struct Ended {
            std::unique_lock<std::mutex>& lock;
            bool& isWriting;
            ~Ended() {
                if (!lock.owns_lock()) {
                    lock.lock();
                }
                isWriting = false;
            }
        };
        const Ended ended{lock, isWriting_};
        while (!unwritten_.empty()) {
            const auto [next, value] = *unwritten_.begin();
            lock.unlock();
            kept_.write(next, value);
            lock.lock();
            if (const auto written = unwritten_.find(next); written->second == value) {
                unwritten_.erase(written);
            }
        }
    }

    [[nodiscard]] std::optional<Uuid> keptIdentity() {
        const auto text = read(keptIdentifier);
        return text ? Uuid::parse(*text) : std::nullopt;
    }

    [[nodiscard]] Uuid madeOnce() {
        const Uuid fresh = randomUuid();
        const std::lock_guard lock(mutex_);
        if (!made_) {
            made_ = fresh;
        }
        return *made_;
    }

    void answerWaiting() {
        const std::uint64_t decided = current();
        std::vector<Answer> waiting;
        {
            const std::lock_guard lock(mutex_);
            waiting.swap(waiting_);
        }
        for (Answer& answer : waiting) {
            give(std::move(answer), decided);
        }
    }

    void give(Answer answer, std::uint64_t decided) const {
        mainQueue_->post([answer = std::move(answer), decided] { answer(decided); });
    }

    const std::shared_ptr<MainQueue> mainQueue_;
    const KeptValues kept_;
    const Question question_;
    std::mutex mutex_;
    std::map<std::string, std::string, std::less<>> unwritten_;
    bool isWriting_ = false;
    bool isDeniedForNow_ = false; // for this process, as long as nothing is decided
    std::optional<Uuid> made_;
    std::vector<Answer> waiting_;
};

// The host's way to answer; going away unused is an answer too.
class NativeTracking::PendingAnswer {
public:
    explicit PendingAnswer(std::weak_ptr<Decision> decision) : decision_(std::move(decision)) {}
    PendingAnswer(const PendingAnswer&) = delete;
    PendingAnswer& operator=(const PendingAnswer&) = delete;
    ~PendingAnswer() { give(status::notDetermined); }

    void give(std::uint64_t answer) {
        const auto decision = decision_.lock();
        if (isGiven_.exchange(true) || decision == nullptr) {
            return;
        }
        if (isDecided(answer)) {
            decision->settle(answer);
        } else {
            decision->settleWithoutAnswer();
        }
    }

private:
    const std::weak_ptr<Decision> decision_;
    std::atomic<bool> isGiven_ = false;
};

void NativeTracking::Decision::request(Answer answer) {
    if (const auto decided = current(); decided != status::notDetermined) {
        give(std::move(answer), decided);
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(answer));
        if (waiting_.size() > 1) {
            return;
        }
    }
    if (current() != status::notDetermined) { // an answer came just now
        answerWaiting();
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
