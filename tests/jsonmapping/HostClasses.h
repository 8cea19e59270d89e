// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVJSON.h"

#include <stdexcept>

namespace morvellacinto {

inline Object object(std::string_view json) { return readJson(json).value().asObject(); }
inline Array array(std::string_view json) { return readJson(json).value().asArray(); }

/// Object-typed properties, which take whatever is set.
class Thing : public AVObject {
    AVJSON_CLASS(Thing, AVObject, ident, count, node, nodes, other, shout, keysAsked,
                 aNameOfManyLetters, (node, "@count"))

    AVValue<> ident;
    AVValue<"NSNumber"> count;
    AVValue<> node;
    AVValue<"NSArray"> nodes;
    std::optional<Value> other;
    AVValue<"NSNumber"> aNameOfManyLetters;

    std::string shout() const { return "HO"; }
    int keysAsked() const { throw std::runtime_error("nobody may ask"); }

    Array keysForExport() const override { return exportKeys; }
    Array exportKeys = Array::of({"ident", "count", "node", "nodes", "other"});
};

class Journey;

/// Properties of C++ types, in a tree of classes that refer to each other.
class Place : public AVObject {
    AVJSON_CLASS(Place, AVObject, ident, name, height, journeys)

    std::int32_t ident = 0;
    std::string name;
    std::optional<double> height;
    std::vector<Ref<Journey>> journeys;

    Array keysForExport() const override {
        return Array::of({"ident", "name", "height", "journeys"});
    }
};

class Journey : public AVObject {
    AVJSON_CLASS(Journey, AVObject, from, to, title)

    Ref<Place> from;
    Ref<Place> to;
    std::string title() const { return (from ? from->name : "?") + "-" + (to ? to->name : "?"); }

    Array keysForExport() const override { return Array::of({"title", "from", "to"}); }
};

class Harbour : public Place {
    AVJSON_CLASS(Harbour, Place, depth)

    static void describeMembers(AVDescription<Harbour>& harbour) {
        harbour.property<&Harbour::berths, &Harbour::setBerths>("berths");
        harbour.property<&Harbour::berths>("berthCount", "T@\"NSNumberFormatter\",R,N,V_berths");
        harbour.reader<&Harbour::upperName>("name");
    }

    const float depth = 12.5F;
    int berths() const { return berths_; }
    void setBerths(int berths) {
        if (berths < -1) {
            throw berths;
        }
        if (berths < 0) {
            throw std::invalid_argument("too few berths");
        }
        berths_ = berths;
    }
    std::string upperName() const { return "HARBOUR " + name; }

    std::string keyExceptionForSourceKey(std::string_view key) const override {
        return key == "anchorages" ? "berths" : Place::keyExceptionForSourceKey(key);
    }
    std::string sourceKeyForExceptionKey(std::string_view key) const override {
        return key == "ident" ? "id" : Place::sourceKeyForExceptionKey(key);
    }
    bool isNumberProperty(std::string_view key) const override {
        return key == "anchorages" || Place::isNumberProperty(key);
    }
    std::string description() const override { return "the harbour\nof " + name; }

private:
    int berths_ = 0;
};

} // namespace morvellacinto
