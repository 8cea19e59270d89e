#pragma once

#include "HttpTransport.h"
#include "Transfer.h"
#include "TrustStore.h"

#include <curl/curl.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace morvellacinto::native {

class TransferEngine;

/// The one thread of an HttpTransport. Held by the transport, by its sessions and by the thread.
class TransferLoop : public std::enable_shared_from_this<TransferLoop> {
public:
    /// Throws as HttpTransport does.
    explicit TransferLoop(HttpOptions options);
    TransferLoop(const TransferLoop&) = delete;
    TransferLoop& operator=(const TransferLoop&) = delete;
    ~TransferLoop() = default;

    /// Any thread. Once stopped, the transfer is dropped.
    void submit(const std::shared_ptr<Transfer>& transfer);
    /// Cancels all transfers, keeping them, and joins the thread. In a forked child, which has no
    /// such thread, without effect.
    void halt();
    /// `halt`, then releases what was cancelled.
    void stop();
    [[nodiscard]] bool isStopped() const noexcept { return stopped_; }

private:
    struct Free {
        void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
    };
    using Transfers = std::vector<std::shared_ptr<Transfer>>;

    [[nodiscard]] bool inForkedChild() const noexcept;
    void startThread();
    void run() noexcept;
    void work();
    void serve(TransferEngine& engine);
    void makeShare();
    /// True when there is nothing more to do, now or ever. `wakeable_` is null from then on.
    bool takeSubmitted(TransferEngine& engine, bool idleTooLong);

    const HttpOptions options_;
    const pid_t process_;
    std::atomic<bool> stopped_ = false;

    std::mutex mutex_;
    Transfers submitted_;
    Transfers abandoned_;
    std::thread thread_;
    bool threadTakesMore_ = false;
    CURLM* wakeable_ = nullptr;

    // Of the thread alone, kept from one to the next.
    TrustStore trust_;
    std::unique_ptr<CURLSH, Free> share_;
};

} // namespace morvellacinto::native
