// SPDX-License-Identifier: MIT
#pragma once

// HTTP over libcurl. Read on in this order:
// - Redirects: where a request may go, hop by hop, and what goes with it (on CurlUrl);
// - Headers: which are sent, and which are taken;
// - Trust: by which certificates servers are judged;
// - Transfer: one request with its hops and their easy handle;
// - TransferLoop: the thread that moves the bytes of all transfers, and its end;
// - Libcurl: what keeps exit() and the thread out of each other's way;
// - HttpFailure: how all of them say that there is no answer.

#include "threads/WorkerPool.h"

#include "morvellacinto/platform/HttpSession.h"

#include <atomic>
#include <memory>
#include <utility>

namespace morvellacinto::native {

class TransferLoop;

/// A session over the transfers of one TransferLoop. Session and tasks may be dropped while their
/// transfers run. It handles every challenge by default and asks no delegate.
class CurlSession final : public platform::HttpSession,
                          public std::enable_shared_from_this<CurlSession> {
public:
    /// Completions run on `pool`.
    CurlSession(platform::HttpSessionConfiguration configuration,
                std::shared_ptr<TransferLoop> loop, WorkerPool& pool)
        : configuration_(std::move(configuration)), loop_(std::move(loop)), queue_(pool) {}

    [[nodiscard]] std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                               Completion completion) override;
    void finishTasksAndInvalidate() override { isInvalidated_ = true; }

    [[nodiscard]] const auto& configuration() const noexcept { return configuration_; }
    /// Of the completions.
    [[nodiscard]] SerialQueue& queue() noexcept { return queue_; }

private:
    class Task;

    const platform::HttpSessionConfiguration configuration_;
    const std::shared_ptr<TransferLoop> loop_;
    SerialQueue queue_;
    std::atomic<bool> isInvalidated_ = false;
};

} // namespace morvellacinto::native
