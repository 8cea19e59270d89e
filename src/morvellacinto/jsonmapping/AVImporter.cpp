// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVImporter.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/NumberText.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/KeyValueCoding.h"
#include "morvellacinto/jsonmapping/MemberFinder.h"
#include "morvellacinto/platform/Guarded.h"

#include <stdexcept>

namespace morvellacinto {
AVImporter::Level::Level(AVImporter& importer) : depth_(importer.depth_) {
    if (depth_ == maximumJsonDepth) {
        throw std::length_error("JSON is nested deeper than " + std::to_string(maximumJsonDepth) +
                                " levels");
    }
    ++depth_;
}

void AVImporter::fill(AVObject& object, const Object& dictionary) {
    fill(&object, &object, object.avClass(), dictionary);
}

Ref<AVObject> AVImporter::convert(const Object& dictionary, const NodeClass& nodeClass) {
    Ref<AVObject> object(nodeClass.target());
    if (!object) {
        const AVClass* const described = nodeClass.described();
        if (described == nullptr) {
            tell(platform::ClassUnknown{std::string(nodeClass.name())});
            return {};
        }
        object = described->makeInstance();
    }
    fill(*object, dictionary);
    return object;
}

Array AVImporter::convert(const Array& array, const NodeClass& nodeClass) {
    if (!array.empty() && !nodeClass.name().empty()) { // is looked up once for all elements
        if (const AVClass* const described = nodeClass.described()) {
            return convert(array, *described);
        }
    }
    const Level level(*this);
    Array converted;
    converted.reserve(array.size());
    for (const Value& element : array) {
        if (const Array* inner = element.ifArray()) {
            converted.append(convert(*inner, nodeClass));
            continue;
        }
        Ref<AVObject> object = convert(element.asObject(), nodeClass);
        if (!object) {
            throw std::invalid_argument("an element would be of an unknown class");
        }
        converted.append(Ref<Instance>(std::move(object)));
    }
    return converted;
}

bool AVImporter::refuse(const Value& found, std::string wanted) {
    wanted_ = std::move(wanted);
    found_ = nameOf(found.kind());
    return false;
}

bool AVImporter::refuseIn(const std::string& place) {
    found_ += " in " + place;
    return false;
}

platform::ValueSkipped AVImporter::refused(std::string_view className,
                                           std::string_view property) const {
    return {std::string(className), std::string(property), wanted_, found_};
}

void AVImporter::fill(void* object, AVObject* self, const AVClass& described,
                      const Object& dictionary) {
    const Object::Member* at = nullptr;
    const auto tellEnd = [&](const char* reason) {
        tell(platform::ImportEnded{std::string(described.name()),
                                   at == nullptr ? "" : std::string(at->key()), reason});
    };
    platform::guarded(log_, initFailed, [&] {
        try {
            takeAll(object, self, described, dictionary, at);
        } catch (const std::bad_alloc&) {
            throw; // there is no memory for words about it
        } catch (const std::exception& error) {
            tellEnd(error.what());
            throw;
        } catch (...) {
            tellEnd("something that is no std::exception was thrown");
            throw;
        }
    });
}

void AVImporter::takeAll(void* object, AVObject* self, const AVClass& described,
                         const Object& dictionary, const Object::Member*& at) {
    const Level level(*this);
    const bool asIs = self == nullptr || described.hasDefaultKeys(*self);
    const NodeMapping* const nodes = self == nullptr ? nullptr : nodeMapping_;
    MemberFinder members(described);
    for (const Object::Member& each : dictionary) {
        at = &each;
        if (const NodeClass* node =
                nodes == nullptr ? nullptr : nodes->find(ValueAccess::key(each))) {
            takeNode(*self, each, *node);
            continue;
        }
        const AVMember* const named = members.member(ValueAccess::keyValue(each));
        if (!asIs || named == nullptr || named->isSpecial ||
            (named->isNumber && each.value.isString())) {
            takePlain(object, asIs ? nullptr : self, described, dictionary, each, named);
        } else if (!each.value.isNull()) {
            setOrTell(object, described, &each.value, *named);
        }
    }
}

void AVImporter::takeNode(AVObject& object, const Object::Member& member,
                          const NodeClass& nodeClass) {
    const auto take = [&](const Value* value) {
        const AVClass& described = object.avClass();
        const std::string name = object.keyExceptionForSourceKey(member.key());
        setOrTell(&object, described, value, propertyNamed(described, name));
    };
    if (const Object* dictionary = member.value.ifObject()) {
        Ref<AVObject> node = convert(*dictionary, nodeClass);
        const Value value = Ref<Instance>(node);
        take(node ? &value : nullptr);
    } else if (const Array* array = member.value.ifArray()) {
        const Value nodes = convert(*array, nodeClass);
        if (!nodes.asArray().empty()) {
            take(&nodes);
        }
    }
}

void AVImporter::takePlain(void* object, const AVObject* asked, const AVClass& described,
                           const Object& dictionary, const Object::Member& member,
                           const AVMember* named) {
    const std::string_view key = member.key();
    std::optional<Value> value = member.value;
    if (nodeMapping_ != nullptr && key.starts_with('@')) {
        value = valueForKey(dictionary, key);
    } else if (value->isString() && (asked != nullptr ? asked->isNumberProperty(key)
                                                      : named != nullptr && named->isNumber)) {
        value = numberFromText(member.value.asString());
    }
    if (!value || value->isNull()) {
        return;
    }
    const AVMember* property = named;
    if (asked != nullptr || key == sourceKey) {
        const std::string name =
            asked == nullptr ? std::string(exceptionKey) : asked->keyExceptionForSourceKey(key);
        const bool isOwn = nodeMapping_ == nullptr && key == sourceKey && name == exceptionKey;
        property = isOwn && named != nullptr ? named : described.find(name);
    }
    if (property != nullptr) {
        setOrTell(object, described, &*value, *property);
    }
}

void AVImporter::notTaken(const AVClass& described, const AVMember& member) {
    if (member.take != nullptr) {
        tell(refused(described.name(), member.name.asString()));
    } else if (nodeMapping_ != nullptr) {
        propertyNamed(described, member.name.asString());
    }
}

void AVImporter::tell(platform::Diagnostic diagnostic) {
    if (problems_ != nullptr) {
        problems_->push_back(std::move(diagnostic));
    } else {
        platform::tellDiagnostics(diagnostic);
    }
}

} // namespace morvellacinto
