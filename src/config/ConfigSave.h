#pragma once

#include "config/ConfigNode.h"
#include "config/ConfigWalk.h"

#include <memory>
#include <string>
#include <vector>

// A settings file as it is to be written.
struct ConfigOutput {
    std::string path;
    std::string text;
};

// The tree below root as text, merged into the settings file of this path and into the files that
// it includes: lines that are no settings stay, settings keep their place, those that left the tree
// go. New settings of a mount follow its last line, all others end the main file. A setting is one
// line: line ends and NUL bytes in keys and values become blanks. Nothing is written here.
struct MergedConfig {
    bool found = false;      // the main file could be read
    bool incomplete = false; // a file is there and could not: no file may be replaced
    std::vector<ConfigOutput> outputs = {}; // the main file last
};

MergedConfig MergeConfig(const std::string& path, const ConfigReader& reader,
                         const std::shared_ptr<ConfigNode>& root);
