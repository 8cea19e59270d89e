// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVTypes.h"

#include <charconv>
#include <cstdio>

namespace morvellacinto::AVConversion {
namespace {

/// Whether a text looks like an example, in which "0" stands for any digit.
bool looksLike(std::string_view text, std::string_view example) {
    return std::equal(text.begin(), text.end(), example.begin(), example.end(),
                      [](char given, char wanted) {
                          return wanted == '0' ? given >= '0' && given <= '9' : given == wanted;
                      });
}

/// The digits at a place of which it is known that they are some.
int digits(std::string_view text, std::size_t position, std::size_t count) {
    int number = 0;
    std::from_chars(text.data() + position, text.data() + position + count, number);
    return number;
}

std::optional<Date> dateFromText(std::string text) {
    using namespace std::chrono;
    std::replace(text.begin(), text.end(), 't', 'T');
    std::replace(text.begin(), text.end(), 'z', 'Z');
    constexpr std::string_view example = "0000-00-00T00:00:00";
    const std::size_t zoneAt = text.find_first_of("Z+-", example.size());
    if (zoneAt == std::string::npos || !looksLike(text.substr(0, example.size()), example)) {
        return std::nullopt;
    }
    const std::string zone = text.substr(zoneAt);
    const std::string fraction = text.substr(example.size(), zoneAt - example.size());
    const auto day = year(digits(text, 0, 4)) / digits(text, 5, 2) / digits(text, 8, 2);
    const int hour = digits(text, 11, 2);
    const int minute = digits(text, 14, 2);
    const int second = digits(text, 17, 2); // 60 in a leap second
    const bool isUtc = zone == "Z";
    if (!day.ok() || hour > 23 || minute > 59 || second > 60 ||
        !(isUtc || ((looksLike(zone, "+00:00") || looksLike(zone, "-00:00")) &&
                    digits(zone, 1, 2) < 24 && digits(zone, 4, 2) < 60)) ||
        !(fraction.empty() ||
          looksLike(fraction,
                    std::string(".").append(std::max<std::size_t>(fraction.size(), 2) - 1, '0')))) {
        return std::nullopt;
    }
    const int offset = isUtc ? 0 : digits(zone, 1, 2) * 3600 + digits(zone, 4, 2) * 60;
    const auto whole = sys_days(day).time_since_epoch() + hours(hour) + minutes(minute) +
                       seconds(second + (zone.front() == '-' ? offset : -offset));
    // One number, so that the text of a date after 1970 reads back to the same date.
    const std::int64_t count = seconds(whole).count();
    const std::string number = (count >= 0 ? std::to_string(count) : "0") + fraction;
    double parsed = 0;
    std::from_chars(number.data(), number.data() + number.size(), parsed);
    return Date{count >= 0 ? parsed : static_cast<double>(count) + parsed};
}

} // namespace

std::optional<Date> toDate(const Value& value) {
    if (value.isNumber()) {
        return Date{value.asDouble()};
    }
    if (value.isString()) {
        return dateFromText(std::string(value.asString()));
    }
    return value.kind() == Value::Kind::date ? std::optional(value.asDate()) : std::nullopt;
}

Value textOf(Date date) {
    using namespace std::chrono;
    constexpr double year0 = -62'167'219'200;
    constexpr double year10000 = 253'402'300'800;
    const double since = date.secondsSinceReference;
    if (!(since >= year0 && since < year10000)) {
        return since;
    }
    double whole = std::floor(since);
    whole = since - whole == 1 ? since : whole; // so near to 1970 that a fraction has no digits
    const auto point = sys_seconds(seconds(static_cast<std::int64_t>(whole)));
    const year_month_day day(floor<days>(point));
    const auto time = static_cast<int>((point - floor<days>(point)).count());
    char text[32];
    static_cast<void>(std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d",
                                    int(day.year()), unsigned(day.month()), unsigned(day.day()),
                                    time / 3600, time / 60 % 60, time % 60));
    std::string result = text;
    if (since != whole) {
        char digits[1100]; // as many as a double can have behind the point
        const char* const end =
            std::to_chars(std::begin(digits), std::end(digits), since < 0 ? since - whole : since,
                          std::chars_format::fixed)
                .ptr;
        result.append(std::find<const char*>(digits, end, '.'), end);
    }
    return result + "Z";
}

} // namespace morvellacinto::AVConversion
