#include "morvellacinto/jsonmapping/AVClass.h"

#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <typeinfo>
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
std::uint64_t hashOf(std::uint64_t low, std::uint64_t high) noexcept {
    constexpr std::uint64_t multiplier = 0x9E3779B97F4A7C15U;
    const std::uint64_t hash = (low ^ std::rotl(high, 29)) * multiplier;
    return hash ^ hash >> 32;
}

std::uint64_t hashOfLong(std::string_view name) noexcept {
    return hashOf(std::hash<std::string_view>()(name), name.size());
}

std::uint64_t hashOf(const Value& name) noexcept {
    const std::string_view text = ValueAccess::string(name);
    if (text.size() > ValueAccess::inlineLength) {
        return hashOfLong(text);
    }
    const auto [low, high] = ValueAccess::words(name);
    return hashOf(low, high);
}

constexpr std::uint64_t upperHalf = 0xFFFFFFFF00000000U;

} // namespace

const AVClass* AVClass::named(std::string_view name) {
    // Of two classes with that name one may not be known yet.
    while (describeRelated()) {
    }
    Registry& all = registry();
    const std::shared_lock lock(all.mutex);
    const auto [first, end] = all.classes.equal_range(lastPart(name));
    const AVClass* found = nullptr;
    const AVClass* other = nullptr;
    for (auto entry = first; entry != end; ++entry) {
        const std::string_view whole = entry->second->qualifiedName_;
        if (whole == name) {
            return entry->second;
        }
        if (whole.ends_with(name) && whole.substr(0, whole.size() - name.size()).ends_with("::")) {
            other = std::exchange(found, entry->second);
        }
    }
    if (other != nullptr) {
        throw std::logic_error("\"" + std::string(name) + "\" is the name of several classes, " +
                               std::string(found->qualifiedName_) + " and " +
                               std::string(other->qualifiedName_) + " among them");
    }
    return found;
}

Ref<AVObject> AVClass::makeInstance() const {
    if (make_ == nullptr) {
        throw std::logic_error("the class " + name_ +
                               " is no AVObject, is abstract or has no public default constructor");
    }
    return make_();
}

const AVMember* AVClass::find(std::string_view name) const noexcept {
    if (name.size() <= ValueAccess::inlineLength) {
        return member(Value(name));
    }
    return findWhere(hashOfLong(name),
                     [name](const AVMember& each) { return each.name.asString() == name; });
}

const AVMember* AVClass::member(const Value& name) const noexcept {
    if (!name.isString()) {
        return nullptr;
    }
    return findWhere(hashOf(name), [&name](const AVMember& each) {
        return ValueAccess::sameText(each.name, name);
    });
}

template <class IsIt>
const AVMember* AVClass::findWhere(std::uint64_t hash, IsIt isIt) const noexcept {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
        if (((slots_[slot] ^ hash) & upperHalf) == 0) {
            const AVMember& member = members_[static_cast<std::uint32_t>(slots_[slot]) - 1];
            if (isIt(member)) {
                return &member;
            }
        }
    }
    return nullptr;
}

bool AVClass::hasDefaultKeys(const AVObject& instance) const noexcept {
    return hasDefaultKeys_ && type_ != nullptr && typeid(instance) == *type_;
}

const AVClass& AVClass::adopt(AVClassDraft draft) {
    Registry& all = registry();
    std::vector<AVClassDraft::Described> related = std::move(draft.related);
    std::unique_ptr<AVClass> made(new AVClass(std::move(draft)));
    const std::unique_lock lock(all.mutex);
    all.related.reserve(all.related.size() + related.size()); // nothing fails behind the entry
    const std::string_view key = lastPart(made->qualifiedName_);
    const auto [first, end] = all.classes.equal_range(key);
    // One type described in two modules of a process is one class.
    const auto same = std::find_if(first, end, [&](const auto& entry) {
        return made->type_ != nullptr && entry.second->type_ != nullptr &&
               *entry.second->type_ == *made->type_;
    });
    if (same != end) {
        return *same->second;
    }
    all.classes.emplace(key, made.get());
    all.related.insert(all.related.end(), related.begin(), related.end());
    return *made.release();
}

AVClass::AVClass(AVClassDraft draft)
    : name_(std::move(draft.name)), qualifiedName_(draft.qualifiedName), base_(draft.base),
      type_(draft.type), make_(draft.make), keysForExport_(draft.keysForExport),
      hasDefaultKeys_(draft.hasDefaultKeys) {
    std::vector<AVMember> own = std::move(draft.members);
    if (base_ != nullptr) {
        members_ = base_->members_;
        for (AVMember& inherited : members_) {
            inherited.shift += draft.baseShift;
        }
    }
    members_.reserve(members_.size() + own.size());
    for (AVMember& member : own) {
        add(std::move(member));
    }
    buildIndex();
}

void AVClass::add(AVMember member) {
    member.isNumber = member.attributes.find("NSNumber") != std::string::npos;
    member.isSpecial = member.name == Value(sourceKey) || member.name.asString().starts_with('@');
    member.isPath = member.name.asString().find('.') != std::string_view::npos;
    const auto same = std::find_if(members_.begin(), members_.end(), [&](const AVMember& other) {
        return other.name == member.name;
    });
    if (same == members_.end()) {
        members_.push_back(std::move(member));
    } else if (member.attributes.empty() && same->shift == 0) {
        same->give = member.give; // the property behind the name stays
    } else {
        *same = std::move(member);
    }
}

void AVClass::buildIndex() {
    slots_.assign(std::bit_ceil(std::max<std::size_t>(1, members_.size()) * 2), 0);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t position = 0; position < members_.size(); ++position) {
        const std::uint64_t hash = hashOf(members_[position].name);
        std::size_t slot = hash & mask;
        while (slots_[slot] != 0) {
            slot = (slot + 1) & mask;
        }
        slots_[slot] = (hash & upperHalf) | (position + 1);
    }
}

} // namespace morvellacinto
