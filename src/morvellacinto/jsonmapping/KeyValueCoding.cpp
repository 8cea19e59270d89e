// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/KeyValueCoding.h"

#include <stdexcept>
#include <string>

namespace morvellacinto {
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

const AVMember& propertyNamed(const AVClass& described, std::string_view name) {
    const AVMember* member = described.find(name);
    if (member == nullptr || member->take == nullptr) {
        throw std::out_of_range(std::string(described.name()) + " has no property \"" +
                                std::string(name) + "\" that can be set");
    }
    return *member;
}

} // namespace morvellacinto
