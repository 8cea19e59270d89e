#include <morvellacinto/Morvellacinto.h>
#include <morvellacinto/native/NativePlatform.h>

#include <iostream>

using namespace morvellacinto;

class Stop : public AVObject {
    AVJSON_CLASS(Stop, AVObject, ident, name, platforms, label)

public:
    std::int64_t ident = 0;
    std::string name;
    std::optional<int> platforms;
    std::string label() const { return name + " " + std::to_string(ident); }

    const std::vector<std::string>& keysForExport() const override {
        static const std::vector<std::string> keys{"ident", "label", "platforms"};
        return keys;
    }
    std::string sourceKeyForExceptionKey(std::string_view key) const override {
        return key == "ident" ? "id" : AVObject::sourceKeyForExceptionKey(key);
    }
};

class Line : public AVObject {
    AVJSON_CLASS(Line, AVObject, name, fare, stops)

public:
    std::string name;
    AVValue<"NSNumber"> fare;
    std::vector<Ref<Stop>> stops;
};

int main() {
    platform::install(native::NativePlatform::create(
        {.bundleIdentifier = "com.example.lines",
         .developerLog = [](std::string_view line) { std::cout << "log: " << line << '\n'; }}));

    const std::optional<Value> json = readJson(R"({
        "name": "Coast", "fare": "1,204.50", "owner": "unknown to Line",
        "stops": [{"id": 7, "name": "Visby", "platforms": "3"},
                  {"id": 8, "platforms": [], "name": "never reached"}]
    })");
    const Ref<Line> line =
        AVJSON::asObjectOfClass<Line>(json.value().asObject(), {{"stops", AVClass::of<Stop>()}});

    line->stops[1]->name = "Slite";
    line->stops.push_back(makeInstance<Stop>());

    const Object exported =
        line->avDictionaryWithValuesForKeys({"name", "fare", "colour", "stops"});
    std::cout << AVJSON::toJSON(exported).value() << '\n';
    platform::shutdown();
}
