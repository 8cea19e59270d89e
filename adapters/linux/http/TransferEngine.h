#pragma once

#include "Transfer.h"
#include "TransferQueue.h"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <unordered_map>
#include <vector>

namespace morvellacinto::native {

/// Moves the bytes of all transfers: libcurl's multi handle with the connections in it, and the
/// transfers that wait for one. Belongs to one thread, on which nothing here ever blocks but
/// `wait`.
class TransferEngine {
public:
    using Clock = Transfer::Clock;
    using Transfers = std::vector<std::shared_ptr<Transfer>>;

    explicit TransferEngine(ExchangeContext context);
    TransferEngine(const TransferEngine&) = delete;
    TransferEngine& operator=(const TransferEngine&) = delete;
    /// Closes the connections; transfers must have ended or been abandoned.
    ~TransferEngine() = default;

    /// For curl_multi_wakeup, which ends a `wait`, on other threads.
    [[nodiscard]] CURLM* handle() const noexcept { return multi_.get(); }

    void add(std::shared_ptr<Transfer> transfer);
    /// Does what can be done at once. True when a transfer or a hop of one has ended, which may
    /// have made room for more.
    bool step();
    /// Until the network, a timer or `limit` asks for the next step.
    void wait(Clock::time_point limit);
    [[nodiscard]] bool isIdle() const noexcept { return running_.empty() && queue_.empty(); }
    /// Gives up all transfers and hands them out, their completions not called.
    [[nodiscard]] Transfers abandon();

private:
    struct Free {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };
    struct Running {
        std::shared_ptr<Transfer> transfer;
        std::string origin;
    };

    void startWaiting();
    void begin(const std::shared_ptr<Transfer>& transfer);
    void end(CURL* handle, CURLcode result);

    ExchangeContext context_;
    std::unique_ptr<CURLM, Free> multi_;
    TransferQueue queue_;
    std::unordered_map<CURL*, Running> running_;
};

} // namespace morvellacinto::native
