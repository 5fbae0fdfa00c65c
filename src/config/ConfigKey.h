#pragma once

#include <algorithm>
#include <string_view>

// Keys of settings compare without regard to the case of the ASCII letters. No copies are made.
namespace config_key {

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr bool same(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

constexpr bool begins_with(std::string_view key, std::string_view prefix) {
    return key.size() >= prefix.size() && same(key.substr(0, prefix.size()), prefix);
}

} // namespace config_key
