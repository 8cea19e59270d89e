#include "SettingsFiles.h"

#include "WriteAheadLog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace morvellacinto::native {

namespace {

// The layout's version is part of the name, so that versions never meet in one file.
constexpr const char* databaseSuffix = ".v1.db";
constexpr const char* lockSuffix = ".v1.lock";
constexpr const char* asideMark = ".damaged-";
constexpr const char* logSuffix = "-wal";
constexpr std::array companionSuffixes{logSuffix, "-shm"};
constexpr std::size_t asideKept = 3;

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

std::filesystem::path with(std::filesystem::path path, const std::string& suffix) {
    path += suffix;
    return path;
}

std::uintmax_t sizeOf(const std::filesystem::path& path) {
    std::error_code none;
    const std::uintmax_t size = std::filesystem::file_size(path, none);
    return none ? 0 : size;
}

void removeIfThere(const std::filesystem::path& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        fail(errno, "deleting " + path.string());
    }
}

// Makes the entries of a folder survive loss of power.
void flushFolder(const std::filesystem::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        fail(errno, "opening " + folder.string());
    }
    const int result = fsync(descriptor);
    const int error = errno;
    close(descriptor);
    if (result != 0) {
        fail(error, "flushing " + folder.string());
    }
}

} // namespace

std::string percentEncoded(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789.-_";
    std::string encoded;
    for (const char character : text) {
        if (plain.find(character) != std::string_view::npos) {
            encoded += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            encoded += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
        }
    }
    return encoded;
}

SettingsFiles::SettingsFiles(std::filesystem::path directory, std::string_view bundle)
    : directory_(std::move(directory)),
      database_(directory_ / (percentEncoded(bundle) + databaseSuffix)),
      lock_(directory_ / (percentEncoded(bundle) + lockSuffix)) {}

bool SettingsFiles::hasDatabase() const { return sizeOf(database_) > 0; }

std::string SettingsFiles::damage() const {
    const std::filesystem::path log = with(database_, logSuffix);
    if (!hasDatabase() && std::filesystem::exists(database_) && sizeOf(log) > 0) {
        return database_.string() + " is empty but its log is not";
    }
    if (losesCommits(log)) {
        return log.string() + " is damaged";
    }
    return {};
}

void SettingsFiles::createDirectory() const {
    std::vector<std::filesystem::path> missing;
    std::error_code ignored;
    for (std::filesystem::path folder = std::filesystem::absolute(directory_).lexically_normal();
         !std::filesystem::exists(folder, ignored) && folder.has_relative_path();
         folder = folder.parent_path()) {
        missing.push_back(folder);
    }
    for (; !missing.empty(); missing.pop_back()) {
        const std::filesystem::path& folder = missing.back();
        if (folder.has_filename() && mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
            fail(errno, "making " + folder.string());
        }
        flushFolder(folder.parent_path());
    }
}

void SettingsFiles::createDatabase() const {
    if (std::filesystem::exists(database_)) {
        return;
    }
    // Of an earlier database: none of their content may find its way into the new one.
    for (const char* suffix : companionSuffixes) {
        removeIfThere(with(database_, suffix));
    }
    const int descriptor =
        open(database_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        fail(errno, "making " + database_.string());
    }
    close(descriptor);
}

std::filesystem::path SettingsFiles::setAside() const {
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    std::filesystem::path aside =
        with(database_, asideMark + std::to_string(now.count()) + '-' + std::to_string(getpid()));
    // The database first: whoever still has it open tells by its name that it is no longer in use.
    if (rename(database_.c_str(), aside.c_str()) != 0) {
        fail(errno, "renaming " + database_.string());
    }
    for (const char* companion : companionSuffixes) {
        const std::filesystem::path from = with(database_, companion);
        if (rename(from.c_str(), with(aside, companion).c_str()) != 0 && errno != ENOENT) {
            fail(errno, "renaming " + from.string());
        }
    }
    dropOldest();
    return aside;
}

void SettingsFiles::dropOldest() const {
    const std::string prefix = database_.filename().string() + asideMark;
    std::vector<std::filesystem::path> aside;
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
        const std::string name = entry.path().filename().string();
        const bool isCompanion =
            std::any_of(companionSuffixes.begin(), companionSuffixes.end(),
                        [&name](std::string_view suffix) { return name.ends_with(suffix); });
        if (name.starts_with(prefix) && !isCompanion) {
            aside.push_back(entry.path());
        }
    }
    std::sort(aside.begin(), aside.end());
    for (std::size_t index = 0; index + asideKept < aside.size(); ++index) {
        removeIfThere(aside[index]);
        for (const char* suffix : companionSuffixes) {
            removeIfThere(with(aside[index], suffix));
        }
    }
}

} // namespace morvellacinto::native
