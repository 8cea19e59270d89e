#include "Scenario.h"

#include <stdexcept>
#include <utility>

namespace morvellacinto::service {

namespace {

constexpr double longestDelaySeconds = 3600;
constexpr double fastestDrip = 1e6;

[[noreturn]] void refuse(std::string_view name, std::string_view expected) {
    throw std::invalid_argument("\"" + std::string(name) + "\" must be " + std::string(expected));
}

std::string readText(const Object::Member& member) {
    if (!member.value.isString()) {
        refuse(member.key(), "a string");
    }
    return std::string(member.value.asString());
}

bool readBool(const Object::Member& member) {
    if (!member.value.isBool()) {
        refuse(member.key(), "a boolean");
    }
    return member.value.asBool();
}

int readStatus(const Object::Member& member) {
    if (member.value.kind() != Value::Kind::integer || member.value.asDouble() < 200 ||
        member.value.asDouble() > 599) {
        refuse(member.key(), "an integer from 200 to 599");
    }
    return static_cast<int>(member.value.asInt64());
}

double readDelaySeconds(const Object::Member& member) {
    const double seconds = member.value.isNumber() ? member.value.asDouble() : -1;
    if (!(seconds >= 0 && seconds <= longestDelaySeconds)) {
        refuse(member.key(), "a number of seconds from 0 to 3600");
    }
    return seconds;
}

double readDrip(const Object::Member& member) {
    const double rate = member.value.isNumber() ? member.value.asDouble() : 0;
    if (!(rate > 0 && rate <= fastestDrip)) {
        refuse(member.key(), "a number of bytes a second, above 0 and up to 1000000");
    }
    return rate;
}

void readMember(const Object::Member& member, Step& step) {
    const std::string_view name = member.key();
    if (name == "status") {
        step.status = readStatus(member);
    } else if (name == "body") {
        step.body = readText(member);
    } else if (name == "gzip") {
        step.gzip = readBool(member);
    } else if (name == "delaySeconds") {
        step.delay = std::chrono::duration<double>(readDelaySeconds(member));
    } else if (name == "dripBytesPerSecond") {
        step.dripBytesPerSecond = readDrip(member);
    } else if (name == "close") {
        if (readText(member) != "before-headers") {
            refuse(name, "\"before-headers\"");
        }
        step.closeBeforeHeaders = true;
    } else if (name == "redirect") {
        step.redirect = readText(member);
    } else if (name == "serviceurl") {
        step.serviceUrl = readText(member);
    } else {
        throw std::invalid_argument("\"" + std::string(name) + "\" is no member of a step");
    }
}

} // namespace

Scenario::Scenario(const Array& steps) {
    for (const Value& value : steps) {
        const std::string place = "step " + std::to_string(steps_.size() + 1) + ": ";
        if (!value.isObject()) {
            throw std::invalid_argument(place + std::string(nameOf(value.kind())) +
                                        " stands where an object was expected");
        }
        Step step;
        for (const Object::Member& member : value.asObject()) {
            try {
                readMember(member, step);
            } catch (const std::invalid_argument& error) {
                throw std::invalid_argument(place + error.what());
            }
        }
        steps_.push_back(std::move(step));
    }
}

Step Scenario::next() {
    const std::lock_guard lock(mutex_);
    if (steps_.empty()) {
        return {};
    }
    Step step = std::move(steps_.front());
    steps_.pop_front();
    return step;
}

} // namespace morvellacinto::service
