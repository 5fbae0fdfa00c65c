#include "web/SettingsForm.h"

#include "config/ConfigNode.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "web/FormFields.h"

#include <algorithm>
#include <cstdlib>

namespace {

std::string lower(std::string text) { return tolower(text); }

} // namespace

void SettingsForm::Save(const Request& request) const {
    if (request.GetFormField("action") != "Save") return;
    for (const std::string& field : request.GetAllFormFields()) {
        if (field == "action") continue;
        const std::string name = one_line(field);
        const std::string value = one_line(request.GetFormField(field));
        if (is_number(name))
            set(std::strtoull(name.c_str(), nullptr, 10), value);
        else
            add(name, value);
    }
}

// The empty value deletes the key.
void SettingsForm::set(unsigned long long id, const std::string& value) const {
    const auto child = section->GetChild(id);
    if (!hidden.contains(child->GetKey(false))) child->SetValue(value);
}

void SettingsForm::add(const std::string& key, const std::string& value) const {
    if (value.empty() || !is_key(key) || hidden.contains(lower(key))) return;
    section->AddChild(std::make_shared<ConfigNode>(key, ""))->SetValue(value);
}

// Whether the file gives the text back as the key of a setting. On a line of a mount the first
// digit ends the key.
bool SettingsForm::is_key(const std::string& text) const {
    if (text.empty() || text.find_first_of("; \t") == 0) return false;
    return text.find_first_of(of_mount ? "=0123456789" : "=") == text.npos;
}

SettingsForm::Nodes SettingsForm::Shown() const {
    Nodes nodes = section->GetAllChildren(sorted);
    std::erase_if(nodes, [this](const auto& node) { return hidden.contains(node->GetKey(false)); });
    return nodes;
}

std::vector<std::string> SettingsForm::Offered() const {
    Keys taken = unfit;
    for (const auto& node : Shown())
        if (!repeatable.contains(node->GetKey(false))) taken.insert(node->GetKey(false));
    std::vector<std::string> keys = known;
    std::erase_if(keys, [&](const std::string& key) { return taken.contains(lower(key)); });
    return keys;
}
