// SPDX-License-Identifier: MIT
#include "KeptValues.h"

#include <bit>
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
    return Uuid(std::bit_cast<Uuid::Bytes>(random));
}

} // namespace

Uuid KeptUuid::get() {
    const auto [text, isCertain, erasures] = kept_.read(name_);
    if (const auto kept = text ? Uuid::parse(*text) : std::nullopt) {
        return *kept;
    }
    std::unique_lock lock(mutex_);
    if (!made_ || madeAfter_ != erasures) {
        made_ = randomUuid();
        madeAfter_ = erasures;
    }
    const Uuid made = *made_;
    if (isCertain) {
        kept_.set(name_, made.text());
        lock.unlock();
        static_cast<void>(kept_.flush()); // which tells the host of a failure
    }
    return made;
}

void KeptUuid::makeAnew() {
    std::unique_lock lock(mutex_);
    made_ = randomUuid();
    kept_.set(name_, made_->text());
    lock.unlock();
    static_cast<void>(kept_.flush());
}

} // namespace morvellacinto::native
