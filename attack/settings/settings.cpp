// SPDX-License-Identifier: MIT
// Attacks the settings: settings ROUNDS [kill | replace | erase | flip]; without a name all.
//
// kill     three processes store, replace and remove without pause and are killed at any instant:
//          no flushed value is lost, none is torn.
// replace  the replacement of a damaged database is killed at each of its steps, and the disk is
//          full from each of its writes on, and allocations of SQLite fail one at a time: nothing
//          is lost that could still be read before.
// erase    an erasure is killed at each of its steps: nothing of it is left to the next process, in
//          memory or in any file, and everything else is.
// flip     a bit of the database file is flipped: its values or nothing, and new ones can be
// stored.

#include "settings/SqliteDefaults.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace {

// What happens to this process when it comes to the step of this number; steps change the disk,
// or are SQLite's allocations.
enum class Fate { none, killed, diskFull, noMemory };
Fate fate = Fate::none;
int fatefulStep = 0;
int steps = 0;

// False when the disk is full by now.
bool step() {
    steps += fate != Fate::noMemory ? 1 : 0;
    if (fate == Fate::killed && steps == fatefulStep) {
        std::raise(SIGKILL);
    }
    return fate != Fate::diskFull || steps < fatefulStep;
}

sqlite3_mem_methods memory;
void* allocate(int size) {
    const bool fails = fate == Fate::noMemory && ++steps == fatefulStep;
    return fails ? nullptr : memory.xMalloc(size);
}
void countAllocations() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory);
    sqlite3_mem_methods counted = memory;
    counted.xMalloc = allocate;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &counted);
}

} // namespace

// The database's calls end here: these come before the C library's.
#define INTERPOSED extern "C" __attribute__((visibility("default")))
INTERPOSED ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t offset) {
    errno = ENOSPC;
    return step() ? syscall(SYS_pwrite64, file, bytes, size, offset) : -1;
}
INTERPOSED int fsync(int file) { return step(), static_cast<int>(syscall(SYS_fsync, file)); }
INTERPOSED int fdatasync(int file) {
    return step(), static_cast<int>(syscall(SYS_fdatasync, file));
}
INTERPOSED int ftruncate64(int file, off64_t size) noexcept {
    return step(), static_cast<int>(syscall(SYS_ftruncate, file, size));
}
INTERPOSED int rename(const char* from, const char* to) noexcept {
    return step(), static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
INTERPOSED int unlink(const char* path) noexcept {
    return step(), static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

namespace {

using namespace morvellacinto;
using native::SqliteDefaults;
using Directory = testing::TemporaryDirectory;

std::mt19937 randomNumber(11);

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

std::unique_ptr<SqliteDefaults> open(const Directory& directory) {
    return std::make_unique<SqliteDefaults>(directory.path(), "attacked", native::Diagnostics());
}

std::filesystem::path database(const Directory& directory) {
    return directory.path() / "attacked.v1.db";
}

// A child that does this and nothing else.
pid_t start(const std::function<void()>& work) {
    const pid_t child = fork();
    require(child >= 0, "no process");
    if (child == 0) {
        work();
        _exit(0);
    }
    return child;
}

void finish(pid_t child) {
    int status = 0;
    require(waitpid(child, &status, 0) == child, "no child");
}

// Operation after operation on keys of each writer's own; the state after each can be told from its
// number alone.
constexpr std::int64_t keysOfWriter = 4;

std::string keyOf(int writer, std::int64_t number) {
    return std::to_string(writer) + "." + std::to_string(number % keysOfWriter);
}

std::optional<Value> valueOf(std::int64_t number) {
    const auto length = static_cast<std::size_t>(number * 7919 % 9000);
    const char letter = static_cast<char>('a' + number % 26);
    return number < 0 || number % 7 == 3
               ? std::nullopt
               : std::optional<Value>(std::to_string(number) + std::string(length, letter));
}

void writeWithoutPause(const Directory& directory, int writer, std::int64_t number, int done) {
    const auto defaults = open(directory);
    for (;; ++number) {
        if (const std::optional<Value> value = valueOf(number)) {
            defaults->setObjectForKey(*value, keyOf(writer, number));
        } else {
            defaults->removeObjectForKey(keyOf(writer, number));
        }
        if (!defaults->synchronize() || write(done, &number, sizeof number) < 0) {
            return;
        }
    }
}

void attackByKilling(int rounds) {
    const Directory directory;
    std::array<std::int64_t, 3> next{}; // operation of each writer
    for (int round = 0; round < rounds; ++round) {
        std::array<pid_t, 3> writers{};
        std::array<std::array<int, 2>, 3> done{};
        for (std::size_t writer = 0; writer < writers.size(); ++writer) {
            require(pipe2(done[writer].data(), O_CLOEXEC) == 0, "no pipe");
            writers[writer] = start([&, writer] {
                writeWithoutPause(directory, static_cast<int>(writer), next[writer],
                                  done[writer][1]);
            });
            close(done[writer][1]);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(randomNumber() % 30'000));
        for (const pid_t writer : writers) {
            kill(writer, SIGKILL);
        }
        for (std::size_t writer = 0; writer < writers.size(); ++writer) {
            for (std::int64_t number = 0; read(done[writer][0], &number, sizeof number) > 0;) {
                next[writer] = number + 1;
            }
            close(done[writer][0]);
            finish(writers[writer]);
        }
        const auto newcomer = open(directory);
        for (std::size_t writer = 0; writer < writers.size(); ++writer) {
            const auto stored = [&](std::int64_t number) {
                return newcomer->objectForKey(keyOf(static_cast<int>(writer), number));
            };
            // One more may have been committed but not acknowledged.
            next[writer] += stored(next[writer]) != valueOf(next[writer] - keysOfWriter) ? 1 : 0;
            for (std::int64_t number = next[writer] - keysOfWriter; number < next[writer];
                 ++number) {
                require(stored(number) == valueOf(number),
                        "round " + std::to_string(round) + ": writer " + std::to_string(writer) +
                            " lost what operation " + std::to_string(number) + " stored");
            }
        }
    }
    require(!std::filesystem::exists(database(directory).string() + ".damaged"), "damage");
    std::cout << "kill: " << rounds << " rounds, " << next[0] + next[1] + next[2] << " flushes\n";
}

constexpr int keys = 60; // on several pages
const Value stored = std::string(400, 'v');

std::string keyOf(int key) { return "key" + std::to_string(key); }

// All in the database file, but for one value in the log.
void storeSome(const Directory& directory) {
    const auto defaults = open(directory);
    for (int key = 1; key < keys; ++key) {
        defaults->setObjectForKey(stored, keyOf(key));
    }
    require(defaults->synchronize(), "no flush");
    sqlite3* connection = nullptr;
    require(sqlite3_open(database(directory).c_str(), &connection) == SQLITE_OK &&
                sqlite3_exec(connection, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr,
                             nullptr) == SQLITE_OK,
            "no checkpoint");
    sqlite3_close(connection);
    defaults->setObjectForKey(stored, keyOf(0));
    require(defaults->synchronize(), "no flush");
}

void flipBit(const std::filesystem::path& path, std::size_t offset, unsigned bit) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(static_cast<std::streamoff>(offset));
    const int byte = file.get();
    file.seekp(static_cast<std::streamoff>(offset));
    file.put(static_cast<char>(byte ^ (1 << bit)));
}

void restore(const Directory& directory, const Directory& from) {
    std::filesystem::remove_all(directory.path());
    std::filesystem::copy(from.path(), directory.path());
}

std::size_t countStored(const SqliteDefaults& defaults) {
    std::size_t count = 0;
    for (int key = 0; key < keys; ++key) {
        const std::optional<Value> value = defaults.objectForKey(keyOf(key));
        require(!value || *value == stored, "a wrong value for " + keyOf(key));
        count += value ? 1U : 0U;
    }
    return count;
}

void attackReplacement(int) {
    const Directory damaged;
    finish(start([&] { storeSome(damaged); }));
    constexpr std::size_t page = 4096;
    constexpr std::size_t pageInTheMidst = 6;
    flipBit(database(damaged), pageInTheMidst * page, 7); // what kind of page it is
    const Directory directory;
    restore(directory, damaged);
    const std::size_t readable = countStored(*open(directory));
    require(readable > 0 && readable < keys, "nothing to attack");
    const std::tuple<Fate, const char*, int> fates[] = {{Fate::killed, "killed at step ", 1},
                                                        {Fate::diskFull, "disk full from step ", 1},
                                                        {Fate::noMemory, "no memory at ", 7}};
    for (const auto& [attempted, name, stride] : fates) {
        for (int number = 1, status = 1; status != 0; number += stride) {
            restore(directory, damaged);
            const pid_t child = start([&, chosen = attempted] {
                steps = 0;
                fate = chosen;
                fatefulStep = number;
                const auto defaults = open(directory);
                static_cast<void>(countStored(*defaults));
                defaults->setObjectForKey(1, "new");
                static_cast<void>(defaults->synchronize());
                _exit(steps >= fatefulStep ? 1 : 0);
            });
            require(waitpid(child, &status, 0) == child, "no child");
            const std::string where = name + std::to_string(number);
            const auto next = open(directory);
            require(countStored(*next) >= readable, where + ": less for the next process");
            next->setObjectForKey(2, "new");
            require(next->synchronize(), where + ": nothing can be stored");
            if (status == 0) {
                std::cout << "replace: " << number - 1 << " steps, " << readable << " values\n";
            }
        }
    }
}

bool isInAnyFile(const Directory& directory, const std::string& text) {
    const std::filesystem::directory_iterator files(directory.path());
    return std::any_of(begin(files), end(files), [&](const auto& entry) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator(file), {}};
        return bytes.find(text) != std::string::npos;
    });
}

void attackErasure(int) {
    const std::array erased{"the answer", "the one before", "an identifier", "set aside"};
    const std::string answerKey = std::string(platform::libraryKeyPrefix) + "KRAudiences";
    int finished = 0;
    for (int number = 1, status = 1; status != 0; ++number) {
        const Directory directory;
        finish(start([&] {
            const auto defaults = open(directory);
            defaults->setAdapterValue(native::keptAdvertisingIdentifier, erased[2]);
            defaults->setAdapterValue("consent", "kept");
            defaults->setObjectForKey(stored, keyOf(0));
            for (const char* answer : {erased[1], erased[0]}) {
                defaults->setObjectForKey(std::string(answer), answerKey);
                require(defaults->synchronize(), "no flush");
            }
            std::ofstream(database(directory).string() + ".damaged-wal") << erased[3];
        }));
        const pid_t child = start([&] {
            steps = 0;
            fate = Fate::killed;
            fatefulStep = number;
            _exit(open(directory)->erase() ? 0 : 1);
        });
        require(waitpid(child, &status, 0) == child, "no child");
        require(status == 0 || WIFSIGNALED(status), "an erasure failed");
        const auto next = open(directory);
        const std::string where = "killed at step " + std::to_string(number);
        const bool isErased = !next->objectForKey(answerKey);
        require(isErased || finished == 0, where + ": it came back");
        require(next->contents().find(keyOf(0)) != nullptr &&
                    next->adapterValue("consent").text == "kept",
                where + ": something else is gone");
        for (const char* text : erased) {
            require(!isErased || !isInAnyFile(directory, text),
                    where + ": \"" + text + "\" is there");
        }
        finished += isErased ? 1 : 0; // else it was killed before its commit
    }
    require(finished > 10, "too few steps");
    std::cout << "erase: " << finished - 1 << " kills\n";
}

void attackByFlipping(int rounds) {
    const Directory sound;
    finish(start([&] { storeSome(sound); }));
    const std::size_t size = std::filesystem::file_size(database(sound));
    const Directory directory;
    for (int round = 0; round < rounds; ++round) {
        restore(directory, sound);
        // The header byte by byte, then anything.
        const std::size_t offset =
            round < 110 ? static_cast<std::size_t>(round) : randomNumber() % size;
        flipBit(database(directory), offset, static_cast<unsigned>(randomNumber() % 8));
        const std::string where = "byte " + std::to_string(offset);
        const auto defaults = open(directory);
        static_cast<void>(countStored(*defaults));
        defaults->setObjectForKey(std::string(30'000, 'n'), "new");
        require(defaults->synchronize(), where + ": nothing can be stored");
        require(open(directory)->objectForKey("new") == Value(std::string(30'000, 'n')),
                where + ": a new value is lost");
    }
    std::cout << "flip: " << rounds << " rounds\n";
}

} // namespace

int main(int count, char** arguments) {
    try {
        countAllocations();
        const int rounds = count > 1 ? std::stoi(arguments[1]) : 0;
        require(rounds > 0, "usage: attack_settings ROUNDS [kill | replace | erase | flip]");
        const std::string only = count > 2 ? arguments[2] : "";
        const std::pair<const char*, void (*)(int)> attacks[] = {{"kill", attackByKilling},
                                                                 {"replace", attackReplacement},
                                                                 {"erase", attackErasure},
                                                                 {"flip", attackByFlipping}};
        for (const auto& [name, attack] : attacks) {
            if (only.empty() || only == name) {
                attack(rounds);
            }
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
