#include "morvellacinto/jsonmapping/KeyValueCoding.h"

#include "morvellacinto/jsonmapping/AVObject.h"

#include <stdexcept>
#include <string>

namespace morvellacinto {

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
    const AVClass& objectClass = object.avClass();
    const AVMember* member = objectClass.find(name);
    if (member == nullptr || member->write == nullptr) {
        throw std::out_of_range(std::string(objectClass.name()) + " has no property \"" +
                                std::string(name) + "\" that can be set");
    }
    try {
        member->write(object, value);
    } catch (const ValueKindError& error) {
        throw ValueKindError(std::string(objectClass.name()) + "." + std::string(name) + ": " +
                             error.what());
    }
}

} // namespace morvellacinto
