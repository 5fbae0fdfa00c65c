#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

// The fields of an application/x-www-form-urlencoded body. Pieces without "=" and with more than
// one are dropped, as is what follows the first MOST_FORM_PIECES, for anybody may send a body; a
// repeated name keeps its last value.
constexpr std::size_t MOST_FORM_PIECES = 65536;
std::map<std::string, std::string> parse_form(std::string_view body);
