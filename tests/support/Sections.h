#pragma once

#include "config/Config.h"
#include "config/ConfigNode.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

// Settings of mounts in the tree, as the file would put them there.
using Settings = std::vector<std::pair<std::string, std::string>>;

inline std::shared_ptr<ConfigNode> Defaults() { return Config::Get("Default", true); }
inline std::shared_ptr<ConfigNode> Sections() { return Config::Get("Source", true); }

// Adds a section of this key with these settings; keys may repeat.
inline std::shared_ptr<ConfigNode> AddSection(const std::string& key, const Settings& settings) {
    const auto section = Sections()->GetChild(key, true);
    for (const auto& [name, value] : settings)
        section->AddChild(std::make_shared<ConfigNode>(name, ""))->SetValue(value);
    return section;
}

// Changes a setting while whoever listens on it lives; the empty value deletes it.
inline void Set(const std::shared_ptr<ConfigNode>& section, const std::string& key,
                const std::string& value) {
    section->GetChild(key, true)->SetValue(value);
}
