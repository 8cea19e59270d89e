#include "morvellacinto/jsonmapping/Exporter.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"
#include "morvellacinto/jsonmapping/MemberFinder.h"
#include "morvellacinto/platform/Guarded.h"

#include <algorithm>
#include <stdexcept>

namespace morvellacinto {
namespace {

/// Values that stand in the result as they are.
bool isJson(const Value& value) {
    return value.isNumber() || value.isString() || value.isBool() || value.isObject();
}

std::string missingLine(const std::string& key, const AVObject& object) {
    std::string line = key + " missing in " + object.description() + " while export";
    // The log takes single lines.
    std::replace_if(
        line.begin(), line.end(), [](char each) { return each == '\n' || each == '\r'; }, ' ');
    return line;
}

} // namespace

/// A step down the object graph, for as long as this lives.
class Exporter::Level {
public:
    Level(std::vector<const AVObject*>& path, const AVObject& object) : path_(path) {
        if (path_.size() == maximumJsonDepth) {
            throw std::length_error("objects are nested deeper than " +
                                    std::to_string(maximumJsonDepth) + " levels");
        }
        // The limit on the depth bounds the time that this takes.
        if (std::find(path_.begin(), path_.end(), &object) != path_.end()) {
            throw std::invalid_argument("an object holds itself");
        }
        path_.push_back(&object);
    }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;
    ~Level() { path_.pop_back(); }

private:
    std::vector<const AVObject*>& path_;
};

/// The JSON object that an export fills. Storing nothing removes what stands under the name;
/// storing an empty array changes nothing.
class Exporter::Output {
public:
    Output(Object& object, std::size_t count) : object_(object) { object_.reserve(count); }

    /// Under the member's own name.
    void store(const AVMember& member, std::optional<Value>&& value) {
        if (hasOtherNames_ || &member <= last_) {
            replace(member.name.asString(), std::move(value));
            return;
        }
        last_ = &member;
        if (value && !isEmptyArray(*value)) {
            ValueAccess::add(object_, member.name, *std::move(value));
        }
    }

    void store(std::string_view name, std::optional<Value>&& value) {
        hasOtherNames_ = true;
        replace(name, std::move(value));
    }

private:
    void replace(std::string_view name, std::optional<Value>&& value) {
        if (!value) {
            object_.remove(name);
        } else if (!isEmptyArray(*value)) {
            object_.set(name, *std::move(value));
        }
    }

    static bool isEmptyArray(const Value& value) {
        const Array* array = value.ifArray();
        return array != nullptr && array->empty();
    }

    Object& object_;
    /// No member behind this one in the class is there yet, unless under another's name.
    const AVMember* last_ = nullptr;
    bool hasOtherNames_ = false;
};

Object Exporter::exported(const AVObject& object, const std::vector<std::string>& keys) {
    Object result;
    platform::guarded(log_, initFailed, [&] {
        const Level level(path_, object);
        const AVClass& objectClass = object.avClass();
        const bool hasDefaultKeys = objectClass.hasDefaultKeys(object);
        MemberFinder members(objectClass);
        Output output(result, keys.size());
        for (const std::string& key : keys) {
            const AVMember* member = members.find(key);
            if (member == nullptr) {
                log_.log(missingLine(key, object));
            } else if (hasDefaultKeys && !member->isPath) {
                std::optional<Value> value = member->read(object);
                if (value && !isJson(*value)) {
                    value = exportedValue(*value);
                }
                output.store(*member, std::move(value));
            } else {
                take(output, object, *member);
            }
        }
    });
    return result;
}

void Exporter::take(Output& output, const AVObject& object, const AVMember& member) {
    std::string_view name = member.name.asString();
    std::optional<Value> value = member.isPath ? object.valueForKeyPath(name) : member.read(object);
    if (member.isPath) {
        name.remove_prefix(name.rfind('.') + 1);
    }
    const std::string outputKey = object.sourceKeyForExceptionKey(name);
    if (value && !isJson(*value)) {
        value = exportedValue(*value);
    }
    output.store(outputKey, std::move(value));
}

Value Exporter::exportedValue(const Value& value) {
    const Array* elements = value.ifArray();
    if (elements == nullptr) {
        return exportedNode(value);
    }
    Array exportedElements;
    exportedElements.reserve(elements->size());
    for (const Value& element : *elements) {
        exportedElements.append(exportedNode(element));
    }
    return exportedElements;
}

Object Exporter::exportedNode(const Value& value) {
    const AVObject* object = mappableObject(value);
    return object == nullptr ? Object() : exported(*object, object->keysForExport());
}

} // namespace morvellacinto
