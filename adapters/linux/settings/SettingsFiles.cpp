#include "SettingsFiles.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
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

// What a file holds, or which entries a folder has, survives loss of power from here on.
void flush(const std::filesystem::path& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool isFlushed = descriptor >= 0 && fsync(descriptor) == 0;
    const int error = errno;
    close(descriptor);
    if (!isFlushed) {
        errno = error;
        fail("flushing " + path.string());
    }
}

void makeFolder(const std::filesystem::path& folder) {
    int result = mkdir(folder.c_str(), 0700);
    if (result != 0 && errno == ENOENT && folder.has_relative_path()) {
        makeFolder(folder.parent_path());
        result = mkdir(folder.c_str(), 0700);
    }
    if (result == 0) {
        flush(folder.parent_path());
    } else if (errno != EEXIST) {
        fail("making " + folder.string());
    }
}

void moveIfThere(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
        fail("renaming " + from.string());
    }
}

void removeIfThere(const std::filesystem::path& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        fail("deleting " + path.string());
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

// The layout's version is part of the names, so that versions never meet in one file.
SettingsFiles::SettingsFiles(const std::filesystem::path& directory, std::string_view bundle)
    : directory_(directory), database_(directory / (percentEncoded(bundle) + ".v1.db")),
      draft_(with(database_, ".draft")), complete_(with(database_, ".complete")),
      aside_(with(database_, ".damaged")) {}

SettingsFiles::Lock SettingsFiles::lock(Sharing sharing, const Wait& wait) const {
    int descriptor = open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0 && errno == ENOENT) {
        makeFolder(directory_);
        descriptor = open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    if (descriptor < 0) {
        fail("opening " + directory_.string());
    }
    Lock lock(nullptr, [descriptor](void*) {
        flock(descriptor, LOCK_UN); // or a child made by fork() meanwhile would keep it
        close(descriptor);
    });
    const int operation = (sharing == Sharing::alone ? LOCK_EX : LOCK_SH) | LOCK_NB;
    while (flock(descriptor, operation) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            fail("locking " + directory_.string());
        }
        if (!wait.goesOn()) {
            throw BusyError(directory_.string() + " was locked by others for too long");
        }
    }
    return lock;
}

bool SettingsFiles::hasDatabase() const {
    bool isThere = false;
    for (const char* suffix : suffixes) {
        const std::filesystem::path file = with(database_, suffix);
        struct stat status {};
        if (lstat(file.c_str(), &status) != 0) {
            if (errno != ENOENT) {
                fail("looking at " + file.string());
            }
            continue;
        }
        if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
            (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
            throw std::runtime_error(file.string() + " is not used for settings: it is no regular "
                                                     "file that this user alone may write");
        }
        isThere = isThere || file == database_;
    }
    return isThere;
}

bool SettingsFiles::hasOrphanedDraft() const {
    return access(database_.c_str(), F_OK) != 0 && access(complete_.c_str(), F_OK) == 0;
}

std::filesystem::path SettingsFiles::draft() const {
    for (const char* suffix : suffixes) {
        removeIfThere(with(draft_, suffix));
    }
    const int descriptor = open(draft_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        fail("making " + draft_.string());
    }
    close(descriptor);
    return draft_;
}

void SettingsFiles::completeDraft() const {
    flush(draft_);
    moveIfThere(draft_, complete_);
    flush(directory_);
}

// The log goes with its database: SQLite would play it into the new one. The database goes first:
// those who have it open tell by its name that it is no longer in use.
void SettingsFiles::installDraft() const {
    for (const char* suffix : suffixes) {
        moveIfThere(with(database_, suffix), with(aside_, suffix));
    }
    moveIfThere(complete_, database_);
    flush(directory_);
}

} // namespace morvellacinto::native
