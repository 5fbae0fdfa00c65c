#pragma once

#include "support/FormPost.h"
#include "support/TemporaryDirectory.h"

#include <memory>
#include <string>

// Two streams, a user file, and accounts: an administrator "root", managers "first" (of stream 1)
// and "both" (of every stream), "encoder" (a source of stream 1), and listeners "hearer" (of stream
// 1), "stranger" (of stream 2), "guest" (of both, each by its number) and "member" (of every
// stream). Every password is "secret".
class AccountStation {
public:
    AccountStation() {
        UserList::Init(directory.Path("users.xml"));
        make_account("root", "secret", User::ADMINISTRATOR);
        make_account("first", "secret", User::MOUNT_MANAGER, 1);
        make_account("both", "secret", User::MOUNT_MANAGER);
        make_account("encoder", "secret", User::MOUNT_SOURCE, 1);
        make_account("hearer", "secret", User::LISTENER, 1);
        make_account("stranger", "secret", User::LISTENER, 2);
        make_account("guest", "secret", User::LISTENER, 1)->AddProperty(2, "*", User::ALL);
        make_account("member", "secret", User::LISTENER);
    }

    // What was saved; empty before the first save.
    std::string File() const { return directory.Read("users.xml"); }

    TemporaryDirectory directory;
    OnAir one{"/one", 1};
    OnAir two{"/two", 2};
};

// The account of this name; the anonymous user when there is none.
inline std::shared_ptr<User> account(const std::string& name) { return UserList::Get(name, ""); }

inline bool exists(const std::string& name) {
    return account(name) != UserList::GetAnonymousUser();
}

inline bool has_rights(const std::string& name, int mount) {
    return !account(name)->GetAllProperties(mount, true).empty();
}

// Where the answer that was sent leads; empty when it is no redirect.
inline std::string redirect_of(const FormPost& post) {
    const std::string answer = post.pair.ReceiveWaiting();
    const std::string mark = "\r\nLocation: ";
    const std::size_t start = answer.find(mark);
    if (!answer.starts_with("HTTP/1.0 303 ") || start == std::string::npos) return {};
    const std::size_t value = start + mark.size();
    return answer.substr(value, answer.find("\r\n", value) - value);
}
