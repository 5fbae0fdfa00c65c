#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "core/OSTools.h"
#include "streaming/Mount.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <utility>

namespace {
// Offered by configuration pages, in this order.
constexpr const char* KNOWN_CONFIG_VARS[] = {
    "Auth",
    "AvgBitrateLimit",
    "Backup",
    "Directory",
    "DisconnectWait",
    "Intro",
    "IP",
    "IPUserMax",
    "IsDefault",
    "ListenerTimer",
    "MetaInterval",
    "NameFormat",
    "Note",
    "NotifyAuthHeader",
    "NotifyAuthRealm",
    "NotifyListenerAdd",
    "NotifyListenerRemove",
    "NotifyMountAdd",
    "NotifyMountRemove",
    "NotifyPass",
    "NotifyTimeLimitHeader",
    "NotifyUser",
    "Port",
    "Public",
    "PublicRelays",
    "Relay",
    "ShowLastSongs",
    "UserMax",
};

// Kept: keywords count in this spelling only; any other text leaves it to the source.
Mount::PublicState public_state_of(const std::string& keyword) {
    if (keyword == "never") return Mount::PublicState::NEVER;
    if (keyword == "always") return Mount::PublicState::ALWAYS;
    return Mount::PublicState::SOURCE;
}

std::vector<std::string> relays_of(const ConfigNode& section) {
    std::vector<std::string> urls;
    for (const auto& relay : section.GetChildren("Relay"))
        if (std::string url = relay->GetValue(""); !url.empty()) urls.push_back(std::move(url));
    return urls;
}
} // namespace

// The value of a key: the mount's own, else that of the section "Default", else `otherwise`.
class Mount::SettingValue {
public:
    // `live` for a change while the mount exists, as opposed to its first reading.
    SettingValue(const Mount& mount, const SettingKey& row, bool live);

    std::string Text(const std::string& otherwise = {}) const {
        return own->GetValue(shared->GetValue(otherwise));
    }
    int Number(int otherwise) const { return own->GetValue(shared->GetValue(otherwise)); }
    bool Flag(bool otherwise) const { return own->GetValue(shared->GetValue(otherwise)); }
    bool Live() const { return live; }

private:
    const std::shared_ptr<ConfigNode> own;
    const std::shared_ptr<ConfigNode> shared;
    const bool live;
};

struct Mount::SettingKey {
    const char* key;
    void (*take)(Mount& mount, const SettingValue& value);
    const char* key_in_default = key;

    bool Is(const std::string& lower_key, bool in_default) const {
        std::string own = in_default ? key_in_default : key;
        return tolower(own) == lower_key;
    }
};

Mount::SettingValue::SettingValue(const Mount& mount, const SettingKey& row, bool is_live)
    : own(mount.GetConfigNode()->GetChild(row.key, false)),
      shared(mount.default_node->GetChild(row.key_in_default, false)), live(is_live) {}

// The one place that names the keys, their hard defaults and what each of them does. `Relay`,
// `User` and `Pass` follow rules of their own, below.
const Mount::SettingKey Mount::SETTING_KEYS[] = {
    {"Auth",
     [](Mount& m, const SettingValue& v) {
         m.auth_required = v.Flag(false);
         m.settle_publication();
     }},
    // Kept: unset it is -1 at first, a limit out of reach, and 0, none, after a change.
    {"AvgBitrateLimit",
     [](Mount& m, const SettingValue& v) {
         m.SetBitrateLimit(static_cast<std::uint64_t>(v.Number(v.Live() ? 0 : -1)));
     }},
    {"Backup", [](Mount& m, const SettingValue& v) { m.take_text(&Mount::fallback, v.Text()); }},
    {"Disabled", [](Mount& m, const SettingValue& v) { m.apply_disabled(v.Flag(false)); }},
    {"DisconnectWait",
     [](Mount& m, const SettingValue& v) {
         m.SetRelayDisconnectWaitTime(static_cast<unsigned int>(std::max(v.Number(0), 0)));
     }},
    {"Intro", [](Mount& m, const SettingValue& v) { m.SetIntroFile(v.Text()); }},
    {"IP", [](Mount& m, const SettingValue& v) { m.take_text(&Mount::assigned_ip, v.Text()); }},
    {"IPUserMax", [](Mount& m, const SettingValue& v) { m.SetIPMaxReceivers(v.Number(-1)); }},
    {"IsDefault", [](Mount& m, const SettingValue& v) { m.set_default(v.Flag(false)); }},
    {"ListenerTimer",
     [](Mount& m, const SettingValue& v) {
         m.listener_timer = std::strtoull(v.Text("0").c_str(), nullptr, 10);
     }},
    {"MetaInterval", [](Mount& m, const SettingValue& v) { m.SetMetaInterval(v.Number(8192)); }},
    {"NameFormat", [](Mount& m, const SettingValue& v) { m.SetNameFormat(v.Text()); }},
    {"NotifyAuthHeader",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::auth_header, v.Text("icecast-auth-user"));
     }},
    {"NotifyAuthRealm",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::auth_realm, v.Text());
     }},
    {"NotifyListenerAdd",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::listener_add, v.Text());
     }},
    {"NotifyListenerRemove",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::listener_remove, v.Text());
     }},
    {"NotifyMountAdd",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::mount_add, v.Text());
     }},
    {"NotifyMountRemove",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::mount_remove, v.Text());
     }},
    {"NotifyPass",
     [](Mount& m, const SettingValue& v) { m.take_text(&MountNotifications::pass, v.Text()); }},
    // Kept: "Default" knows this one by a shorter name. Files have it in that form.
    {"NotifyTimelimitHeader",
     [](Mount& m, const SettingValue& v) {
         m.take_text(&MountNotifications::timelimit_header, v.Text("icecast-auth-timelimit"));
     },
     "TimelimitHeader"},
    {"NotifyUser",
     [](Mount& m, const SettingValue& v) { m.take_text(&MountNotifications::user, v.Text()); }},
    {"Port", [](Mount& m, const SettingValue& v) { m.take_text(&Mount::assigned_port, v.Text()); }},
    {"Public", [](Mount& m, const SettingValue& v) { m.SetPublicState(public_state_of(v.Text())); }},
    {"PublicRelays", [](Mount& m, const SettingValue& v) { m.public_relays = v.Flag(true); }},
    {"ShowLastSongs",
     [](Mount& m, const SettingValue& v) {
         const int most = std::numeric_limits<unsigned short>::max();
         m.SetSongHistoryLength(static_cast<unsigned short>(std::min(v.Number(20), most)));
     }},
    {"UserMax", [](Mount& m, const SettingValue& v) { m.SetMaxReceivers(v.Number(-1)); }},
};

std::vector<std::string> Mount::GetKnownConfigKeys() {
    return {std::begin(KNOWN_CONFIG_VARS), std::end(KNOWN_CONFIG_VARS)};
}

void Mount::SetConfigNode(const std::shared_ptr<ConfigNode>& node) {
    const std::shared_ptr<ConfigNode> former = config_node.exchange(node);
    if (former) former->RemoveListener(this);
    node->AddListener(this);
    read_settings();
}

void Mount::DeleteConfigNode() {
    default_node->RemoveListener(this);
    GetConfigNode()->RemoveListener(this);
    GetConfigNode()->Delete();
}

// Never claims a change for itself: it has to reach the root, where it is saved.
bool Mount::OnConfigNodeChanged(std::shared_ptr<ConfigNode> node, std::string old_value) {
    const std::string key = node->GetKey(false);
    const bool in_default = node->GetParent() == default_node;
    if (key == "directory") follow_directory(old_value, node->GetValue(""));
    if (key == "relay") follow_relay(in_default, old_value, node->GetValue(""));
    if ((key == "user" || key == "pass") && !in_default) make_source_account();
    for (const SettingKey& row : SETTING_KEYS)
        if (row.Is(key, in_default) && changes(row, *node, old_value))
            row.take(*this, SettingValue(*this, row, true));
    return false;
}

// Whether the mount's value of this key is another one now. A new key is told of twice, the first
// time with an empty value; and a default counts as long as the section has no value.
bool Mount::changes(const SettingKey& row, ConfigNode& node, const std::string& old_value) const {
    if (node.GetParent() == default_node)
        return !has_own(row.key) && node.GetValue("") != old_value;
    const std::string shared = default_node->GetChild(row.key_in_default, false)->GetValue("");
    return node.GetValue(shared) != (old_value.empty() ? shared : old_value);
}

bool Mount::has_own(const std::string& key) const {
    return !GetConfigNode()->GetChild(key, false)->GetValue("").empty();
}

void Mount::read_settings() {
    for (const SettingKey& row : SETTING_KEYS)
        row.take(*this, SettingValue(*this, row, false));
    add_directories(*GetConfigNode());
    for (const std::string& url : relays_of(*GetConfigNode()))
        AddRelayAddress(url);
    settle_default_relays();
    make_source_account();
}

void Mount::follow_relay(bool in_default, const std::string& old_url, const std::string& new_url) {
    if (in_default && !relays_of(*GetConfigNode()).empty()) return;
    RemoveRelayAddress(old_url);
    AddRelayAddress(new_url);
    if (!in_default) settle_default_relays();
}

// The relays of "Default" serve as long as the section names none.
void Mount::settle_default_relays() {
    const std::vector<std::string> own = relays_of(*GetConfigNode());
    for (const std::string& url : relays_of(*default_node)) {
        if (own.empty())
            AddRelayAddress(url);
        else if (std::find(own.begin(), own.end(), url) == own.end())
            RemoveRelayAddress(url);
    }
}

// The account that the mount's own section names comes into being with rights on this mount. A
// manager of that name and password gets this mount as well, so that sections may share one; any
// other account keeps what it has.
void Mount::make_source_account() {
    const std::string user = GetConfigNode()->GetChild("User", false)->GetValue("");
    const std::string pass = GetConfigNode()->GetChild("Pass", false)->GetValue("");
    if (user.empty() || pass.empty()) return;
    const auto nobody = UserList::GetAnonymousUser();
    std::shared_ptr<User> account = UserList::Get(user, pass);
    if (account == nobody) {
        account = UserList::Add(user, pass);
        if (account == nobody) return;
        account->SetGroup(User::MOUNT_MANAGER);
    }
    if (account->GetGroup() == User::MOUNT_MANAGER) account->AddProperty(id, "*", User::ALL);
}

void Mount::set_default(bool is_default) {
    if (is_default) {
        SetSymLink("/");
        return;
    }
    spin_guard guard(symlinks_lock);
    symlinks.remove("/");
}

void Mount::take_text(std::string Mount::*field, const std::string& text) {
    spin_guard guard(settings_lock);
    this->*field = text;
}

void Mount::take_text(std::string MountNotifications::*field, const std::string& text) {
    spin_guard guard(settings_lock);
    notifications.*field = text;
}
