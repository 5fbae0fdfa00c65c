#include "streaming/Mount.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "core/OSTools.h"
#include "directory/Publication.h"
#include "media/Metadata.h"
#include "streaming/MountList.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {
constexpr int SMALLEST_META_INTERVAL = 1024;
constexpr unsigned short LONGEST_HISTORY = 50;
constexpr std::uint64_t KILO = 1000;
} // namespace

Mount::Mount(std::string mount_address, int mount_id, const std::shared_ptr<ConfigNode>& node)
    : id(mount_id == -1 ? MountList::GetNextFreeID() : mount_id), address(std::move(mount_address)),
      publication(std::make_shared<Publication>(address)),
      default_node(Config::Get("Default", true)), last_snap(now()) {
    add_directories(*default_node);
    SetConfigNode(node != nullptr ? node : std::make_shared<ConfigNode>());
    default_node->AddListener(this);
}

Mount::~Mount() {
    default_node->RemoveListener(this);
    GetConfigNode()->RemoveListener(this);
    if (!thread.joinable()) return;
    // Whoever held the mount last was its own thread, or nobody waited for its end.
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else
        thread.join();
}

std::string Mount::Name() const {
    spin_guard guard(settings_lock);
    return get_name();
}

std::string Mount::Description() const {
    spin_guard guard(settings_lock);
    return description;
}

std::string Mount::Genre() const {
    spin_guard guard(settings_lock);
    return genre;
}

std::string Mount::Bitrate() const {
    spin_guard guard(settings_lock);
    return bitrate;
}

std::string Mount::Website() const {
    spin_guard guard(settings_lock);
    return website;
}

std::string Mount::ContentType() const {
    spin_guard guard(settings_lock);
    return content_type;
}

std::string Mount::AudioInfo() const {
    spin_guard guard(settings_lock);
    return audio_info;
}

std::string Mount::LastIP() const {
    spin_guard guard(settings_lock);
    return last_ip;
}

std::string Mount::GetAssignedIP() const {
    spin_guard guard(settings_lock);
    return assigned_ip;
}

std::string Mount::GetAssignedPort() const {
    spin_guard guard(settings_lock);
    return assigned_port;
}

bool Mount::Public() const {
    spin_guard guard(settings_lock);
    return wants_publication();
}

bool Mount::PublicRelays() const {
    if (auth_required) return false;
    spin_guard guard(settings_lock);
    return source_public && public_relays;
}

std::string Mount::Realm() const {
    spin_guard guard(settings_lock);
    return notifications.listener_add.empty() ? std::string() : notifications.auth_realm;
}

MountNotifications Mount::GetNotifications() const {
    spin_guard guard(settings_lock);
    return notifications;
}

MountDescription Mount::GetMountDescription() const {
    spin_guard guard(settings_lock);
    return {.id = id,
            .address = address,
            .name = get_name(),
            .description = description,
            .genre = genre,
            .bitrate = bitrate,
            .website = website,
            .content_type = content_type,
            .audio_info = audio_info,
            .meta_interval = meta_interval,
            .listener_timer = listener_timer,
            .relay = relays.Current(),
            .is_public = wants_publication(),
            .connect_time = connect_time,
            .last_ip = last_ip};
}

std::string Mount::ToString() const {
    spin_guard guard(settings_lock);
    std::string text = running ? "1" : "0";
    text += connected ? "1" : "0";
    text += get_name();
    if (metadata) text += metadata->title;
    text += content_type;
    if (metadata) text += metadata->codec;
    return text + genre + tostring(receiver_count.load());
}

bool Mount::IsAuthenticated(const std::string&, const std::string&) const { return false; }

std::string Mount::get_name() const {
    if (name_format.empty()) return name;
    std::string text = name_format;
    for (std::size_t place = text.find("%s"); place != std::string::npos;
         place = text.find("%s", place + name.size()))
        text.replace(place, 2, name);
    return text;
}

bool Mount::wants_publication() const {
    if (auth_required || public_state == PublicState::NEVER) return false;
    return source_public || public_state == PublicState::ALWAYS;
}

void Mount::SetName(const std::string& text) {
    spin_guard guard(settings_lock);
    name = text;
}

void Mount::SetMetaInterval(int bytes) {
    meta_interval = static_cast<std::uint32_t>(std::max(bytes, SMALLEST_META_INTERVAL));
}

void Mount::SetRelayDisconnectWaitTime(unsigned int seconds) {
    if (seconds != 0) relay_wait = seconds;
}

void Mount::SetSongHistoryLength(unsigned short songs) {
    history_length = std::min(songs, LONGEST_HISTORY);
}

void Mount::SetBitrateLimit(std::uint64_t kilobits) { bitrate_limit = kilobits * KILO; }

void Mount::AddRelayAddress(const std::string& url) {
    {
        spin_guard guard(settings_lock);
        relays.Add(url);
    }
    wake();
}

void Mount::SetRelayAddress(const std::string& old_url, const std::string& new_url) {
    {
        spin_guard guard(settings_lock);
        relays.Set(old_url, new_url);
    }
    wake();
}

void Mount::RemoveRelayAddress(const std::string& url) {
    {
        spin_guard guard(settings_lock);
        relays.Remove(url);
    }
    wake();
}

std::string Mount::RelayAddress() const {
    spin_guard guard(settings_lock);
    return relays.Current();
}

bool Mount::IsSymLink(const std::string& other_address) const {
    static const std::string BY_ID = "/stream/";
    // Kept: what is no number reads as the id 0.
    if (other_address.starts_with(BY_ID))
        return std::strtol(other_address.c_str() + BY_ID.size(), nullptr, 10) == id;
    spin_guard guard(symlinks_lock);
    return std::find(symlinks.begin(), symlinks.end(), other_address) != symlinks.end();
}

bool Mount::SetSymLink(const std::string& other_address) {
    if (MountList::GetMount(other_address)) return false;
    spin_guard guard(symlinks_lock);
    symlinks.push_back(other_address);
    return true;
}
