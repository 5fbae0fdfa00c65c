#include "accounts/UserList.h"

#include "config/Config.h"
#include "core/FileWriter.h"
#include "core/Log.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <tinyxml2.h>

namespace {

constexpr mode_t NEW_FILE_MODE = 0600; // passwords stand in the file as they are

std::shared_ptr<User> pseudo_user(const std::string& name, User::UserGroup group) {
    auto user = std::make_shared<User>(name, "", User::NO_ENCRYPTION, true, "");
    user->SetGroup(group);
    return user;
}

// Made with the first use and never destroyed: connections are served before the user file is
// read, and until the very end of the process.
struct Store {
    const std::shared_ptr<User> anonymous_user = std::make_shared<User>();
    const std::shared_ptr<User> banned_user = pseudo_user("Banned Users", User::ANONYMOUS);
    const std::shared_ptr<User> reserve_user = pseudo_user("Reserved Users", User::ANONYMOUS);
    const std::shared_ptr<User> system_user = pseudo_user("System", User::BANNED);

    spinlock user_list_lock;
    std::map<std::string, std::shared_ptr<User>> user_list GUARDED_BY(user_list_lock);
    std::string user_file GUARDED_BY(user_list_lock);

    std::mutex file_lock;       // the last to write writes the newest
    bool file_is_known = false; // what stands in the file was read or written here
    std::atomic<bool> initializing{true};
};

Store& store() {
    static Store* const only = new Store;
    return *only;
}

std::string user_file() {
    spin_guard guard(store().user_list_lock);
    return store().user_file;
}

bool applies_somewhere(const User& user, const std::shared_ptr<Request>& request) {
    if (user.HasProperty(User::EVERY_MOUNT, request, false)) return true;
    return std::ranges::any_of(MountList::GetAllMounts(false), [&](const auto& mount) {
        return user.HasProperty(mount->GetID(), request, false);
    });
}

// Null when the request has no credentials, or the account does not apply to it.
std::shared_ptr<User> account_of(const std::shared_ptr<Request>& request) {
    const std::string name = request->User();
    const std::string password = request->Pass();
    if (name.empty() || password.empty()) return nullptr;
    auto account = UserList::Get(name, password);
    return applies_somewhere(*account, request) ? account : nullptr;
}

// Settings that name an administrator, as they did before there was a user file.
void add_configured_administrator() {
    const auto user = UserList::Add(Config::Get("AdminUser", false)->GetValue(""),
                                    Config::Get("AdminPass", false)->GetValue(""));
    if (user == UserList::GetAnonymousUser()) return;
    user->SetGroup(User::ADMINISTRATOR);
    user->AddProperty(User::EVERY_MOUNT, "*", User::ALL);
}

// Of a file that could not be read, and is about to be replaced: its accounts may be all that an
// operator has. A copy from before is left alone, for it is nearer to what was lost.
void keep_copy(const std::string& path) {
    std::error_code fault;
    if (!std::filesystem::is_regular_file(path, fault)) return;
    const std::string copy = path + ".unread";
    if (std::filesystem::copy_file(path, copy, std::filesystem::copy_options::skip_existing, fault))
        LogWrite(2) << "User file " << path << " was not read, its copy is " << copy << std::endl;
}

} // namespace

void UserList::Init(const std::string& path) {
    {
        spin_guard guard(store().user_list_lock);
        store().user_file = path;
    }
    add_configured_administrator();
    store().initializing = false;
}

void UserList::Serialize() {
    if (store().initializing) return;
    const std::lock_guard guard(store().file_lock);
    const std::string path = user_file();
    if (!store().file_is_known) keep_copy(path);
    store().file_is_known = true;
    WriteFileWhole(path, Text(), NEW_FILE_MODE);
}

void UserList::Unserialize() {
    const std::lock_guard guard(store().file_lock);
    tinyxml2::XMLDocument document;
    if (document.LoadFile(user_file().c_str()) == tinyxml2::XML_SUCCESS)
        store().file_is_known = read(document);
}

void UserList::ReadText(const std::string& text) {
    tinyxml2::XMLDocument document;
    if (document.Parse(text.data(), text.size()) == tinyxml2::XML_SUCCESS) read(document);
}

std::shared_ptr<User> UserList::Get(const std::string& username, const std::string& password) {
    std::shared_ptr<User> user;
    {
        spin_guard guard(store().user_list_lock);
        const auto place = store().user_list.find(username);
        if (username.empty() || place == store().user_list.end()) return GetAnonymousUser();
        user = place->second;
    }
    const bool refused = !password.empty() && !user->Authenticate(password);
    return refused || user->GetGroup() < User::ADMINISTRATOR ? GetAnonymousUser() : user;
}

std::shared_ptr<User> UserList::Get(const std::shared_ptr<Request>& request) {
    // Before any look at the credentials: nobody logs in from a banned address.
    if (GetBanUser()->HasProperty(User::EVERY_MOUNT, request, false)) return GetBanUser();
    if (auto account = account_of(request)) return account;
    if (GetReserveUser()->HasProperty(User::EVERY_MOUNT, request, false)) return GetReserveUser();
    return GetAnonymousUser();
}

std::shared_ptr<User> UserList::Add(const std::string& username, const std::string& password) {
    if (username.empty() || password.empty()) return GetAnonymousUser();
    auto user = std::make_shared<User>(username, password, User::NO_ENCRYPTION, false, "");
    bool added = false;
    {
        spin_guard guard(store().user_list_lock);
        added = store().user_list.emplace(username, user).second;
    }
    if (added) return user;
    LogWrite(2) << "User " << log_text(username) << " already exists" << std::endl;
    return GetAnonymousUser();
}

void UserList::put(const std::shared_ptr<User>& user) {
    const std::string name = user->Username();
    spin_guard guard(store().user_list_lock);
    store().user_list.insert_or_assign(name, user);
}

void UserList::Remove(const std::string& username) {
    spin_guard guard(store().user_list_lock);
    store().user_list.erase(username);
}

std::map<std::string, std::shared_ptr<User>> UserList::GetUserList(int mount) {
    std::map<std::string, std::shared_ptr<User>> users;
    {
        spin_guard guard(store().user_list_lock);
        users = store().user_list;
    }
    if (mount >= 0)
        std::erase_if(users, [mount](const auto& entry) {
            const auto& user = entry.second;
            return user->GetGroup() == User::ADMINISTRATOR ||
                   user->GetAllProperties(mount, false).empty();
        });
    return users;
}

void UserList::MountRemoved(int mount) {
    for (const auto& [name, user] : GetUserList(-1))
        user->RemoveMount(mount);
}

std::shared_ptr<User> UserList::GetAnonymousUser() { return store().anonymous_user; }
std::shared_ptr<User> UserList::GetBanUser() { return store().banned_user; }
std::shared_ptr<User> UserList::GetReserveUser() { return store().reserve_user; }
std::shared_ptr<User> UserList::GetSystemUser() { return store().system_user; }
