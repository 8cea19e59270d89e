// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/jsonmapping/AVClass.h"

#include <string_view>

namespace morvellacinto {

/// Finds members of one class by name, one after the other. Names mostly come in the order in which
/// the class declares them, so the member behind the last one found is tried first.
class MemberFinder {
public:
    explicit MemberFinder(const AVClass& searched) noexcept
        : class_(searched), next_(searched.members().data()),
          end_(next_ + searched.members().size()) {}

    [[nodiscard]] const AVMember* member(const Value& name) noexcept {
        const bool isNext = next_ != end_ && ValueAccess::sameText(next_->name, name);
        const AVMember* const found = isNext ? next_ : class_.member(name);
        if (found != nullptr) {
            next_ = found + 1;
        }
        return found;
    }

private:
    const AVClass& class_;
    const AVMember* next_;
    const AVMember* end_;
};

} // namespace morvellacinto
