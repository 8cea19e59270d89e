// SPDX-License-Identifier: MIT
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

std::chrono::duration<double> readDelay(const Object::Member& member) {
    const double seconds = member.value.isNumber() ? member.value.asDouble() : -1;
    if (!(seconds >= 0 && seconds <= longestDelaySeconds)) {
        refuse(member.key(), "a number of seconds from 0 to 3600");
    }
    return std::chrono::duration<double>(seconds);
}

double readDrip(const Object::Member& member) {
    const double rate = member.value.isNumber() ? member.value.asDouble() : 0;
    if (!(rate > 0 && rate <= fastestDrip)) {
        refuse(member.key(), "a number of bytes a second, above 0 and up to 1000000");
    }
    return rate;
}

bool readClose(const Object::Member& member) {
    if (readText(member) != "before-headers") {
        refuse(member.key(), "\"before-headers\"");
    }
    return true;
}

using Member = Object::Member;

constexpr std::pair<std::string_view, void (*)(const Member&, Step&)> readers[] = {
    {"status", [](const Member& member, Step& step) { step.status = readStatus(member); }},
    {"body", [](const Member& member, Step& step) { step.body = readText(member); }},
    {"gzip", [](const Member& member, Step& step) { step.gzip = readBool(member); }},
    {"delaySeconds", [](const Member& member, Step& step) { step.delay = readDelay(member); }},
    {"dripBytesPerSecond",
     [](const Member& member, Step& step) { step.dripBytesPerSecond = readDrip(member); }},
    {"close",
     [](const Member& member, Step& step) { step.closeBeforeHeaders = readClose(member); }},
    {"redirect", [](const Member& member, Step& step) { step.redirect = readText(member); }},
    {"serviceurl", [](const Member& member, Step& step) { step.serviceUrl = readText(member); }},
};

void readMember(const Member& member, Step& step) {
    std::string sentence =
        "\"" + std::string(member.key()) + "\" is no member of a step; known here:";
    for (const auto& [name, read] : readers) {
        if (name == member.key()) {
            return read(member, step);
        }
        sentence.append(" ").append(name);
    }
    throw std::invalid_argument(sentence);
}

std::deque<Step> readSteps(const Array& values) {
    std::deque<Step> steps;
    for (const Value& value : values) {
        const std::string place = "step " + std::to_string(steps.size() + 1) + ": ";
        if (!value.isObject()) {
            throw std::invalid_argument(place + std::string(nameOf(value.kind())) +
                                        " stands where an object was expected");
        }
        Step& step = steps.emplace_back();
        step.source = value;
        for (const Object::Member& member : value.asObject()) {
            try {
                readMember(member, step);
            } catch (const std::invalid_argument& error) {
                throw std::invalid_argument(place + error.what());
            }
        }
    }
    return steps;
}

} // namespace

Scenario::Scenario(const Array& steps) : steps_(readSteps(steps)) {}

Step Scenario::next() {
    const std::lock_guard lock(mutex_);
    if (steps_.empty()) {
        return {};
    }
    Step step = std::move(steps_.front());
    steps_.pop_front();
    return step;
}

void Scenario::replace(const Array& steps) {
    std::deque<Step> others = readSteps(steps);
    const std::lock_guard lock(mutex_);
    steps_ = std::move(others);
}

Array Scenario::waiting() const {
    const std::lock_guard lock(mutex_);
    Array waiting;
    for (const Step& step : steps_) {
        waiting.append(step.source);
    }
    return waiting;
}

} // namespace morvellacinto::service
