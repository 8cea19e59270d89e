// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/jsonmapping/AVClass.h"
#include "morvellacinto/platform/Diagnostics.h"

#include <string>
#include <string_view>
#include <vector>

namespace morvellacinto {

namespace platform {
class DeveloperLog;
}
class NodeClass;
class NodeMapping;

/// What an import could not take, in the order in which it was met.
using AVProblems = std::vector<platform::Diagnostic>;

/// One import: fills objects on the caller's thread. `AVType`s see it when they take over a value.
class MORVELLACINTO_EXPORT AVImporter {
public:
    /// An import without a node mapping, that lets a class have a property "id" and ignores keys
    /// that can only be read. Problems go to the list, or else to the platform's diagnostics.
    explicit AVImporter(AVProblems* problems = nullptr) noexcept : problems_(problems) {}
    /// An import as `AVObject::setAvValuesForKeysWithDictionary` tells. Both must outlive this.
    AVImporter(platform::DeveloperLog& log, const NodeMapping& nodeMapping) noexcept
        : log_(&log), nodeMapping_(&nodeMapping) {}

    /// A step down the JSON tree, for as long as this lives. Throws std::length_error below
    /// `maximumJsonDepth`.
    class MORVELLACINTO_EXPORT Level {
    public:
        explicit Level(AVImporter& importer);
        Level(const Level&) = delete;
        ~Level() { --depth_; }

    private:
        std::size_t& depth_;
    };

    /// Fills an object, or a struct of that class; what fails ends that and is told. @{
    void fill(AVObject& object, const Object& dictionary);
    void fill(void* object, const AVClass& described, const Object& dictionary) {
        fill(object, nullptr, described, dictionary);
    } ///@}
    /// A node of an unknown class is none; in an array it throws std::invalid_argument. @{
    [[nodiscard]] Ref<AVObject> convert(const Object& dictionary, const NodeClass& nodeClass);
    [[nodiscard]] Array convert(const Array& array, const NodeClass& nodeClass); ///@}

    /// Keeps why a value was not taken, for `refused`; false, for `AVType::take` to return.
    bool refuse(const Value& found, std::string wanted);
    /// The same value was found in that place of another, such as "element 2".
    bool refuseIn(const std::string& place);
    /// What `refuse` was last told, about this property, if any, of a class or type.
    [[nodiscard]] platform::ValueSkipped refused(std::string_view className,
                                                 std::string_view property) const;

private:
    void fill(void* object, AVObject* self, const AVClass& described, const Object& dictionary);
    /// Leaves in `at` how far it has come. A function of its own keeps its state in registers.
    void takeAll(void* object, AVObject* self, const AVClass& described, const Object& dictionary,
                 const Object::Member*& at);
    void takeNode(AVObject& object, const Object::Member& member, const NodeClass& nodeClass);
    /// A plain key as the object wants it, if asked, or one that wants more than setting.
    void takePlain(void* object, const AVObject* asked, const AVClass& described,
                   const Object& dictionary, const Object::Member& member, const AVMember* named);
    void setOrTell(void* object, const AVClass& described, const Value* value,
                   const AVMember& member) {
        if (member.take == nullptr ||
            !member.take(static_cast<std::byte*>(object) + member.shift, value, *this)) {
            notTaken(described, member);
        }
    }
    /// Throws for what can only be read in a prescribed import.
    void notTaken(const AVClass& described, const AVMember& member);
    void tell(platform::Diagnostic diagnostic);

    platform::DeveloperLog* log_ = nullptr;
    const NodeMapping* nodeMapping_ = nullptr;
    AVProblems* problems_ = nullptr;
    std::size_t depth_ = 0;
    std::string wanted_;
    std::string found_;
};

} // namespace morvellacinto
