#pragma once

#include "config/ConfigWalk.h"

#include <map>
#include <set>
#include <string>

// Settings files that are in memory only. All others are missing.
struct MemoryFiles {
    std::map<std::string, std::string> texts;
    std::set<std::string> broken = {}; // there, and not to be read

    ConfigReader Reader() const {
        return [this](const std::string& path) -> ConfigText {
            if (broken.contains(path)) return {.result = ConfigText::Result::FAILED};
            const auto file = texts.find(path);
            if (file == texts.end()) return {.result = ConfigText::Result::MISSING};
            return {.result = ConfigText::Result::READ, .text = file->second, .identity = path};
        };
    }
};
