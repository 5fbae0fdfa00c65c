#pragma once

#include "accounts/User.h"

#include <map>
#include <memory>
#include <string>

// All accounts, the users that are no accounts, and the XML file behind them. Tells who a request
// is; the answer is always a user, never null: a stranger is the anonymous user.
// The list and its four pseudo users exist before main(). Any thread may call anything.
class UserList {
public:
    // Takes the path of the user file and makes the administrator of the settings AdminUser and
    // AdminPass. Accounts that were added before stay. From here on Serialize writes.
    static void Init(const std::string& path);
    // Writes the user file whole. Does nothing before Init; a failure is silent. A file that was
    // there and not read is copied first, to its name with ".unread" behind it.
    static void Serialize();
    // Reads the user file. A file that is missing, broken or of another version changes nothing.
    // The mounts must exist by now: filters of mounts that do not are dropped.
    static void Unserialize();

    // The account of this name; the anonymous user when there is none, when the password differs,
    // and for the groups below 2. An empty password is not compared: such a call is no login, the
    // caller has yet to authenticate.
    static std::shared_ptr<User> Get(const std::string& username, const std::string& password);
    // Who sent the request: the banned user, else the account of its credentials where a filter of
    // that account fits, else the reserve user, else the anonymous user.
    static std::shared_ptr<User> Get(const std::shared_ptr<Request>& request);

    // A new account, with group 0 and an empty table, so that it cannot log in yet. The anonymous
    // user when a text is empty or the name is taken: compare before changing what comes back.
    static std::shared_ptr<User> Add(const std::string& username, const std::string& password);
    static void Remove(const std::string& username);
    // The accounts with a filter for this mount or for every mount, without the administrators;
    // below 0 all accounts.
    static std::map<std::string, std::shared_ptr<User>> GetUserList(int mount);
    // Takes a deleted mount out of all accounts, so that a later mount of the same id starts with
    // none. The pseudo users keep theirs.
    static void MountRemoved(int mount);

    // The text of the user file: as Serialize would write it, and as Unserialize reads it.
    static std::string Text();
    static void ReadText(const std::string& text);

    static std::shared_ptr<User> GetAnonymousUser();
    static std::shared_ptr<User> GetBanUser();     // its filters are the ban lists
    static std::shared_ptr<User> GetReserveUser(); // its filters get in where a stream is full
    static std::shared_ptr<User> GetSystemUser();  // the server itself

private:
    // False when it is no user file of this version.
    static bool read(const tinyxml2::XMLDocument& document);
    // Takes in an account, in the place of one of the same name.
    static void put(const std::shared_ptr<User>& user);
};
