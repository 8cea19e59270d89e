// SPDX-License-Identifier: MIT
#include "Require.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVJSON.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <unordered_map>

using namespace morvellacinto;

namespace {

/// A property of every kind, under names that are quickly hit.
class Kinds : public AVObject {
    AVJSON_CLASS(Kinds, AVObject, a, b, c, d, e, f, g, h, i, j, k, l, m, ident, o, p, q, r, s, t, u,
                 v, w, fails)

    static void describeMembers(AVDescription<Kinds>& kinds) {
        kinds.property<&Kinds::x, &Kinds::setX>("x");
        kinds.property<&Kinds::x>("y", "T@\"NSNumberFormatter\",R,N,V_x");
        kinds.reader<&Kinds::x>("a.b");
    }

    Kinds() { alive.push_back(this); }
    ~Kinds() override { std::erase(alive, this); }

    AVValue<> a;
    AVValue<"NSNumber"> b;
    std::optional<Value> c;
    bool d = false;
    char e = 0;
    signed char f = 0;
    unsigned char g = 0;
    std::int16_t h = 0;
    std::uint16_t i = 0;
    std::int32_t j = 0;
    std::uint32_t k = 0;
    std::int64_t l = 0;
    std::uint64_t m = 0;
    std::optional<std::int64_t> ident;
    float o = 0;
    double p = 0;
    std::string q;
    std::optional<std::string> r;
    Ref<Kinds> s;
    std::vector<std::string> t;
    std::vector<std::optional<double>> u;
    std::vector<Ref<Kinds>> v;
    std::vector<std::vector<Ref<AVObject>>> w;

    int x() const { return x_; }
    void setX(int x) {
        if (x < 0) {
            throw std::invalid_argument("no negative number here");
        }
        x_ = x;
    }
    int fails() const { throw std::runtime_error("never to be read"); }

    Array keysForExport() const override {
        Array keys;
        for (const std::string& key : all) {
            keys.append(key);
        }
        return keys;
    }

    /// Ends the cycles that an import into existing objects makes.
    void letGo() {
        a.reset();
        b.reset();
        c.reset();
        s = nullptr;
        v.clear();
        w.clear();
    }

    static inline std::vector<Kinds*> alive;
    /// Of these an import restores what an export gave.
    static inline const std::vector<std::string> restorable{"b",     "c", "d", "e", "f", "g",
                                                            "h",     "i", "j", "k", "l", "m",
                                                            "ident", "o", "p", "q", "r", "x"};
    static inline const std::vector<std::string> all = [] {
        std::vector<std::string> keys = restorable;
        keys.insert(keys.end(), {"a", "s", "t", "u", "v", "w", "y", "a.b", "none", "fails", "z"});
        return keys;
    }();

private:
    int x_ = 0;
};

enum class Letter { a, b, other };
AVJSON_NAMES(Letter, {Letter::a, "a"}, {Letter::b, "b"})
enum class Number : std::int16_t {};

struct Point {
    AVJSON_CLASS(Point, void, a, b)

    int a = 0;
    std::string b;
};

class Shared : public AVObject {
    AVJSON_CLASS(Shared, AVObject, a, b)

    Point a;
    std::map<std::string, Ref<Shared>> b;
};

/// A struct with every type that `Kinds` has not, of which an import restores what an export gave.
struct Types {
    AVJSON_CLASS(Types, void, a, (b, "b", AVText), c, d, e, f, g, h, i, j, k, l, m,
                 (o, "o", AVText), p, q, r, s, t, (u, "u", AVText), (ident, "id"), v, w, x, y)

    Date a;
    Date b;
    Uuid c;
    Value d;
    Object e;
    Array f;
    std::map<std::string, std::optional<int>> g;
    std::unordered_map<std::string, std::vector<Types>> h;
    std::array<float, 2> i{};
    std::set<std::string> j;
    Letter k = Letter::other;
    Number l{};
    std::chrono::milliseconds m{};
    std::chrono::sys_time<std::chrono::milliseconds> o{};
    std::chrono::duration<double> p{};
    std::vector<Types> q;
    std::vector<bool> r;
    std::optional<std::optional<std::string>> s;
    std::vector<std::vector<double>> t;
    std::map<std::string, std::vector<std::chrono::sys_seconds>> u;
    std::optional<Value> ident;
    std::string_view v() const { return "view"; }
    Point w;
    std::vector<Ref<Shared>> x;
    std::chrono::sys_time<std::chrono::duration<std::int32_t>> y{};
};

template <class T>
void tryNaturally(const Value& json) {
    AVProblems problems;
    try {
        const auto made = AVJSON::as<T>(json, &problems);
        for (const platform::Diagnostic& problem : problems) {
            require(!sentenceOf(problem).empty(), "every problem has its sentence");
        }
        problems.clear();
        const Value exported = AVJSON::from(made);
        require(AVJSON::from(AVJSON::as<T>(exported, &problems)) == exported,
                "importing what was exported restores it");
        require(problems.empty(), "what was exported can be taken");
        require(readJson(AVJSON::toJSON(exported).value()).has_value(),
                "what was exported is JSON");
    } catch (const ValueKindError&) { // an array for an object, or the reverse
    } catch (const JsonWriteError&) { // a number that only text can hold, such as "1e999"
    }
}

scripted::ScriptedPhone& phone() {
    static const auto installed = [] {
        auto made = scripted::ScriptedPhone::create();
        platform::install(made);
        return made;
    }();
    return *installed;
}

void tryOut(const AVObject& object) {
    const Object everything = object.avDictionaryWithValuesForKeys(Kinds::all);
    try {
        require(AVJSON::toJSON(everything).has_value(), "what was imported is valid UTF-8");
    } catch (const JsonWriteError&) { // a number that only text can hold, such as "1e999"
    }
    const Object exported = object.avDictionaryWithValuesForKeys(Kinds::restorable);
    const auto copy = AVJSON::asObjectOfClass<Kinds>(exported);
    require(copy->avDictionaryWithValuesForKeys(Kinds::restorable) == exported,
            "importing what was exported restores it");
}

void import(const Value& json, const NodeClass& nodeClass, const NodeMapping& mapping) {
    if (const Object* dictionary = json.ifObject()) {
        if (const Ref<AVObject> object = AVJSON::asObjectOfClass(*dictionary, nodeClass, mapping)) {
            tryOut(*object);
        }
        return;
    }
    Array objects;
    try {
        objects = AVJSON::asObjectOfClass(json.asArray(), nodeClass, mapping);
    } catch (const ValueKindError&) {
    } catch (const std::invalid_argument&) {
    } catch (const std::length_error&) {
    }
    for (const Value& element : objects) {
        if (element.kind() == Value::Kind::instance) {
            tryOut(dynamic_cast<const AVObject&>(element.asInstance()));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto json = readJson({reinterpret_cast<const char*>(data), size});
    if (!json) {
        return -1;
    }
    phone();
    const auto existing = makeInstance<Kinds>();
    const NodeMapping mapping{{"s", AVClass::of<Kinds>()},
                              {"v", "Kinds"},
                              {"w", "Kinds"},
                              {"a", existing},
                              {"z", "Kinds"},
                              {"none", "Nobody"},
                              {"fails", "AVObject"}};
    tryNaturally<Types>(*json);
    tryNaturally<std::vector<Types>>(*json);
    tryNaturally<Shared>(*json);
    import(*json, AVClass::of<Kinds>(), {});
    import(*json, "Kinds", mapping);
    import(*json, existing, mapping);
    import(*json, "Nobody", mapping);
    for (const std::string& line : phone().takeLog()) {
        require(line == "dict init failed" || line.ends_with(" missing in Kinds while export"),
                "a failure leaves one of the fixed lines");
    }
    for (const Ref<Kinds>& object :
         std::vector<Ref<Kinds>>(Kinds::alive.begin(), Kinds::alive.end())) {
        object->letGo();
    }
    require(Kinds::alive.size() == 1, "no object outlives its holders");
    return 0;
}
