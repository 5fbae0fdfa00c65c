#include "web/StreamActions.h"

#include "config/ConfigNode.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/FormFields.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <string_view>

namespace {

using Mounts = std::vector<std::shared_ptr<Mount>>;

struct MountAction {
    std::string_view word;
    void (*act)(Mount& mount);
};

void kick(Mount& mount) { mount.Kick(); }

// The mount hears of the change from its settings, and so does the file.
void disable(Mount& mount) { mount.GetConfigNode()->GetChild("Disabled", true)->SetValue(true); }

void enable(Mount& mount) { mount.GetConfigNode()->GetChild("Disabled", false)->SetValue(""); }

void reset_stats(Mount& mount) { mount.ResetStats(); }

void remove(Mount& mount) { MountList::Remove(mount.shared_from_this()); }

const MountAction LIST_ACTIONS[] = {{"Kick", kick}, {"Disable", disable}, {"Enable", enable}};
const MountAction ADMIN_LIST_ACTIONS[] = {{"Delete", remove}};
const MountAction MOUNT_ACTIONS[] = {
    {"Enable", enable}, {"Disable", disable}, {"Kick", kick}, {"Reset Stats", reset_stats}};

template <std::size_t Count>
const MountAction* find_action(const MountAction (&table)[Count], const std::string& word) {
    const auto place = std::find_if(std::begin(table), std::end(table),
                                    [&](const MountAction& action) { return action.word == word; });
    return place == std::end(table) ? nullptr : place;
}

// An address as it can stand in the settings file: one line, and a path. Empty when it cannot.
std::string address_of(const std::string& field) {
    std::string line = one_line(field);
    trim(line);
    if (line.empty()) return {};
    const std::string address = line.starts_with("/") ? line : "/" + line;
    return MountList::IsReservedAddress(address) ? "" : address;
}

// One at a time: a mount takes a free id when it is made, and holds it once it is listed.
void create_mount(const std::string& address) {
    static std::mutex creating;
    std::lock_guard guard(creating);
    MountList::Add(std::make_shared<Mount>(address, -1, std::make_shared<ConfigNode>()));
}

bool is_listed(const std::shared_ptr<Mount>& mount) {
    return MountList::GetMount(mount->GetID()) == mount;
}

Mounts ticked_mounts(const Request& request, const Mounts& mounts) {
    Mounts ticked;
    std::copy_if(mounts.begin(), mounts.end(), std::back_inserter(ticked), [&](const auto& mount) {
        return !request.GetFormField(mount->Address()).empty() && is_listed(mount);
    });
    return ticked;
}

} // namespace

void run_list_action(const Request& request, bool is_admin, Mounts& mounts) {
    const std::string word = request.GetFormField("action");
    if (word == "Create" && is_admin) {
        const std::string address = address_of(request.GetFormField("addr"));
        if (address.empty()) return;
        create_mount(address);
        mounts = MountList::GetAllMounts(false);
        return;
    }
    const MountAction* action = find_action(LIST_ACTIONS, word);
    if (action == nullptr && is_admin) action = find_action(ADMIN_LIST_ACTIONS, word);
    if (action == nullptr) return;
    for (const auto& mount : ticked_mounts(request, mounts)) {
        action->act(*mount);
        if (!is_listed(mount)) std::erase(mounts, mount);
    }
}

void run_mount_action(const Request& request, Mount& mount) {
    if (const MountAction* action = find_action(MOUNT_ACTIONS, request.GetFormField("action")))
        action->act(mount);
}
