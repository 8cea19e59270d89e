#include "morvellacinto/jsonmapping/KeyValueCoding.h"

#include "morvellacinto/jsonmapping/AVObject.h"

#include <stdexcept>
#include <string>

namespace morvellacinto {
namespace {

[[noreturn]] void throwNoProperty(const AVObject& object, std::string_view name) {
    throw std::out_of_range(std::string(object.avClass().name()) + " has no property \"" +
                            std::string(name) + "\" that can be set");
}

} // namespace

AVObject* mappableObject(const Value& value) noexcept {
    return value.kind() == Value::Kind::instance ? dynamic_cast<AVObject*>(&value.asInstance())
                                                 : nullptr;
}

std::optional<Value> valueForKey(const Object& dictionary, std::string_view key) {
    if (key.starts_with('@')) {
        if (key != "@count") {
            throw std::out_of_range("a JSON object knows nothing of \"" + std::string(key) + "\"");
        }
        return Value(dictionary.size());
    }
    const Value* found = dictionary.find(key);
    return found == nullptr ? std::nullopt : std::optional(*found);
}

void setValue(AVObject& object, const Value* value, std::string_view name) {
    const AVMember* member = object.avClass().find(name);
    if (member == nullptr) {
        throwNoProperty(object, name);
    }
    setValue(object, value, *member);
}

void setValue(AVObject& object, const Value* value, const AVMember& member) {
    if (member.write == nullptr) {
        throwNoProperty(object, member.name.asString());
    }
    try {
        member.write(object, value);
    } catch (const ValueKindError& error) {
        throw ValueKindError(std::string(object.avClass().name()) + "." +
                             std::string(member.name.asString()) + ": " + error.what());
    }
}

} // namespace morvellacinto
