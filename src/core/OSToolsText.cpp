#include "core/OSTools.h"

#include <algorithm>

namespace {

// The POSIX locale's classes, whatever the process is set to.
bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }
bool is_lower(char byte) { return byte >= 'a' && byte <= 'z'; }
bool is_upper(char byte) { return byte >= 'A' && byte <= 'Z'; }
bool is_letter(char byte) { return is_lower(byte) || is_upper(byte); }

constexpr char CASE_BIT = 0x20;

unsigned char unsigned_byte(char byte) { return static_cast<unsigned char>(byte); }

// One row per form of a well-formed sequence (RFC 3629, table of section 4): the limits of the
// first byte and of the second; all that follow lie between 0x80 and 0xBF.
struct Utf8Form {
    unsigned char first_low, first_high, second_low, second_high;
    std::size_t length;
};
constexpr Utf8Form UTF8_FORMS[] = {
    {0x09, 0x0A, 0, 0, 1},       {0x0D, 0x0D, 0, 0, 1},       {0x20, 0x7E, 0, 0, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

bool is_between(char byte, unsigned char low, unsigned char high) {
    return unsigned_byte(byte) >= low && unsigned_byte(byte) <= high;
}

// Stops at the first byte that does not fit, so the terminating zero is never passed.
bool has_form(const char* text, const Utf8Form& form) {
    if (!is_between(text[0], form.first_low, form.first_high)) return false;
    if (form.length > 1 && !is_between(text[1], form.second_low, form.second_high)) return false;
    for (std::size_t at = 2; at < form.length; ++at)
        if (!is_between(text[at], 0x80, 0xBF)) return false;
    return true;
}

// Bytes of the well-formed sequence that `text` begins with; 0 when there is none.
std::size_t sequence_length(const char* text) {
    const auto* const form = std::find_if(std::begin(UTF8_FORMS), std::end(UTF8_FORMS),
                                          [text](const Utf8Form& f) { return has_form(text, f); });
    return form == std::end(UTF8_FORMS) ? 0 : form->length;
}

// Bytes that a character takes by the mark in its first byte; 0 for a byte that cannot be a first.
std::size_t marked_length(char first) {
    const unsigned char byte = unsigned_byte(first);
    if (byte < 0x80) return 1;
    if ((byte & 0xE0) == 0xC0) return 2;
    if ((byte & 0xF0) == 0xE0) return 3;
    if ((byte & 0xF8) == 0xF0) return 4;
    return 0;
}

const char* html_entity(char byte) {
    switch (byte) {
    case '"':
        return "&quot;";
    case '&':
        return "&amp;";
    case '\'':
        return "&apos;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    default:
        return nullptr;
    }
}

std::string shortened(std::string beginning) { return trim(beginning) + "..."; }

} // namespace

// Kept: a text of such bytes alone stays as it is. trim takes the right end first and so empties
// it.
std::string& ltrim(std::string& text, const std::string& chars) {
    const std::size_t first = text.find_first_not_of(chars);
    if (first != std::string::npos) text.erase(0, first);
    return text;
}

std::string& rtrim(std::string& text, const std::string& chars) {
    return text.erase(text.find_last_not_of(chars) + 1);
}

std::string& trim(std::string& text, const std::string& chars) {
    return ltrim(rtrim(text, chars), chars);
}

std::string& tolower(std::string& text) {
    for (char& byte : text)
        if (is_upper(byte)) byte = static_cast<char>(byte | CASE_BIT);
    return text;
}

std::string& toupper(std::string& text) {
    for (char& byte : text)
        if (is_lower(byte)) byte = static_cast<char>(byte & ~CASE_BIT);
    return text;
}

void split(const std::string& text, char delimiter, std::vector<std::string>& out, int limit) {
    std::size_t start = 0;
    for (int pieces = 0; start < text.size(); ++pieces) {
        const char end_mark = limit > 0 && pieces >= limit ? '\n' : delimiter;
        const std::size_t end = std::min(text.find(end_mark, start), text.size());
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::vector<std::string> split(const std::string& text, char delimiter, int limit) {
    std::vector<std::string> pieces;
    split(text, delimiter, pieces, limit);
    return pieces;
}

// Kept: "-" alone counts as a number; its readers take it for 0.
bool is_number(const std::string& text) {
    if (text.empty()) return false;
    const auto digits = text.begin() + (text.front() == '-' ? 1 : 0);
    return std::all_of(digits, text.end(), is_digit);
}

bool is_js_method(const std::string& text) {
    if (text.empty()) return false;
    const char first = text.front();
    if (!is_letter(first) && first != '_' && first != '?') return false;
    return std::all_of(text.begin() + 1, text.end(), [](char byte) {
        return is_letter(byte) || is_digit(byte) || byte == '_' || byte == '$';
    });
}

bool is_ASCII(const char* text, unsigned long length) {
    return std::all_of(text, text + length, [](char byte) { return unsigned_byte(byte) < 0x80; });
}

bool is_utf8(const char* text) {
    if (text == nullptr) return false;
    while (*text != '\0') {
        const std::size_t length = sequence_length(text);
        if (length == 0) return false;
        text += length;
    }
    return true;
}

std::string latin1_to_utf8(std::string text, bool check) {
    if (check && is_utf8(text.c_str())) return text;
    std::string converted;
    converted.reserve(text.size());
    for (const char byte : text) {
        if (unsigned_byte(byte) < 0x80) {
            converted += byte;
        } else if (unsigned_byte(byte) < 0xC0) {
            converted += '\xC2';
            converted += byte;
        } else {
            converted += '\xC3';
            converted += static_cast<char>(byte & ~0x40);
        }
    }
    return converted;
}

std::string utf8_substr(const std::string& text, unsigned int start, unsigned int length) {
    const unsigned long end = static_cast<unsigned long>(start) + length;
    std::size_t first_byte = text.size();
    std::size_t at = 0;
    for (unsigned long character = 0; character < end && at < text.size(); ++character) {
        if (character == start) first_byte = at;
        const std::size_t width = marked_length(text[at]);
        if (width == 0) return {};
        at += width;
    }
    return length == 0 ? std::string() : text.substr(first_byte, at - first_byte);
}

// Kept: a text of exactly `size` is cut too and comes out longer. Pages are laid out for it.
std::string elips(const std::string& text, unsigned long size) {
    if (text.size() < size) return text;
    return shortened(text.substr(0, size));
}

std::string welips(const std::string& text, unsigned int size) {
    const bool reaches_size = size == 0 || !utf8_substr(text, size - 1, 1).empty();
    return reaches_size ? shortened(utf8_substr(text, 0, size)) : text;
}

std::string html_encode(const std::string& text) {
    std::string encoded;
    encoded.reserve(text.size());
    for (const char byte : text) {
        if (const char* entity = html_entity(byte))
            encoded += entity;
        else
            encoded += byte;
    }
    return encoded;
}

std::string UrlFixer(const std::string& url) {
    return url.find("://") != std::string::npos ? url : "http://" + url;
}
