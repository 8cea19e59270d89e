#include "morvellacinto/jsonmapping/Importer.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/NumberText.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"
#include "morvellacinto/jsonmapping/MemberFinder.h"
#include "morvellacinto/platform/Guarded.h"

#include <stdexcept>

namespace morvellacinto {
namespace {

/// Hands over the value that a plain key gives, if it gives one. `isNumberProperty` is asked about
/// strings.
template <class IsNumberProperty, class Set>
void takeValue(const Object& dictionary, const Object::Member& member,
               const IsNumberProperty& isNumberProperty, const Set& set) {
    const bool asksDictionary = member.key().starts_with('@');
    if (asksDictionary || (member.value.isString() && isNumberProperty())) {
        const std::optional<Value> own = asksDictionary ? valueForKey(dictionary, member.key())
                                                        : numberFromText(member.value.asString());
        if (own) {
            set(*own);
        }
    } else if (!member.value.isNull()) {
        set(member.value);
    }
}

} // namespace

/// A node class looked up once for all the objects that are made of it.
struct Importer::Maker {
    explicit Maker(const NodeClass& nodeClass)
        : target(nodeClass.target()), described(target ? nullptr : nodeClass.described()) {}

    [[nodiscard]] Ref<AVObject> make() const {
        return described == nullptr ? target : described->makeInstance();
    }

    Ref<AVObject> target;
    const AVClass* described;
};

/// A step down the JSON tree, for as long as this lives.
class Importer::Level {
public:
    explicit Level(Importer& importer) : depth_(importer.depth_) {
        if (depth_ == maximumJsonDepth) {
            throw std::length_error("JSON is nested deeper than " +
                                    std::to_string(maximumJsonDepth) + " levels");
        }
        ++depth_;
    }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;
    ~Level() { --depth_; }

private:
    std::size_t& depth_;
};

void Importer::fill(AVObject& object, const Object& dictionary) {
    platform::guarded(log_, initFailed, [&] {
        const Level level(*this);
        const AVClass& objectClass = object.avClass();
        const bool hasDefaultKeys = objectClass.hasDefaultKeys(object);
        MemberFinder members(objectClass);
        for (const Object::Member& member : dictionary) {
            if (const NodeClass* nodeClass = nodeMapping_.find(member.key())) {
                takeNode(object, member, *nodeClass);
            } else if (hasDefaultKeys) {
                takePlain(object, members, dictionary, member);
            } else {
                takePlain(object, dictionary, member);
            }
        }
    });
}

Ref<AVObject> Importer::convert(const Object& dictionary, const NodeClass& nodeClass) {
    return convert(dictionary, Maker(nodeClass));
}

Array Importer::convert(const Array& array, const NodeClass& nodeClass) {
    return array.empty() ? Array() : convert(array, Maker(nodeClass));
}

Ref<AVObject> Importer::convert(const Object& dictionary, const Maker& maker) {
    Ref<AVObject> object = maker.make();
    if (object) {
        fill(*object, dictionary);
    }
    return object;
}

Array Importer::convert(const Array& array, const Maker& maker) {
    const Level level(*this);
    Array converted;
    converted.reserve(array.size());
    for (const Value& element : array) {
        if (const Array* inner = element.ifArray()) {
            converted.append(convert(*inner, maker));
            continue;
        }
        Ref<AVObject> object = convert(element.asObject(), maker);
        if (!object) {
            throw std::invalid_argument("an element would be of an unknown class");
        }
        converted.append(Ref<Instance>(std::move(object)));
    }
    return converted;
}

void Importer::takeNode(AVObject& object, const Object::Member& member,
                        const NodeClass& nodeClass) {
    if (const Object* dictionary = member.value.ifObject()) {
        Ref<AVObject> node = convert(*dictionary, nodeClass);
        const Value value = Ref<Instance>(node);
        setValue(object, node ? &value : nullptr, object.keyExceptionForSourceKey(member.key()));
    } else if (const Array* array = member.value.ifArray()) {
        const Array nodes = convert(*array, nodeClass);
        if (!nodes.empty()) {
            const Value value = nodes;
            setValue(object, &value, object.keyExceptionForSourceKey(member.key()));
        }
    }
}

void Importer::takePlain(AVObject& object, const Object& dictionary, const Object::Member& member) {
    const std::string_view key = member.key();
    takeValue(
        dictionary, member, [&] { return object.isNumberProperty(key); },
        [&](const Value& value) {
            if (object.answers(object.keyExceptionForSourceKey(key))) {
                setValue(object, &value, object.keyExceptionForSourceKey(key));
            }
        });
}

void Importer::takePlain(AVObject& object, MemberFinder& members, const Object& dictionary,
                         const Object::Member& member) {
    const AVMember* named = members.member(ValueAccess::keyValue(member));
    const AVMember* property = member.key() == sourceKey ? members.find(exceptionKey) : named;
    takeValue(
        dictionary, member, [&] { return named != nullptr && named->isNumber; },
        [&](const Value& value) {
            if (property != nullptr) {
                setValue(object, &value, *property);
            }
        });
}

} // namespace morvellacinto
