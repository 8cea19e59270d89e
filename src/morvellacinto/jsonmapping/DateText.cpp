#include "morvellacinto/jsonmapping/AVTypes.h"

#include <charconv>

namespace morvellacinto::AVConversion {
namespace {

/// Takes so many digits off the front of `text`; nothing when there are fewer.
std::optional<int> digits(std::string_view& text, std::size_t count) {
    int number = 0;
    const char* const end = text.data() + std::min(count, text.size());
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.size() < count || text.front() == '-' || error != std::errc() || stop != end) {
        return std::nullopt;
    }
    text.remove_prefix(count);
    return number;
}

bool skip(std::string_view& text, std::string_view anyOf) {
    const bool found = !text.empty() && anyOf.find(text.front()) != std::string_view::npos;
    text.remove_prefix(found ? 1 : 0);
    return found;
}

/// As `digits`, and takes what separates it from what comes before.
std::optional<int> digitsAfter(std::string_view& text, std::string_view anyOf, std::size_t count) {
    return skip(text, anyOf) ? digits(text, count) : std::nullopt;
}

std::optional<Date> dateFromText(std::string_view text) {
    using namespace std::chrono;
    const auto yearNumber = digits(text, 4);
    const auto monthNumber = digitsAfter(text, "-", 2);
    const auto dayNumber = digitsAfter(text, "-", 2);
    const auto hour = digitsAfter(text, "Tt ", 2);
    const auto minute = digitsAfter(text, ":", 2);
    const auto second = digitsAfter(text, ":", 2); // 60 in a leap second
    if (!yearNumber || !monthNumber || !dayNumber || !hour || !minute || !second || *hour > 23 ||
        *minute > 59 || *second > 60) {
        return std::nullopt;
    }
    const year_month_day day(year(*yearNumber), month(static_cast<unsigned>(*monthNumber)),
                             std::chrono::day(static_cast<unsigned>(*dayNumber)));
    if (!day.ok()) {
        return std::nullopt;
    }
    std::string fraction = "0";
    if (skip(text, ".")) {
        const std::size_t length = std::min(text.find_first_not_of("0123456789"), text.size());
        if (length == 0) {
            return std::nullopt;
        }
        fraction = "." + std::string(text.substr(0, length));
        text.remove_prefix(length);
    }
    seconds offset(0);
    if (!skip(text, "Zz")) {
        const int sign = text.starts_with('-') ? -1 : 1;
        const auto hours = digitsAfter(text, "+-", 2);
        const auto minutes = digitsAfter(text, ":", 2);
        if (!hours || !minutes || *hours > 23 || *minutes > 59) {
            return std::nullopt;
        }
        offset = sign * seconds(*hours * 3600 + *minutes * 60);
    }
    if (!text.empty()) {
        return std::nullopt;
    }
    const auto whole = (sys_days(day).time_since_epoch() + seconds(*hour * 3600) +
                        seconds(*minute * 60 + *second) - offset)
                           .count();
    // One number, so that the text of a date after 1970 reads back to the same date.
    const bool isAfter = whole >= 0 && fraction != "0";
    const std::string number = isAfter ? std::to_string(whole) + fraction : fraction;
    double parsed = 0;
    std::from_chars(number.data(), number.data() + number.size(), parsed);
    return Date{isAfter ? parsed : static_cast<double>(whole) + parsed};
}

} // namespace

std::optional<Date> toDate(const Value& value) {
    if (value.isNumber()) {
        return Date{value.asDouble()};
    }
    if (value.isString()) {
        return dateFromText(value.asString());
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
    const double whole = std::floor(since);
    const auto point = sys_seconds(seconds(static_cast<std::int64_t>(whole)));
    const year_month_day day(floor<days>(point));
    const hh_mm_ss time(point - floor<days>(point));
    std::string text;
    const auto put = [&text](long number, std::size_t width, char before) {
        const std::string figures = std::to_string(number);
        text += before == 0 ? "" : std::string(1, before);
        text.append(width - std::min(width, figures.size()), '0') += figures;
    };
    put(static_cast<int>(day.year()), 4, 0);
    put(static_cast<unsigned>(day.month()), 2, '-');
    put(static_cast<unsigned>(day.day()), 2, '-');
    put(time.hours().count(), 2, 'T');
    put(time.minutes().count(), 2, ':');
    put(time.seconds().count(), 2, ':');
    if (since != whole) {
        constexpr std::size_t longest = 1100; // of the digits behind a point
        char figures[longest];
        const char* const end = std::to_chars(figures, figures + longest,
                                              since < 0 ? since - whole : since,
                                              std::chars_format::fixed)
                                    .ptr;
        text.append(std::find(static_cast<const char*>(figures), end, '.'), end);
    }
    return text + "Z";
}

} // namespace morvellacinto::AVConversion
