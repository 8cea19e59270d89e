#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/platform/DeveloperLog.h"

#include <string>
#include <vector>

namespace morvellacinto {

struct AVMember;
class AVObject;

/// One export: reads an object graph on the caller's thread.
class Exporter {
public:
    /// `log` must outlive the exporter.
    explicit Exporter(platform::DeveloperLog& log) noexcept : log_(log) {}

    [[nodiscard]] Object exported(const AVObject& object, const std::vector<std::string>& keys);

private:
    class Level;
    class Output;

    /// A property as the object wants it.
    void take(Output& output, const AVObject& object, const AVMember& member);
    /// What stands in the result for a property's value that is no JSON.
    [[nodiscard]] Value exportedValue(const Value& value);
    /// A value met inside another: what is no mappable object exports as an empty JSON object.
    [[nodiscard]] Object exportedNode(const Value& value);

    platform::DeveloperLog& log_;
    /// The objects being exported, each inside the one before.
    std::vector<const AVObject*> path_;
};

} // namespace morvellacinto
