#pragma once

#include "config/ConfigLoad.h"
#include "config/ConfigNode.h"
#include "support/MemoryFiles.h"

#include <memory>
#include <string>
#include <vector>

// A tree of settings of a test's own.
inline std::shared_ptr<ConfigNode> EmptySettings() {
    auto root = std::make_shared<ConfigNode>("globalnode", "Global Node");
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
