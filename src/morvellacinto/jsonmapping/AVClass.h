#pragma once

#include "morvellacinto/foundation/Value.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

namespace morvellacinto {

class AVClass;
class AVObject;

/// One name that the instances of a class answer.
struct MORVELLACINTO_EXPORT AVMember {
    /// The current value; nothing when there is none.
    using Read = std::optional<Value> (*)(const AVObject& object);
    /// Takes over a value, or none for null. Throws ValueKindError, and changes nothing, for what
    /// the property cannot hold.
    using Write = void (*)(AVObject& object, const Value* value);

    /// A string.
    Value name;
    Read read = nullptr;
    /// Null for what can only be read.
    Write write = nullptr;
    /// The attribute text of the declared property, such as `T@"NSNumber",&,N,V_count`; empty for
    /// a reader with no property behind it.
    std::string attributes;
    /// The attribute text contains "NSNumber".
    bool isNumber = false;
    /// The name contains a ".".
    bool isPath = false;
};

/// What a description has said of a class so far; the classes that its properties refer to are
/// described when somebody asks for them.
struct MORVELLACINTO_EXPORT AVClassDraft {
    using Described = const AVClass& (*)();

    std::string name;
    const AVClass* base = nullptr;
    const std::type_info* type = nullptr;
    Ref<AVObject> (*make)() = nullptr;
    /// The type overrides none of the operations on keys of `AVObject`.
    bool hasDefaultKeys = false;
    std::vector<AVMember> members;
    std::vector<Described> related;
};

/// What the mapping knows of a class of mappable objects: its name, base class, declared
/// properties, readers and plain initialiser.
///
/// `AVJSON_CLASS` makes the description, when it is first asked for; it lives as long as the
/// process, and so must the module that the class is in: a plug-in with mappable classes stays
/// loaded. All operations may be called on any thread.
class MORVELLACINTO_EXPORT AVClass {
public:
    AVClass(const AVClass&) = delete;
    AVClass& operator=(const AVClass&) = delete;

    /// The class of `T`, which has an `AVJSON_CLASS` of its own. Throws std::logic_error when
    /// another type has its name already.
    template <class T>
    [[nodiscard]] static const AVClass& of();

    /// The class of that name, or null when none is known. Known are the classes that `of` was ever
    /// called for, and with each class its base class and the classes that its properties and
    /// readers point to, but for one whose name another has already.
    [[nodiscard]] static const AVClass* named(std::string_view name);

    [[nodiscard]] std::string_view name() const noexcept { return name_; }
    /// Null for `AVObject`.
    [[nodiscard]] const AVClass* base() const noexcept { return base_; }

    /// All properties and readers, those of the base class first.
    [[nodiscard]] std::span<const AVMember> members() const noexcept { return members_; }

    /// A new instance, made with the default constructor. Throws std::logic_error when the class
    /// is abstract or has no public one.
    [[nodiscard]] Ref<AVObject> makeInstance() const;

    /// The property or reader of that name, of this class or an ancestor, or null.
    [[nodiscard]] const AVMember* find(std::string_view name) const noexcept;
    /// The same for a name that is in a value already; null for what is no string.
    [[nodiscard]] const AVMember* member(const Value& name) const noexcept;

    /// True when `keyExceptionForSourceKey`, `sourceKeyForExceptionKey` and `isNumberProperty` of
    /// this instance of the class are those of `AVObject`, so that it need not be asked.
    [[nodiscard]] bool hasDefaultKeys(const AVObject& instance) const noexcept;

    /// Makes a class known; `AVClass::of` calls it once for each.
    [[nodiscard]] static const AVClass& adopt(AVClassDraft draft);

private:
    explicit AVClass(AVClassDraft draft);

    template <class IsIt>
    [[nodiscard]] const AVMember* findWhere(std::uint64_t hash, IsIt isIt) const noexcept;
    void add(AVMember member);
    void buildIndex();

    std::string name_;
    const AVClass* base_;
    const std::type_info* type_;
    Ref<AVObject> (*make_)();
    bool hasDefaultKeys_;
    std::vector<AVMember> members_;
    /// Open addressing, at most half full: the upper half of a slot is the upper half of the name's
    /// hash, the lower half the member's position plus one; zero is free.
    std::vector<std::uint64_t> slots_;
};

} // namespace morvellacinto
