// SPDX-License-Identifier: MIT
#include "PhoneFile.h"

#include "morvellacinto/foundation/Array.h"
#include "morvellacinto/foundation/Json.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace morvellacinto::host {
namespace {

using scripted::PhoneScript;

// Keeps a delay within what any timer can count.
constexpr std::chrono::duration<double> longestDelay = std::chrono::hours(24 * 365);

std::string shown(const Value& value) {
    if (value.isArray() || value.isObject()) {
        return std::string(nameOf(value.kind()));
    }
    try {
        return writeJsonFragment(value);
    } catch (const JsonWriteError&) {
        return std::string(nameOf(value.kind()));
    }
}

[[noreturn]] void refuse(const Value& value, const std::string& path, const std::string& expected) {
    throw std::invalid_argument(path + " is " + shown(value) + "; expected " + expected);
}

std::string joined(const std::string& path, std::string_view name) {
    return path.empty() ? std::string(name) : path + "." + std::string(name);
}

bool readBool(const Value& value, const std::string& path) {
    if (!value.isBool()) {
        refuse(value, path, "a boolean");
    }
    return value.asBool();
}

double readNumber(const Value& value, const std::string& path) {
    if (!value.isNumber()) {
        refuse(value, path, "a number");
    }
    return value.asDouble();
}

std::string readString(const Value& value, const std::string& path) {
    if (!value.isString()) {
        refuse(value, path, "a string");
    }
    return std::string(value.asString());
}

Uuid readUuid(const Value& value, const std::string& path) {
    const auto uuid = Uuid::parse(value.isString() ? value.asString() : "");
    if (!uuid.has_value()) {
        refuse(value, path, "a string that is a UUID");
    }
    return *uuid;
}

template <class Integer>
Integer readInteger(const Value& value, const std::string& path) {
    using Limits = std::numeric_limits<Integer>;
    const auto refuseThis = [&] {
        refuse(value, path,
               "an integer from " + std::to_string(Limits::min()) + " to " +
                   std::to_string(Limits::max()));
    };
    if (value.kind() != Value::Kind::integer) {
        refuseThis();
    }
    try {
        if constexpr (std::is_signed_v<Integer>) {
            const std::int64_t integer = value.asInt64();
            if (std::in_range<Integer>(integer)) {
                return static_cast<Integer>(integer);
            }
        } else {
            const std::uint64_t integer = value.asUInt64();
            if (std::in_range<Integer>(integer)) {
                return static_cast<Integer>(integer);
            }
        }
    } catch (const std::out_of_range&) { // a 64-bit integer of the other sign
    }
    refuseThis();
    return 0;
}

template <class ReadElement>
auto arrayOf(ReadElement readElement) {
    return [readElement](const Value& value, const std::string& path) {
        const Array* array = value.ifArray();
        if (array == nullptr) {
            refuse(value, path, "an array");
        }
        std::vector<std::invoke_result_t<ReadElement, const Value&, const std::string&>> elements;
        elements.reserve(array->size());
        for (std::size_t i = 0; i < array->size(); ++i) {
            elements.push_back(readElement((*array)[i], path + "[" + std::to_string(i) + "]"));
        }
        return elements;
    };
}

// One object of the file; remembers which names were asked for.
class Members {
public:
    Members(const Object& object, std::string path) : object_(object), path_(std::move(path)) {}
    Members(const Value& value, std::string path)
        : object_(value.ifObject() != nullptr ? *value.ifObject() : Object()),
          path_(std::move(path)) {
        if (value.ifObject() == nullptr) {
            refuse(value, path_, "an object");
        }
    }

    // Leaves `target` alone when the member is missing, and makes it `unanswered` when it is null.
    template <class T, class Read>
    void optional(std::string_view name, T& target, std::type_identity_t<T> unanswered,
                  Read readMember) {
        if (const Value* value = find(name)) {
            target = value->isNull() ? std::move(unanswered)
                                     : T(readMember(*value, joined(path_, name)));
        }
    }

    template <class Read>
    auto required(std::string_view name, std::string_view expected, Read readMember) {
        const Value* value = find(name);
        if (value == nullptr) {
            throw std::invalid_argument(joined(path_, name) + " is missing; expected " +
                                        std::string(expected));
        }
        return readMember(*value, joined(path_, name));
    }

    void refuseOthers() const {
        for (const Object::Member& member : object_) {
            if (std::find(known_.begin(), known_.end(), member.key()) == known_.end()) {
                std::string sentence =
                    joined(path_, member.key()) + " is no member of a phone file; known here:";
                for (const std::string_view name : known_) {
                    sentence.append(" ").append(name);
                }
                throw std::invalid_argument(sentence);
            }
        }
    }

private:
    const Value* find(std::string_view name) {
        known_.push_back(name);
        return object_.find(name);
    }

    const Object object_;
    const std::string path_;
    std::vector<std::string_view> known_;
};

std::optional<platform::Carrier> readCarrier(const Value& value, const std::string& path) {
    if (value.isNull()) {
        return std::nullopt;
    }
    platform::Carrier carrier;
    Members members(value, path);
    members.optional("carrierName", carrier.carrierName, std::nullopt, readString);
    members.optional("isoCountryCode", carrier.isoCountryCode, std::nullopt, readString);
    members.optional("mobileNetworkCode", carrier.mobileNetworkCode, std::nullopt, readString);
    members.refuseOthers();
    return carrier;
}

PhoneScript::WifiInterface readWifi(const Value& value, const std::string& path) {
    PhoneScript::WifiInterface wifi;
    Members members(value, path);
    wifi.interface = members.required("interface", "a string", readString);
    members.optional("SSID", wifi.network.ssid, std::nullopt, readString);
    members.optional("BSSID", wifi.network.bssid, std::nullopt, readString);
    members.refuseOthers();
    return wifi;
}

platform::LocationFix readFix(const Value& value, const std::string& path) {
    platform::LocationFix fix;
    Members members(value, path);
    fix.latitude = members.required("latitude", "a number", readNumber);
    fix.longitude = members.required("longitude", "a number", readNumber);
    members.optional("speed", fix.speed, -1, readNumber);
    members.optional("course", fix.course, -1, readNumber);
    members.refuseOthers();
    return fix;
}

KRError readError(const Value& value, const std::string& path) {
    KRError error;
    Members members(value, path);
    error.domain = members.required("domain", "a string", readString);
    error.code = members.required("code", "an integer", readInteger<std::int64_t>);
    members.refuseOthers();
    return error;
}

std::chrono::duration<double> readDelay(const Value& value, const std::string& path) {
    const std::chrono::duration<double> delay(readNumber(value, path));
    if (!(delay.count() >= 0 && delay <= longestDelay)) {
        refuse(value, path, "a number of seconds from 0 to a year");
    }
    return delay;
}

float readBatteryLevel(const Value& value, const std::string& path) {
    if (!value.isNumber()) {
        refuse(value, path, "a number");
    }
    return value.asFloat();
}

std::uint64_t readTrackingAnswer(const Value& value, const std::string& path) {
    const auto answer = readInteger<std::uint64_t>(value, path);
    if (answer == platform::TrackingAuthorization::notDetermined) {
        refuse(value, path, "an answer, and so an integer other than 0");
    }
    return answer;
}

PhoneScript::Location locationOfNobody() {
    PhoneScript::Location location;
    location.servicesEnabled = false;
    location.authorizationStatus = platform::LocationAuthorization::notDetermined;
    location.fixes = std::nullopt;
    return location;
}

PhoneScript::Location readLocation(const Value& value, const std::string& path) {
    PhoneScript::Location location;
    Members members(value, path);
    members.optional("servicesEnabled", location.servicesEnabled, false, readBool);
    members.optional("authorizationStatus", location.authorizationStatus,
                     platform::LocationAuthorization::notDetermined, readInteger<std::int32_t>);
    members.optional("accuracyAuthorization", location.accuracyAuthorization,
                     platform::AccuracyAuthorization::full, readInteger<std::int32_t>);
    members.optional("delaySeconds", location.delay, std::nullopt, readDelay);
    members.optional("fixes", location.fixes, std::nullopt, arrayOf(readFix));
    members.optional("error", location.error, std::nullopt, readError);
    members.refuseOthers();
    return location;
}

} // namespace

PhoneScript readPhone(const Object& file) {
    PhoneScript script;
    Members members(file, "");
    members.optional("systemVersion", script.systemVersion, std::nullopt, readString);
    members.optional("locale", script.locale, std::nullopt, readString);
    members.optional("bundle", script.bundle, std::nullopt, readString);
    members.optional("vendorId", script.vendorId, std::nullopt, readUuid);
    members.optional("advertisingId", script.advertisingId, std::nullopt, readUuid);
    members.optional("advertisingTrackingEnabled", script.advertisingTrackingEnabled, false,
                     readBool);
    members.optional("trackingAuthorization", script.trackingAuthorization,
                     platform::TrackingAuthorization::notDetermined, readInteger<std::uint64_t>);
    members.optional("trackingAnswer", script.trackingAnswer, std::nullopt, readTrackingAnswer);
    members.optional("model", script.model, std::nullopt, readString);
    members.optional("batteryLevel", script.batteryLevel, -1.0F, readBatteryLevel);
    members.optional("batteryState", script.batteryState, 0, readInteger<std::int64_t>);
    members.optional("carriers", script.carriers, std::nullopt, arrayOf(readCarrier));
    members.optional("radioAccessTechnologies", script.radioAccessTechnologies, std::nullopt,
                     arrayOf(readString));
    members.optional("reachabilityFlags", script.reachabilityFlags, std::nullopt,
                     readInteger<std::uint32_t>);
    members.optional("wifi", script.wifi, std::nullopt, arrayOf(readWifi));
    members.optional("location", script.location, locationOfNobody(), readLocation);
    members.refuseOthers();
    return script;
}

} // namespace morvellacinto::host
