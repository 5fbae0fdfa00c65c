#pragma once

#include <map>
#include <string>
#include <string_view>

// The fields of an application/x-www-form-urlencoded body. Pieces without "=" and with more than
// one are dropped; a repeated name keeps its last value.
std::map<std::string, std::string> parse_form(std::string_view body);
