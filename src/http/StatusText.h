#pragma once

#include <string>

// The reason text of a status code (RFC 9110 section 15, and some of wider use). Throws
// std::out_of_range for a code that is not in the table.
std::string StatusText(int code);
