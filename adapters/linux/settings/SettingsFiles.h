// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

namespace morvellacinto::native {

/// How long an operation may wait for other processes and threads: from now on for `longest`, or
/// until `areOver`, which outlives this.
class Wait {
public:
    Wait(std::chrono::milliseconds longest, const std::atomic<bool>& areOver)
        : deadline_(std::chrono::steady_clock::now() + longest), areOver_(&areOver) {}

    /// Pauses for a moment; false when it is time to give up.
    [[nodiscard]] bool goesOn() const;

private:
    std::chrono::steady_clock::time_point deadline_;
    const std::atomic<bool>* areOver_;
};

/// The files that the settings of one bundle live in. Failures leave as exceptions with a sentence.
class SettingsFiles {
public:
    /// Whoever uses the database's name, to open it or to commit, shares the lock; whoever changes
    /// which file that is has it alone. It belongs to the directory.
    using Lock = std::shared_ptr<void>;
    enum class Sharing { shared, alone };

    SettingsFiles(const std::filesystem::path& directory, std::string_view bundle);

    /// Waits for the lock; makes the directory when it is missing, for this user alone.
    [[nodiscard]] Lock lock(Sharing sharing, const Wait& wait) const;

    [[nodiscard]] const std::filesystem::path& database() const noexcept { return database_; }
    /// Needs a lock. When it is there, removes what an interrupted replacement left beside it.
    /// Throws for files that others could have a hand in, or that are not regular.
    [[nodiscard]] bool hasDatabase() const;
    /// Makes an empty file for this user alone, has it filled, and puts it in place of the
    /// database, which is set aside in place of the one before. A process killed meanwhile leaves
    /// the old database or a complete new one, which the next replacement puts in place instead.
    /// Needs the lock for oneself alone.
    void replace(const std::function<void(const std::filesystem::path& draft)>& fill) const;
    /// Removes all but the database, for good. Needs that lock too.
    void removeRemains() const;

private:
    const std::filesystem::path directory_;
    const std::filesystem::path database_;
};

} // namespace morvellacinto::native
