#pragma once

#include <filesystem>

namespace morvellacinto::native {

/// Whether SQLite would leave out commits that had reached the disk when it opens a database with
/// this write-ahead log: it takes the log to end at the first frame that is not sound.
///
/// The last commit in the log does not count, for it may have been cut off by a kill or by loss of
/// power; each one before was flushed before the next began. Damage to the checksum or the commit
/// mark of the one before it looks like such a cut too. Certain only while nobody commits.
[[nodiscard]] bool losesCommits(const std::filesystem::path& log);

} // namespace morvellacinto::native
