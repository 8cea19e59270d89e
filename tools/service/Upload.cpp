// SPDX-License-Identifier: MIT
#include "Upload.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/Uuid.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <strings.h>

namespace morvellacinto::service {

namespace {

constexpr std::array textMembers = {"locale", "system", "api", "vendorId", "bundle", "advertId"};

struct CoordinateRange {
    const char* name;
    double limit; // degrees, either side of 0
};
constexpr std::array coordinates = {CoordinateRange{"lat", 90}, CoordinateRange{"lon", 180}};

std::string asciiOnly(std::string_view text) {
    std::string ascii(text);
    std::replace_if(
        ascii.begin(), ascii.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7E; },
        '?');
    return ascii;
}

std::string quoted(std::string_view name) { return "\"" + std::string(name) + "\""; }

std::optional<std::string> faultOf(const Object& payload) {
    for (const char* name : textMembers) {
        const Value* value = payload.find(name);
        if (value != nullptr && !value->isString()) {
            return quoted(name) + " is " + std::string(nameOf(value->kind())) +
                   " where a string was expected";
        }
    }
    for (const CoordinateRange& coordinate : coordinates) {
        const Value* value = payload.find(coordinate.name);
        if (value != nullptr && !value->isNumber()) {
            return quoted(coordinate.name) + " is " + std::string(nameOf(value->kind())) +
                   " where a number was expected";
        }
        if (value != nullptr &&
            !(value->asDouble() >= -coordinate.limit && value->asDouble() <= coordinate.limit)) {
            return quoted(coordinate.name) + " is " + writeJsonFragment(*value) +
                   ", which is not on earth";
        }
    }
    if (payload.contains("lat") != payload.contains("lon")) {
        return "\"lat\" and \"lon\" come together or not at all";
    }
    return std::nullopt;
}

Value textOr(const Object& payload, std::string_view name, std::string_view otherwise) {
    const Value* value = payload.find(name);
    return value != nullptr ? *value : Value(otherwise);
}

} // namespace

std::optional<std::string> Upload::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<std::string> Upload::fault() const {
    const std::optional<std::string> token = header("API_TOKEN");
    if (token && !Uuid::parse(*token)) {
        return "the header API_TOKEN is not a UUID";
    }
    const std::optional<Value> payload = readJson(body);
    if (!payload) {
        return "the body is no JSON";
    }
    if (!payload->isObject()) {
        return "the body is " + std::string(nameOf(payload->kind())) +
               " where an object was expected";
    }
    return faultOf(payload->asObject());
}

Object Upload::answer() const {
    const Object payload = readJson(body).value().asObject();
    Array place;
    if (payload.contains("lat")) {
        place.append(writeJsonFragment(payload.at("lat")) + "," +
                     writeJsonFragment(payload.at("lon")));
    }
    const Object tags{{"locale", Array::of({textOr(payload, "locale", "unknown")})},
                      {"bundle", Array::of({textOr(payload, "bundle", "unknown")})},
                      {"place", place}};
    const Object mapping{{"device", textOr(payload, "vendorId", "unknown")},
                         {"advertising", textOr(payload, "advertId", "unknown")}};
    return {{"tags", tags}, {"mapping", mapping}};
}

Object Upload::record() const {
    Object named;
    for (const auto& [key, value] : headers) {
        const Value* earlier = named.find(asciiOnly(key));
        const std::string before =
            earlier != nullptr ? std::string(earlier->asString()) + ", " : "";
        named.set(asciiOnly(key), before + asciiOnly(value));
    }
    Object record{{"method", method}, {"path", path}, {"headers", named}, {"bytes", body.size()}};
    if (std::optional<Value> json = readJson(body)) {
        record.set("body", *std::move(json));
    } else {
        record.set("text", asciiOnly(body));
    }
    return record;
}

} // namespace morvellacinto::service
