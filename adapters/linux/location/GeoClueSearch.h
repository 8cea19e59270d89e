#pragma once

#include <filesystem>
#include <functional>

namespace morvellacinto::native {

/// Tells, from files below `root`, whether there is a system bus that can start GeoClue or to which
/// a sandbox lets the application talk. Reads the environment now and files when it is called.
[[nodiscard]] std::function<bool()> geoClueSearch(const std::filesystem::path& root = "/");

} // namespace morvellacinto::native
