#pragma once

#include "web/Html.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

class ConfigNode;
class Request;

// A page of settings: which keys it shows of which section, and which it offers to add. There is no
// list of allowed keys; every child of the section that is not hidden has a text box, named by its
// id.
struct SettingsForm {
    using Keys = std::set<std::string>; // lower-cased
    using Nodes = std::vector<std::shared_ptr<ConfigNode>>;

    html::Markup heading;
    std::shared_ptr<ConfigNode> section;
    bool sorted = false;
    bool of_mount = false; // the file puts a mount's number behind its keys
    Keys hidden = {};      // can neither be seen nor changed here
    Keys repeatable = {};  // are offered though they have a row
    Keys unfit = {};       // are known, but make no sense here
    std::vector<std::string> known = {};

    // Takes a post's new values into the section, whose listeners act on them at once. Nothing for
    // a request that does not save.
    void Save(const Request& request) const;
    Nodes Shown() const;
    // The known keys that may still be added.
    std::vector<std::string> Offered() const;

private:
    void set(unsigned long long id, const std::string& value) const;
    void add(const std::string& key, const std::string& value) const;
    bool is_key(const std::string& text) const;
};
