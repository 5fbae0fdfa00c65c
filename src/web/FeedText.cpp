#include "web/FeedText.h"

#include "core/OSTools.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace {

unsigned char unsigned_byte(char byte) { return static_cast<unsigned char>(byte); }

bool is_control(char byte) { return unsigned_byte(byte) < 0x20; }

bool is_white(char byte) { return byte == '\t' || byte == '\n' || byte == '\r'; }

// Letters that both XML 1.0 as it was first written and its fifth edition allow in names, of the
// scripts that tags are written in. Readers follow one or the other. Without ":", which readers
// take for the end of a prefix.
struct Range {
    char32_t first;
    char32_t last;
};
// In this order: Latin, with Vietnamese at its end; Greek; Cyrillic; Armenian, Georgian, Hebrew;
// Arabic; Devanagari, Thai; Japanese, Chinese, Korean.
constexpr Range NAME_STARTS[] = {
    {'A', 'Z'},       {'_', '_'},       {'a', 'z'},       {0xC0, 0xD6},     {0xD8, 0xF6},
    {0xF8, 0x131},    {0x134, 0x13E},   {0x141, 0x148},   {0x14A, 0x17E},   {0x1E00, 0x1E9B},
    {0x1EA0, 0x1EF9}, {0x386, 0x386},   {0x388, 0x38A},   {0x38C, 0x38C},   {0x38E, 0x3A1},
    {0x3A3, 0x3CE},   {0x401, 0x40C},   {0x40E, 0x44F},   {0x451, 0x45C},   {0x45E, 0x481},
    {0x490, 0x4C4},   {0x531, 0x556},   {0x561, 0x586},   {0x10D0, 0x10F6}, {0x5D0, 0x5EA},
    {0x621, 0x63A},   {0x641, 0x64A},   {0x671, 0x6B7},   {0x6BA, 0x6BE},   {0x6C0, 0x6CE},
    {0x905, 0x939},   {0x958, 0x961},   {0xE01, 0xE2E},   {0xE30, 0xE30},   {0xE32, 0xE33},
    {0xE40, 0xE45},   {0x3041, 0x3094}, {0x30A1, 0x30FA}, {0x4E00, 0x9FA5}, {0xAC00, 0xD7A3}};
// What may only follow: digits and marks, and the signs of the scripts above that stand in the
// middle of words (accents, Arabic, Devanagari, Thai, Japanese).
constexpr Range NAME_OTHERS[] = {
    {'0', '9'},     {'-', '.'},       {0xB7, 0xB7},     {0x300, 0x345},   {0x64B, 0x652},
    {0x901, 0x903}, {0x93C, 0x93C},   {0x93E, 0x94D},   {0xE31, 0xE31},   {0xE34, 0xE3A},
    {0xE46, 0xE4E}, {0x3005, 0x3005}, {0x3099, 0x309A}, {0x309D, 0x309E}, {0x30FC, 0x30FE}};

template <std::size_t N> bool is_in(const Range (&ranges)[N], char32_t code) {
    return std::any_of(std::begin(ranges), std::end(ranges), [code](const Range& range) {
        return code >= range.first && code <= range.last;
    });
}

// Takes the first character off a well-formed UTF-8 text.
char32_t take_code(std::string_view& text) {
    const unsigned char first = unsigned_byte(text.front());
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    char32_t code = length == 1 ? first : first & (0x7F >> length);
    for (std::size_t at = 1; at < length; ++at)
        code = code << 6 | (unsigned_byte(text[at]) & 0x3F);
    text.remove_prefix(length);
    return code;
}

// By the byte alone, for it is not known yet whether the text is UTF-8: from 0xC0 on it begins a
// letter in Latin-1, and a character in UTF-8.
bool may_start_name(char byte) {
    return unsigned_byte(byte) >= 0xC0 || is_in(NAME_STARTS, unsigned_byte(byte));
}

} // namespace

// A NUL would hide from the check what stands behind it.
std::string feed_text::to_utf8(const std::string& text) {
    return latin1_to_utf8(text, text.find('\0') == std::string::npos);
}

std::string feed_text::tag_key(std::string key) {
    tolower(key);
    key.erase(key.begin(), std::find_if(key.begin(), key.end(), may_start_name));
    return to_utf8(key);
}

bool feed_text::is_xml_name(const std::string& text) {
    if (text.empty()) return false;
    std::string_view rest = text;
    if (!is_in(NAME_STARTS, take_code(rest))) return false;
    while (!rest.empty()) {
        const char32_t code = take_code(rest);
        if (!is_in(NAME_STARTS, code) && !is_in(NAME_OTHERS, code)) return false;
    }
    return true;
}

std::string feed_text::for_xml(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return is_control(byte) && !is_white(byte); },
        ' ');
    for (const char* code : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"})
        for (std::size_t at = text.find(code); at != std::string::npos; at = text.find(code, at))
            text[at + 2] = '\xBD';
    return text;
}

std::string feed_text::for_line(std::string text) {
    std::replace_if(text.begin(), text.end(), is_control, ' ');
    return html_encode(text);
}
