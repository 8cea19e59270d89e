// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/jsonmapping/AVTypes.h"

#include <functional>
#include <type_traits>
#include <utility>

namespace morvellacinto {

/// Where a class says what `AVJSON_CLASS` cannot: properties behind accessors, readers under
/// another name, attribute texts of its own. The class declares
///
///     static void describeMembers(AVDescription<Gauge>& gauge) {
///         gauge.property<&Gauge::level, &Gauge::setLevel>("level");
///     }
///
/// and `AVJSON_CLASS` calls it. Accessors are members of the class, or functions that take it
/// first. A name described again replaces what was described before, of the base class too; a
/// reader replaces the reader of a property and leaves the rest of it.
template <class T>
class AVDescription {
public:
    explicit AVDescription(AVClassDraft& draft) noexcept : draft_(draft) {}

    /// A data member: a property that can be read and, unless it is const, set; its type has an
    /// `AVType`. A member function without arguments: a reader with no property behind it.
    template <auto Member, class Form = void>
    void member(TextArgument name) {
        if constexpr (std::is_member_object_pointer_v<decltype(Member)>) {
            property<Member, Form>(name);
        } else {
            reader<Member, Form>(name);
        }
    }

    /// A property that is a data member, or one with a getter alone, which can only be read.
    /// `attributes` replace the attribute text that the type gives.
    template <auto Accessor, class Form = void>
    void property(TextArgument name, std::string_view attributes = {}) {
        using Result = std::invoke_result_t<decltype(Accessor), T&>;
        constexpr bool writable = std::is_member_object_pointer_v<decltype(Accessor)> &&
                                  !std::is_const_v<std::remove_reference_t<Result>>;
        AVMember& made = declare<Accessor, Form>(name, attributes, writable);
        if constexpr (writable) {
            made.take = [](void* object, const Value* value, AVImporter& importer) {
                return AVProperty::set<std::remove_cvref_t<Result>, Form>(
                    std::invoke(Accessor, self(object)), value, importer);
            };
        }
    }

    /// A property behind a getter and a setter, which takes what the getter gives. A setter may
    /// throw; that ends the import of the object.
    template <auto Getter, auto Setter, class Form = void>
    void property(TextArgument name, std::string_view attributes = {}) {
        using Taken = Held<Getter>;
        declare<Getter, Form>(name, attributes, true).take = [](void* object, const Value* value,
                                                                AVImporter& importer) {
            Taken taken{};
            if (!AVProperty::set<Taken, Form>(taken, value, importer)) {
                return false;
            }
            std::invoke(Setter, self(object), std::move(taken));
            return true;
        };
    }

    /// A computed value, with no property behind it.
    template <auto Reader, class Form = void>
    void reader(TextArgument name) {
        AVProperty::relate<Held<Reader>, Form>(draft_);
        AVMember& made = draft_.members.emplace_back();
        made.name = name;
        made.give = [](const void* object, AVExporter& exporter) {
            return AVProperty::give<Held<Reader>, Form>(
                std::invoke(Reader, std::as_const(self(const_cast<void*>(object)))), exporter);
        };
    }

    /// Calls the class's own `describeMembers`. One that it inherits has been heard already. @{
    void describeFurther(void (*describeMembers)(AVDescription&)) { describeMembers(*this); }
    template <class Ancestor>
    void describeFurther(void (*)(AVDescription<Ancestor>&)) {
        static_assert(std::derived_from<T, Ancestor>, "describeMembers is about another class");
    } ///@}

private:
    template <auto Getter>
    using Held = std::remove_cvref_t<std::invoke_result_t<decltype(Getter), const T&>>;

    static T& self(void* object) {
        if constexpr (std::derived_from<T, AVObject>) {
            return static_cast<T&>(*static_cast<AVObject*>(object));
        } else {
            return *static_cast<T*>(object);
        }
    }

    template <auto Getter, class Form>
    AVMember& declare(TextArgument name, std::string_view attributes, bool writable) {
        reader<Getter, Form>(name);
        AVMember& made = draft_.members.back();
        made.attributes = attributes;
        if (attributes.empty()) {
            const std::string encoding = AVProperty::encoding<Held<Getter>, Form>();
            const char* const ownership = encoding.starts_with('@') ? ",&" : "";
            made.attributes = "T" + encoding + (writable ? ownership : ",R") + ",N,V_";
            made.attributes += name;
        }
        return made;
    }

    AVClassDraft& draft_;
};

/// A pointer to an inherited member tells the class that it comes from; one that cannot be had
/// counts as an override.
template <class T>
concept AVHasDefaultKeys = requires {
    requires std::same_as<decltype(&T::keyExceptionForSourceKey),
                          decltype(&AVObject::keyExceptionForSourceKey)>;
    requires std::same_as<decltype(&T::sourceKeyForExceptionKey),
                          decltype(&AVObject::sourceKeyForExceptionKey)>;
    requires std::same_as<decltype(&T::isNumberProperty), decltype(&AVObject::isNumberProperty)>;
};

/// The name of T and of what it stands in, as the compiler writes it.
template <class T>
[[nodiscard]] constexpr std::string_view avQualifiedName() {
    std::string_view name = __PRETTY_FUNCTION__;
    name.remove_prefix(name.find("T = ") + 4);
    return name.substr(0, std::min(name.find(';'), name.rfind(']')));
}

/// Where in a struct its base begins.
template <class T, class Base>
[[nodiscard]] std::ptrdiff_t avShift() {
    static_assert(
        requires(Base & base) { static_cast<T&>(base); }, "a described base is virtual");
    alignas(T) static std::byte place[sizeof(T)];
    auto* const object = reinterpret_cast<T*>(place);
    return reinterpret_cast<std::byte*>(static_cast<Base*>(object)) - place;
}

/// The nearest described class above `T`, which has yet to say that it is described itself.
template <class T>
struct AVInheritedOf {
    using Type = void;
};
template <class T>
requires requires { typename T::AVSelf; }
struct AVInheritedOf<T> {
    using Type = typename T::AVSelf;
};

template <class T>
const AVClass& AVClass::of() {
    static_assert(AVDescribed<T>, "AVJSON_CLASS is missing in this class");
    static const AVClass& described = []() -> const AVClass& {
        AVClassDraft draft;
        draft.name = T::avClassName();
        draft.qualifiedName = avQualifiedName<T>();
#if defined(__GXX_RTTI)
        draft.type = &typeid(T);
#endif
        if constexpr (!std::is_void_v<typename T::AVBase>) {
            draft.base = &of<typename T::AVBase>();
        }
        if constexpr (std::derived_from<T, AVObject>) {
            draft.hasDefaultKeys = AVHasDefaultKeys<T>;
            if constexpr (std::is_default_constructible_v<T>) {
                draft.make = [] { return Ref<AVObject>(new T); };
            }
        } else {
            if constexpr (!std::is_void_v<typename T::AVBase>) {
                draft.baseShift = avShift<T, typename T::AVBase>();
            }
            if constexpr (requires(const T& object) { Array(object.keysForExport()); }) {
                draft.keysForExport = [](const void* object) {
                    return Array(static_cast<const T*>(object)->keysForExport());
                };
            }
        }
        AVDescription<T> description(draft);
        T::avDescribe(description);
        return adopt(std::move(draft));
    }();
    return described;
}

} // namespace morvellacinto

#if defined(__clang__)
#define AVJSON_DETAIL_QUIET _Pragma("GCC diagnostic ignored \"-Weverything\"")
#else
#define AVJSON_DETAIL_QUIET _Pragma("GCC diagnostic ignored \"-Wsuggest-override\"")
#endif

/// Makes a class mappable: `AVJSON_CLASS(Class, Base, members...)` inside the class. `Base` is the
/// nearest class above that is described so: `AVObject` for objects that are shared by `Ref`, void
/// for a struct that is held by value. Each member is a data member, which becomes a property of
/// that name, or a const member function without arguments, which becomes a computed reader;
/// `(member, "key")` gives it another name, and `(member, "key", AVText)` another form. Members of
/// `Base` count too and are not repeated. At most 86 members, more by `describeMembers`; not for
/// class templates. What follows in the class is public.
///
///     struct Station {
///         AVJSON_CLASS(Station, void, name, (opened, "opened_at", AVText), lines, label)
///
///         std::string name;
///         Date opened;
///         std::vector<Ref<Line>> lines;
///         std::string label() const;
///     };
#define AVJSON_CLASS(Class, Base, ...)                                                             \
public:                                                                                            \
    using AVInherited [[maybe_unused]] = typename ::morvellacinto::AVInheritedOf<Class>::Type;     \
    static_assert(std::is_same_v<AVInherited, Base>,                                               \
                  "AVJSON_CLASS names another base than the nearest described one");               \
    using AVSelf [[maybe_unused]] = Class;                                                         \
    using AVBase [[maybe_unused]] = Base;                                                          \
    static constexpr std::string_view avClassName() { return #Class; }                             \
    _Pragma("GCC diagnostic push") AVJSON_DETAIL_QUIET const ::morvellacinto::AVClass& avClass()   \
        const {                                                                                    \
        static_assert(std::is_same_v<Class, std::remove_cvref_t<decltype(*this)>>,                 \
                      "AVJSON_CLASS names another class than the one that it stands in");          \
        return ::morvellacinto::AVClass::of<Class>();                                              \
    }                                                                                              \
    _Pragma("GCC diagnostic pop") static void avDescribe(                                          \
        ::morvellacinto::AVDescription<Class>& description) {                                      \
        __VA_OPT__(AVJSON_DETAIL_EACH(Class, __VA_ARGS__))                                         \
        []<class Self>(::morvellacinto::AVDescription<Self>& own) {                                \
            if constexpr (requires { &Self::describeMembers; }) {                                  \
                own.describeFurther(&Self::describeMembers);                                       \
            }                                                                                      \
        }(description);                                                                            \
    }

// Rescans often enough for 86 members; the name of what is left behind tells of more.
#define AVJSON_DETAIL_EACH(Class, ...) AVJSON_DETAIL_EXPAND(AVJSON_DETAIL_ONE(Class, __VA_ARGS__))
#define AVJSON_DETAIL_ONE(Class, member_, ...)                                                     \
    AVJSON_DETAIL_SECOND(AVJSON_DETAIL_IS_PAIR member_, AVJSON_DETAIL_AS_IS, )(Class, member_);    \
    __VA_OPT__(AVJSON_CLASS_TAKES_AT_MOST_86_MEMBERS AVJSON_DETAIL_NONE(Class, __VA_ARGS__))
#define AVJSON_CLASS_TAKES_AT_MOST_86_MEMBERS() AVJSON_DETAIL_ONE
#define AVJSON_DETAIL_NONE ()
// The second of what `IS_PAIR (member, key)` and `IS_PAIR member` turn into chooses between them.
#define AVJSON_DETAIL_IS_PAIR(...) ~, AVJSON_DETAIL_PAIR
#define AVJSON_DETAIL_SECOND(...) AVJSON_DETAIL_SECOND_OF(__VA_ARGS__)
#define AVJSON_DETAIL_SECOND_OF(first, second, ...) second
// NOLINTBEGIN(bugprone-macro-parentheses)
#define AVJSON_DETAIL_AS_IS(Class, member_) description.member<&Class::member_>(#member_)
#define AVJSON_DETAIL_PAIR(Class, pair) AVJSON_DETAIL_CALL(Class, AVJSON_DETAIL_BARE pair)
#define AVJSON_DETAIL_BARE(...) __VA_ARGS__
#define AVJSON_DETAIL_CALL(...) AVJSON_DETAIL_RENAMED(__VA_ARGS__)
#define AVJSON_DETAIL_RENAMED(Class, member_, key, ...)                                            \
    description.member<&Class::member_ __VA_OPT__(, ) __VA_ARGS__>(key)
// NOLINTEND(bugprone-macro-parentheses)
#define AVJSON_DETAIL_EXPAND(...)                                                                  \
    AVJSON_DETAIL_16(AVJSON_DETAIL_16(AVJSON_DETAIL_16(AVJSON_DETAIL_16(__VA_ARGS__))))
#define AVJSON_DETAIL_16(...)                                                                      \
    AVJSON_DETAIL_4(AVJSON_DETAIL_4(AVJSON_DETAIL_4(AVJSON_DETAIL_4(__VA_ARGS__))))
#define AVJSON_DETAIL_4(...)                                                                       \
    AVJSON_DETAIL_1(AVJSON_DETAIL_1(AVJSON_DETAIL_1(AVJSON_DETAIL_1(__VA_ARGS__))))
#define AVJSON_DETAIL_1(...) __VA_ARGS__
