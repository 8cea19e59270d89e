// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVJSON.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVImporter.h"
#include "morvellacinto/platform/Platform.h"

namespace morvellacinto::AVJSON {

Ref<AVObject> asObjectOfClass(const Object& dictionary, const NodeClass& nodeClass,
                              const NodeMapping& nodeMapping) {
    const auto platform = platform::current();
    // A setter may change the host's own.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Object kept = dictionary;
    return AVImporter(platform->developerLog(), nodeMapping).convert(kept, nodeClass);
}

Array asObjectOfClass(const Array& array, const NodeClass& nodeClass,
                      const NodeMapping& nodeMapping) {
    const auto platform = platform::current();
    const Array kept = array; // NOLINT(performance-unnecessary-copy-initialization): as above
    return AVImporter(platform->developerLog(), nodeMapping).convert(kept, nodeClass);
}

std::optional<std::string> toJSON(const Value& collection) {
    try {
        return writeJson(collection);
    } catch (const JsonTextError&) {
        return std::nullopt;
    }
}

std::optional<std::string> toJSONWS(const Value& collection) { return toJSON(collection); }

} // namespace morvellacinto::AVJSON
