#include "config/ConfigSave.h"

#include "config/ConfigNodes.h"
#include "core/OSTools.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

using namespace config_nodes;

namespace {

// A value with a line end would be a setting of its own when the file is read again.
std::string as_one_line(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    return text;
}

std::string setting(const std::string& prefix, const Node& node, const std::string& index) {
    return prefix + as_one_line(node->GetKey(true)) + index + "=" +
           as_one_line(node->GetValue("")) + "\n";
}

Nodes global_settings(const Node& root) {
    Nodes nodes = root->GetAllChildren(false);
    std::erase_if(
        nodes, [](const Node& node) { return key_is(node, "Default") || key_is(node, "Source"); });
    return nodes;
}

// The index of a section that did not come from this file may be no number; its lines must have
// one.
std::string index_of(const Node& section) {
    return tostring(std::strtol(section->GetKey(true).c_str(), nullptr, 10));
}

class Merger final : public ConfigVisitor {
public:
    explicit Merger(const Node& root)
        : globals(global_settings(root)),
          defaults(root->GetChild("Default", false)->GetAllChildren(false)),
          mounts(root->GetChild("Source", false)->GetAllChildren(false)) {}

    void OnBegin(const std::string& path) override { open_files.push_back({path, ""}); }
    void OnEnd() override;
    void OnOther(std::string_view text) override { pending.append(text).append("\n"); }
    void OnInclude(std::string_view text) override;
    void OnSetting(const ConfigLine& line, unsigned long number) override;

    std::vector<ConfigOutput> Outputs() { return std::move(done); }

private:
    struct Section {
        std::string index;
        Nodes unwritten;
    };

    void write(const std::string& text) { open_files.back().text += text; }
    void write_pending();
    void write_rest();
    void merge_top_level(const ConfigLine& line, const std::string& prefix, Nodes& unwritten);
    void merge_into_section(const ConfigLine& line);
    void open_section(const Node& node);
    void close_section();

    Nodes globals; // of each parent: the nodes not written so far
    Nodes defaults;
    Nodes mounts;
    std::vector<ConfigOutput> open_files;
    std::vector<ConfigOutput> done;
    std::string pending; // comments, until it is known what stands below them
    std::optional<Section> section;
};

void Merger::OnEnd() {
    close_section();
    write_pending();
    if (open_files.size() == 1) write_rest();
    done.push_back(std::move(open_files.back()));
    open_files.pop_back();
}

void Merger::OnInclude(std::string_view text) {
    close_section();
    write_pending();
    write(std::string(text) + "\n");
}

void Merger::OnSetting(const ConfigLine& line, unsigned long) {
    switch (line.kind) {
    case ConfigLine::Kind::GLOBAL:
        merge_top_level(line, "", globals);
        break;
    case ConfigLine::Kind::DEFAULT:
        merge_top_level(line, "Default", defaults);
        break;
    case ConfigLine::Kind::INDEXED_MOUNT:
        if (!section || section->index != line.index) open_section(take_key(mounts, line.index));
        merge_into_section(line);
        break;
    case ConfigLine::Kind::OPENS_MOUNT:
        open_section(
            take(mounts, [&](const Node& node) { return is_mounted_at(node, line.value); }));
        merge_into_section(line);
        break;
    case ConfigLine::Kind::MOUNT:
        merge_into_section(line);
        break;
    case ConfigLine::Kind::NO_SETTING:
    case ConfigLine::Kind::INCLUDE:
        break; // the walk keeps them
    }
}

void Merger::write_pending() {
    write(pending);
    pending.clear();
}

void Merger::merge_top_level(const ConfigLine& line, const std::string& prefix, Nodes& unwritten) {
    close_section();
    write_pending();
    if (const Node node = take_key(unwritten, line.name)) write(setting(prefix, node, ""));
}

// The lines of a section that left the tree are dropped; a comment above them waits for the next.
void Merger::merge_into_section(const ConfigLine& line) {
    if (!section) return;
    write_pending();
    if (const Node node = take_key(section->unwritten, line.name))
        write(setting("Source", node, section->index));
}

void Merger::open_section(const Node& node) {
    close_section();
    write_pending();
    if (node) section = Section{index_of(node), node->GetAllChildren(false)};
}

// What the section has beyond its lines goes below the last of them.
void Merger::close_section() {
    if (!section) return;
    for (const Node& node : section->unwritten)
        write(setting("Source", node, section->index));
    section.reset();
}

void Merger::write_rest() {
    for (const Node& node : globals)
        write(setting("", node, ""));
    for (const Node& node : defaults)
        write(setting("Default", node, ""));
    for (const Node& node : mounts) {
        open_section(node);
        close_section();
    }
}

} // namespace

MergedConfig MergeConfig(const std::string& path, const ConfigReader& reader, const Node& root) {
    Merger merger(root);
    ConfigWalk walk(reader, merger);
    const bool found = walk.Run(path) == ConfigText::Result::READ;
    if (!found) {
        merger.OnBegin(path);
        merger.OnEnd();
    }
    return {.found = found, .incomplete = walk.IsIncomplete(), .outputs = merger.Outputs()};
}
