// SPDX-License-Identifier: MIT
#include "Gzip.h"

#include <zlib.h>

#include <stdexcept>

namespace morvellacinto::service {

std::string gzip(std::string bytes) {
    constexpr int gzipFormat = 16; // added to the window's size
    constexpr int memoryLevel = 8;
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS + gzipFormat,
                     memoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("zlib cannot compress");
    }
    std::string compressed(deflateBound(&stream, bytes.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(bytes.data());
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_out = static_cast<uInt>(compressed.size());
    const int outcome = deflate(&stream, Z_FINISH);
    compressed.resize(stream.total_out);
    deflateEnd(&stream);
    if (outcome != Z_STREAM_END) {
        throw std::runtime_error("zlib cannot compress");
    }
    return compressed;
}

} // namespace morvellacinto::service
