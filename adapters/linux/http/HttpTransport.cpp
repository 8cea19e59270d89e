#include "HttpTransport.h"

#include "CurlSession.h"
#include "TransferLoop.h"

#include <utility>

namespace morvellacinto::native {

HttpTransport::HttpTransport(HttpOptions options, WorkerPool& pool)
    : loop_(std::make_shared<TransferLoop>(std::move(options))), pool_(pool) {}

HttpTransport::~HttpTransport() { shutdown(); }

std::shared_ptr<platform::HttpSession>
HttpTransport::makeSession(platform::HttpSessionConfiguration configuration,
                           platform::HttpSessionDelegate* /*delegate*/) {
    return std::make_shared<CurlSession>(std::move(configuration), loop_, pool_);
}

void HttpTransport::shutdown() { loop_->stop(); }

} // namespace morvellacinto::native
