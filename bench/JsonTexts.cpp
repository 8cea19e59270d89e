// SPDX-License-Identifier: MIT
#include "JsonTexts.h"

#include <charconv>
#include <random>

namespace morvellacinto::bench {

std::string answerText(std::size_t size) {
    std::mt19937 random(1);
    std::string text = R"({"serviceurl":"https://audience.invalid/v5","tags":{)";
    for (std::size_t member = 0; text.size() < size; ++member) {
        text += (member == 0 ? "\"segment" : ",\"segment") + std::to_string(member) + "\":[";
        for (int element = 0; element < 6; ++element) {
            text += "\"value-" + std::to_string(random() % 100'000) + "\",";
        }
        text += std::to_string(random() % 1000) + "," +
                std::to_string(static_cast<double>(random() % 1'000'000) / 1000) + ",true]";
    }
    return text + R"(},"mapping":{"kind":"a somewhat longer text, as mappings have"}})";
}

std::string numbersText(std::size_t count) {
    std::mt19937_64 random(2);
    std::uniform_real_distribution<double> degrees(-180, 180);
    std::string text = "[";
    for (std::size_t index = 0; index < count; ++index) {
        char buffer[32];
        const auto written = std::to_chars(buffer, buffer + sizeof buffer, degrees(random));
        text += index == 0 ? "" : ",";
        text.append(buffer, written.ptr);
    }
    return text + "]";
}

std::string membersText(std::size_t count) {
    std::string text = "{";
    for (std::size_t index = 0; index < count; ++index) {
        text += (index == 0 ? "\"" : ",\"") + std::to_string(index * 7919) + "\":0";
    }
    return text + "}";
}

std::string collidingMembersText(unsigned bits) {
    std::string text = "{";
    for (std::size_t member = 0; member < std::size_t{1} << bits; ++member) {
        text += member == 0 ? "\"" : ",\"";
        for (unsigned bit = 0; bit < bits; ++bit) {
            text += (member >> bit & 1U) == 0 ? "Aa" : "BB";
        }
        text += "\":0";
    }
    return text + "}";
}

std::string payloadText() {
    return R"({"locale":"sv_SE","system":"17.5","api":"3.0.7","platform":"ios",)"
           R"("vendorId":"7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11","bundle":"com.example.host",)"
           R"("advertId":"A1B2C3D4-0000-4000-8000-1234567890AB","advertIdEnabled":true,)"
           R"("device":"phone14,2","carrierName":"Telco","isoCountryCode":"se",)"
           R"("mobileNetworkCode":"01","currentRadioAccessTechnology":"LTE","batteryLevel":0.75,)"
           R"("batteryState":1,"networks":[{"ssid":"home","bssid":"00:11:22:33:44:55"}],)"
           R"("locationState":4,"accuracyAuthorization":"full","connection":1,"lat":59.32934,)"
           R"("lon":18.06858,"speed":1.25,"course":270.5})";
}

} // namespace morvellacinto::bench
