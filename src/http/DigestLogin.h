#pragma once

#include <optional>
#include <string>

// An Authorization field of the digest scheme (RFC 7616, MD5, qop "auth"), taken apart.
struct DigestLogin {
    std::string username = {};
    std::string realm = {};
    std::string nonce = {};
    std::string uri = {};
    std::string response = {};
    std::string nc = {};
    std::string cnonce = {};
    std::string qop = {};
};

// `list` is what follows the scheme word: name=value pairs between commas. Commas and blanks
// between double quotes divide nothing, and a value ends at its comma whatever "=" it holds.
// Nothing unless username, realm, nonce and response are there, `uri` is `target` and qop is
// "auth".
std::optional<DigestLogin> parse_digest(const std::string& list, const std::string& target);

// Whether the client knew `password`. The nonce is not compared with those given out.
bool digest_matches(const DigestLogin& login, const std::string& method,
                    const std::string& password);

// An Authorization field of the basic scheme (RFC 7617): the decoded text at its colon. Kept: with
// other than two parts all of it is the name; passwords with a colon never worked.
struct BasicLogin {
    std::string user = {};
    std::string pass = {};
};
BasicLogin parse_basic(const std::string& base64);
