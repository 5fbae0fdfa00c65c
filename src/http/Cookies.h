#pragma once

#include <map>
#include <string>

// The pairs of a Cookie field (RFC 6265 section 4.2). Kept: a value with "=" in it is dropped; no
// cookie of this server's has one.
std::map<std::string, std::string> parse_cookies(const std::string& value);
