#include "http/DigestLogin.h"

#include "core/OSTools.h"

#include <map>
#include <utility>
#include <vector>

namespace {

// The pieces between commas that stand outside double quotes.
std::vector<std::string> split_outside_quotes(const std::string& list) {
    std::vector<std::string> pieces(1);
    bool quoted = false;
    for (const char c : list) {
        if (c == '"') quoted = !quoted;
        if (c == ',' && !quoted)
            pieces.emplace_back();
        else
            pieces.back() += c;
    }
    return pieces;
}

std::string unquoted(const std::string& value) {
    if (!value.starts_with('"') || !value.ends_with('"')) return value;
    return value.size() < 2 ? std::string() : value.substr(1, value.size() - 2);
}

std::map<std::string, std::string> read_pairs(const std::string& list) {
    std::map<std::string, std::string> pairs;
    for (const std::string& piece : split_outside_quotes(list)) {
        const std::size_t equals = piece.find('=');
        if (equals == std::string::npos) continue;
        std::string name = piece.substr(0, equals);
        std::string value = piece.substr(equals + 1);
        pairs[trim(tolower(name))] = unquoted(trim(value));
    }
    return pairs;
}

} // namespace

std::optional<DigestLogin> parse_digest(const std::string& list, const std::string& target) {
    auto pairs = read_pairs(list);
    const DigestLogin login = {.username = pairs["username"],
                               .realm = pairs["realm"],
                               .nonce = pairs["nonce"],
                               .uri = pairs["uri"],
                               .response = pairs["response"],
                               .nc = pairs["nc"],
                               .cnonce = pairs["cnonce"],
                               .qop = pairs["qop"]};
    if (login.username.empty() || login.realm.empty() || login.response.empty()) return {};
    if (login.uri != target || login.nonce.empty() || login.qop != "auth") return {};
    return login;
}

bool digest_matches(const DigestLogin& login, const std::string& method,
                    const std::string& password) {
    const std::string ha1 = GenerateMD5Hash(login.username + ":" + login.realm + ":" + password);
    const std::string ha2 = GenerateMD5Hash(method + ":" + login.uri);
    return login.response == GenerateMD5Hash(ha1 + ":" + login.nonce + ":" + login.nc + ":" +
                                             login.cnonce + ":" + login.qop + ":" + ha2);
}

BasicLogin parse_basic(const std::string& base64) {
    const std::string text = Base64Decode(base64);
    std::vector<std::string> parts = split(text, ':');
    std::erase(parts, std::string());
    if (text.find(':') == std::string::npos || parts.size() != 2) return {.user = text};
    return {.user = parts[0], .pass = parts[1]};
}
