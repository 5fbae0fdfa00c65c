#include "accounts/User.h"

#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"

#include <algorithm>
#include <utility>

namespace {

const std::string EVERY_REQUEST = "*";

// The filter as it is stored: a subnet needs a range. Empty when nothing can be made of it.
std::pair<std::string, User::RequestProperty> completed(const std::string& filter,
                                                        User::RequestProperty type) {
    if (type != User::SUBNET || filter.find('/') != filter.npos) return {filter, type};
    if (const auto dot = filter.rfind('.'); dot != filter.npos)
        return {filter.substr(0, dot) + ".0/24", type};
    if (filter.find(':') != filter.npos) return {filter, User::IP};
    return {};
}

struct Client {
    std::string ip;
    std::string user_agent;
};

bool fits(const std::string& filter, User::RequestProperty type, const Client& client) {
    switch (type) {
    case User::IP:
        return filter == client.ip;
    case User::SUBNET:
        return InIPRange(filter, client.ip) == 1;
    case User::USER_AGENT:
        return filter == client.user_agent;
    case User::NONE:
    case User::ALL:
        break;
    }
    return false;
}

} // namespace

User::User(std::string name, std::string pass, EncryptionType type, bool clear_salt,
           std::string new_salt)
    : username(std::move(name)), password(std::move(pass)), encryption(type) {
    if (!clear_salt) salt = std::move(new_salt);
}

std::string User::Username() const {
    spin_guard guard(lock);
    return username;
}

std::string User::Password() const {
    spin_guard guard(lock);
    return password;
}

void User::SetPassword(const std::string& new_password) {
    spin_guard guard(lock);
    password = new_password;
    salt.clear();
}

User::UserGroup User::GetGroup() const {
    spin_guard guard(lock);
    return group;
}

void User::SetGroup(UserGroup new_group) {
    spin_guard guard(lock);
    group = new_group;
}

bool User::Authenticate(const std::string& attempt) const {
    spin_guard guard(lock);
    return attempt == password;
}

// ---- Properties ---------------------------------------------------------------------------------

void User::AddProperty(int mount, const std::string& filter, RequestProperty type) {
    const auto [text, kind] = completed(filter, type);
    if (text.empty()) return;
    spin_guard guard(lock);
    auto& table = properties[mount];
    auto next = table ? std::make_shared<Filters>(*table) : std::make_shared<Filters>();
    next->insert_or_assign(text, kind);
    table = std::move(next);
}

void User::RemoveProperty(int mount, const std::string& filter) {
    spin_guard guard(lock);
    const auto table = properties.find(mount);
    if (table == properties.end()) return;
    auto next = std::make_shared<Filters>(*table->second);
    next->erase(filter);
    if (next->empty())
        properties.erase(table);
    else
        table->second = std::move(next);
}

void User::RemoveMount(int mount) {
    spin_guard guard(lock);
    properties.erase(mount);
}

User::Properties User::GetAllProperties(int mount, bool exact) const {
    const bool whole = mount < 0 && !exact;
    Properties copy;
    spin_guard guard(lock);
    for (const auto& [id, table] : properties)
        if (whole || id == mount || (id == EVERY_MOUNT && !exact)) copy.emplace(id, *table);
    return copy;
}

std::shared_ptr<const User::Filters> User::filters_of(int mount) const {
    spin_guard guard(lock);
    const auto table = properties.find(mount);
    return table == properties.end() ? nullptr : table->second;
}

bool User::HasProperty(int mount, const std::shared_ptr<Request>& request, bool all) const {
    const auto filters = filters_of(mount);
    if (!filters) return false;
    const auto every = filters->find(EVERY_REQUEST);
    if (every != filters->end() && every->second == ALL) return true;
    // Kept: with all nothing else is enough, not even filters that fit without exception.
    if (all) return false;
    const Client client{request->GetIP(), request->GetHeader("User-Agent")};
    return std::ranges::any_of(
        *filters, [&](const auto& filter) { return fits(filter.first, filter.second, client); });
}

// ---- Rights -------------------------------------------------------------------------------------

bool User::applies_to(int mount) const {
    return properties.contains(mount) || properties.contains(EVERY_MOUNT);
}

bool User::IsMountAdminUser(int mount) const {
    spin_guard guard(lock);
    return group == ADMINISTRATOR || (applies_to(mount) && group == MOUNT_MANAGER);
}

bool User::IsMountSourceUser(int mount) const {
    spin_guard guard(lock);
    return group == ADMINISTRATOR ||
           (applies_to(mount) && (group == MOUNT_MANAGER || group == MOUNT_SOURCE));
}

bool User::IsMountListenerUser(int mount) const {
    spin_guard guard(lock);
    return group == ADMINISTRATOR ||
           (applies_to(mount) &&
            (group == MOUNT_MANAGER || group == MOUNT_SOURCE || group == LISTENER));
}

int User::GetFirstMount() const {
    std::vector<int> ids;
    {
        spin_guard guard(lock);
        for (const auto& [id, table] : properties)
            ids.push_back(id);
    }
    for (const int id : ids) {
        if (id >= 0) return id;
        if (id != EVERY_MOUNT) continue;
        const auto mounts = MountList::GetAllMounts(false);
        if (!mounts.empty()) return mounts.front()->GetID();
    }
    return -1;
}

std::vector<User::UserGroup> User::GetAdministrativeGroups() const {
    const UserGroup own = GetGroup();
    std::vector<UserGroup> groups;
    for (const UserGroup candidate :
         {ADMINISTRATOR, STATISTICS, MOUNT_MANAGER, MOUNT_SOURCE, LISTENER})
        if (candidate >= own) groups.push_back(candidate);
    return groups;
}
