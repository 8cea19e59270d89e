// SPDX-License-Identifier: MIT
#include "Libcurl.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <stdexcept>

namespace morvellacinto::native {

namespace {

std::atomic<bool> isExiting = false;

std::recursive_mutex& turnMutex() {
    // Never destroyed: other threads may still come by during exit(). Not on the heap, where it
    // would be left behind each time that the library is unloaded.
    alignas(std::recursive_mutex) static std::byte storage[sizeof(std::recursive_mutex)];
    static auto* const mutex = new (storage) std::recursive_mutex;
    return *mutex;
}

struct ExitGuard {
    const pid_t process = getpid();

    ~ExitGuard() {
        if (getpid() != process) {
            return; // a forked child, which may have been made during another thread's turn
        }
        isExiting = true;
        const std::lock_guard untilTheTurnIsOver(turnMutex());
    }
};

} // namespace

LibcurlTurn::LibcurlTurn() : lock_(turnMutex()) {}

LibcurlTurn::operator bool() const noexcept { return !isExiting; }

void guardLibcurlAtExit() {
    // Registers OpenSSL's exit handler; what is registered after it runs before it. Asked for
    // nothing at all, OpenSSL would not register it.
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS, nullptr);
    static const ExitGuard guard;
    if (isExiting) {
        throw std::runtime_error("The process is exiting.");
    }
}

bool initialiseLibcurl() noexcept {
    static const bool isInitialised = [] { // never undone
        // A name look-up that hangs is left behind on a thread that still runs libcurl's code when
        // the host has unloaded this library and with it the last user of libcurl.
        Dl_info libcurl{};
        if (dladdr(reinterpret_cast<const void*>(&curl_easy_init), &libcurl) != 0) {
            // Fails for what is part of the program itself, which stays mapped anyway.
            dlopen(libcurl.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
        }
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }();
    return isInitialised;
}

} // namespace morvellacinto::native
