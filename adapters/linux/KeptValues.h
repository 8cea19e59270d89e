#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// Texts that the adapter keeps for itself across runs, out of reach of the host's settings. Both
/// functions may be called on any thread for as long as somebody holds them; they never throw, and
/// what cannot be written is lost with the process.
struct KeptValues {
    std::function<std::optional<std::string>(std::string_view name)> read;
    std::function<void(std::string_view name, std::string_view text)> write;
};

} // namespace morvellacinto::native
