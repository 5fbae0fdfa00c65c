#pragma once

#include <map>
#include <string>

// What an Accept field (RFC 9110 section 12.5.1) wants, as media types and their weights. The types
// stand as written, with the blanks around them.
using AcceptList = std::map<std::string, double>;
AcceptList parse_accept(const std::string& value);

// True for an empty list; otherwise the type itself, then "*/*", then a range of its main type must
// have a weight above 0.
bool accepts(const AcceptList& list, const std::string& media_type);
