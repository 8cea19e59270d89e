// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

namespace morvellacinto {

class AVClass;
class AVExporter;
class AVImporter;
class AVObject;

/// One name that the instances of a class answer. An object is given as the `AVObject` that it is,
/// or as the struct itself.
struct MORVELLACINTO_EXPORT AVMember {
    /// The value for the export under way; nothing when there is none.
    using Give = std::optional<Value> (*)(const void* object, AVExporter& exporter);
    /// Takes over a value, or none for null. False, with the reason left in the importer, for what
    /// the property cannot hold, which stays as it was then.
    using Take = bool (*)(void* object, const Value* value, AVImporter& importer);

    /// A string.
    Value name;
    Give give = nullptr;
    /// Null for what can only be read.
    Take take = nullptr;
    /// The attribute text of the declared property, such as `T@"NSNumber",&,N,V_count`; empty for
    /// a reader with no property behind it.
    std::string attributes;
    /// The attribute text contains "NSNumber".
    bool isNumber = false;
    /// The name contains a ".".
    bool isPath = false;
    /// An import does more with the name than setting it.
    bool isSpecial = false;
    /// Where in a struct the base with this member begins; bytes.
    std::ptrdiff_t shift = 0;
};

/// What a description has said of a class so far.
struct MORVELLACINTO_EXPORT AVClassDraft {
    using Described = const AVClass& (*)(); ///< `AVClass::of`

    std::string name;
    /// The name with all its namespaces.
    std::string_view qualifiedName;
    const AVClass* base = nullptr;
    std::ptrdiff_t baseShift = 0;
    /// Null where the host is compiled without run-time type information.
    const std::type_info* type = nullptr;
    /// Null for what is no `AVObject`, is abstract or has no default constructor.
    Ref<AVObject> (*make)() = nullptr;
    /// Of a struct that has `keysForExport`.
    Array (*keysForExport)(const void* object) = nullptr;
    /// The type overrides none of the operations on keys of `AVObject`.
    bool hasDefaultKeys = false;
    std::vector<AVMember> members;
    std::vector<Described> related;
};

/// What the mapping knows of a class. `AVJSON_CLASS` makes the description, when it is first asked
/// for; it lives as long as the process, and so must the module that the class is in: a plug-in
/// with mappable classes stays loaded. All operations may be called on any thread.
class MORVELLACINTO_EXPORT AVClass {
public:
    AVClass(const AVClass&) = delete;
    AVClass& operator=(const AVClass&) = delete;

    /// The class of `T`, which has an `AVJSON_CLASS` of its own.
    template <class T>
    [[nodiscard]] static const AVClass& of();

    /// The class of that name, or null when none is known. A name without its namespaces, or with
    /// some of them, will do; throws std::logic_error when that fits several classes and is the
    /// whole name of none. Known are the classes that `of` was ever called for, and with each class
    /// its base class and the classes that its properties and readers point to.
    [[nodiscard]] static const AVClass* named(TextArgument name);

    /// Without its namespaces.
    [[nodiscard]] std::string_view name() const noexcept { return draft_.name; }
    /// Null for `AVObject` and for structs without a described base.
    [[nodiscard]] const AVClass* base() const noexcept { return draft_.base; }
    /// Whether this is that class or derives from it.
    [[nodiscard]] bool isA(const AVClass& ancestor) const noexcept {
        return this == &ancestor || (base() != nullptr && base()->isA(ancestor));
    }

    /// All properties and readers, those of the base class first.
    [[nodiscard]] std::span<const AVMember> members() const noexcept { return draft_.members; }

    /// Throws std::logic_error for what is abstract, no `AVObject` or not default-constructible.
    [[nodiscard]] Ref<AVObject> makeInstance() const;

    /// The property or reader of that name, of this class or an ancestor, or null.
    [[nodiscard]] const AVMember* find(TextArgument name) const { return member(Value(name)); }
    /// The same for a name that is in a value already; null for what is no string.
    [[nodiscard]] const AVMember* member(const Value& name) const noexcept;

    /// True when `keyExceptionForSourceKey`, `sourceKeyForExceptionKey` and `isNumberProperty` of
    /// this instance of the class are those of `AVObject`, so that it need not be asked.
    [[nodiscard]] bool hasDefaultKeys(const AVObject& instance) const noexcept;

    [[nodiscard]] Array keysForExport(const void* object) const {
        return draft_.keysForExport == nullptr ? Array() : draft_.keysForExport(object);
    } ///< what a struct's own operation of that name gives, or none

    /// Makes a class known; `AVClass::of` calls it once for each.
    [[nodiscard]] static const AVClass& adopt(AVClassDraft draft);

private:
    explicit AVClass(AVClassDraft draft);

    void add(AVMember member);

    /// With the members of the base class, and without what is related.
    AVClassDraft draft_;
    /// Open addressing, at most half full: the upper half of a slot is the upper half of the name's
    /// hash, the lower half the member's position plus one; zero is free.
    std::vector<std::uint64_t> slots_;
};

} // namespace morvellacinto
