// SPDX-License-Identifier: MIT
#include "ValueText.h"

#include "morvellacinto/foundation/Json.h"

#include <array>
#include <cmath>
#include <ctime>

namespace morvellacinto::host {
namespace {

// Settings hold dates at the top or in members of their own; depth here is that of what was stored.
Value withReadableDates(const Value& value) {
    if (value.kind() == Value::Kind::date) {
        return Object{{"date", dateText(value.asDate())}};
    }
    if (const Array* array = value.ifArray()) {
        Array readable;
        for (const Value& element : *array) {
            readable.append(withReadableDates(element));
        }
        return readable;
    }
    if (const Object* object = value.ifObject()) {
        Object readable;
        for (const Object::Member& member : *object) {
            readable.set(member.key(), withReadableDates(member.value));
        }
        return readable;
    }
    return value;
}

} // namespace

std::string dateText(Date date) {
    constexpr double firstOfYear0 = -62'167'219'200;
    constexpr double firstOfYear10000 = 253'402'300'800;
    const double seconds = date.secondsSinceReference;
    if (!(seconds >= firstOfYear0 && seconds < firstOfYear10000)) {
        return std::to_string(seconds);
    }
    const double milliseconds = std::floor(seconds * 1000);
    const auto whole = static_cast<std::time_t>(std::floor(milliseconds / 1000));
    std::tm parts{};
    gmtime_r(&whole, &parts);
    std::array<char, 64> text;
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
        static_cast<int>(milliseconds - static_cast<double>(whole) * 1000)));
    return text.data();
}

std::string valueText(const Value& value) { return writeJsonFragment(withReadableDates(value)); }

} // namespace morvellacinto::host
