// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <vector>

namespace morvellacinto::bench {

/// Builds a `Value` from events through the public operations: what a reader that tells events has
/// to do to fill our type. One that knows sizes can do with less; see `json_bench.cpp`.
class ValueBuilder {
public:
    void begin(bool isObject) {
        levels_.push_back({isObject ? Value(Object()) : Value(Array()), {}});
    }
    void key(std::string_view key) { levels_.back().key = key; }
    void leaf(Value value) {
        if (levels_.empty()) {
            root_ = std::move(value);
            return;
        }
        Level& level = levels_.back();
        if (level.container.isObject()) {
            level.container.asObject().set(level.key.asString(), std::move(value));
        } else {
            level.container.asArray().append(std::move(value));
        }
    }
    void end() {
        Value done = std::move(levels_.back().container);
        levels_.pop_back();
        leaf(std::move(done));
    }
    [[nodiscard]] Value take() { return std::move(root_); }

private:
    struct Level {
        Value container;
        Value key; // of the member that comes next
    };

    std::vector<Level> levels_;
    Value root_;
};

} // namespace morvellacinto::bench
