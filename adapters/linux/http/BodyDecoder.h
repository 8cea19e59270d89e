#pragma once

#include <zlib.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// Collects an answer's body, undoing gzip. libcurl's own decoder would pass off a truncated body
/// as complete.
class BodyDecoder {
public:
    /// What a body may come to, decoded.
    static constexpr std::size_t maximumBytes = std::size_t(64) << 20U;

    /// `contentEncoding` as the answer names it, empty for none. Throws HttpFailure for one that is
    /// neither gzip nor identity.
    explicit BodyDecoder(std::string_view contentEncoding);
    BodyDecoder(const BodyDecoder&) = delete;
    BodyDecoder& operator=(const BodyDecoder&) = delete;
    ~BodyDecoder();

    /// Throws HttpFailure for damaged gzip and for a body that grows too large.
    void append(std::string_view bytes);
    /// Call when the whole body has come. Throws HttpFailure when its gzip text is incomplete.
    void finish() const;
    /// What has been decoded so far.
    [[nodiscard]] std::string take() { return std::move(body_); }

private:
    void inflateAll(std::string_view bytes);
    void store(std::string_view decoded);

    bool gzip_ = false;
    bool insideMember_ = false;
    z_stream stream_{};
    std::string body_;
};

} // namespace morvellacinto::native
