// SPDX-License-Identifier: MIT
#pragma once

#include <concepts>
#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>

namespace morvellacinto {

/// A parameter that takes text: whatever a string view is made of, but not nullptr. A pointer that
/// turns out to be null is the empty text.
class TextArgument : public std::string_view {
public:
    template <std::convertible_to<std::string_view> T>
    requires(!std::convertible_to<const T&, const char*>) constexpr TextArgument(const T& text)
        : std::string_view(text) {}
    constexpr TextArgument(const char* text)
        : std::string_view(text == nullptr ? std::string_view() : std::string_view(text)) {}
    constexpr TextArgument(const char* text, std::size_t length) : std::string_view(text, length) {}
    TextArgument(std::nullptr_t) = delete;
};

/// A parameter that takes text or nothing; a null pointer is nothing.
class OptionalText : public std::optional<std::string_view> {
public:
    constexpr OptionalText(std::nullopt_t = std::nullopt) noexcept {}
    constexpr OptionalText(const char* text) noexcept {
        if (text != nullptr) {
            emplace(text);
        }
    }
    template <std::convertible_to<std::string_view> T>
    requires(!std::convertible_to<const T&, const char*>) constexpr OptionalText(const T& text)
        : optional(std::in_place, text) {}
    template <class T>
    constexpr OptionalText(const std::optional<T>& text) : optional(text) {}
};

} // namespace morvellacinto
