#include "ChangeSignal.h"

#include "FileLock.h"

#include <array>
#include <atomic>
#include <fcntl.h>
#include <new>
#include <optional>
#include <sys/random.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

namespace morvellacinto::native {

namespace {

// Null when it cannot be attached.
void* attached(int identifier) {
    void* memory = shmat(identifier, nullptr, 0);
    return reinterpret_cast<std::intptr_t>(memory) == -1 ? nullptr : memory;
}

} // namespace

struct ChangeSignal::Segment {
    std::uint64_t nonce;
    std::atomic<std::uint64_t> changes;
};

// Identifiers of shared memory mean something only inside one IPC namespace (a sandbox has its
// own), so the lock file has room for the records of several.
struct ChangeSignal::Record {
    std::uint64_t ipcNamespace;
    std::uint64_t nonce;
    std::int64_t identifier;

    static constexpr std::size_t count = 8;
    using Table = std::array<Record, count>;

    static std::uint64_t thisNamespace() noexcept {
        struct stat status {};
        return stat("/proc/self/ns/ipc", &status) == 0 ? status.st_ino : 1;
    }

    // A file that is too short gives records that nothing matches.
    static Table readTable(int descriptor) noexcept {
        Table table{};
        if (pread(descriptor, &table, sizeof table, 0) < 0) {
            table = {};
        }
        return table;
    }

    // Nothing when the table has no record of this namespace.
    static std::optional<std::size_t> find(const Table& table, std::uint64_t ipc) noexcept {
        for (std::size_t index = 0; index < table.size(); ++index) {
            if (table[index].ipcNamespace == ipc) {
                return index;
            }
        }
        return std::nullopt;
    }
};

std::shared_ptr<ChangeSignal> ChangeSignal::find(const FileLock& lock) {
    const Record::Table table = Record::readTable(lock.descriptor());
    const std::optional<std::size_t> known = Record::find(table, Record::thisNamespace());
    if (!known) {
        return nullptr;
    }
    const auto identifier = static_cast<int>(table[*known].identifier);
    shmid_ds status{};
    // Identifiers are used again in time: a segment of others must not be mistaken for ours.
    if (shmctl(identifier, IPC_STAT, &status) != 0 || status.shm_perm.uid != geteuid() ||
        status.shm_segsz != sizeof(Segment)) {
        return nullptr;
    }
    void* memory = attached(identifier);
    if (memory == nullptr) {
        return nullptr;
    }
    auto* segment = static_cast<Segment*>(memory);
    if (segment->nonce != table[*known].nonce) {
        shmdt(memory);
        return nullptr;
    }
    return std::shared_ptr<ChangeSignal>(new ChangeSignal(segment, table[*known]));
}

std::shared_ptr<ChangeSignal> ChangeSignal::findOrMake(const FileLock& lock) {
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
    if (std::shared_ptr<ChangeSignal> found = find(lock)) {
        return found;
    }
    Record record{Record::thisNamespace(), 0, 0};
    if (getrandom(&record.nonce, sizeof record.nonce, 0) !=
        static_cast<ssize_t>(sizeof record.nonce)) {
        return nullptr;
    }
    const int identifier = shmget(IPC_PRIVATE, sizeof(Segment), IPC_CREAT | 0600);
    if (identifier < 0) {
        return nullptr;
    }
    void* memory = attached(identifier);
    shmctl(identifier, IPC_RMID, nullptr);
    if (memory == nullptr) {
        return nullptr;
    }
    record.identifier = identifier;
    auto* segment = new (memory) Segment{record.nonce, {0}};
    std::shared_ptr<ChangeSignal> made(new ChangeSignal(segment, record));
    Record::Table table = Record::readTable(lock.descriptor());
    // A full table loses its first record: which namespaces are gone cannot be told.
    table[Record::find(table, record.ipcNamespace).value_or(Record::find(table, 0).value_or(0))] =
        record;
    if (pwrite(lock.descriptor(), &table, sizeof table, 0) != static_cast<ssize_t>(sizeof table)) {
        return nullptr;
    }
    return made;
}

ChangeSignal::~ChangeSignal() { shmdt(segment_); }

bool ChangeSignal::isNamedIn(const FileLock& lock) const noexcept {
    return isNamedIn(lock.descriptor());
}

bool ChangeSignal::isNamedIn(const std::filesystem::path& lockFile) const noexcept {
    const int descriptor = open(lockFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0) {
        return false;
    }
    const bool named = isNamedIn(descriptor);
    close(descriptor);
    return named;
}

std::uint64_t ChangeSignal::value() const noexcept {
    return segment_->changes.load(std::memory_order_acquire);
}

std::uint64_t ChangeSignal::raise() noexcept {
    return segment_->changes.fetch_add(1, std::memory_order_acq_rel);
}

ChangeSignal::ChangeSignal(Segment* segment, const Record& record) noexcept
    : segment_(segment), record_(std::make_unique<const Record>(record)) {}

bool ChangeSignal::isNamedIn(int descriptor) const noexcept {
    const Record::Table table = Record::readTable(descriptor);
    const std::optional<std::size_t> known = Record::find(table, record_->ipcNamespace);
    return known && table[*known].nonce == record_->nonce;
}

} // namespace morvellacinto::native
