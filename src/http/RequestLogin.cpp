#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "http/DigestLogin.h"
#include "http/Request.h"
#include "http/Sessions.h"

#include <utility>

namespace {

std::vector<std::string> words_of(const std::string& text) {
    std::vector<std::string> words = split(text, ' ');
    std::erase(words, std::string());
    return words;
}

} // namespace

void Request::parse_login() {
    const std::string value = GetHeader("Authorization");
    std::vector<std::string> words = words_of(value);
    if (words.empty()) return;
    tolower(words[0]);
    if (words[0] == "basic" && words.size() == 2) {
        BasicLogin login = parse_basic(words[1]);
        SetCredientials(std::move(login.user), std::move(login.pass));
    }
    if (words[0] == "digest" && words.size() > 1) log_in_by_digest(value.substr(words[0].size()));
}

// A client that knew the password of the account is logged in with the stored one, so that the
// later look-up of name and password finds the account.
void Request::log_in_by_digest(const std::string& list) {
    const auto login = parse_digest(list, Path() + Query());
    if (!login) return;
    const auto account = UserList::Get(login->username, "");
    if (account->GetGroup() == ::User::ANONYMOUS) return;
    std::string password = account->Password();
    if (password.empty() || !digest_matches(*login, MethodString(), password)) return;
    SetCredientials(login->username, std::move(password));
}

// Every request has a session, that of its cookie or a new one.
void Request::join_session() {
    std::string id = GetCookie(SessionList::COOKIE);
    SessionList::Add(GetIP(), GetRawRequest(), id);
    auto mine = SessionList::Get(id);
    if (!mine) { // the session knows its id, so the text is only kept without one
        spin_guard guard(field_lock);
        session_uuid = std::move(id);
    }
    session.store(std::move(mine));
}
