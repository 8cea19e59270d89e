#include "KeptUuid.h"

#include <algorithm>
#include <system_error>
#include <systemd/sd-id128.h>

namespace morvellacinto::native {

namespace {

Uuid randomUuid() {
    sd_id128_t random{};
    const int result = sd_id128_randomize(&random);
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), "random identifier");
    }
    Uuid::Bytes bytes;
    std::copy(std::begin(random.bytes), std::end(random.bytes), bytes.begin());
    return Uuid(bytes);
}

} // namespace

Uuid KeptUuid::get() {
    const auto [text, isCertain] = kept_.read(name_);
    const auto kept = text ? Uuid::parse(*text) : std::nullopt;
    return kept ? *kept : keep(false, isCertain);
}

void KeptUuid::makeAnew() { static_cast<void>(keep(true, true)); }

Uuid KeptUuid::keep(bool isAnew, bool isForLong) {
    std::unique_lock lock(mutex_);
    const Uuid made = isAnew || !made_ ? randomUuid() : *made_;
    made_ = made;
    if (isForLong) {
        kept_.set(name_, made.text());
        lock.unlock();
        static_cast<void>(kept_.flush()); // which tells the host of a failure
    }
    return made;
}

} // namespace morvellacinto::native
