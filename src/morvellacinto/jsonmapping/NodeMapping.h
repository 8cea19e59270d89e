// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/jsonmapping/AVClass.h"

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace morvellacinto {

/// What a JSON object is turned into: a new instance of a class, or an object that it fills.
class MORVELLACINTO_EXPORT NodeClass {
public:
    /// `AVClass::of<Station>()`: checked by the compiler, and never unknown.
    NodeClass(const AVClass& described) noexcept : choice_(&described) {}
    /// A class by its name, looked up when it is needed; `AVClass::named` tells which are known.
    /// An unknown one converts to nothing and is told to the diagnostics.
    template <std::convertible_to<TextArgument> T>
    NodeClass(const T& name) : choice_(std::string(TextArgument(name))) {}
    /// An existing object. Throws std::invalid_argument for an empty reference.
    template <std::derived_from<AVObject> T>
    NodeClass(const Ref<T>& target) : choice_(checked(target)) {}

    /// The class to make instances of; null when its name is unknown, or for an existing object.
    /// Throws as `AVClass::named`.
    [[nodiscard]] const AVClass* described() const;
    /// The name that the class was given by; empty without one.
    [[nodiscard]] std::string_view name() const noexcept {
        return choice_.index() == 1 ? std::get<1>(choice_) : std::string_view();
    }
    /// The existing object, or null.
    [[nodiscard]] AVObject* target() const noexcept;

private:
    [[nodiscard]] static Ref<Instance> checked(Ref<Instance> target);

    std::variant<const AVClass*, std::string, Ref<Instance>> choice_;
};

/// Which JSON keys hold nodes, and what each node is turned into. The same mapping serves every
/// level of the tree, so that a key means the same at every depth.
///
///     const NodeMapping nodes{{"station", AVClass::of<Station>()}, {"lines", "Line"}};
class MORVELLACINTO_EXPORT NodeMapping {
public:
    NodeMapping() noexcept = default;
    NodeMapping(std::initializer_list<std::pair<TextArgument, NodeClass>> nodes);

    void set(TextArgument key, NodeClass nodeClass); ///< also in place of an earlier one
    /// Null for a key that holds no node. Valid until the mapping is next changed.
    [[nodiscard]] const NodeClass* find(TextArgument key) const noexcept {
        if ((filter_ & filterBit(key)) == 0) {
            return nullptr;
        }
        const auto found = nodes_.find(key);
        return found == nodes_.end() ? nullptr : &found->second;
    }

private:
    [[nodiscard]] static std::uint64_t filterBit(std::string_view key) noexcept {
        const std::size_t last = key.empty() ? 0 : static_cast<unsigned char>(key.back());
        return std::uint64_t{1} << (key.size() * 8 + last) % 64;
    }

    /// A bit for each key. Most look-ups are of keys that hold no node and end here.
    std::uint64_t filter_ = 0;
    std::map<std::string, NodeClass, std::less<>> nodes_;
};

} // namespace morvellacinto
