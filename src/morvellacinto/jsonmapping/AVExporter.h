// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/jsonmapping/AVClass.h"

#include <string>
#include <vector>

namespace morvellacinto {

namespace platform {
class DeveloperLog;
}

/// One export: reads an object graph on the caller's thread. `AVType`s see it as they give values.
class MORVELLACINTO_EXPORT AVExporter {
public:
    /// What instances in values become.
    enum class Mode {
        held,       ///< as key-value coding gives it: instances as they are
        prescribed, ///< as `AVObject::avDictionaryWithValuesForKeys` tells
        natural,    ///< as `AVJSON::from` tells
    };

    explicit AVExporter(Mode mode, platform::DeveloperLog* log = nullptr) noexcept
        : mode_(mode), log_(log) {}

    [[nodiscard]] Mode mode() const noexcept { return mode_; } ///< for `AVType`s that differ by it

    /// A step down the JSON that is being made, for as long as this lives. Throws
    /// std::length_error below `maximumJsonDepth`, and std::invalid_argument for an object that is
    /// met inside itself.
    class MORVELLACINTO_EXPORT Level {
    public:
        explicit Level(AVExporter& exporter, const AVObject* object = nullptr);
        Level(const Level&) = delete;
        ~Level() { path_.pop_back(); }

    private:
        std::vector<const AVObject*>& path_;
    };

    /// An object, or a struct of that class, with the keys that it exports as a property. @{
    [[nodiscard]] Object exported(const AVObject& object);
    [[nodiscard]] Object exported(const void* object, const AVClass& described) {
        return exported(object, nullptr, described, described.keysForExport(object));
    } ///@}
    /// The same with these keys, in their order.
    [[nodiscard]] Object exported(const AVObject& object, const Array& keys);
    /// What stands in the result for a value of any kind.
    [[nodiscard]] Value exportedValue(const Value& value) {
        return value.isString() || value.isNumber() || value.isBool() ? value
                                                                      : exportedOther(value);
    }

private:
    class Output;

    [[nodiscard]] Object exported(const void* object, const AVObject* self,
                                  const AVClass& described, const Array& keys);
    void give(Output& output, const void* object, const AVObject* self, bool asIs,
              const AVMember& member);
    [[nodiscard]] Value exportedOther(const Value& value);

    Mode mode_;
    platform::DeveloperLog* log_;
    /// What is being exported, each inside the one before; null for what is no `AVObject`.
    std::vector<const AVObject*> path_;
};

} // namespace morvellacinto
