#pragma once

#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/AVType.h"

#include <functional>
#include <type_traits>
#include <typeinfo>
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
    template <auto Member>
    void member(std::string_view name) {
        if constexpr (std::is_member_object_pointer_v<decltype(Member)>) {
            property<Member>(name);
        } else {
            reader<Member>(name);
        }
    }

    /// A property that is a data member, or one with a getter alone, which can only be read.
    /// `attributes` replace the attribute text that the type gives.
    template <auto Accessor>
    void property(std::string_view name, std::string_view attributes = {}) {
        using Result = std::invoke_result_t<decltype(Accessor), T&>;
        constexpr bool writable = std::is_member_object_pointer_v<decltype(Accessor)> &&
                                  !std::is_const_v<std::remove_reference_t<Result>>;
        AVMember& made = declare<Accessor>(name, attributes, writable);
        if constexpr (writable) {
            made.write = [](AVObject& object, const Value* value) {
                AVType<std::remove_cvref_t<Result>>::write(
                    std::invoke(Accessor, static_cast<T&>(object)), value);
            };
        }
    }

    /// A property behind a getter and a setter, which takes what the getter gives. A setter may
    /// throw; the import treats that as a value that the property cannot hold.
    template <auto Getter, auto Setter>
    void property(std::string_view name, std::string_view attributes = {}) {
        using Held = std::remove_cvref_t<std::invoke_result_t<decltype(Getter), const T&>>;
        declare<Getter>(name, attributes, true).write = [](AVObject& object, const Value* value) {
            Held taken{};
            AVType<Held>::write(taken, value);
            std::invoke(Setter, static_cast<T&>(object), std::move(taken));
        };
    }

    /// A computed value, with no property behind it.
    template <auto Reader>
    void reader(std::string_view name) {
        using Held = std::remove_cvref_t<std::invoke_result_t<decltype(Reader), const T&>>;
        AVType<Held>::relate(draft_);
        AVMember& made = draft_.members.emplace_back();
        made.name = name;
        made.read = &read<Reader>;
    }

    /// Calls the class's own `describeMembers`. One that it inherits has been heard already.
    void describeFurther(void (*describeMembers)(AVDescription&)) { describeMembers(*this); }
    template <class Ancestor>
    void describeFurther(void (*)(AVDescription<Ancestor>&)) {
        static_assert(std::derived_from<T, Ancestor>, "describeMembers is about another class");
    }

private:
    template <auto Getter>
    static std::optional<Value> read(const AVObject& object) {
        using Held = std::remove_cvref_t<std::invoke_result_t<decltype(Getter), const T&>>;
        return AVType<Held>::read(std::invoke(Getter, static_cast<const T&>(object)));
    }

    template <auto Getter>
    AVMember& declare(std::string_view name, std::string_view attributes, bool writable) {
        using Held = std::remove_cvref_t<std::invoke_result_t<decltype(Getter), const T&>>;
        reader<Getter>(name);
        AVMember& made = draft_.members.back();
        made.attributes = attributes;
        if (attributes.empty()) {
            const std::string encoding = AVType<Held>::encoding();
            const char* const ownership = encoding.starts_with('@') ? ",&" : "";
            made.attributes = "T" + encoding + (writable ? ownership : ",R") + ",N,V_";
            made.attributes += name;
        }
        return made;
    }

    AVClassDraft& draft_;
};

/// Whether `T` has the operations on keys of `AVObject`. A pointer to an inherited member tells the
/// class that it comes from; one that cannot be had counts as an override.
template <class T>
concept AVHasDefaultKeys = requires {
    requires std::same_as<decltype(&T::keyExceptionForSourceKey),
                          decltype(&AVObject::keyExceptionForSourceKey)>;
    requires std::same_as<decltype(&T::sourceKeyForExceptionKey),
                          decltype(&AVObject::sourceKeyForExceptionKey)>;
    requires std::same_as<decltype(&T::isNumberProperty), decltype(&AVObject::isNumberProperty)>;
};

template <class T>
const AVClass& AVClass::of() {
    static_assert(std::derived_from<T, AVObject>, "mappable classes derive from AVObject");
    static_assert(std::same_as<T, typename T::AVSelf>, "AVJSON_CLASS is missing in this class");
    static const AVClass& described = []() -> const AVClass& {
        AVClassDraft draft;
        draft.name = T::avClassName();
        draft.type = &typeid(T);
        draft.hasDefaultKeys = AVHasDefaultKeys<T>;
        if constexpr (!std::same_as<T, AVObject>) {
            static_assert(std::derived_from<T, typename T::AVBase>,
                          "AVJSON_CLASS names a base that is none");
            draft.base = &of<typename T::AVBase>();
        }
        if constexpr (std::is_default_constructible_v<T>) {
            draft.make = [] { return Ref<AVObject>(new T); };
        }
        AVDescription<T> description(draft);
        T::avDescribe(description);
        return adopt(std::move(draft));
    }();
    return described;
}

} // namespace morvellacinto

/// Makes a class mappable: `AVJSON_CLASS(Class, Base, members...)` inside the class, `Base` being
/// `AVObject` or another class described so. Each member is a data member, which becomes a property
/// of that name, or a const member function without arguments, which becomes a computed reader.
/// Members of `Base` count too and are not repeated; `Base` is the nearest class above that is
/// described. At most 86 members, more by `describeMembers`; not for class templates. What follows
/// in the class is private.
///
///     class Station : public AVObject {
///         AVJSON_CLASS(Station, AVObject, ident, name, lines, label)
///
///     public:
///         AVValue<"NSNumber"> ident;
///         std::string name;
///         std::vector<Ref<Line>> lines;
///         std::string label() const;
///     };
#define AVJSON_CLASS(Class, Base, ...)                                                             \
public:                                                                                            \
    using AVSelf [[maybe_unused]] = Class;                                                         \
    using AVBase [[maybe_unused]] = Base;                                                          \
    static constexpr std::string_view avClassName() { return #Class; }                             \
    const ::morvellacinto::AVClass& avClass() const override {                                     \
        static_assert(std::is_same_v<Class, std::remove_cvref_t<decltype(*this)>>,                 \
                      "AVJSON_CLASS names another class than the one that it stands in");          \
        return ::morvellacinto::AVClass::of<Class>();                                              \
    }                                                                                              \
    static void avDescribe(::morvellacinto::AVDescription<Class>& description) {                   \
        __VA_OPT__(AVJSON_DETAIL_EACH(Class, __VA_ARGS__))                                         \
        []<class Self>(::morvellacinto::AVDescription<Self>& own) {                                \
            if constexpr (requires { &Self::describeMembers; }) {                                  \
                own.describeFurther(&Self::describeMembers);                                       \
            }                                                                                      \
        }(description);                                                                            \
    }                                                                                              \
                                                                                                   \
private:

// Rescans often enough for 86 members.
#define AVJSON_DETAIL_EACH(Class, ...) AVJSON_DETAIL_EXPAND(AVJSON_DETAIL_ONE(Class, __VA_ARGS__))
#define AVJSON_DETAIL_ONE(Class, member_, ...)                                                     \
    description.member<&Class::member_>(#member_);                                                 \
    __VA_OPT__(AVJSON_DETAIL_AGAIN AVJSON_DETAIL_PARENTHESES(Class, __VA_ARGS__))
#define AVJSON_DETAIL_AGAIN() AVJSON_DETAIL_ONE
#define AVJSON_DETAIL_PARENTHESES ()
#define AVJSON_DETAIL_EXPAND(...)                                                                  \
    AVJSON_DETAIL_16(AVJSON_DETAIL_16(AVJSON_DETAIL_16(AVJSON_DETAIL_16(__VA_ARGS__))))
#define AVJSON_DETAIL_16(...)                                                                      \
    AVJSON_DETAIL_4(AVJSON_DETAIL_4(AVJSON_DETAIL_4(AVJSON_DETAIL_4(__VA_ARGS__))))
#define AVJSON_DETAIL_4(...)                                                                       \
    AVJSON_DETAIL_1(AVJSON_DETAIL_1(AVJSON_DETAIL_1(AVJSON_DETAIL_1(__VA_ARGS__))))
#define AVJSON_DETAIL_1(...) __VA_ARGS__
