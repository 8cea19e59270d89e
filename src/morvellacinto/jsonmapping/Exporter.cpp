#include "morvellacinto/jsonmapping/Exporter.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"
#include "morvellacinto/platform/Guarded.h"

#include <algorithm>
#include <stdexcept>

namespace morvellacinto {
namespace {

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

Object Exporter::exported(const AVObject& object, const std::vector<std::string>& keys) {
    Object result;
    platform::guarded(log_, initFailed, [&] {
        const Level level(path_, object);
        result.reserve(keys.size());
        for (const std::string& key : keys) {
            take(result, object, key);
        }
    });
    return result;
}

void Exporter::take(Object& result, const AVObject& object, const std::string& key) {
    const AVMember* member = object.avClass().find(key);
    if (member == nullptr) {
        log_.log(missingLine(key, object));
        return;
    }
    const std::size_t dot = key.rfind('.');
    std::optional<Value> value;
    std::string_view name = key;
    if (dot == std::string::npos) {
        value = member->read(object);
    } else {
        value = object.valueForKeyPath(key);
        name.remove_prefix(dot + 1);
    }
    const std::string outputKey = object.sourceKeyForExceptionKey(name);
    if (value) {
        store(result, outputKey, *std::move(value));
    } else {
        result.remove(outputKey);
    }
}

void Exporter::store(Object& result, std::string_view key, const Value& value) {
    switch (value.kind()) {
    case Value::Kind::boolean:
    case Value::Kind::integer:
    case Value::Kind::float32:
    case Value::Kind::float64:
    case Value::Kind::string:
    case Value::Kind::object:
        result.set(key, value);
        break;
    case Value::Kind::array: {
        const Array& elements = value.asArray();
        Array exportedElements;
        exportedElements.reserve(elements.size());
        for (const Value& element : elements) {
            exportedElements.append(exportedNode(element));
        }
        if (!exportedElements.empty()) {
            result.set(key, std::move(exportedElements));
        }
        break;
    }
    case Value::Kind::null:
    case Value::Kind::date:
    case Value::Kind::bytes:
    case Value::Kind::instance:
        result.set(key, exportedNode(value));
        break;
    }
}

Object Exporter::exportedNode(const Value& value) {
    const AVObject* object = mappableObject(value);
    return object == nullptr ? Object() : exported(*object, object->keysForExport());
}

} // namespace morvellacinto
