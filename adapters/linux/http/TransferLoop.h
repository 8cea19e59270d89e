// SPDX-License-Identifier: MIT
#pragma once

#include "Libcurl.h"
#include "Transfer.h"
#include "Trust.h"
#include "threads/WorkerPool.h"

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace morvellacinto::native {

struct HttpOptions {
    /// PEM files whose certificates are trusted besides the system's.
    std::vector<std::filesystem::path> trustAnchors;
    SystemRoots systemRoots = SystemRoots::usual();
    /// See NativeOptions.
    std::optional<std::string> proxy = {};
    /// Asked, on the transfer thread with no lock held, before hops begin.
    std::function<UploadConsent()> consent = [] { return UploadConsent::allowed; };
    /// Has the host asked, on that thread.
    UploadQuestion ask = [](const auto&, const UploadAnswer& answer) { answer(std::nullopt); };
    /// For how long connections and the thread outlive the last transfer.
    std::chrono::milliseconds idleTime = std::chrono::seconds(15);
};

/// HTTP for one platform: its transfers share connections, TLS sessions and one thread that moves
/// all bytes. The thread runs from the first transfer until it has been idle for
/// `HttpOptions::idleTime`, and again when there is work; host code runs on it only when no worker
/// can be had.
class TransferLoop : public std::enable_shared_from_this<TransferLoop> {
public:
    /// Starts no thread. The loop must be stopped before `pool` is shut down. Throws
    /// std::runtime_error naming a trust anchor that cannot be read.
    TransferLoop(HttpOptions options, WorkerPool& pool);

    /// Any thread. Once stopped, the transfer is dropped. When the thread cannot be started the
    /// transfer fails; throws std::system_error when no worker can be had to tell so, either.
    void submit(const std::shared_ptr<Transfer>& transfer);

    /// Cancels what is in flight and waits for the thread's end, whatever the network does. No
    /// completion starts afterwards. Those that will never run are released on this thread before
    /// the call returns. Any thread; later calls have no effect.
    void stop();

private:
    using Clock = std::chrono::steady_clock;
    using Transfers = std::list<std::shared_ptr<Transfer>>; // which moves without allocating

    /// On the session's queue. Throws when no worker can be had.
    void postCompletion(const std::shared_ptr<Transfer>& transfer);

    // On the thread.
    void run();
    void passGate();
    [[nodiscard]] Transfers step();
    void open();
    void end(Transfers::iterator transfer, CURLcode result, Transfers& ended);
    void deliver(Transfers& ended) noexcept;
    [[nodiscard]] bool close();

    const HttpOptions options_;
    WorkerPool& pool_;
    std::atomic<bool> isStopped_ = false;
    std::atomic<std::thread::id> thread_;

    std::mutex mutex_;
    std::condition_variable ended_;
    bool isRunning_ = false;
    Transfers submitted_;
    // Changed by the thread alone; others wake it.
    std::unique_ptr<CURLM, InTurn<&curl_multi_cleanup>> multi_;

    // Of the thread alone, kept from one to the next.
    Trust trust_;
    std::unique_ptr<CURLSH, InTurn<&curl_share_cleanup>> tlsSessions_;
    Transfers next_; // whose next hop has to pass the gate
    Transfers active_;
};

} // namespace morvellacinto::native
