#include "config/ConfigLoad.h"

#include "config/ConfigNodes.h"
#include "core/Log.h"
#include "core/OSTools.h"

#include <algorithm>
#include <deque>

using namespace config_nodes;

namespace {

// A node leaves `unseen` with the first line that sets it. A key that stands twice in the file
// meets it no more and becomes a second node: that is how keys repeat, and how the same lines find
// the same nodes on a reload.
void apply(const ConfigLine& line, Nodes& unseen, const Node& parent) {
    Node node = take_key(unseen, line.name);
    if (!node) node = parent->AddChild(std::make_shared<ConfigNode>(line.name, ""));
    node->SetValue(line.value);
}

class Loader final : public ConfigVisitor {
public:
    explicit Loader(const Node& root_node)
        : root(root_node), defaults(root->GetChild("Default", true)),
          mounts(root->GetChild("Source", true)) {}

    void OnBegin(const std::string&) override {
        if (begun) return;
        begun = true;
        unseen_globals = root->GetAllChildren(false);
        unseen_defaults = defaults->GetAllChildren(false);
        unseen_sections = mounts->GetAllChildren(false);
    }
    void OnEnd() override {}
    void OnOther(std::string_view) override {}
    void OnInclude(std::string_view) override {}
    void OnSetting(const ConfigLine& line, unsigned long number) override;

    // The sections that left the file.
    Nodes Finish();

private:
    struct Section {
        Node node;
        Nodes unseen;
    };

    void open_section(const Node& section);
    Node section_of(const std::string& index);
    Node section_at(const std::string& address);
    void apply_to_section(const ConfigLine& line, const Node& section);
    void give_index(const Node& section);

    const Node root;
    const Node defaults;
    const Node mounts;
    bool begun = false;
    Nodes unseen_globals; // of each parent: the nodes not met in the file so far
    Nodes unseen_defaults;
    Nodes unseen_sections;
    std::deque<Section> sections; // of this file, the one opened last in front
    int next_index = 1;           // for the sections without one
};

void Loader::OnSetting(const ConfigLine& line, unsigned long number) {
    switch (line.kind) {
    case ConfigLine::Kind::GLOBAL:
        apply(line, unseen_globals, root);
        break;
    case ConfigLine::Kind::DEFAULT:
        apply(line, unseen_defaults, defaults);
        break;
    case ConfigLine::Kind::INDEXED_MOUNT:
        apply_to_section(line, section_of(line.index));
        break;
    case ConfigLine::Kind::OPENS_MOUNT:
        LogWrite(2) << "Configuration Warning: Detected old style Source definition " << line.key
                    << " on line " << number << ".  Please start using indexes when possible."
                    << std::endl;
        apply_to_section(line, section_at(line.value));
        break;
    case ConfigLine::Kind::MOUNT:
        if (!sections.empty())
            apply_to_section(line, sections.front().node);
        else
            LogWrite(2) << "Configuration Warning: Source definition " << line.key
                        << " is missing its index at line " << number << ", ignored." << std::endl;
        break;
    case ConfigLine::Kind::NO_SETTING:
    case ConfigLine::Kind::INCLUDE:
        break; // the walk keeps them
    }
}

void Loader::open_section(const Node& section) {
    sections.push_front({section, section->GetAllChildren(false)});
}

Node Loader::section_of(const std::string& index) {
    const auto open =
        std::ranges::find_if(sections, [&](const Section& s) { return key_is(s.node, index); });
    if (open != sections.end()) return open->node;
    Node section = take_key(unseen_sections, index);
    if (!section) section = mounts->GetChild(index, true);
    open_section(section);
    return section;
}

// A section that was not there yet stands outside the tree until Finish gives it an index.
Node Loader::section_at(const std::string& address) {
    Node section =
        take(unseen_sections, [&](const Node& known) { return is_mounted_at(known, address); });
    if (!section) section = std::make_shared<ConfigNode>();
    open_section(section);
    return section;
}

// Kept: the nodes of the section opened last are looked at, even where the line is of another one.
// Files of hand-made order, with the lines of two sections mixed, have always been read that way.
void Loader::apply_to_section(const ConfigLine& line, const Node& section) {
    apply(line, sections.front().unseen, section);
}

Nodes Loader::Finish() {
    for (const Section& section : sections) {
        if (section.node->GetKey(true).empty())
            give_index(section.node);
        else
            for (const Node& gone : section.unseen)
                gone->SetValue("");
    }
    return unseen_sections;
}

void Loader::give_index(const Node& section) {
    while (mounts->ChildExists(tostring(next_index)))
        ++next_index;
    section->SetKey(tostring(next_index));
    mounts->AddChild(section);
}

} // namespace

std::optional<Nodes> LoadConfig(const std::string& path, const ConfigReader& reader,
                                const Node& root) {
    Loader loader(root);
    if (ConfigWalk(reader, loader).Run(path) != ConfigText::Result::READ) return std::nullopt;
    return loader.Finish();
}
