#include "ExitGuard.h"

#include "TransferLoop.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <new>
#include <stdexcept>
#include <vector>

namespace morvellacinto::native {

namespace {

struct Loops {
    std::mutex mutex;
    std::vector<std::weak_ptr<TransferLoop>> all;
    bool exiting = false;
};

Loops& loops() {
    // Never destroyed: other threads may still come by during exit(). Not on the heap, where it
    // would be left behind each time that the library is unloaded.
    alignas(Loops) static std::byte storage[sizeof(Loops)];
    static Loops* const loops = new (storage) Loops;
    return *loops;
}

struct ExitGuard {
    ~ExitGuard() {
        std::vector<std::weak_ptr<TransferLoop>> all;
        {
            const std::lock_guard lock(loops().mutex);
            loops().exiting = true;
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

void haltAtExit(const std::weak_ptr<TransferLoop>& loop) {
    // Registers OpenSSL's exit handler; what is registered after it runs before it. Asked for
    // nothing at all, OpenSSL would not register it.
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS, nullptr);
    static const ExitGuard guard;
    const std::lock_guard lock(loops().mutex);
    if (loops().exiting) {
        throw std::runtime_error("The process is exiting.");
    }
    auto& all = loops().all;
    const auto isGoneOrSame = [&loop](const std::weak_ptr<TransferLoop>& each) {
        return each.expired() || !(each.owner_before(loop) || loop.owner_before(each));
    };
    all.erase(std::remove_if(all.begin(), all.end(), isGoneOrSame), all.end());
    all.push_back(loop);
}

} // namespace morvellacinto::native
