#pragma once

#include "config/ConfigNode.h"

#include <memory>
#include <string>
#include <vector>

// The settings of the process: the tree, and the text file behind it.
// The tree exists from the first use on, with the sections "Default" and "Source" and nothing in
// them, and lives until the process ends. Any thread may call anything; one load or save runs at a
// time. Reading a setting takes the locks of the nodes it looks at and no other:
//     Config::Get("ClientTimeout", false)->GetValue(30)
class Config {
public:
    // Loads the file and from then on saves it by itself some 6 seconds after the last change. An
    // empty path stands for "quillwave.conf" in the working directory. False when the file could
    // not be opened; the server then runs on defaults.
    static bool Init(const std::string& path);
    // Reads the file again. The listeners hear of every value that changed, mounts whose section
    // left the file are removed; sections that are new wait for MountList::Reload.
    static void Reload();
    // Brings the file up to the tree and keeps its comments, order and includes.
    static void Save();
    // Does the save that waits for its time, if there is one, and ends the timer. For the end of
    // the process: what changes later is not saved by itself.
    static void SavePending();

    // True when the file could be opened.
    static bool LoadQuillwave(const std::string& path);
    // True when there was a file to merge with; what could not be written is logged.
    static bool SaveQuillwave(const std::string& path, const std::shared_ptr<ConfigNode>& root);

    // The first global key of this name, as ConfigNode::GetChild: never null.
    static std::shared_ptr<ConfigNode> Get(const std::string& key, bool create);
    // All global keys of this name, for those that repeat.
    static std::vector<std::shared_ptr<ConfigNode>> GetAll(const std::string& key);
    static std::shared_ptr<ConfigNode> GetRoot();

    // The global keys that the panel offers.
    static std::vector<std::string> GetKnownConfigKeys();
    static unsigned long long GetNewNodeId();
    // 1 once a file was opened, 0 before.
    static int GetLoadSource();
    // Turns "yes" and "true" into "1", "none", "no" and "false" into "0", in any case, and returns
    // true; other texts stay.
    static bool translate(std::string& value);
};
