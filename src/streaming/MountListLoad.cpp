#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "streaming/MountList.h"

#include <cstdlib>

namespace {
int id_of(const ConfigNode& section) {
    return static_cast<int>(std::strtol(section.GetKey(true).c_str(), nullptr, 10));
}

// Why a section cannot be a mount, in the words of the log; empty when it can.
std::string section_fault(const std::string& key, const std::string& address) {
    const std::string setting = "SourceMount" + key;
    if (address.empty())
        return "Mount with no " + setting + " definition.  Please define " + setting + ".";
    if (!address.starts_with("/")) return setting + " must start with /.";
    if (MountList::IsReservedAddress(address))
        return "Definition of / or /;* as SourceMounts are illegal, use SourceIsDefault" + key +
               "=Yes instead.";
    return {};
}

void warn_of_repetition(const ConfigNode& section, const std::string& address) {
    if (section.GetChildren("mount").size() < 2) return;
    const std::string key = section.GetKey(true);
    LogWrite(2) << "Warning: Source " << key << " has multiple SourceMount" << key
                << " definitions.  Only one definition can be used.  Using SourceMount" << key
                << "=" << address << "." << std::endl;
}

void load_section(const std::shared_ptr<ConfigNode>& section) {
    const std::string key = section->GetKey(true);
    const std::string address = section->GetChild("mount", false)->GetValue("");
    const std::string fault = section_fault(key, address);
    if (!fault.empty()) {
        LogWrite(2) << "Configuration Error: " << fault << std::endl;
        return;
    }
    warn_of_repetition(*section, address);
    MountList::Add(std::make_shared<Mount>(address, id_of(*section), section));
}

std::vector<std::shared_ptr<ConfigNode>> sections() {
    return Config::Get("source", false)->GetAllChildren(false);
}
} // namespace

void MountList::Init() {
    start_time = now();
    for (const auto& section : sections())
        load_section(section);
    ready = true;
}

// A mount that exists hears of its settings by itself.
void MountList::Reload() {
    for (const auto& section : sections())
        if (!GetMount(id_of(*section))) load_section(section);
}
