#pragma once

#include "http/HeaderFields.h"

#include <cstddef>
#include <string>
#include <string_view>

// The end of a head: an empty line, "\r\n\r\n" or "\n\n", whichever comes first (RFC 9112
// section 2.2). `before` is the tail of what was read already, the end may lie across the two.
// How many bytes of `next` belong to the head, or npos when the head does not end in them.
constexpr std::size_t HEAD_GOES_ON = std::string_view::npos;
std::size_t head_end(std::string_view before, std::string_view next);

// The fields of a head whose first line was consumed already, up to an empty line. Lines that begin
// with a blank continue the value before. Kept: the values of a repeated field are run together
// without a separator; what reads them knows them so.
HeaderFields::Map parse_fields(std::string_view lines);

// Cuts the first line off `text`: up to its line feed, or all of it.
std::string_view take_line(std::string_view& text);
