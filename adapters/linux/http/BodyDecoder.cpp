#include "BodyDecoder.h"

#include "HttpFailure.h"

#include <strings.h>

#include <array>
#include <new>

namespace morvellacinto::native {

namespace {

constexpr int gzipFormat = 15 + 16; // the largest window, gzip header and trailer

bool names(std::string_view encoding, std::string_view expected) {
    return encoding.size() == expected.size() &&
           strncasecmp(encoding.data(), expected.data(), expected.size()) == 0;
}

} // namespace

BodyDecoder::BodyDecoder(std::string_view contentEncoding) {
    gzip_ = names(contentEncoding, "gzip") || names(contentEncoding, "x-gzip");
    if (!gzip_ && !contentEncoding.empty() && !names(contentEncoding, "identity")) {
        throw HttpFailure{HttpErrorCode::badContentEncoding,
                          "The answer comes in an encoding that was not asked for."};
    }
    if (gzip_ && inflateInit2(&stream_, gzipFormat) != Z_OK) {
        throw std::bad_alloc();
    }
}

BodyDecoder::~BodyDecoder() {
    if (gzip_) {
        inflateEnd(&stream_);
    }
}

void BodyDecoder::append(std::string_view bytes) {
    if (gzip_ && !bytes.empty()) {
        inflateAll(bytes);
    } else {
        store(bytes);
    }
}

void BodyDecoder::finish() const {
    if (insideMember_) {
        throw HttpFailure{HttpErrorCode::badContentEncoding, "The answer's gzip text breaks off."};
    }
}

void BodyDecoder::inflateAll(std::string_view bytes) {
    std::array<char, 16384> decoded;
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data())); // only read
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
        insideMember_ = true;
        stream_.next_out = reinterpret_cast<Bytef*>(decoded.data());
        stream_.avail_out = static_cast<uInt>(decoded.size());
        const int result = inflate(&stream_, Z_NO_FLUSH);
        store({decoded.data(), decoded.size() - stream_.avail_out});
        if (result == Z_STREAM_END) { // another member may follow
            insideMember_ = false;
            inflateReset(&stream_);
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            throw HttpFailure{HttpErrorCode::badContentEncoding,
                              "The answer's gzip text is damaged."};
        }
    } while (stream_.avail_in > 0 || (insideMember_ && stream_.avail_out == 0));
}

void BodyDecoder::store(std::string_view decoded) {
    if (decoded.size() > maximumBytes - body_.size()) {
        throw HttpFailure{HttpErrorCode::answerTooLarge, "The answer is larger than " +
                                                             std::to_string(maximumBytes >> 20U) +
                                                             " MiB."};
    }
    body_.append(decoded);
}

} // namespace morvellacinto::native
