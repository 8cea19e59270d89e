// SPDX-License-Identifier: MIT
#include "BusValues.h"

#include <cstddef>
#include <span>

namespace morvellacinto::native {

namespace {

// Nothing once the message, or the container that it stands in, is at its end or unreadable. The
// bus limits nesting to 64 containers, so recursion is bounded.
std::optional<Value> nextValue(sd_bus_message* message);

// As `Read` what sd-bus stores, as `Given` what it means.
template <class Read, class Given = Read>
std::optional<Value> basic(sd_bus_message* message, char type) {
    Read value{};
    return sd_bus_message_read_basic(message, type, &value) > 0
               ? std::optional(Value(static_cast<Given>(value)))
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

Object members(sd_bus_message* message) {
    Object members;
    while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, nullptr) > 0) {
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

std::optional<Value> container(sd_bus_message* message, char type, std::string_view contents) {
    if (sd_bus_message_enter_container(message, type, nullptr) <= 0) {
        return std::nullopt;
    }
    Value value;
    if (type == SD_BUS_TYPE_VARIANT) {
        value = nextValue(message).value_or(nullptr);
    } else if (contents.starts_with('{')) {
        value = members(message);
    } else {
        value = elements(message);
    }
    return sd_bus_message_exit_container(message) < 0 ? std::nullopt : std::optional(value);
}

std::optional<Value> nextValue(sd_bus_message* message) {
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(message, &type, &contents) <= 0) {
        return std::nullopt;
    }
    switch (type) {
    case SD_BUS_TYPE_BOOLEAN:
        return basic<int, bool>(message, type);
    case SD_BUS_TYPE_INT32:
        return basic<std::int32_t>(message, type);
    case SD_BUS_TYPE_UINT32:
        return basic<std::uint32_t>(message, type);
    case SD_BUS_TYPE_UINT64:
        return basic<std::uint64_t>(message, type);
    case SD_BUS_TYPE_DOUBLE:
        return basic<double>(message, type);
    case SD_BUS_TYPE_STRING:
    case SD_BUS_TYPE_OBJECT_PATH:
        return basic<const char*>(message, type);
    case SD_BUS_TYPE_ARRAY:
    case SD_BUS_TYPE_STRUCT:
    case SD_BUS_TYPE_VARIANT:
        return type == SD_BUS_TYPE_ARRAY && std::string_view("y") == contents
                   ? bytes(message)
                   : container(message, type, contents);
    default:
        return sd_bus_message_skip(message, nullptr) < 0 ? std::nullopt
                                                         : std::optional(Value(nullptr));
    }
}

const Value* memberOf(const Object& object, std::string_view key, Value::Kind kind) {
    const Value* value = object.find(key);
    return value != nullptr && value->kind() == kind ? value : nullptr;
}

} // namespace

Array valuesIn(sd_bus_message* message) {
    return sd_bus_message_rewind(message, 1) < 0 ? Array() : elements(message);
}

BusCall readProperties(std::string destination, std::string path, std::string interface) {
    return {std::move(destination), std::move(path), "org.freedesktop.DBus.Properties", "GetAll",
            oneText(std::move(interface))};
}

std::string textAt(const Array& values, std::size_t index) {
    return index < values.size() && values[index].isString() ? std::string(values[index].asString())
                                                             : std::string();
}

Object objectAt(const Array& values, std::size_t index) {
    const Object* object = index < values.size() ? values[index].ifObject() : nullptr;
    return object != nullptr ? *object : Object();
}

Object objectMember(const Object& object, std::string_view key) {
    const Value* value = memberOf(object, key, Value::Kind::object);
    return value != nullptr ? *value->ifObject() : Object();
}

std::optional<std::string> textMember(const Object& object, std::string_view key) {
    const Value* value = memberOf(object, key, Value::Kind::string);
    return value != nullptr && !value->asString().empty()
               ? std::optional(std::string(value->asString()))
               : std::nullopt;
}

std::optional<std::string> pathMember(const Object& object, std::string_view key) {
    auto path = textMember(object, key);
    return path && path->starts_with('/') && path->size() > 1 ? path : std::nullopt;
}

std::optional<std::int64_t> integerMember(const Object& object, std::string_view key) {
    const Value* value = memberOf(object, key, Value::Kind::integer);
    return value != nullptr ? std::optional(value->asInt64()) : std::nullopt;
}

std::optional<double> doubleMember(const Object& object, std::string_view key) {
    const Value* value = memberOf(object, key, Value::Kind::float64);
    return value != nullptr ? std::optional(value->asDouble()) : std::nullopt;
}

std::optional<bool> boolMember(const Object& object, std::string_view key) {
    const Value* value = memberOf(object, key, Value::Kind::boolean);
    return value != nullptr ? std::optional(value->asBool()) : std::nullopt;
}

} // namespace morvellacinto::native
