// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Uuid.h"

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace morvellacinto::native {

/// The names of identifiers, which an erasure takes with it.
inline constexpr std::string_view keptVendorIdentifier = "vendorIdentifier";
inline constexpr std::string_view keptAdvertisingIdentifier = "advertisingIdentifier";

/// What a read of a kept value gives.
struct KeptText {
    std::optional<std::string> text;
    bool isCertain = true;     ///< false: there may be another text, which could not be read
    std::int64_t erasures = 0; ///< see `platform::UserDefaults::erasures`
};

/// Texts that the adapter keeps for itself across runs, out of reach of the host's settings. The
/// functions may be called on any thread for as long as somebody holds them. `read` and `flush` may
/// tell the host something: no lock is held then.
struct KeptValues {
    std::function<KeptText(std::string_view name)> read;
    /// At once for this process.
    std::function<void(std::string_view name, std::string_view text)> set;
    /// Whether all that was set has become durable, on whatever thread.
    std::function<bool()> flush;
};

/// A random identifier that is made when first asked for and then kept. Any thread.
class KeptUuid {
public:
    /// `name` is a literal.
    KeptUuid(KeptValues kept, std::string_view name) : kept_(std::move(kept)), name_(name) {}

    /// While what is kept cannot be read, one that this process alone has; nothing is replaced by
    /// it. Another one after an erasure.
    [[nodiscard]] Uuid get();
    void makeAnew();

private:
    const KeptValues kept_;
    const std::string_view name_;
    std::mutex mutex_; // so that what is made last is kept
    std::optional<Uuid> made_;
    std::int64_t madeAfter_ = 0; // so many erasures
};

} // namespace morvellacinto::native
