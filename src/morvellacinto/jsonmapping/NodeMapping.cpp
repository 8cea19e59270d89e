// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/NodeMapping.h"

#include "morvellacinto/jsonmapping/AVObject.h"

#include <stdexcept>

namespace morvellacinto {

const AVClass* NodeClass::described() const {
    if (const auto* name = std::get_if<std::string>(&choice_)) {
        return AVClass::named(*name);
    }
    const auto* described = std::get_if<const AVClass*>(&choice_);
    return described == nullptr ? nullptr : *described;
}

AVObject* NodeClass::target() const noexcept {
    const auto* target = std::get_if<Ref<Instance>>(&choice_);
    return target == nullptr ? nullptr : (*target)->mappable();
}

Ref<Instance> NodeClass::checked(Ref<Instance> target) {
    if (!target) {
        throw std::invalid_argument("a node class was given an empty reference to an object");
    }
    return target;
}

NodeMapping::NodeMapping(std::initializer_list<std::pair<TextArgument, NodeClass>> nodes) {
    for (const auto& [key, nodeClass] : nodes) {
        set(key, nodeClass);
    }
}

void NodeMapping::set(TextArgument key, NodeClass nodeClass) {
    nodes_.insert_or_assign(std::string(key), std::move(nodeClass));
    filter_ |= filterBit(key);
}

} // namespace morvellacinto
