// SPDX-License-Identifier: MIT
// Reading and writing JSON text, beside the bare cost of building the value and four libraries that
// fill the same value.

#include "Comparison.h"
#include "JsonTexts.h"
#include "ValueBuilder.h"

#include "morvellacinto/foundation/Json.h"

#include <boost/json.hpp>
#include <boost/json/src.hpp>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <charconv>

namespace morvellacinto::bench {
namespace {

// What stands in a text, so that it can be written without walking a tree.
struct Event {
    enum class Kind { begin, end, key, leaf } kind;
    bool isObject;
    Value value;
};

void record(const Value& value, std::vector<Event>& events) {
    if (value.isArray() || value.isObject()) {
        events.push_back({Event::Kind::begin, value.isObject(), nullptr});
        if (value.isObject()) {
            for (const Object::Member& member : value.asObject()) {
                events.push_back({Event::Kind::key, false, member.key()});
                record(member.value, events);
            }
        } else {
            for (const Value& element : value.asArray()) {
                record(element, events);
            }
        }
        events.push_back({Event::Kind::end, false, nullptr});
    } else {
        events.push_back({Event::Kind::leaf, false, value});
    }
}

// The value built again from itself, nothing shared: what is left of reading without the text.
Value rebuilt(const Value& value) {
    if (const Object* members = value.ifObject()) {
        Object made;
        made.reserve(members->size());
        for (const Object::Member& member : *members) {
            made.set(member.key(), rebuilt(member.value));
        }
        return made;
    }
    if (const Array* elements = value.ifArray()) {
        Array made;
        made.reserve(elements->size());
        for (const Value& element : *elements) {
            made.append(rebuilt(element));
        }
        return made;
    }
    return value.isString() ? Value(value.asString()) : value;
}

struct NlohmannEvents : nlohmann::json_sax<nlohmann::json> {
    ValueBuilder builder;
    bool null() override { return leaf(nullptr); }
    bool boolean(bool value) override { return leaf(value); }
    bool number_integer(std::int64_t value) override { return leaf(value); }
    bool number_unsigned(std::uint64_t value) override { return leaf(value); }
    bool number_float(double value, const std::string&) override { return leaf(value); }
    bool string(std::string& value) override { return leaf(value); }
    bool binary(nlohmann::json::binary_t&) override { return false; }
    bool start_object(std::size_t) override { return builder.begin(true), true; }
    bool key(std::string& value) override { return builder.key(value), true; }
    bool end_object() override { return builder.end(), true; }
    bool start_array(std::size_t) override { return builder.begin(false), true; }
    bool end_array() override { return builder.end(), true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }
    bool leaf(Value value) { return builder.leaf(std::move(value)), true; }
};

struct RapidEvents : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RapidEvents> {
    ValueBuilder builder;
    bool Null() { return leaf(nullptr); }
    bool Bool(bool value) { return leaf(value); }
    bool Int(int value) { return leaf(value); }
    bool Uint(unsigned value) { return leaf(value); }
    bool Int64(std::int64_t value) { return leaf(value); }
    bool Uint64(std::uint64_t value) { return leaf(value); }
    bool Double(double value) { return leaf(value); }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        return leaf(std::string_view(text, length));
    }
    bool StartObject() { return builder.begin(true), true; }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        return builder.key({text, length}), true;
    }
    bool EndObject(rapidjson::SizeType) { return builder.end(), true; }
    bool StartArray() { return builder.begin(false), true; }
    bool EndArray(rapidjson::SizeType) { return builder.end(), true; }
    bool leaf(Value value) { return builder.leaf(std::move(value)), true; }
};

Value converted(const boost::json::value& from) {
    switch (from.kind()) {
    case boost::json::kind::object: {
        Object made;
        made.reserve(from.get_object().size());
        for (const auto& member : from.get_object()) {
            made.set(std::string_view(member.key().data(), member.key().size()),
                     converted(member.value()));
        }
        return made;
    }
    case boost::json::kind::array: {
        Array made;
        made.reserve(from.get_array().size());
        for (const auto& element : from.get_array()) {
            made.append(converted(element));
        }
        return made;
    }
    case boost::json::kind::string:
        return std::string_view(from.get_string().data(), from.get_string().size());
    case boost::json::kind::int64:
        return from.get_int64();
    case boost::json::kind::uint64:
        return from.get_uint64();
    case boost::json::kind::double_:
        return from.get_double();
    case boost::json::kind::bool_:
        return from.get_bool();
    case boost::json::kind::null:
        break;
    }
    return nullptr;
}

Value converted(const simdjson::dom::element& from) {
    switch (from.type()) {
    case simdjson::dom::element_type::OBJECT: {
        const simdjson::dom::object members(from);
        Object made;
        made.reserve(members.size());
        for (const auto member : members) {
            made.set(member.key, converted(member.value));
        }
        return made;
    }
    case simdjson::dom::element_type::ARRAY: {
        const simdjson::dom::array elements(from);
        Array made;
        made.reserve(elements.size());
        for (const auto element : elements) {
            made.append(converted(element));
        }
        return made;
    }
    case simdjson::dom::element_type::STRING:
        return std::string_view(from);
    case simdjson::dom::element_type::INT64:
        return std::int64_t(from);
    case simdjson::dom::element_type::UINT64:
        return std::uint64_t(from);
    case simdjson::dom::element_type::DOUBLE:
        return double(from);
    case simdjson::dom::element_type::BOOL:
        return bool(from);
    case simdjson::dom::element_type::NULL_VALUE:
        break;
    }
    return nullptr;
}

Value readByNlohmann(const std::string& text) {
    NlohmannEvents events;
    nlohmann::json::sax_parse(text, &events);
    return events.builder.take();
}

Value readByRapid(const std::string& text) {
    RapidEvents events;
    rapidjson::StringStream stream(text.c_str());
    rapidjson::Reader().Parse<rapidjson::kParseFullPrecisionFlag>(stream, events);
    return events.builder.take();
}

Value readByBoost(const std::string& text) {
    boost::json::monotonic_resource memory;
    return converted(boost::json::parse(text, &memory));
}

void measureReading(const std::string& row, const std::string& text,
                    std::optional<double> ofFloor = 1.15) {
    const auto value = std::make_shared<Value>(*readJson(text));
    const auto parser = std::make_shared<simdjson::dom::parser>(); // keeps its memory, as advised
    compare(row, {repeated("ours", [text] { return readJson(text); }),
                  repeated(
                      "floor: the value rebuilt", [value] { return rebuilt(*value); }, ofFloor),
                  repeated(
                      "nlohmann", [text] { return readByNlohmann(text); }, 1),
                  repeated(
                      "RapidJSON", [text] { return readByRapid(text); }, 1),
                  repeated(
                      "Boost.JSON", [text] { return readByBoost(text); }, 1),
                  repeated(
                      "simdjson", [text, parser] { return converted(parser->parse(text)); }, 1)});
}

// What no writer can do without: the numbers as text, and the bytes of all else.
std::size_t appendEvents(const std::vector<Event>& events) {
    std::string text;
    const auto appendString = [&text](std::string_view string) {
        text += '"';
        text += string;
        text += '"';
    };
    const auto appendNumber = [&text](auto number) {
        char buffer[32];
        text.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, number).ptr);
    };
    bool first = true;
    for (const Event& event : events) {
        const Value& value = event.value;
        if (event.kind == Event::Kind::end) {
            text += event.isObject ? '}' : ']';
            first = false;
            continue;
        }
        if (!first) {
            text += ',';
        }
        first = event.kind != Event::Kind::leaf;
        if (event.kind == Event::Kind::begin) {
            text += event.isObject ? '{' : '[';
        } else if (event.kind == Event::Kind::key) {
            appendString(value.asString());
            text += ':';
        } else if (value.isString()) {
            appendString(value.asString());
        } else if (value.isBool()) {
            text += value.asBool() ? "true" : "false";
        } else if (value.kind() == Value::Kind::integer) {
            appendNumber(value.asInt64());
        } else {
            appendNumber(value.asDouble());
        }
    }
    return text.size();
}

void measureWriting(const std::string& row, const std::string& text) {
    const auto value = std::make_shared<Value>(*readJson(text));
    const auto events = std::make_shared<std::vector<Event>>();
    record(*value, *events);
    const auto nlohmann = std::make_shared<nlohmann::json>(nlohmann::json::parse(text));
    const auto rapid = std::make_shared<rapidjson::Document>();
    rapid->Parse(text.c_str());
    const auto boost = std::make_shared<boost::json::value>(boost::json::parse(text));
    const auto bytes = std::make_shared<std::string>(text);
    const auto writeByRapid = [rapid] {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        rapid->Accept(writer);
        return buffer.GetSize();
    };
    compare(row,
            {repeated("ours", [value] { return writeJson(*value).size(); }),
             repeated(
                 "floor: to_chars and appends", [events] { return appendEvents(*events); }, 1.1),
             repeated("memcpy", [bytes] { return std::string(*bytes).size(); }),
             repeated(
                 "nlohmann", [nlohmann] { return nlohmann->dump().size(); }, 1),
             repeated("RapidJSON", writeByRapid, 1),
             repeated(
                 "Boost.JSON", [boost] { return boost::json::serialize(*boost).size(); }, 1)});
}

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto::bench;
    measureReading("read 600 B", answerText(600));
    measureReading("read 100 KB", answerText(100'000));
    measureReading("read 5 MB", answerText(5'000'000));
    measureReading("read 100,000 numbers", numbersText(100'000), std::nullopt);
    measureReading("read 2^20 members", membersText(1U << 20U));
    measureReading("read 2^20 colliding members", collidingMembersText(20));
    measureWriting("write payload", payloadText());
    measureWriting("write 5 MB", answerText(5'000'000));
    return runComparisons(count, arguments);
}
