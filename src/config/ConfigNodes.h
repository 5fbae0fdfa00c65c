#pragma once

#include "config/ConfigKey.h"
#include "config/ConfigNode.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// What reading and writing the settings file share: lists of nodes from which one after the other
// is taken as its line comes along.
namespace config_nodes {

using Node = std::shared_ptr<ConfigNode>;
using Nodes = std::vector<Node>;

inline bool key_is(const Node& node, std::string_view key) {
    return config_key::same(node->GetKey(true), key);
}

inline bool is_mounted_at(const Node& section, const std::string& address) {
    return section->ChildExists("mount") &&
           section->GetChild("mount", false)->GetValue("") == address;
}

// The first node that fits, taken out of the list; null when none does.
template <typename Fits> Node take(Nodes& nodes, Fits fits) {
    const auto place = std::ranges::find_if(nodes, fits);
    if (place == nodes.end()) return nullptr;
    Node node = *place;
    nodes.erase(place);
    return node;
}

inline Node take_key(Nodes& nodes, std::string_view key) {
    return take(nodes, [&](const Node& node) { return key_is(node, key); });
}

} // namespace config_nodes
