// SPDX-License-Identifier: MIT
#include <morvellacinto/Morvellacinto.h>

#include <iostream>
#include <map>

using namespace morvellacinto;

struct Stop {
    AVJSON_CLASS(Stop, void, name, platforms, (opened, "opened_at", AVText), exits)

    std::string name;
    int platforms = 1;
    Date opened;
    std::vector<std::string> exits;
};

// The same class, whose objects are shared by Ref<SharedStop>.
class SharedStop : public AVObject {
    AVJSON_CLASS(SharedStop, AVObject, name, platforms, (opened, "opened_at", AVText), exits)

    std::string name;
    int platforms = 1;
    Date opened;
    std::vector<std::string> exits;
};

struct Line {
    AVJSON_CLASS(Line, void, ident, stops, depots, label)

    std::int64_t ident = 0;
    std::vector<Stop> stops;
    std::map<std::string, Ref<SharedStop>> depots;
    std::string label() const { return "line " + std::to_string(ident); }
};

int main() {
    JsonProblem problem;
    if (!readJson("{\"id\": 7,\n \"stops\" []}", &problem)) {
        std::cout << problem.line << ":" << problem.column << ": " << problem.reason << '\n';
    }
    const Value json = readJson(R"({"id": 7, "owner": "unknown to Line",
        "stops": [{"name": "Visby", "opened_at": "2023-11-14T23:13:20+01:00", "exits": ["N", "S"]},
                  {"name": 5, "platforms": "3"}],
        "depots": {"main": {"name": "Slite", "opened_at": 1700000000}}})")
                           .value();
    AVProblems problems;
    const Line line = AVJSON::as<Line>(json, &problems);
    for (const auto& each : problems) {
        std::cout << sentenceOf(each) << '\n';
    }
    line.depots.at("main")->platforms = 4;
    std::cout << AVJSON::toJSON(AVJSON::from(line)).value() << '\n';
}
