#include "BusValues.h"

#include <cstddef>
#include <span>
#include <stdexcept>
#include <systemd/sd-bus.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// Nothing once the message, or the container that it stands in, is at its end or unreadable. The
// bus limits nesting to 64 containers, so recursion is bounded.
std::optional<Value> nextValue(sd_bus_message* message);

// A number, or as `const char*` a text.
template <class T>
std::optional<Value> basic(sd_bus_message* message, char type) {
    T value{};
    return sd_bus_message_read_basic(message, type, &value) > 0 ? std::optional(Value(value))
                                                                : std::nullopt;
}

std::optional<Value> boolean(sd_bus_message* message) {
    int value = 0;
    return sd_bus_message_read_basic(message, SD_BUS_TYPE_BOOLEAN, &value) > 0
               ? std::optional(Value(value != 0))
               : std::nullopt;
}

std::optional<Value> bytes(sd_bus_message* message) {
    const void* data = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &data, &size) < 0) {
        return std::nullopt;
    }
    return Value(std::span(static_cast<const std::byte*>(data), size));
}

Array elements(sd_bus_message* message) {
    Array values;
    while (auto value = nextValue(message)) {
        values.append(*std::move(value));
    }
    return values;
}

Value dictionary(sd_bus_message* message, const char* entry) {
    Object members;
    while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, entry) > 0) {
        const auto key = nextValue(message);
        auto value = nextValue(message);
        if (key && key->isString() && value) {
            members.set(key->asString(), *std::move(value));
        }
        if (sd_bus_message_exit_container(message) < 0) {
            break;
        }
    }
    return members;
}

std::optional<Value> container(sd_bus_message* message, char type, const char* contents) {
    const std::string_view inside = contents;
    if (type == SD_BUS_TYPE_ARRAY && inside == "y") {
        return bytes(message);
    }
    if (sd_bus_message_enter_container(message, type, contents) <= 0) {
        return std::nullopt;
    }
    Value value;
    if (type == SD_BUS_TYPE_VARIANT) {
        value = nextValue(message).value_or(nullptr);
    } else if (inside.starts_with('{')) {
        value = dictionary(message, std::string(inside.substr(1, inside.size() - 2)).c_str());
    } else {
        value = elements(message);
    }
    if (sd_bus_message_exit_container(message) < 0) {
        return std::nullopt;
    }
    return value;
}

std::optional<Value> nextValue(sd_bus_message* message) {
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(message, &type, &contents) <= 0) {
        return std::nullopt;
    }
    switch (type) {
    case SD_BUS_TYPE_BYTE:
        return basic<std::uint8_t>(message, type);
    case SD_BUS_TYPE_BOOLEAN:
        return boolean(message);
    case SD_BUS_TYPE_INT16:
        return basic<std::int16_t>(message, type);
    case SD_BUS_TYPE_UINT16:
        return basic<std::uint16_t>(message, type);
    case SD_BUS_TYPE_INT32:
        return basic<std::int32_t>(message, type);
    case SD_BUS_TYPE_UINT32:
        return basic<std::uint32_t>(message, type);
    case SD_BUS_TYPE_INT64:
        return basic<std::int64_t>(message, type);
    case SD_BUS_TYPE_UINT64:
        return basic<std::uint64_t>(message, type);
    case SD_BUS_TYPE_DOUBLE:
        return basic<double>(message, type);
    case SD_BUS_TYPE_STRING:
    case SD_BUS_TYPE_OBJECT_PATH:
    case SD_BUS_TYPE_SIGNATURE:
        return basic<const char*>(message, type);
    case SD_BUS_TYPE_ARRAY:
    case SD_BUS_TYPE_VARIANT:
    case SD_BUS_TYPE_STRUCT:
        return container(message, type, contents);
    default:
        // A descriptor, which nobody here asks for.
        return sd_bus_message_skip(message, nullptr) < 0 ? std::nullopt
                                                         : std::optional(Value(nullptr));
    }
}

} // namespace

Array valuesIn(sd_bus_message* message) {
    if (sd_bus_message_rewind(message, 1) < 0) {
        return {};
    }
    return elements(message);
}

BusCall readProperties(std::string destination, std::string path, std::string_view interface) {
    return {std::move(destination), std::move(path), "org.freedesktop.DBus.Properties", "GetAll",
            [interface = std::string(interface)](sd_bus_message* message) {
                return sd_bus_message_append_basic(message, 's', interface.c_str());
            }};
}

Object propertiesIn(const BusReply& reply) {
    const Object* properties = reply.body.empty() ? nullptr : reply.body[0].ifObject();
    return properties != nullptr ? *properties : Object();
}

std::optional<std::string> textMember(const Object& object, std::string_view key) {
    const Value* value = object.find(key);
    return value != nullptr && value->isString() ? std::optional(std::string(value->asString()))
                                                 : std::nullopt;
}

std::optional<std::string> nonEmptyMember(const Object& object, std::string_view key) {
    auto text = textMember(object, key);
    return text && !text->empty() ? text : std::nullopt;
}

std::optional<std::int64_t> integerMember(const Object& object, std::string_view key) {
    const Value* value = object.find(key);
    if (value == nullptr || value->kind() != Value::Kind::integer) {
        return std::nullopt;
    }
    try {
        return value->asInt64();
    } catch (const std::out_of_range&) { // an unsigned one above the range
        return std::nullopt;
    }
}

std::optional<double> doubleMember(const Object& object, std::string_view key) {
    const Value* value = object.find(key);
    return value != nullptr && value->kind() == Value::Kind::float64
               ? std::optional(value->asDouble())
               : std::nullopt;
}

std::optional<bool> boolMember(const Object& object, std::string_view key) {
    const Value* value = object.find(key);
    return value != nullptr && value->isBool() ? std::optional(value->asBool()) : std::nullopt;
}

std::optional<std::string> pathMember(const Object& object, std::string_view key) {
    auto path = nonEmptyMember(object, key);
    return path && path->starts_with('/') && path->size() > 1 ? path : std::nullopt;
}

} // namespace morvellacinto::native
