#include "morvellacinto/jsonmapping/NodeMapping.h"

#include "morvellacinto/jsonmapping/AVObject.h"

#include <algorithm>
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

NodeMapping::NodeMapping(std::initializer_list<std::pair<std::string_view, NodeClass>> nodes) {
    for (const auto& [key, nodeClass] : nodes) {
        set(key, nodeClass);
    }
}

void NodeMapping::set(std::string_view key, NodeClass nodeClass) {
    const auto place = nodes_.begin() + (position(key) - nodes_.cbegin());
    if (place != nodes_.end() && place->key == key) {
        place->nodeClass = std::move(nodeClass);
    } else {
        nodes_.insert(place, {std::string(key), std::move(nodeClass)});
    }
    filter_ |= filterBit(key);
}

const NodeClass* NodeMapping::findNode(std::string_view key) const noexcept {
    const auto place = position(key);
    return place != nodes_.end() && place->key == key ? &place->nodeClass : nullptr;
}

std::vector<NodeMapping::Node>::const_iterator
NodeMapping::position(std::string_view key) const noexcept {
    return std::lower_bound(
        nodes_.begin(), nodes_.end(), key,
        [](const Node& node, std::string_view wanted) { return node.key < wanted; });
}

} // namespace morvellacinto
