// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace morvellacinto::testing {

/// An empty folder that goes, with all that it then holds, with this object.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name =
            (std::filesystem::temp_directory_path() / "morvellacinto-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// Makes the folders above it too.
    void write(const std::filesystem::path& file, std::string_view content) const {
        std::filesystem::create_directories((path_ / file).parent_path());
        std::ofstream(path_ / file, std::ios::binary) << content;
    }

private:
    std::filesystem::path path_;
};

} // namespace morvellacinto::testing
