// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <new>

namespace morvellacinto::native {

/// Held while libcurl works, by one thread of the process at a time, and not while it waits. It
/// keeps exit() from taking down OpenSSL, which libcurl uses, in the middle of a handshake.
class LibcurlTurn {
public:
    /// Any thread, also within a turn of its own.
    LibcurlTurn();
    /// False once exit() has come that far: what libcurl made is then left as it is, for good.
    [[nodiscard]] explicit operator bool() const noexcept;

private:
    const std::unique_lock<std::recursive_mutex> lock_;
};

/// libcurl takes what it is given here, so that a failure means that memory has run out: throws
/// std::bad_alloc then.
inline void requireMemory(bool isDone) {
    if (!isDone) {
        throw std::bad_alloc();
    }
}

/// Deletes what libcurl made. Any thread.
template <auto cleanUp>
struct InTurn {
    template <class Handle>
    void operator()(Handle* handle) const noexcept {
        if (const LibcurlTurn turn; turn) {
            cleanUp(handle);
        }
    }
};

/// Call before a thread uses libcurl, any number of times. Any thread. Throws std::runtime_error
/// when exit() has come so far that it must not be used.
void guardLibcurlAtExit();

/// Call in a turn, any number of times. False when libcurl cannot be used.
[[nodiscard]] bool initialiseLibcurl() noexcept;

} // namespace morvellacinto::native
