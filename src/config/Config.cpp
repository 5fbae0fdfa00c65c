#include "config/Config.h"

#include "config/ConfigKey.h"
#include "config/ConfigLoad.h"
#include "config/ConfigSave.h"
#include "config/ConfigWatch.h"
#include "core/FileWriter.h"
#include "core/Log.h"
#include "streaming/MountList.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {

constexpr std::array KNOWN_CONFIG_VARS = {
    "ClientTimeout", "Debug",       "Hostname",
    "LogFile",       "MimeFile",    "NameLookups",
    "PidFile",       "PortBase",    "RealtimeLog",
    "ScreenLog",     "ServIP",      "SocketTimeout",
    "SrcIP",         "ThreadPool",  "WebLog",
    "YPLog",         "UploadLimit", "MaxRequestBufferSize",
};
constexpr mode_t NEW_FILE_MODE = 0600; // the file may hold passwords

std::shared_ptr<ConfigNode> make_root() {
    auto root = std::make_shared<ConfigNode>("globalnode", "Global Node");
    root->AddChild(std::make_shared<ConfigNode>("Default", "Defaults"));
    root->AddChild(std::make_shared<ConfigNode>("Source", "Sources"));
    return root;
}

// Never destroyed: threads may read settings until the very end of the process, and the watch may
// be in the middle of a notification when it is taken off the root.
struct Store {
    const std::shared_ptr<ConfigNode> config_node = make_root();
    ConfigWatch config_watch{Config::Save};
    std::mutex file_lock; // one load or save at a time
    spinlock config_lock;
    std::string config_file GUARDED_BY(config_lock) = "quillwave.conf";
    std::atomic<int> config_src{0};
};

Store& store() {
    static Store* const only = new Store;
    return *only;
}

std::atomic<unsigned long long> node_id{0};

std::string config_file() {
    spin_guard guard(store().config_lock);
    return store().config_file;
}

void watch_changes() { store().config_node->AddListener(&store().config_watch); }

void stop_watching() {
    store().config_node->RemoveListener(&store().config_watch);
    store().config_watch.Flush();
}

// Waits until the mount's thread has ended.
void remove_mount_of(const ConfigNode& section) {
    const auto id = static_cast<int>(std::strtol(section.GetKey(true).c_str(), nullptr, 10));
    if (const auto mount = MountList::GetMount(id)) MountList::Remove(mount);
}

} // namespace

bool Config::Init(const std::string& path) {
    if (!path.empty()) {
        spin_guard guard(store().config_lock);
        store().config_file = path;
    }
    const bool loaded = LoadQuillwave(config_file());
    watch_changes();
    return loaded;
}

void Config::Reload() {
    stop_watching();
    LogWrite(2) << "Configuration reload started" << std::endl;
    LoadQuillwave(config_file());
    watch_changes();
}

void Config::Save() { SaveQuillwave(config_file(), GetRoot()); }

void Config::SavePending() { stop_watching(); }

bool Config::LoadQuillwave(const std::string& path) {
    std::unique_lock guard(store().file_lock);
    const auto vanished = LoadConfig(path, ReadConfigFile, GetRoot());
    guard.unlock();
    if (!vanished) {
        LogWrite(2)
            << "WARNING: " << path
            << " could not be loaded. Please Configure via your web browser or provide a path to a "
               "configuration file if quillwave.conf is not located in the current working "
               "directory."
            << std::endl;
        return false;
    }
    store().config_src = 1;
    for (const auto& section : *vanished)
        remove_mount_of(*section);
    LogWrite(2) << "Configuration loaded from " << path << std::endl;
    return true;
}

bool Config::SaveQuillwave(const std::string& path, const std::shared_ptr<ConfigNode>& root) {
    const std::lock_guard guard(store().file_lock);
    const MergedConfig merged = MergeConfig(path, ReadConfigFile, root);
    if (merged.incomplete) {
        LogWrite(2) << "WARNING: " << path << " could not be saved" << std::endl;
        return merged.found;
    }
    for (const auto& output : merged.outputs)
        if (!WriteFileWhole(output.path, output.text, NEW_FILE_MODE))
            LogWrite(2) << "WARNING: " << output.path << " could not be saved" << std::endl;
    LogWrite(2) << "Configuration saved to " << path << std::endl;
    return merged.found;
}

std::shared_ptr<ConfigNode> Config::Get(const std::string& key, bool create) {
    return store().config_node->GetChild(key, create);
}

std::vector<std::shared_ptr<ConfigNode>> Config::GetAll(const std::string& key) {
    return store().config_node->GetChildren(key);
}

std::shared_ptr<ConfigNode> Config::GetRoot() { return store().config_node; }

std::vector<std::string> Config::GetKnownConfigKeys() {
    return {KNOWN_CONFIG_VARS.begin(), KNOWN_CONFIG_VARS.end()};
}

unsigned long long Config::GetNewNodeId() { return node_id++; }

int Config::GetLoadSource() { return store().config_src; }

bool Config::translate(std::string& value) {
    const auto is_any_of = [&](std::initializer_list<std::string_view> words) {
        return std::ranges::any_of(
            words, [&](std::string_view word) { return config_key::same(value, word); });
    };
    if (is_any_of({"yes", "true"}))
        value = "1";
    else if (is_any_of({"none", "no", "false"}))
        value = "0";
    else
        return false;
    return true;
}
