// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVExporter.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"
#include "morvellacinto/jsonmapping/MemberFinder.h"
#include "morvellacinto/platform/Guarded.h"

#include <algorithm>
#include <stdexcept>

namespace morvellacinto {
namespace {

std::string missingLine(std::string_view key, const AVObject& object) {
    std::string line = std::string(key) + " missing in " + object.description() + " while export";
    // The log takes single lines.
    std::replace_if(
        line.begin(), line.end(), [](char each) { return each == '\n' || each == '\r'; }, ' ');
    return line;
}

} // namespace

/// The JSON object that an export fills. Storing nothing removes what stands under the name.
class AVExporter::Output {
public:
    Output(Object& object, std::size_t count, bool keepsEmpty)
        : object_(object), own_(ValueAccess::own(object)), keepsEmpty_(keepsEmpty) {
        own_.members.reserve(count);
    }

    /// Under the member's own name.
    void store(const AVMember& member, std::optional<Value>&& value) {
        if (hasOtherNames_ || &member <= last_) {
            store(member.name.asString(), std::move(value));
            return;
        }
        last_ = &member;
        if (value && counts(*value)) {
            own_.add(Value(member.name), *std::move(value));
        }
    }

    void store(std::string_view name, std::optional<Value>&& value) {
        hasOtherNames_ = true;
        if (!value) {
            object_.remove(name);
        } else if (counts(*value)) {
            object_.set(name, *std::move(value));
        }
    }

private:
    [[nodiscard]] bool counts(const Value& value) const {
        const Array* array = keepsEmpty_ ? nullptr : value.ifArray();
        return array == nullptr || !array->empty();
    }

    Object& object_;
    ValueAccess::ObjectRep& own_; // nobody else gets the object before it is filled
    bool keepsEmpty_;
    /// No member behind this one in the class is there yet, unless names were looked at.
    const AVMember* last_ = nullptr;
    bool hasOtherNames_ = false;
};

AVExporter::Level::Level(AVExporter& exporter, const AVObject* object) : path_(exporter.path_) {
    if (path_.size() == maximumJsonDepth) {
        throw std::length_error("objects are nested deeper than " +
                                std::to_string(maximumJsonDepth) + " levels");
    }
    if (object != nullptr && std::find(path_.begin(), path_.end(), object) != path_.end()) {
        throw std::invalid_argument("an object holds itself");
    }
    path_.push_back(object);
}

Object AVExporter::exported(const AVObject& object) {
    return exported(object, object.keysForExport());
}

Object AVExporter::exported(const AVObject& object, const Array& keys) {
    return exported(&object, &object, object.avClass(), keys);
}

Value AVExporter::exportedOther(const Value& value) {
    const bool isNatural = mode_ == Mode::natural;
    if (mode_ == Mode::held || (value.isObject() && !isNatural)) {
        return value;
    }
    if (const AVObject* object = mappableObject(value)) {
        return exported(*object);
    }
    if (const Array* elements = value.ifArray()) {
        const Level level(*this);
        Array made;
        made.reserve(elements->size());
        for (const Value& element : *elements) {
            const bool isNode = isNatural || mappableObject(element) != nullptr;
            made.append(isNode ? exportedValue(element) : Object());
        }
        return made;
    }
    if (const Object* dictionary = value.ifObject()) {
        const Level level(*this);
        Object made;
        made.reserve(dictionary->size());
        for (const Object::Member& member : *dictionary) {
            ValueAccess::add(made, ValueAccess::keyValue(member), exportedValue(member.value));
        }
        return made;
    }
    if (isNatural && value.kind() == Value::Kind::date) {
        return value.asDate().secondsSinceReference;
    }
    return isNatural && value.kind() != Value::Kind::instance ? value : Object();
}

Object AVExporter::exported(const void* object, const AVObject* self, const AVClass& described,
                            const Array& keys) {
    Object result;
    const auto exportAll = [&] {
        const Level level(*this, self);
        const bool asIs = self == nullptr || described.hasDefaultKeys(*self);
        if (keys.empty() && (mode_ != Mode::prescribed || self == nullptr)) {
            Output output(result, described.members().size(), mode_ != Mode::prescribed);
            for (const AVMember& member : described.members()) {
                give(output, object, self, asIs, member);
            }
            return;
        }
        MemberFinder members(described);
        Output output(result, keys.size(), mode_ != Mode::prescribed);
        for (const Value& key : keys) {
            if (const AVMember* member = members.member(key)) {
                give(output, object, self, asIs, *member);
            } else if (log_ != nullptr && self != nullptr) {
                log_->log(missingLine(key.asString(), *self));
            }
        }
    };
    if (log_ == nullptr) {
        exportAll();
    } else {
        platform::guarded(log_, initFailed, exportAll);
    }
    return result;
}

void AVExporter::give(Output& output, const void* object, const AVObject* self, bool asIs,
                      const AVMember& member) {
    std::string_view name = member.name.asString();
    if (member.isPath && self != nullptr && mode_ == Mode::prescribed) {
        std::optional<Value> value = self->valueForKeyPath(name);
        name.remove_prefix(name.rfind('.') + 1);
        output.store(self->sourceKeyForExceptionKey(name),
                     value ? std::optional(exportedValue(*value)) : std::nullopt);
        return;
    }
    std::optional<Value> value =
        member.give(static_cast<const std::byte*>(object) + member.shift, *this);
    if (asIs) {
        output.store(member, std::move(value));
    } else {
        output.store(self->sourceKeyForExceptionKey(name), std::move(value));
    }
}

} // namespace morvellacinto
