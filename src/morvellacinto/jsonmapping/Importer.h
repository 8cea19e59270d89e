#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/jsonmapping/NodeMapping.h"
#include "morvellacinto/platform/DeveloperLog.h"

namespace morvellacinto {

class MemberFinder;

/// One import: fills objects and converts collections on the caller's thread.
class Importer {
public:
    /// All of them must outlive the importer.
    Importer(platform::DeveloperLog& log, const NodeMapping& nodeMapping) noexcept
        : log_(log), nodeMapping_(nodeMapping) {}

    void fill(AVObject& object, const Object& dictionary);
    [[nodiscard]] Ref<AVObject> convert(const Object& dictionary, const NodeClass& nodeClass);
    [[nodiscard]] Array convert(const Array& array, const NodeClass& nodeClass);

private:
    struct Maker;
    class Level;

    [[nodiscard]] Ref<AVObject> convert(const Object& dictionary, const Maker& maker);
    [[nodiscard]] Array convert(const Array& array, const Maker& maker);
    void takeNode(AVObject& object, const Object::Member& member, const NodeClass& nodeClass);
    /// A plain key as the object wants it, and one as every object with the default keys does.
    void takePlain(AVObject& object, const Object& dictionary, const Object::Member& member);
    void takePlain(AVObject& object, MemberFinder& members, const Object& dictionary,
                   const Object::Member& member);

    platform::DeveloperLog& log_;
    const NodeMapping& nodeMapping_;
    std::size_t depth_ = 0;
};

} // namespace morvellacinto
