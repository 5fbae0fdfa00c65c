#pragma once

#include <cstddef>
#include <string>

struct METADATA;

// ICY metadata block, sent after every `icy-metaint` bytes of audio:
//   1 byte   length of the rest in units of 16 bytes, 0 when nothing changed
//   rest     StreamTitle='...';StreamUrl='...';  then NUL up to the unit, at least one
namespace icy_block {
constexpr std::size_t UNIT = 16;

// The words of a block; the values stand in them as they are.
std::string words(const std::string& title, const std::string& url);

// The two pieces that a block is sent in.
char length_byte(const std::string& words);
std::string rest(const std::string& words);
} // namespace icy_block

// The same words as an extension of a chunk's size line (RFC 9112, section 7.1.1), values encoded
// as in a URL: StreamTitle='...';StreamUrl='...';  then ';KEY='...'; for each further entry.
namespace chunk_comment {
// A reader of such lines takes less than 1024 bytes. What would make the line longer than this is
// left out: first the further entries, then the end of the title.
constexpr std::size_t LONGEST_LINE = 1000;

// The comment for a chunk of `chunk_size` bytes.
std::string encode(const METADATA& metadata, std::size_t chunk_size);
} // namespace chunk_comment
