#include "CurlLibrary.h"

#include "TransferLoop.h"

#include <curl/curl.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace morvellacinto::native {

namespace {

struct Loops {
    std::mutex mutex;
    std::vector<std::weak_ptr<TransferLoop>> all;
};

Loops& loops() {
    static Loops* const loops = new Loops; // outlives exit(): other threads may still come by
    return *loops;
}

// Made after the libraries below have registered their exit handlers, hence destroyed before those
// run.
struct ExitGuard {
    ~ExitGuard() {
        std::vector<std::weak_ptr<TransferLoop>> all;
        {
            const std::lock_guard lock(loops().mutex);
            all.swap(loops().all);
        }
        for (const std::weak_ptr<TransferLoop>& each : all) {
            if (const std::shared_ptr<TransferLoop> loop = each.lock()) {
                loop->halt();
            }
        }
    }
};

} // namespace

void useCurl(const std::shared_ptr<TransferLoop>& loop) {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialised != CURLE_OK) {
        throw std::runtime_error("libcurl cannot be initialised");
    }
    static const ExitGuard guard;
    const std::lock_guard lock(loops().mutex);
    auto& all = loops().all;
    all.erase(
        std::remove_if(all.begin(), all.end(), [](const auto& each) { return each.expired(); }),
        all.end());
    all.push_back(loop);
}

} // namespace morvellacinto::native
