#pragma once

#include "KeptValues.h"

#include "morvellacinto/foundation/Uuid.h"

#include <mutex>

namespace morvellacinto::native {

/// A random identifier that is made when first asked for and then kept. Any thread.
class KeptUuid {
public:
    /// `name` is a literal.
    KeptUuid(KeptValues kept, std::string_view name) : kept_(std::move(kept)), name_(name) {}

    /// While what is kept cannot be read, one that this process alone has; nothing is replaced by
    /// it.
    [[nodiscard]] Uuid get();
    void makeAnew();

private:
    Uuid keep(bool isAnew, bool isForLong);

    const KeptValues kept_;
    const std::string_view name_;
    std::mutex mutex_; // so that what is made last is kept
    std::optional<Uuid> made_;
};

} // namespace morvellacinto::native
