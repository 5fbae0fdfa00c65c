#include "streaming/MountList.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "streaming/Receiver.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <atomic>
#include <numeric>
#include <utility>

namespace {
constexpr int HIGHEST_ID = 0x7ffffffe;

using Snapshot = std::shared_ptr<const MountList::Map>;

spinlock mount_list_lock; // for whoever changes the map: copy, change, publish
shared_cell<const MountList::Map> mount_list(std::make_shared<const MountList::Map>());

std::atomic<std::uint64_t> total_receivers{0};
std::atomic<std::uint64_t> total_peak_receivers{0};
std::atomic<std::uint64_t> total_unique_receivers{0};
std::atomic<std::uint64_t> total_active_mounts{0};

// False when its address is taken.
bool insert(const std::shared_ptr<Mount>& mount) {
    spin_guard guard(mount_list_lock);
    auto changed = std::make_shared<MountList::Map>(*mount_list.load());
    if (!changed->emplace(mount->Address(), mount).second) return false;
    mount_list.store(std::move(changed));
    return true;
}

bool is_listed(const Mount& mount) {
    const Snapshot mounts = mount_list.load();
    const auto place = mounts->find(mount.Address());
    return place != mounts->end() && place->second.get() == &mount;
}

void erase(const Mount& mount) {
    spin_guard guard(mount_list_lock);
    auto changed = std::make_shared<MountList::Map>(*mount_list.load());
    changed->erase(mount.Address());
    mount_list.store(std::move(changed));
}

// A mount made while the server runs gets a section in the settings, so that it is saved with
// them. A former mount of the same id may have left an empty one, which then serves again: two of
// one key would be taken for two mounts.
void give_section(Mount& mount) {
    const std::shared_ptr<ConfigNode> node = mount.GetConfigNode();
    if (!node->GetKey(true).empty()) return;
    const std::string key = tostring(mount.GetID());
    const std::shared_ptr<ConfigNode> sources = Config::Get("Source", true);
    if (sources->ChildExists(key)) {
        mount.SetConfigNode(sources->GetChild(key, true));
    } else {
        node->SetKey(key);
        sources->AddChild(node);
    }
    mount.GetConfigNode()->GetChild("Mount", true)->SetValue(mount.Address());
}

// Requests are the panel's before they are a mount's.
void warn_if_hidden(const Mount& mount) {
    if (WebPanel::Shadows(mount.Address()))
        LogWrite(2) << "Warning: Mount " << log_text(mount.Address())
                    << " lies at an address of the web panel and cannot be reached there."
                    << std::endl;
}

// The mount for a local address, as far as mounts are assigned to one.
std::shared_ptr<Mount> assigned_mount(const MountList::Map& mounts, const std::string& ip,
                                      const std::string& port) {
    for (const auto& [address, mount] : mounts) {
        const std::string wanted_ip = mount->GetAssignedIP();
        const std::string wanted_port = mount->GetAssignedPort();
        if (wanted_ip.empty() && wanted_port.empty()) continue;
        if (!wanted_ip.empty() && wanted_ip != ip) continue;
        if (!wanted_port.empty() && wanted_port != port) continue;
        return mount;
    }
    return nullptr;
}

std::shared_ptr<Mount> symlinked_mount(const MountList::Map& mounts, const std::string& address) {
    const auto place = std::find_if(mounts.begin(), mounts.end(), [&](const auto& entry) {
        return entry.second->IsSymLink(address);
    });
    return place == mounts.end() ? nullptr : place->second;
}

template <typename Figure> std::uint64_t sum_over_mounts(const Snapshot& mounts, Figure figure) {
    return std::accumulate(
        mounts->begin(), mounts->end(), std::uint64_t{0},
        [&](std::uint64_t sum, const auto& entry) { return sum + figure(*entry.second); });
}

std::uint64_t receiver_bitrate(const Mount& mount) {
    std::uint64_t sum = 0;
    for (const auto& receiver : mount.GetReceiverList())
        sum += receiver->GetBitrate(true);
    return sum;
}
} // namespace

std::atomic<bool> MountList::ready{false};
std::atomic<time_t> MountList::start_time{0};

bool MountList::Ready() { return ready; }

time_t MountList::StartTime() { return start_time; }

bool MountList::IsReservedAddress(const std::string& address) {
    return address == "/" || address.find("/;") != std::string::npos;
}

void MountList::Add(const std::shared_ptr<Mount>& mount) {
    if (!insert(mount)) {
        LogWrite(2) << "Mount " << mount->Address()
                    << " already defined, discarding additional duplicates." << std::endl;
        return;
    }
    warn_if_hidden(*mount);
    mount->Start();
    give_section(*mount);
}

// The mount's end is told to the applications that its settings name, so these go after it; and it
// holds its id until they are gone, so that no new one finds them there.
void MountList::Remove(const std::shared_ptr<Mount>& mount) {
    // Whoever removes it a second time finds its section and its id with a mount that came later.
    if (!is_listed(*mount) || !mount->Dismiss()) return;
    mount->WaitForStop();
    mount->KickReceivers(); // a disabled one has no thread to do it, but a fallback to be heard
    mount->DeleteConfigNode();
    UserList::MountRemoved(mount->GetID());
    erase(*mount);
}

std::shared_ptr<Mount> MountList::GetMount(int id) {
    const Snapshot mounts = mount_list.load();
    const auto place = std::find_if(mounts->begin(), mounts->end(), [id](const auto& entry) {
        return entry.second->GetID() == id;
    });
    return place == mounts->end() ? nullptr : place->second;
}

std::shared_ptr<Mount> MountList::GetMount(std::string address, const std::string& ip,
                                           const std::string& port) {
    // Players of SHOUTcast streams ask for "/;stream.mp3" and mean the default.
    if (address.find("/;") != std::string::npos) address = "/";
    const Snapshot mounts = mount_list.load();
    if (address == "/" && !(ip.empty() && port.empty()))
        if (auto mount = assigned_mount(*mounts, ip, port)) return mount;
    const auto place = mounts->find(address);
    return place != mounts->end() ? place->second : symlinked_mount(*mounts, address);
}

std::vector<std::shared_ptr<Mount>> MountList::GetAllMounts(bool shown) {
    std::vector<std::shared_ptr<Mount>> all;
    const Snapshot mounts = mount_list.load();
    for (const auto& [address, mount] : *mounts)
        if (!shown || (mount->IsConnected() && !mount->AuthRequired())) all.push_back(mount);
    return all;
}

std::vector<std::shared_ptr<Mount>>
MountList::GetAllMountsByCredentials(const std::shared_ptr<User>& user, bool connected) {
    const bool administrator = user->GetGroup() == User::ADMINISTRATOR;
    const User::Properties rights = user->GetAllProperties(User::EVERY_MOUNT, false);
    std::vector<std::shared_ptr<Mount>> all = GetAllMounts(false);
    std::erase_if(all, [&](const std::shared_ptr<Mount>& mount) {
        const bool has_right =
            administrator || rights.contains(User::EVERY_MOUNT) || rights.contains(mount->GetID());
        return !has_right || (connected && !mount->IsConnected());
    });
    if (!administrator)
        std::stable_sort(all.begin(), all.end(),
                         [](const auto& a, const auto& b) { return a->GetID() < b->GetID(); });
    return all;
}

std::shared_ptr<Mount> MountList::GetActiveMountCredentialsByUsername(const std::string& user,
                                                                      const std::string& pass) {
    if (user.empty() || pass.empty()) return nullptr; // a name alone is no login
    const std::shared_ptr<User> account = UserList::Get(user, pass);
    if (account == UserList::GetAnonymousUser()) return nullptr;
    const Snapshot mounts = mount_list.load();
    for (const auto& [address, mount] : *mounts)
        if (mount->IsConnected() && mount->GetSourceAccount() == account) return mount;
    return nullptr;
}

int MountList::GetNextFreeID() {
    const Snapshot mounts = mount_list.load();
    std::vector<int> taken;
    for (const auto& [address, mount] : *mounts)
        taken.push_back(mount->GetID());
    std::sort(taken.begin(), taken.end());
    int free = 1;
    for (const int id : taken)
        if (id == free) ++free;
    return free > HIGHEST_ID ? -1 : free;
}

void MountList::SignalStop() {
    ready = false;
    const Snapshot mounts = mount_list.load();
    for (const auto& [address, mount] : *mounts)
        mount->SignalStop();
}

void MountList::WaitForStop() {
    ready = false;
    const Snapshot mounts = mount_list.load();
    for (const auto& [address, mount] : *mounts)
        mount->WaitForStop();
    spin_guard guard(mount_list_lock);
    mount_list.store(std::make_shared<const Map>());
}

void MountList::IncTotalReceivers(int delta) {
    const auto step = static_cast<std::uint64_t>(delta);
    const std::uint64_t total = total_receivers.fetch_add(step) + step;
    if (delta <= 0) return;
    std::uint64_t peak = total_peak_receivers;
    while (peak < total && !total_peak_receivers.compare_exchange_weak(peak, total)) {
    }
}

std::uint64_t MountList::TotalReceivers() { return total_receivers; }

std::uint64_t MountList::TotalPeakReceivers() { return total_peak_receivers; }

void MountList::IncTotalUniqueReceivers(int delta) {
    total_unique_receivers += static_cast<std::uint64_t>(delta);
}

std::uint64_t MountList::TotalUniqueReceivers() { return total_unique_receivers; }

void MountList::IncTotalActiveMounts(int delta) {
    total_active_mounts += static_cast<std::uint64_t>(delta);
}

std::uint64_t MountList::TotalActiveMounts() { return total_active_mounts; }

std::uint64_t MountList::TotalBytesReceived() {
    return sum_over_mounts(mount_list.load(), [](const Mount& m) { return m.BytesReceived(); });
}

std::uint64_t MountList::TotalSourceBitrate() {
    return sum_over_mounts(mount_list.load(),
                           [](const Mount& m) { return m.IsConnected() ? m.GetBitrate(true) : 0; });
}

std::uint64_t MountList::TotalReceiverBitrate() {
    return sum_over_mounts(mount_list.load(), [](const Mount& m) {
        return m.IsConnected() ? receiver_bitrate(m) : 0;
    });
}
