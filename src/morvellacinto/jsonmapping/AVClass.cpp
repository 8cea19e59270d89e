// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVClass.h"

#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace morvellacinto {
namespace {

struct Registry {
    std::shared_mutex mutex;
    std::unordered_multimap<std::string_view, const AVClass*> classes; // by names without namespace
    std::vector<AVClassDraft::Described> related;
    std::size_t relatedDescribed = 0; // so many at the front of `related` are among the classes
};

// Made at first use and never destroyed: classes are looked up until the process has ended.
Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

std::string_view lastPart(std::string_view qualifiedName) {
    const std::size_t colons = qualifiedName.rfind("::");
    return colons == std::string_view::npos ? qualifiedName : qualifiedName.substr(colons + 2);
}

/// Describes the classes that known ones refer to; false when there were none left. Descriptions
/// are host code: no lock is held meanwhile, and what is being described on two threads stays in
/// the list until either has finished.
bool describeRelated() {
    Registry& all = registry();
    std::vector<AVClassDraft::Described> waiting;
    std::size_t end = 0;
    {
        const std::shared_lock lock(all.mutex);
        end = all.related.size();
        waiting.assign(all.related.begin() + static_cast<std::ptrdiff_t>(all.relatedDescribed),
                       all.related.end());
    }
    for (const AVClassDraft::Described describe : waiting) {
        static_cast<void>(describe());
    }
    const std::unique_lock lock(all.mutex);
    all.relatedDescribed = std::max(all.relatedDescribed, end);
    return !waiting.empty();
}

// Names come from the host's classes, so a hash that an attacker could steer does no harm: what is
// looked up never enters the table.
std::uint64_t hashOf(const Value& name) noexcept {
    const std::string_view text = ValueAccess::string(name);
    const bool isLong = text.size() > ValueAccess::inlineLength;
    const auto [low, high] =
        isLong ? std::array<std::uint64_t, 2>{std::hash<std::string_view>()(text), text.size()}
               : ValueAccess::words(name);
    const std::uint64_t hash = (low ^ std::rotl(high, 29)) * 0x9E3779B97F4A7C15U;
    return hash ^ hash >> 32;
}

constexpr std::uint64_t upperHalf = 0xFFFFFFFF00000000U;

} // namespace

const AVClass* AVClass::named(TextArgument name) {
    // Of two classes with that name one may not be known yet.
    while (describeRelated()) {
    }
    Registry& all = registry();
    const std::shared_lock lock(all.mutex);
    const auto [first, end] = all.classes.equal_range(lastPart(name));
    const AVClass* found = nullptr;
    const AVClass* other = nullptr;
    for (auto entry = first; entry != end; ++entry) {
        const std::string_view whole = entry->second->draft_.qualifiedName;
        if (whole == name) {
            return entry->second;
        }
        if (whole.ends_with(name) && whole.substr(0, whole.size() - name.size()).ends_with("::")) {
            other = std::exchange(found, entry->second);
        }
    }
    if (other != nullptr) {
        throw std::logic_error("\"" + std::string(name) + "\" is the name of several classes, " +
                               std::string(found->draft_.qualifiedName) + " and " +
                               std::string(other->draft_.qualifiedName) + " among them");
    }
    return found;
}

Ref<AVObject> AVClass::makeInstance() const {
    if (draft_.make == nullptr) {
        throw std::logic_error("the class " + draft_.name +
                               " is no AVObject, is abstract or has no public default constructor");
    }
    return draft_.make();
}

const AVMember* AVClass::member(const Value& name) const noexcept {
    if (!name.isString()) {
        return nullptr;
    }
    const std::uint64_t hash = hashOf(name);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
        if (((slots_[slot] ^ hash) & upperHalf) == 0) {
            const AVMember& found = draft_.members[static_cast<std::uint32_t>(slots_[slot]) - 1];
            if (ValueAccess::sameText(found.name, name)) {
                return &found;
            }
        }
    }
    return nullptr;
}

bool AVClass::hasDefaultKeys(const AVObject& instance) const noexcept {
    return draft_.hasDefaultKeys && draft_.type != nullptr && typeid(instance) == *draft_.type;
}

const AVClass& AVClass::adopt(AVClassDraft draft) {
    Registry& all = registry();
    std::vector<AVClassDraft::Described> related = std::move(draft.related);
    std::unique_ptr<AVClass> made(new AVClass(std::move(draft)));
    const std::unique_lock lock(all.mutex);
    all.related.reserve(all.related.size() + related.size()); // nothing fails behind the entry
    const std::string_view key = lastPart(made->draft_.qualifiedName);
    const auto [first, end] = all.classes.equal_range(key);
    // One type described in two modules of a process is one class.
    const auto same = std::find_if(first, end, [&](const auto& entry) {
        return made->draft_.type != nullptr && entry.second->draft_.type != nullptr &&
               *entry.second->draft_.type == *made->draft_.type;
    });
    if (same != end) {
        return *same->second;
    }
    all.classes.emplace(key, made.get());
    all.related.insert(all.related.end(), related.begin(), related.end());
    return *made.release();
}

AVClass::AVClass(AVClassDraft draft) : draft_(std::move(draft)) {
    std::vector<AVMember> own = std::exchange(draft_.members, {});
    if (base() != nullptr) {
        draft_.members = base()->draft_.members;
        for (AVMember& inherited : draft_.members) {
            inherited.shift += draft_.baseShift;
        }
    }
    for (AVMember& member : own) {
        add(std::move(member));
    }
    slots_.assign(std::bit_ceil(std::max<std::size_t>(1, members().size()) * 2), 0);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t position = 0; position < members().size(); ++position) {
        const std::uint64_t hash = hashOf(members()[position].name);
        std::size_t slot = hash & mask;
        while (slots_[slot] != 0) {
            slot = (slot + 1) & mask;
        }
        slots_[slot] = (hash & upperHalf) | (position + 1);
    }
}

void AVClass::add(AVMember member) {
    member.isNumber = member.attributes.find("NSNumber") != std::string::npos;
    member.isSpecial = member.name == Value(sourceKey) || member.name.asString().starts_with('@');
    member.isPath = member.name.asString().find('.') != std::string_view::npos;
    std::vector<AVMember>& all = draft_.members;
    const auto same = std::find_if(
        all.begin(), all.end(), [&](const AVMember& other) { return other.name == member.name; });
    if (same == all.end()) {
        all.push_back(std::move(member));
    } else if (member.attributes.empty() && same->shift == 0) {
        same->give = member.give; // the property behind the name stays
    } else {
        *same = std::move(member);
    }
}

} // namespace morvellacinto
