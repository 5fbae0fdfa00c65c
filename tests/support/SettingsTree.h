#pragma once

#include "config/ConfigLoad.h"
#include "config/ConfigNode.h"
#include "support/MemoryFiles.h"

#include <memory>
#include <string>
#include <vector>

// Children and parents hold each other; taken apart they can go.
inline void TakeApart(const std::shared_ptr<ConfigNode>& node) {
    for (const auto& child : node->GetAllChildren(false)) {
        TakeApart(child);
        node->RemoveChild(child);
    }
}

// A tree of a test's own, gone with the last copy of what is returned.
inline std::shared_ptr<ConfigNode> OwnTree(const std::string& key,
                                           const std::string& friendly_name) {
    const auto root = std::make_shared<ConfigNode>(key, friendly_name);
    const std::shared_ptr<void> owner(nullptr, [root](void*) { TakeApart(root); });
    return {owner, root.get()};
}

inline std::shared_ptr<ConfigNode> EmptySettings() {
    auto root = OwnTree("globalnode", "Global Node");
    root->AddChild(std::make_shared<ConfigNode>("Default", "Defaults"));
    root->AddChild(std::make_shared<ConfigNode>("Source", "Sources"));
    return root;
}

inline std::shared_ptr<ConfigNode> SettingsOf(const std::string& text) {
    const MemoryFiles files{{{"main", text}}};
    auto root = EmptySettings();
    LoadConfig("main", files.Reader(), root);
    return root;
}

inline std::shared_ptr<ConfigNode> MountSettings(const std::shared_ptr<ConfigNode>& root,
                                                 const std::string& index) {
    return root->GetChild("Source", false)->GetChild(index, false);
}

// The settings below a node, in order, as "key=value".
inline std::vector<std::string> Lines(const std::shared_ptr<ConfigNode>& node) {
    std::vector<std::string> lines;
    for (const auto& child : node->GetAllChildren(false))
        lines.push_back(child->GetKey(true) + "=" + child->GetValue(""));
    return lines;
}

inline std::vector<std::string> Keys(const std::shared_ptr<ConfigNode>& node) {
    std::vector<std::string> keys;
    for (const auto& child : node->GetAllChildren(false))
        keys.push_back(child->GetKey(true));
    return keys;
}
