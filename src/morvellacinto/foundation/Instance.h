// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace morvellacinto {

class AVObject;

/// An object of the host's that a `Value` can hold: shared by reference, never copied with the
/// value that holds it. The count of owners is thread-safe, what the class adds need not be.
class MORVELLACINTO_EXPORT Instance {
public:
    Instance() noexcept = default;
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    virtual ~Instance();

    /// This object as one that `AVJSON` fills and exports, or null.
    [[nodiscard]] virtual AVObject* mappable() noexcept { return nullptr; }

    /// Adds one ownership, as every `Ref` does.
    void retain() const noexcept { owners_.fetch_add(1, std::memory_order_relaxed); }

    /// Gives up one ownership; the last one destroys the object.
    void release() const noexcept {
        // A sole owner has nobody to race with.
        if (owners_.load(std::memory_order_acquire) == 1 ||
            owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

private:
    mutable std::atomic<std::uint32_t> owners_{0};
};

/// An owning pointer to an `Instance`; may be empty.
template <class T>
class Ref {
public:
    Ref() noexcept = default;
    Ref(std::nullptr_t) noexcept {}
    explicit Ref(T* object) noexcept : object_(object) {
        if (object_ != nullptr) {
            object_->retain();
        }
    }
    Ref(const Ref& other) noexcept : Ref(other.object_) {}
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ref(const Ref<U>& other)
    noexcept : Ref(static_cast<T*>(other.get())) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ref(Ref<U>&& other)
    noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() {
        if (object_ != nullptr) {
            object_->release();
        }
    }

    [[nodiscard]] T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    friend bool operator==(const Ref&, const Ref&) noexcept = default;

private:
    template <class U>
    friend class Ref;

    T* object_ = nullptr;
};

/// An object made of these arguments, held by nobody else.
template <class T, class... Arguments>
[[nodiscard]] Ref<T> makeInstance(Arguments&&... arguments) {
    return Ref<T>(new T(std::forward<Arguments>(arguments)...));
}

} // namespace morvellacinto
