// SPDX-License-Identifier: MIT
// Filling objects from a JSON tree and exporting them back: one line of ten properties with an
// array of 100 stops of ten properties each, in ns an object.
//
// Every side starts from a tree that its own library has parsed, makes new objects of it and
// destroys them ("import"), or makes a new tree of its objects and destroys that ("export"). The
// other two rows add reading and writing the text. Before measuring, all of them must export the
// same JSON.
//
// - by hand: the code that a host would write over our tree, into plain structs, as the floor
// - ours, by value: AVJSON::as and from, plain structs of std::string, numbers and std::vector
// - ours, shared: the same with classes derived from AVObject and std::vector<Ref<...>>
// - ours, values: asObjectOfClass and avDictionaryWithValuesForKeys, with classes of object-typed
//   properties, which share the tree's strings
// - nlohmann: NLOHMANN_DEFINE_TYPE between nlohmann::json and plain structs
// - Boost.JSON: value_to and value_from between boost::json::value and structs by Boost.Describe
// - Qt: QObject::setProperty and QMetaProperty::read between QJsonObject and QObjects
//
// The classes of ours declare their members in the order of the keys, which suits AVJSON; in
// another order an import takes about a quarter longer and an export more than half.
//
// The ratios at the end are to the faster of nlohmann and Boost.JSON, the peers that know their
// types statically; times are medians of repetitions whose order is random.

#include "Lines.h"
#include "QtLines.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVJSON.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <QJsonDocument>
#include <benchmark/benchmark.h>
#include <boost/describe.hpp>
#include <boost/json.hpp>
#include <boost/json/src.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

namespace morvellacinto::bench {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Stop, ident, name, code, address, latitude, longitude, elevation,
                                   platforms, passengers, staffed)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Line, ident, name, number, company, length, fare, delay,
                                   journeys, passengers, nightly, stops)
BOOST_DESCRIBE_STRUCT(Stop, (),
                      (ident, name, code, address, latitude, longitude, elevation, platforms,
                       passengers, staffed))
BOOST_DESCRIBE_STRUCT(Line, (),
                      (ident, name, number, company, length, fare, delay, journeys, passengers,
                       nightly, stops))

namespace {

class SharedStop : public AVObject {
    AVJSON_CLASS(SharedStop, AVObject, ident, name, code, address, latitude, longitude, elevation,
                 platforms, passengers, staffed)

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

class SharedLine : public AVObject {
    AVJSON_CLASS(SharedLine, AVObject, ident, name, number, company, length, fare, delay, journeys,
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
    std::vector<Ref<SharedStop>> stops;
};

class ValueStop : public AVObject {
    AVJSON_CLASS(ValueStop, AVObject, ident, name, code, address, latitude, longitude, elevation,
                 platforms, passengers, staffed)

    AVValue<"NSNumber"> ident;
    AVValue<"NSString"> name;
    AVValue<"NSString"> code;
    AVValue<"NSString"> address;
    AVValue<"NSNumber"> latitude;
    AVValue<"NSNumber"> longitude;
    AVValue<"NSNumber"> elevation;
    AVValue<"NSNumber"> platforms;
    AVValue<"NSNumber"> passengers;
    AVValue<"NSNumber"> staffed;

    Array keysForExport() const override {
        static const Array keys =
            Array::of({"ident", "name", "code", "address", "latitude", "longitude", "elevation",
                       "platforms", "passengers", "staffed"});
        return keys;
    }
};

class ValueLine : public AVObject {
    AVJSON_CLASS(ValueLine, AVObject, ident, name, number, company, length, fare, delay, journeys,
                 passengers, nightly, stops)

    AVValue<"NSNumber"> ident;
    AVValue<"NSString"> name;
    AVValue<"NSString"> number;
    AVValue<"NSString"> company;
    AVValue<"NSNumber"> length;
    AVValue<"NSNumber"> fare;
    AVValue<"NSNumber"> delay;
    AVValue<"NSNumber"> journeys;
    AVValue<"NSNumber"> passengers;
    AVValue<"NSNumber"> nightly;
    AVValue<"NSArray"> stops;
};

Stop stopByHand(const Object& json) {
    return {json.at("ident").asInt64(),
            std::string(json.at("name").asString()),
            std::string(json.at("code").asString()),
            std::string(json.at("address").asString()),
            json.at("latitude").asDouble(),
            json.at("longitude").asDouble(),
            json.at("elevation").asDouble(),
            static_cast<int>(json.at("platforms").asInt64()),
            json.at("passengers").asInt64(),
            json.at("staffed").asBool()};
}

Line lineByHand(const Object& json) {
    Line line{json.at("ident").asInt64(),
              std::string(json.at("name").asString()),
              std::string(json.at("number").asString()),
              std::string(json.at("company").asString()),
              json.at("length").asDouble(),
              json.at("fare").asDouble(),
              json.at("delay").asDouble(),
              static_cast<int>(json.at("journeys").asInt64()),
              json.at("passengers").asInt64(),
              json.at("nightly").asBool(),
              {}};
    const Array& stops = json.at("stops").asArray();
    line.stops.reserve(stops.size());
    for (const Value& stop : stops) {
        line.stops.push_back(stopByHand(stop.asObject()));
    }
    return line;
}

Object jsonByHand(const Stop& stop) {
    return {{"ident", stop.ident},
            {"name", stop.name},
            {"code", stop.code},
            {"address", stop.address},
            {"latitude", stop.latitude},
            {"longitude", stop.longitude},
            {"elevation", stop.elevation},
            {"platforms", stop.platforms},
            {"passengers", stop.passengers},
            {"staffed", stop.staffed}};
}

Object jsonByHand(const Line& line) {
    Array stops;
    stops.reserve(line.stops.size());
    for (const Stop& stop : line.stops) {
        stops.append(jsonByHand(stop));
    }
    return {{"ident", line.ident},
            {"name", line.name},
            {"number", line.number},
            {"company", line.company},
            {"length", line.length},
            {"fare", line.fare},
            {"delay", line.delay},
            {"journeys", line.journeys},
            {"passengers", line.passengers},
            {"nightly", line.nightly},
            {"stops", stops}};
}

// One side: its tree and objects, and the steps between text, tree and objects.

struct ByHand {
    static constexpr const char* name = "by hand";
    using Tree = Value;
    using Objects = Line;
    static Tree parse(const std::string& text) { return *readJson(text); }
    static Objects fromTree(const Tree& tree) { return lineByHand(tree.asObject()); }
    static Tree toTree(const Objects& line) { return jsonByHand(line); }
    static std::string write(const Tree& tree) { return writeJson(tree); }
};

/// `Line` is held by value, `SharedLine` by `Ref`.
template <class LineClass>
struct Ours {
    static constexpr const char* name =
        std::same_as<LineClass, Line> ? "ours, by value" : "ours, shared";
    using Tree = Value;
    using Objects = AVJSON::Held<LineClass>;
    static Tree parse(const std::string& text) { return *readJson(text); }
    static Objects fromTree(const Tree& tree) { return AVJSON::as<LineClass>(tree); }
    static Tree toTree(const Objects& line) { return AVJSON::from(line); }
    static std::string write(const Tree& tree) { return *AVJSON::toJSON(tree); }
};

struct Prescribed {
    static constexpr const char* name = "ours, values";
    using Tree = Value;
    using Objects = Ref<ValueLine>;
    static Tree parse(const std::string& text) { return *readJson(text); }
    static Objects fromTree(const Tree& tree) {
        static const NodeMapping nodes{{"stops", AVClass::of<ValueStop>()}};
        return AVJSON::asObjectOfClass<ValueLine>(tree.asObject(), nodes);
    }
    static Tree toTree(const Objects& line) {
        static const std::vector<std::string> keys{"ident",      "name",    "number", "company",
                                                   "length",     "fare",    "delay",  "journeys",
                                                   "passengers", "nightly", "stops"};
        return line->avDictionaryWithValuesForKeys(keys);
    }
    static std::string write(const Tree& tree) { return *AVJSON::toJSON(tree); }
};

struct Nlohmann {
    static constexpr const char* name = "nlohmann";
    using Tree = nlohmann::json;
    using Objects = Line;
    static Tree parse(const std::string& text) { return Tree::parse(text); }
    static Objects fromTree(const Tree& tree) { return tree.get<Line>(); }
    static Tree toTree(const Objects& line) { return line; }
    static std::string write(const Tree& tree) { return tree.dump(); }
};

struct BoostJson {
    static constexpr const char* name = "Boost.JSON";
    using Tree = boost::json::value;
    using Objects = Line;
    static Tree parse(const std::string& text) { return boost::json::parse(text); }
    static Objects fromTree(const Tree& tree) { return boost::json::value_to<Line>(tree); }
    static Tree toTree(const Objects& line) { return boost::json::value_from(line); }
    static std::string write(const Tree& tree) { return boost::json::serialize(tree); }
};

struct MetaObject {
    static constexpr const char* name = "Qt";
    using Tree = QJsonObject;
    using Objects = std::unique_ptr<QtLine>;
    static Tree parse(const std::string& text) {
        return QJsonDocument::fromJson(
                   QByteArray::fromRawData(text.data(), static_cast<int>(text.size())))
            .object();
    }
    static Objects fromTree(const Tree& tree) { return lineFromJson(tree); }
    static Tree toTree(const Objects& line) { return jsonFromLine(*line); }
    static std::string write(const Tree& tree) {
        return QJsonDocument(tree).toJson(QJsonDocument::Compact).toStdString();
    }
};

template <class Run>
void measure(const std::string& row, const char* who, Run run) {
    benchmark::RegisterBenchmark((row + "/" + who).c_str(), [run](benchmark::State& state) {
        for (auto _ : state) {
            auto made = run();
            benchmark::DoNotOptimize(made);
        }
    });
}

template <class Side>
void measureSide(const std::string& text) {
    const auto tree = std::make_shared<typename Side::Tree>(Side::parse(text));
    const auto objects = std::make_shared<typename Side::Objects>(Side::fromTree(*tree));
    if (readJson(Side::write(Side::toTree(*objects))) != readJson(text)) {
        throw std::logic_error(std::string(Side::name) + " loses something on the way");
    }
    measure("import", Side::name, [tree] { return Side::fromTree(*tree); });
    measure("export", Side::name, [objects] { return Side::toTree(*objects); });
    measure("text to objects", Side::name, [text] { return Side::fromTree(Side::parse(text)); });
    measure("objects to text", Side::name,
            [objects] { return Side::write(Side::toTree(*objects)); });
}

/// Prints the medians and their ratios to the fastest statically typed peer.
class Table : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override {
        PrintBasicContext(&GetErrorStream(), context);
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                const std::string& name = run.run_name.function_name;
                const std::size_t slash = name.find('/');
                medians_[name.substr(0, slash)][name.substr(slash + 1)] =
                    run.GetAdjustedCPUTime() / (1 + stopCount);
            }
        }
    }

    void Finalize() override {
        for (const auto& [row, sides] : medians_) {
            const auto nlohmann = sides.find(Nlohmann::name);
            const auto boost = sides.find(BoostJson::name);
            const bool peers = nlohmann != sides.end() && boost != sides.end();
            std::printf("\n%-20s ns an object   of the fastest static peer\n", row.c_str());
            for (const auto& [who, time] : sides) {
                std::printf("  %-18s %12.0f", who.c_str(), time);
                if (peers) {
                    std::printf("   %.2f", time / std::min(nlohmann->second, boost->second));
                }
                std::printf("\n");
            }
        }
    }

private:
    std::map<std::string, std::map<std::string, double>> medians_;
};

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto;
    using namespace morvellacinto::bench;
    platform::install(scripted::ScriptedPhone::create());
    const std::string text = writeJson(jsonByHand(sampleLine()));
    measureSide<ByHand>(text);
    measureSide<Ours<Line>>(text);
    measureSide<Ours<SharedLine>>(text);
    measureSide<Prescribed>(text);
    measureSide<Nlohmann>(text);
    measureSide<BoostJson>(text);
    measureSide<MetaObject>(text);

    // What comes later on the command line wins.
    std::vector<std::string> defaults{"--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                      "--benchmark_enable_random_interleaving=true",
                                      "--benchmark_report_aggregates_only=true"};
    std::vector<char*> all{arguments[0]};
    for (std::string& each : defaults) {
        all.push_back(each.data());
    }
    all.insert(all.end(), arguments + 1, arguments + count);
    int allCount = static_cast<int>(all.size());
    benchmark::Initialize(&allCount, all.data());
    Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    platform::shutdown();
    return 0;
}
