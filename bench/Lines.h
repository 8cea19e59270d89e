// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/jsonmapping/AVJSON.h"

#include <cstdint>
#include <string>
#include <vector>

namespace morvellacinto::bench {

/// A stop and a line of ten properties each; a line holds its stops besides.
struct Stop {
    AVJSON_CLASS(Stop, void, ident, name, code, address, latitude, longitude, elevation, platforms,
                 passengers, staffed)

    std::int64_t ident = 0;
    std::string name;
    std::string code;
    std::string address;
    double latitude = 0;
    double longitude = 0;
    double elevation = 0;
    int platforms = 0;
    std::int64_t passengers = 0;
    bool staffed = false;
};

struct Line {
    AVJSON_CLASS(Line, void, ident, name, number, company, length, fare, delay, journeys,
                 passengers, nightly, stops)

    std::int64_t ident = 0;
    std::string name;
    std::string number;
    std::string company;
    double length = 0;
    double fare = 0;
    double delay = 0;
    int journeys = 0;
    std::int64_t passengers = 0;
    bool nightly = false;
    std::vector<Stop> stops;
};

inline constexpr int stopCount = 100;

[[nodiscard]] inline Line sampleLine() {
    Line line{7,    "Coast", "7X", "Northern Coast Railways", 131.25, 4.5, 1.5, 48, 9'120'000'000,
              true, {}};
    for (int index = 0; index < stopCount; ++index) {
        const std::string number = std::to_string(index);
        line.stops.push_back({1'000'000 + index, "Harbour " + number, "HBR" + number,
                              "Harbour Street " + number + ", Visby", 57.5 + index / 128.0,
                              18.25 + index / 64.0, 3.125 * index, 2 + index % 5,
                              5'000'000'000 + index, index % 3 == 0});
    }
    return line;
}

} // namespace morvellacinto::bench
