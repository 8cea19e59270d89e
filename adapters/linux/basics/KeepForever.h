#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace morvellacinto::native {

/// Keeps what a forked child has inherited and cannot destroy, since the threads that it belongs to
/// are the parent's.
template <class T>
void keepForever(std::shared_ptr<T> inherited) noexcept {
    alignas(std::shared_ptr<T>) std::byte neverDestroyed[sizeof(std::shared_ptr<T>)];
    new (neverDestroyed) std::shared_ptr<T>(std::move(inherited));
}

} // namespace morvellacinto::native
