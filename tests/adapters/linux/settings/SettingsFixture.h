#pragma once

#include "settings/SqliteDefaults.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace morvellacinto::native {

/// A directory of its own for each test, and a record of what the diagnostics said.
class SettingsFixture : public ::testing::Test {
protected:
    static constexpr const char* bundle = "se.kovra.test/1";
    static constexpr const char* databaseName = "se.kovra.test%2F1.v1.db";

    [[nodiscard]] std::filesystem::path directory() const {
        return root_.path() / "data" / "settings";
    }
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
    const testing::TemporaryDirectory root_;
    std::mutex mutex_;
    std::vector<std::string> told_;
};

} // namespace morvellacinto::native
