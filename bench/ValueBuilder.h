#pragma once

#include "morvellacinto/foundation/Value.h"

#include <vector>

namespace morvellacinto::bench {

/// Builds a `Value` from events through the public operations: what any other reader would have to
/// do to fill our type.
class ValueBuilder {
public:
    void begin(bool isObject) {
        levels_.push_back({isObject ? Value(Object()) : Value(Array()), std::move(key_)});
    }
    void key(std::string_view key) { key_ = key; }
    void leaf(Value value) { put(std::move(key_), std::move(value)); }
    void end() {
        Level done = std::move(levels_.back());
        levels_.pop_back();
        put(std::move(done.key), std::move(done.container));
    }
    [[nodiscard]] Value take() { return std::move(root_); }

private:
    struct Level {
        Value container;
        std::string key; // under which it stands in the level above
    };

    void put(std::string key, Value value) {
        if (levels_.empty()) {
            root_ = std::move(value);
        } else if (levels_.back().container.isObject()) {
            levels_.back().container.asObject().set(key, std::move(value));
        } else {
            levels_.back().container.asArray().append(std::move(value));
        }
    }

    std::vector<Level> levels_;
    std::string key_;
    Value root_;
};

} // namespace morvellacinto::bench
