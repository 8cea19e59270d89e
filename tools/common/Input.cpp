// SPDX-License-Identifier: MIT
#include "common/Input.h"

#include "morvellacinto/foundation/Json.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

namespace morvellacinto::tools {

namespace {

// Scalars are allowed, which the reader refuses at the top.
std::optional<Value> parse(std::string_view text) {
    const std::optional<Value> wrapped = readJson("[" + std::string(text) + "]");
    if (!wrapped || wrapped->asArray().size() != 1) {
        return std::nullopt;
    }
    return wrapped->asArray()[0];
}

std::string sourceName(const std::string& path) {
    return path == "-" ? "standard input" : "the file \"" + path + "\"";
}

Value readJsonFile(const std::string& path, Value::Kind expected, std::string_view expectedName) {
    Value value = readValue(readFile(path), sourceName(path));
    if (value.kind() != expected) {
        throw UsageError(sourceName(path) + " holds " + std::string(nameOf(value.kind())) +
                         " where " + std::string(expectedName) + " was expected");
    }
    return value;
}

} // namespace

Value readValue(std::string_view text, const std::string& source) {
    std::optional<Value> value = parse(text);
    if (!value) {
        throw UsageError(source + " holds no JSON");
    }
    return *std::move(value);
}

std::string readFile(const std::string& path) {
    try {
        if (path == "-") {
            return {std::istreambuf_iterator<char>(std::cin), {}};
        }
        std::ifstream file(path, std::ios::binary);
        if (file) {
            return {std::istreambuf_iterator<char>(file), {}};
        }
    } catch (const std::ios_base::failure&) { // opened, but a folder, or on a failing disk
    }
    throw UsageError(sourceName(path) + " cannot be read");
}

Object readObject(const std::string& path) {
    return readJsonFile(path, Value::Kind::object, "an object").asObject();
}

Array readArray(const std::string& path) {
    return readJsonFile(path, Value::Kind::array, "an array").asArray();
}

} // namespace morvellacinto::tools
