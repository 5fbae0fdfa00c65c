#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The pieces of an FLV file (Adobe Flash Video File Format 10.1, annex E), big-endian:
//   header     "FLV", version 1, flags, 4 bytes header size 9, then a previous-tag size of 0
//   each tag   1 type, 3 data size, 3 low bytes of the timestamp, 1 top byte of it, 3 stream id 0,
//              the data, then 4 bytes previous-tag size: 11 and the data size
namespace flv {
enum class FLVTagType : unsigned char { AUDIO = 8, SCRIPT_DATA = 18 };

std::string file_header(bool has_video, bool has_audio);

// A whole tag around `head` and `data`, the previous-tag size behind it included. `timestamp` in
// milliseconds.
std::string create_tag(FLVTagType type, std::uint32_t timestamp, std::string_view head,
                       std::string_view data);

// Appends the length that `bytes` have, or 0, in four bytes.
void insert_prev_tag_size(std::string& bytes, bool zero);
} // namespace flv
