#include "net/url.h"

#include "core/OSTools.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>

url::url(const std::string& text) { parse(text); }

void url::parse(const std::string& text) {
    const std::string SEPARATOR = "://";
    const std::size_t separator = text.find(SEPARATOR);
    if (separator == std::string::npos) {
        protocol = "http";
        read_userinfo(text);
        return;
    }
    protocol = text.substr(0, separator);
    tolower(protocol);
    const std::string rest = text.substr(separator + SEPARATOR.size());
    if (rest.empty()) {
        host.clear();
        return;
    }
    read_userinfo(rest);
}

// [user[:pass]@]address. Any "@" counts, also one in the path or query.
void url::read_userinfo(const std::string& text) {
    const std::size_t at = text.find('@');
    if (at == std::string::npos) return read_address(text);

    const std::string userinfo = text.substr(0, at);
    const std::size_t colon = userinfo.find(':');
    user = userinfo.substr(0, colon);
    if (colon != std::string::npos) pass = userinfo.substr(colon + 1);
    read_address(text.substr(at + 1));
}

// host[:port][/path][?query]
void url::read_address(const std::string& text) {
    const std::size_t slash = std::min(text.find('/'), text.size());
    if (!read_authority(text, slash) || !valid_hostname(host.c_str())) {
        host.clear();
        query.clear();
        return;
    }
    read_target(text.substr(slash));
}

void url::SetLogin(std::string with_user, std::string with_pass) {
    user = std::move(with_user);
    pass = std::move(with_pass);
}

void url::set_host(std::string name) {
    host = std::move(name);
    tolower(host);
}

// Kept: the search for ":" does not stop at the "/", so a ":" that stands only in the path or query
// spoils the address. What installations have configured is read by the same measure as ever.
bool url::read_authority(const std::string& text, std::size_t slash) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) {
        port = DEFAULT_PORT;
        set_host(text.substr(0, slash));
        return true;
    }
    if (colon > slash) return false;
    const std::string digits = text.substr(colon + 1, slash - colon - 1);
    // Kept: a number beyond 16 bits wraps.
    port = static_cast<std::uint16_t>(std::strtol(digits.c_str(), nullptr, 10));
    set_host(text.substr(0, colon));
    return true;
}

void url::read_target(const std::string& target) {
    const std::size_t mark = target.find('?');
    path = UrlDecode(target.substr(0, mark));
    if (path.empty()) path = "/";
    query = mark == std::string::npos ? "" : target.substr(mark + 1);
}

// Kept: this narrow. Neither the first character nor labels nor a trailing dot are looked at.
bool url::valid_hostname(const char* name) {
    constexpr std::string_view FORBIDDEN = "&()<>@,;:\"[]";
    const std::string_view text = name;
    if (text.size() < 2) return false;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '.' && text[i - 1] == '.') return false;
        if (text[i] < 0x21 || text[i] > 0x7E || FORBIDDEN.find(text[i]) != std::string_view::npos)
            return false;
    }
    return true;
}

std::string url::to_string() const {
    std::string text = protocol + "://";
    if (!user.empty()) text += user + (pass.empty() ? "" : ":" + pass) + "@";
    text += host;
    if (port != DEFAULT_PORT) text += ":" + std::to_string(port);
    // Kept: no "?" between path and query. Peers know the addresses in this form.
    return text + path + query;
}
