#pragma once

#include "threads/WorkerPool.h"

#include "morvellacinto/platform/HttpSession.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace morvellacinto::native {

class TransferLoop;

struct HttpOptions {
    /// PEM files whose certificates are trusted besides the system's.
    std::vector<std::filesystem::path> trustAnchors;
    /// Sent as User-Agent by requests without one of their own. Empty: no such header. Absent from
    /// the default is whatever tells devices apart.
    std::string userAgent = "Morvellacinto";
    /// For how long connections and the thread outlive the last transfer.
    std::chrono::milliseconds idleTime = std::chrono::seconds(15);
};

/// HTTP for one platform: its sessions share connections, TLS sessions and cookies (in memory), and
/// one thread that moves all bytes. The thread runs from the first started task until it has been
/// idle for `HttpOptions::idleTime`, and again when there is work; host code never runs on it.
class HttpTransport {
public:
    /// Completions run on `pool`, which must outlive the transport. Starts no thread. Throws
    /// std::runtime_error naming a trust anchor that cannot be read.
    HttpTransport(HttpOptions options, WorkerPool& pool);
    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;
    /// As `shutdown`.
    ~HttpTransport();

    /// Any thread. The session handles every challenge by default and asks no delegate.
    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeSession(platform::HttpSessionConfiguration configuration,
                platform::HttpSessionDelegate* delegate);

    /// Cancels what is in flight and joins the thread, whatever the network does. No completion
    /// starts afterwards, and tasks do nothing when started. Completions that will never run are
    /// released on this thread before the call returns. Any thread; later calls have no effect.
    void shutdown();

private:
    std::shared_ptr<TransferLoop> loop_;
    WorkerPool& pool_;
};

} // namespace morvellacinto::native
