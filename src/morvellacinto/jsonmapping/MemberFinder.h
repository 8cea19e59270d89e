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
        return next_ != end_ && ValueAccess::sameText(next_->name, name)
                   ? next_++
                   : behind(class_.member(name));
    }
    [[nodiscard]] const AVMember* find(std::string_view name) noexcept {
        return next_ != end_ && next_->name.asString() == name ? next_++
                                                               : behind(class_.find(name));
    }

private:
    const AVMember* behind(const AVMember* found) noexcept {
        if (found != nullptr) {
            next_ = found + 1;
        }
        return found;
    }

    const AVClass& class_;
    const AVMember* next_;
    const AVMember* end_;
};

} // namespace morvellacinto
