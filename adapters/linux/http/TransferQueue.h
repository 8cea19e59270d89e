#pragma once

#include "Transfer.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace morvellacinto::native {

/// Decides which transfers run at a time.
///
/// A few connections carry more than many when a server answers fast, while a slow server must not
/// make requests wait for one another. So an origin begins with a few slots, and their number
/// doubles each time that transfers have waited for a moment without any of its own ending, or for
/// somewhat longer in any case. The first few find out where the origin is: as long as its name is
/// looked up, it gets no more. Kept connections do not tell, so that it takes another one for each
/// time that it grows.
/// What all origins together may have is bounded, and one of them gets no more than half of what
/// the others leave.
class TransferQueue {
public:
    using Clock = Transfer::Clock;

    explicit TransferQueue(std::size_t maximumRunning) : maximumRunning_(maximumRunning) {}

    void add(std::shared_ptr<Transfer> transfer, Clock::time_point now);
    /// The next one to run, or null. It occupies a slot of its origin until `finished`.
    [[nodiscard]] std::shared_ptr<Transfer> nextToStart(Clock::time_point now);
    /// A transfer that has waited until its deadline, or null.
    [[nodiscard]] std::shared_ptr<Transfer> nextExpired(Clock::time_point now);
    void finished(const std::string& origin, Clock::time_point now);
    /// A transfer of the origin `name` has a connection: one kept from before, or one to be made
    /// now that the address is known.
    void found(const std::string& name, bool isNewConnection, Clock::time_point now);
    /// When one of the functions above may have something to give though nothing has finished.
    [[nodiscard]] std::optional<Clock::time_point> nextEvent() const;

    [[nodiscard]] bool empty() const noexcept { return waiting_.empty(); }
    [[nodiscard]] std::vector<std::shared_ptr<Transfer>> takeAll();

private:
    struct Origin {
        std::deque<std::shared_ptr<Transfer>> waiting;
        std::size_t running = 0;
        std::size_t slots = 0;
        bool found = false;   // by a new connection
        bool reached = false; // by a kept one since the slots last grew
        Clock::time_point lastProgress;
        Clock::time_point lastGrowth;

        [[nodiscard]] Clock::time_point nextGrowth() const noexcept;
    };

    [[nodiscard]] bool isFull() const noexcept { return running_ >= maximumRunning_; }
    [[nodiscard]] std::size_t mostSlots(const Origin& origin) const noexcept;
    [[nodiscard]] bool mayGrow(const Origin& origin) const noexcept;
    template <class Predicate>
    Origin* nextInTurn(Predicate isWanted);

    const std::size_t maximumRunning_;
    std::map<std::string, Origin> origins_; // those with something waiting or running
    std::string lastInTurn_;
    std::set<std::pair<Clock::time_point, Transfer*>> waiting_;
    std::size_t running_ = 0;
};

} // namespace morvellacinto::native
