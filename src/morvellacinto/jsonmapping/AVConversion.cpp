// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/DecimalText.h"
#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/jsonmapping/AVTypes.h"

#include <charconv>
#include <cmath>

namespace morvellacinto::AVConversion {
namespace {

/// A number at the start of a text: its sign, and whatever follows it.
struct Signed {
    explicit Signed(std::string_view text) : rest(text) {
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\v\f\r"), rest.size()));
        negative = rest.starts_with('-');
        rest.remove_prefix(negative || rest.starts_with('+') ? 1 : 0);
    }
    std::string_view rest;
    bool negative;
};

/// The digits at the start of `text`, at most `highest`; 0 when there are none.
std::uint64_t leadingDigits(std::string_view text, std::uint64_t highest) {
    std::uint64_t number = 0;
    const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
    return error == std::errc::result_out_of_range ? highest : std::min(number, highest);
}

double leadingDouble(std::string_view text) {
    const Signed number(text);
    const std::string_view candidate =
        number.rest.substr(0, number.rest.find_first_not_of("0123456789.eE+-"));
    if (candidate.empty() || candidate.front() == '-') {
        return 0;
    }
    double magnitude = 0;
    const auto [stop, error] =
        std::from_chars(candidate.data(), candidate.data() + candidate.size(), magnitude);
    if (error == std::errc::result_out_of_range) {
        magnitude = doubleFromDecimal({candidate.data(), stop}).value_or(HUGE_VAL);
    }
    return number.negative ? -magnitude : magnitude;
}

/// To the 64 bits of an integer, within limits of which the lowest is not positive.
std::uint64_t saturated(double number, std::int64_t lowest, std::uint64_t highest) {
    if (std::isnan(number)) {
        return 0;
    }
    if (number < 0) {
        return static_cast<std::uint64_t>(
            number > static_cast<double>(lowest) ? static_cast<std::int64_t>(number) : lowest);
    }
    return number < static_cast<double>(highest) ? static_cast<std::uint64_t>(number) : highest;
}

} // namespace

std::optional<bool> toBool(const Value& value) {
    if (value.isString()) {
        const std::string_view rest = Signed(value.asString()).rest;
        const std::size_t first = rest.find_first_not_of('0');
        return first < rest.size() &&
               std::string_view("123456789YyTt").find(rest[first]) != std::string_view::npos;
    }
    const std::optional<double> number = toDouble(value);
    return number ? std::optional(*number != 0) : std::nullopt;
}

std::optional<std::uint64_t> toInteger(const Value& value, std::int64_t lowest,
                                       std::uint64_t highest) {
    if (value.kind() == Value::Kind::integer) {
        const auto number = ValueAccess::number<std::int64_t>(value);
        return number < 0 && !ValueAccess::isUnsignedInteger(value)
                   ? static_cast<std::uint64_t>(std::max(number, lowest))
                   : std::min(static_cast<std::uint64_t>(number), highest);
    }
    if (value.isNumber()) {
        return saturated(value.asDouble(), lowest, highest);
    }
    if (value.isString()) {
        const Signed number(value.asString());
        const std::uint64_t magnitude = leadingDigits(
            number.rest, number.negative ? 0 - static_cast<std::uint64_t>(lowest) : highest);
        return number.negative ? 0 - magnitude : magnitude;
    }
    return value.isBool() ? std::optional<std::uint64_t>(value.asBool()) : std::nullopt;
}

std::optional<double> toDouble(const Value& value) {
    if (value.isNumber()) {
        return value.asDouble();
    }
    if (value.isString()) {
        return leadingDouble(value.asString());
    }
    return value.isBool() ? std::optional(value.asBool() ? 1.0 : 0.0) : std::nullopt;
}

} // namespace morvellacinto::AVConversion
