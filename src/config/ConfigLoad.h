#pragma once

#include "config/ConfigNode.h"
#include "config/ConfigWalk.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Reads a settings file into the tree below root, at the start and on a reload alike. Nodes that
// the file still has keep their identity, and listeners hear of what changes in the order of the
// file. Keys that left a section are emptied; global keys and defaults that left the file stay.
// Gives the sections that left the file, untouched, or nothing when the file could not be read.
std::optional<std::vector<std::shared_ptr<ConfigNode>>>
LoadConfig(const std::string& path, const ConfigReader& reader,
           const std::shared_ptr<ConfigNode>& root);
