#include "media/IcyBlock.h"

#include "core/OSTools.h"
#include "media/Metadata.h"

#include <algorithm>

namespace icy_block {
namespace {
constexpr std::size_t SIZE_MASK = 0xffff0;

std::size_t units(const std::string& words) { return words.size() / UNIT + 1; }
} // namespace

std::string words(const std::string& title, const std::string& url) {
    return "StreamTitle='" + title + "';StreamUrl='" + url + "';";
}

// Kept: no limit. From 4080 bytes of words on the length byte wraps while the whole block is sent;
// no source can send that many.
char length_byte(const std::string& words) { return static_cast<char>(units(words)); }

std::string rest(const std::string& words) {
    std::string bytes = words;
    bytes.resize(units(words) * UNIT & SIZE_MASK, '\0');
    return bytes;
}
} // namespace icy_block

namespace chunk_comment {
namespace {
bool is_continuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// Room for the comment on the size line: "<size in hexadecimal>; <comment>" CR LF.
std::size_t room_on_line(std::size_t chunk_size) {
    std::size_t digits = 1;
    while (chunk_size >>= 4)
        ++digits;
    return LONGEST_LINE - digits - 4;
}

// As much of the encoded text as fits into `room`, whole characters of UTF-8 only.
std::string encode_within(const std::string& text, std::size_t room) {
    std::string encoded;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = start + 1;
        while (end < text.size() && is_continuation(text[end]))
            ++end;
        const std::string character = UrlEncode(text.substr(start, end - start), false);
        if (encoded.size() + character.size() > room) break;
        encoded += character;
        start = end;
    }
    return encoded;
}

std::string encode_short(const METADATA& metadata, std::size_t room) {
    std::string url = UrlEncode(metadata.url, false);
    std::size_t frame = icy_block::words({}, url).size();
    if (frame > room) {
        url.clear();
        frame = icy_block::words({}, url).size();
    }
    return icy_block::words(encode_within(metadata.title, room - frame), url);
}

// Kept: each key has a stray "';" in front, which readers find in the key. Relays know it so.
std::string encode_extended(const METADATA& metadata) {
    std::string text;
    for (const auto& [key, value] : metadata.extended)
        text += "';" + UrlEncode(key, false) + "='" + UrlEncode(value, false) + "';";
    return text;
}
} // namespace

std::string encode(const METADATA& metadata, std::size_t chunk_size) {
    const std::size_t room = room_on_line(chunk_size);
    std::string comment =
        icy_block::words(UrlEncode(metadata.title, false), UrlEncode(metadata.url, false));
    if (comment.size() > room) return encode_short(metadata, room);
    const std::string extended = encode_extended(metadata);
    if (comment.size() + extended.size() <= room) comment += extended;
    return comment;
}
} // namespace chunk_comment
