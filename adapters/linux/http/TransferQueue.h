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
/// make requests wait for one another. So an origin begins with a few slots and gets more for as
/// long as transfers wait for it without any of its own ending.
class TransferQueue {
public:
    using Clock = Transfer::Clock;

    static constexpr std::size_t maximumRunning = 256;

    void add(std::shared_ptr<Transfer> transfer, Clock::time_point now);
    /// The next one to run, or null. It occupies a slot of its origin until `finished`.
    [[nodiscard]] std::shared_ptr<Transfer> nextToStart(Clock::time_point now);
    /// A transfer that has waited until its deadline, or null.
    [[nodiscard]] std::shared_ptr<Transfer> nextExpired(Clock::time_point now);
    void finished(const std::string& origin, Clock::time_point now);
    /// When one of the functions above may have something to give though nothing has finished.
    [[nodiscard]] std::optional<Clock::time_point> nextEvent() const;

    [[nodiscard]] bool empty() const noexcept { return waiting_.empty(); }
    [[nodiscard]] std::vector<std::shared_ptr<Transfer>> takeAll();

private:
    struct Origin {
        std::deque<std::shared_ptr<Transfer>> waiting;
        std::size_t running = 0;
        std::size_t slots = 0;
        Clock::time_point lastProgress;

        [[nodiscard]] bool mayGrow() const noexcept;
    };

    [[nodiscard]] bool isFull() const noexcept;

    std::map<std::string, Origin> origins_; // those with something waiting or running
    std::set<std::pair<Clock::time_point, Transfer*>> waiting_;
    std::size_t running_ = 0;
};

} // namespace morvellacinto::native
