#include "WriteAheadLog.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace morvellacinto::native {

namespace {

// The format of https://www.sqlite.org/fileformat2.html#the_write_ahead_log
constexpr std::size_t headerSize = 32;
constexpr std::size_t frameHeaderSize = 24;
constexpr std::size_t saltsSize = 8;
constexpr std::uint32_t magicLittleEndian = 0x377F0682;
constexpr std::uint32_t magicBigEndian = 0x377F0683;
constexpr std::uint32_t smallestPage = 512;
constexpr std::uint32_t largestPage = 65536;

struct Sums {
    std::uint32_t first;
    std::uint32_t second;
    bool operator==(const Sums&) const = default;
};

std::uint32_t number(std::string_view bytes, bool bigEndian) {
    std::uint32_t number = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        const auto byte = static_cast<unsigned char>(bytes[bigEndian ? index : 3 - index]);
        number = number << 8U | byte;
    }
    return number;
}

std::uint32_t field(std::string_view bytes, std::size_t offset) {
    return number(bytes.substr(offset), true);
}

Sums summed(Sums sums, std::string_view bytes, bool bigEndian) {
    for (; bytes.size() >= 8; bytes.remove_prefix(8)) {
        sums.first += number(bytes, bigEndian) + sums.second;
        sums.second += number(bytes.substr(4), bigEndian) + sums.first;
    }
    return sums;
}

} // namespace

bool losesCommits(const std::filesystem::path& log) {
    std::error_code none;
    const std::uintmax_t size = std::filesystem::file_size(log, none);
    std::ifstream in(log, std::ios::binary);
    std::array<char, headerSize> headerBytes{};
    if (none || size <= headerSize || !in.read(headerBytes.data(), headerBytes.size())) {
        return false;
    }
    const std::string_view header(headerBytes.data(), headerBytes.size());
    const std::uint32_t magic = field(header, 0);
    const std::uint32_t pageSize = field(header, 8);
    const std::string_view salts = header.substr(16, saltsSize);
    const bool bigEndian = magic == magicBigEndian;
    // Each frame's sums go on from those that are written before it.
    Sums before{field(header, 24), field(header, 28)};
    if ((!bigEndian && magic != magicLittleEndian) ||
        summed({0, 0}, header.substr(0, 24), bigEndian) != before || pageSize < smallestPage ||
        pageSize > largestPage) {
        return true; // the header was flushed before the first frame was written
    }
    std::string bytes(frameHeaderSize + pageSize, '\0');
    bool endOfLog = false;
    bool endOfCommit = false;
    while (in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        const std::string_view frame = bytes;
        const Sums written{field(frame, 16), field(frame, 20)};
        // Frames with other salts are left from before the log was begun again.
        const bool sound = frame.substr(8, saltsSize) == salts &&
                           summed(summed(before, frame.substr(0, 8), bigEndian),
                                  frame.substr(frameHeaderSize), bigEndian) == written;
        if (endOfLog && endOfCommit && sound) {
            return true; // it was added to a commit that SQLite does not find
        }
        endOfLog = endOfLog || !sound;
        endOfCommit = field(frame, 4) != 0;
        before = written;
    }
    return false;
}

} // namespace morvellacinto::native
