#pragma once

#include "core/spinlock.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class Request;
namespace tinyxml2 {
class XMLDocument;
class XMLElement;
} // namespace tinyxml2

// An account: a name, a password in plain text, a group, and a table that says on which mounts and
// for which requests it applies. The ban list and the reserve list are users without a login that
// have only such a table. Owned by UserList. Any thread.
class User {
public:
    // A lower value means wider powers, from ADMINISTRATOR on.
    enum UserGroup : std::int32_t {
        ANONYMOUS,
        BANNED,
        ADMINISTRATOR,
        STATISTICS,
        MOUNT_MANAGER,
        MOUNT_SOURCE,
        LISTENER
    };
    // How the stored password is written. Carried through the file; nothing here computes one.
    enum EncryptionType : std::int32_t { NO_ENCRYPTION, MD5, SHA512 };
    // What the text of a filter is compared with: nothing, the client's address, a range of
    // addresses as of InIPRange, the User-Agent header, or "*" for every request.
    enum RequestProperty : std::int32_t { NONE, IP, SUBNET, USER_AGENT, ALL };

    static const std::array<const char*, 7> USER_GROUP_STRINGS;
    static const std::array<const char*, 3> ENCRYPTION_TYPE_STRINGS;
    static const std::array<const char*, 5> REQUEST_PROPERTY_STRINGS;

    // The mount id that stands for every mount.
    static constexpr int EVERY_MOUNT = -1;

    using Filters = std::map<std::string, RequestProperty>; // by filter text
    using Properties = std::map<int, Filters>;              // by mount id

    User() = default; // "Anonymous"
    User(std::string username, std::string password, EncryptionType encryption, bool clear_salt,
         std::string salt);
    User(const User&) = delete;
    User& operator=(const User&) = delete;

    std::string Username() const EXCLUDES(lock);
    std::string Password() const EXCLUDES(lock);
    // Empties the salt and keeps the type of encryption.
    void SetPassword(const std::string& new_password) EXCLUDES(lock);
    UserGroup GetGroup() const EXCLUDES(lock);
    void SetGroup(UserGroup new_group) EXCLUDES(lock);
    // Byte for byte, whatever the type of encryption.
    bool Authenticate(const std::string& attempt) const EXCLUDES(lock);

    // Stores a filter, in the place of one with the same text. A subnet without "/" is completed to
    // its last dot with "0/24", or taken as a single IPv6 address, or dropped.
    void AddProperty(int mount, const std::string& filter, RequestProperty type) EXCLUDES(lock);
    void RemoveProperty(int mount, const std::string& filter) EXCLUDES(lock);
    void RemoveMount(int mount) EXCLUDES(lock);
    // The table of one mount, with that of every mount unless exact; the whole table for a mount
    // below 0 that is not exact.
    Properties GetAllProperties(int mount, bool exact) const EXCLUDES(lock);
    // Whether a filter of exactly this mount id fits the request. With all, only "*" answers true.
    bool HasProperty(int mount, const std::shared_ptr<Request>& request, bool all) const
        EXCLUDES(lock);

    // What the group allows on a mount of the table. An administrator may everything everywhere.
    bool IsMountAdminUser(int mount) const EXCLUDES(lock);
    bool IsMountSourceUser(int mount) const EXCLUDES(lock);
    bool IsMountListenerUser(int mount) const EXCLUDES(lock);
    // The lowest mount id of the table; the first of all mounts for an account of every mount;
    // -1 when there is none.
    int GetFirstMount() const EXCLUDES(lock);
    // The groups that this user may hand out, from 2 on, ascending.
    std::vector<UserGroup> GetAdministrativeGroups() const EXCLUDES(lock);

    // The form of a user in the user file, see UserList. Unserialize leaves as it is what the
    // element does not have, and returns the name.
    void Serialize(tinyxml2::XMLDocument& document, tinyxml2::XMLElement* element) const
        EXCLUDES(lock);
    std::string Unserialize(const tinyxml2::XMLElement* element) EXCLUDES(lock);

private:
    bool applies_to(int mount) const REQUIRES(lock);
    std::shared_ptr<const Filters> filters_of(int mount) const EXCLUDES(lock);
    void write_password(tinyxml2::XMLDocument& document, tinyxml2::XMLElement* element) const
        REQUIRES(lock);
    void write_properties(tinyxml2::XMLDocument& document, tinyxml2::XMLElement* element) const
        REQUIRES(lock);
    void read_password(const tinyxml2::XMLElement* element) REQUIRES(lock);
    void read_properties(const tinyxml2::XMLElement* element) EXCLUDES(lock);

    mutable spinlock lock;
    std::string username GUARDED_BY(lock) = "Anonymous";
    std::string password GUARDED_BY(lock);
    EncryptionType encryption GUARDED_BY(lock) = NO_ENCRYPTION;
    UserGroup group GUARDED_BY(lock) = ANONYMOUS;
    // By mount id. A table never changes: it is replaced, so that requests walk it without the
    // lock.
    std::map<int, std::shared_ptr<const Filters>> properties GUARDED_BY(lock);
    std::string salt GUARDED_BY(lock);
};
