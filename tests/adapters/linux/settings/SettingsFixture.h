#pragma once

#include "settings/SqliteDefaults.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace morvellacinto::native {

/// A directory of its own for each test, and a record of what the diagnostics said.
class SettingsFixture : public ::testing::Test {
protected:
    static constexpr const char* bundle = "se.kovra.test/1";
    static constexpr const char* databaseName = "se.kovra.test%2F1.v1.db";

    SettingsFixture() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "settings-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        root_ = pattern;
    }
    ~SettingsFixture() override { std::filesystem::remove_all(root_); }

    [[nodiscard]] std::filesystem::path directory() const { return root_ / "data" / "settings"; }
    [[nodiscard]] std::filesystem::path database() const { return directory() / databaseName; }

    [[nodiscard]] std::unique_ptr<SqliteDefaults> open() {
        return std::make_unique<SqliteDefaults>(directory(), bundle, [this](std::string_view text) {
            const std::lock_guard lock(mutex_);
            told_.emplace_back(text);
        });
    }

    [[nodiscard]] std::vector<std::string> told() {
        const std::lock_guard lock(mutex_);
        return told_;
    }

    /// Files of damaged databases, without their companions.
    [[nodiscard]] std::vector<std::filesystem::path> setAside() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(directory())) {
            const std::string name = entry.path().filename().string();
            if (name.find(".damaged-") != std::string::npos && !name.ends_with("-wal") &&
                !name.ends_with("-shm")) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

private:
    std::filesystem::path root_;
    std::mutex mutex_;
    std::vector<std::string> told_;
};

} // namespace morvellacinto::native
