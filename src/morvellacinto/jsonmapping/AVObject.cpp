// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVObject.h"

#include "morvellacinto/jsonmapping/AVDescription.h"
#include "morvellacinto/jsonmapping/AVExporter.h"
#include "morvellacinto/jsonmapping/AVImporter.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"
#include "morvellacinto/platform/Platform.h"

#include <stdexcept>

namespace morvellacinto {
namespace {

// What `value` has under the names of `path`, joined by ".".
std::optional<Value> followed(const Value& value, std::string_view path) {
    if (const AVObject* object = mappableObject(value)) {
        return object->valueForKeyPath(path);
    }
    if (const Array* elements = value.ifArray()) {
        Array found;
        found.reserve(elements->size());
        for (const Value& element : *elements) {
            found.append(followed(element, path).value_or(Value()));
        }
        return found;
    }
    const std::size_t end = path.find('.');
    const std::string_view name = path.substr(0, end);
    const Object* dictionary = value.ifObject();
    if (dictionary == nullptr) {
        throw std::out_of_range(std::string(nameOf(value.kind())) + " knows no \"" +
                                std::string(name) + "\"");
    }
    std::optional<Value> next = valueForKey(*dictionary, name);
    return end == std::string_view::npos || !next ? next : followed(*next, path.substr(end + 1));
}

} // namespace

AVObject::~AVObject() = default;

const AVClass& AVObject::avClass() const { return AVClass::of<AVObject>(); }

// A setter may change the host's own dictionary.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void AVObject::setAvValuesForKeysWithDictionary(Object dictionary, const NodeMapping& nodeMapping) {
    const auto platform = platform::current();
    AVImporter(platform->developerLog(), nodeMapping).fill(*this, dictionary);
}

Object AVObject::avDictionaryWithValuesForKeys(const std::vector<std::string>& keys) const {
    const auto platform = platform::current();
    Array names;
    names.reserve(keys.size());
    for (const std::string& key : keys) {
        names.append(key);
    }
    return AVExporter(AVExporter::Mode::prescribed, &platform->developerLog())
        .exported(*this, names);
}

std::string AVObject::keyExceptionForSourceKey(std::string_view key) const {
    return std::string(key == sourceKey ? exceptionKey : key);
}

std::string AVObject::sourceKeyForExceptionKey(std::string_view name) const {
    return std::string(name);
}

bool AVObject::isNumberProperty(std::string_view key) const {
    const AVMember* member = avClass().find(key);
    return member != nullptr && member->isNumber;
}

Array AVObject::keysForExport() const { return {}; }

std::string AVObject::description() const { return std::string(avClass().name()); }

bool AVObject::answers(TextArgument name) const { return avClass().find(name) != nullptr; }

std::optional<Value> AVObject::valueForKey(TextArgument name) const {
    const AVMember* member = avClass().find(name);
    if (member == nullptr) {
        throw std::out_of_range(std::string(avClass().name()) + " has no property or reader \"" +
                                std::string(name) + "\"");
    }
    AVExporter reader(AVExporter::Mode::held);
    return member->give(this, reader);
}

std::optional<Value> AVObject::valueForKeyPath(TextArgument path) const {
    const std::size_t end = path.find('.');
    std::optional<Value> value = valueForKey(path.substr(0, end));
    return end == std::string_view::npos || !value ? value : followed(*value, path.substr(end + 1));
}

void AVObject::setValue(const std::optional<Value>& value, TextArgument name) {
    const AVMember& property = propertyNamed(avClass(), name);
    AVImporter importer;
    if (!property.take(this, value ? &*value : nullptr, importer)) {
        throw ValueKindError(sentenceOf(importer.refused(avClass().name(), name)));
    }
}

} // namespace morvellacinto
