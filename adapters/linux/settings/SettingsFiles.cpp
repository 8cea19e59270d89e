// SPDX-License-Identifier: MIT
#include "SettingsFiles.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace morvellacinto::native {

namespace {

// SQLite's log and its index belong to the database by their names alone.
constexpr std::array suffixes{"", "-wal", "-shm"};

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::filesystem::path with(std::filesystem::path path, const char* suffix) {
    path += suffix;
    return path;
}

// An open file, and the lock on it. Made by fork() meanwhile, a child has the file open as well, so
// that closing it would not end the lock.
struct File {
    File(const std::filesystem::path& path, int flags)
        : descriptor(open(path.c_str(), flags | O_CLOEXEC, 0600)) {
        if (descriptor < 0) {
            fail("opening " + path.string());
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        flock(descriptor, LOCK_UN);
        close(descriptor);
    }

    const int descriptor;
};

// What a file holds, or which entries a folder has, survives loss of power from here on.
void flush(const std::filesystem::path& path) {
    if (fsync(File(path, O_RDONLY).descriptor) != 0) {
        fail("flushing " + path.string());
    }
}

// `text` with everything but letters, digits, '.', '-' and '_' as %XX.
std::string percentEncoded(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789.-_";
    std::string encoded;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (plain.find(character) != std::string_view::npos) {
            encoded += character;
        } else {
            encoded += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
        }
    }
    return encoded;
}

} // namespace

bool Wait::goesOn() const {
    if (*areOver_ || std::chrono::steady_clock::now() >= deadline_) {
        return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(300)); // a commit takes longer
    return true;
}

// The layout's version is part of the names, so that versions never meet in one file.
SettingsFiles::SettingsFiles(const std::filesystem::path& directory, std::string_view bundle)
    : directory_(directory), database_(directory / (percentEncoded(bundle) + ".v1.db")) {}

SettingsFiles::Lock SettingsFiles::lock(Sharing sharing, const Wait& wait) const {
    if (!std::filesystem::exists(directory_) && std::filesystem::create_directories(directory_)) {
        std::filesystem::permissions(directory_, std::filesystem::perms::owner_all);
    }
    auto lock = std::make_shared<File>(directory_, O_RDONLY | O_DIRECTORY);
    const int operation = (sharing == Sharing::alone ? LOCK_EX : LOCK_SH) | LOCK_NB;
    while (flock(lock->descriptor, operation) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            fail("locking " + directory_.string());
        }
        if (!wait.goesOn()) {
            throw std::runtime_error(directory_.string() + " was locked by others for too long");
        }
    }
    return lock;
}

bool SettingsFiles::hasDatabase() const {
    for (const char* suffix : suffixes) {
        const std::filesystem::path file = with(database_, suffix);
        struct stat status {};
        if (lstat(file.c_str(), &status) == 0 &&
            (!S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
             (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)) {
            throw std::runtime_error(file.string() + " is not used for settings: it is no regular "
                                                     "file that this user alone may write");
        }
    }
    const bool isThere = std::filesystem::exists(database_);
    if (isThere) { // what an interrupted replacement left is not to come back later
        unlink(with(database_, ".complete").c_str());
    }
    return isThere;
}

void SettingsFiles::replace(
    const std::function<void(const std::filesystem::path& draft)>& fill) const {
    const std::filesystem::path complete = with(database_, ".complete");
    if (std::filesystem::exists(database_) || !std::filesystem::exists(complete)) {
        const std::filesystem::path draft = with(database_, ".draft");
        for (const char* suffix : suffixes) {
            std::filesystem::remove(with(draft, suffix));
        }
        static_cast<void>(File(draft, O_WRONLY | O_CREAT | O_EXCL));
        fill(draft);
        flush(draft);
        std::filesystem::rename(draft, complete);
        flush(directory_);
    }
    // The log goes with its database: SQLite would play it into the new one. The database goes
    // first: those who have it open tell by its name that it is no longer in use.
    for (const char* suffix : suffixes) {
        if (const auto old = with(database_, suffix); std::filesystem::exists(old)) {
            std::filesystem::rename(old, with(with(database_, ".damaged"), suffix));
        }
    }
    std::filesystem::rename(complete, database_);
    flush(directory_);
}

void SettingsFiles::removeRemains() const {
    for (const char* remains : {".draft", ".complete", ".damaged"}) {
        for (const char* suffix : suffixes) {
            std::filesystem::remove(with(with(database_, remains), suffix));
        }
    }
    flush(directory_);
}

} // namespace morvellacinto::native
