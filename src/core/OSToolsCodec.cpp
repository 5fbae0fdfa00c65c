#include "core/MD5.h"
#include "core/OSTools.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr char UPPER_DIGITS[] = "0123456789ABCDEF";
constexpr char BASE64_ALPHABET[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char FORM_PUNCTUATION[] = "!'()*-._";

bool is_alphanumeric(char byte) {
    return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
           (byte >= 'A' && byte <= 'Z');
}

// The value of a hexadecimal digit, or -1.
int digit_value(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

bool is_escape(const std::string& text, std::size_t at) {
    return at + 2 < text.size() && digit_value(text[at + 1]) >= 0 && digit_value(text[at + 2]) >= 0;
}

bool stands_in_form(char byte) {
    return is_alphanumeric(byte) ||
           (byte != '\0' && std::strchr(FORM_PUNCTUATION, byte) != nullptr);
}

// The value of a Base64 digit, or -1.
int base64_value(char digit) {
    if (digit == '\0') return -1;
    const char* const place = std::strchr(BASE64_ALPHABET, digit);
    return place == nullptr ? -1 : static_cast<int>(place - BASE64_ALPHABET);
}

// Up to three bytes as the upper bits of one group of 24.
std::uint32_t base64_group(const char* data, unsigned long long length) {
    std::uint32_t group = 0;
    for (unsigned long long at = 0; at < 3; ++at)
        group = group << 8 | (at < length ? static_cast<unsigned char>(data[at]) : 0U);
    return group;
}

} // namespace

std::string UrlDecode(const std::string& text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '+') {
            decoded += ' ';
        } else if (text[at] == '%' && is_escape(text, at)) {
            decoded += hexToChar(text[at + 1], text[at + 2]);
            at += 2;
        } else {
            decoded += text[at];
        }
    }
    return decoded;
}

std::string UrlEncode(const std::string& text, bool keep_slash) {
    std::string encoded;
    encoded.reserve(text.size());
    for (const char byte : text) {
        if (byte == ' ')
            encoded += '+';
        else if (stands_in_form(byte) || (byte == '/' && keep_slash))
            encoded += byte;
        else
            encoded += '%' + charToHex(byte);
    }
    return encoded;
}

char hexToChar(char high, char low) {
    return static_cast<char>(digit_value(high) << 4 | digit_value(low));
}

std::string charToHex(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return {UPPER_DIGITS[value >> 4], UPPER_DIGITS[value & 0xF]};
}

std::string Base64Encode(const char* data, unsigned long long length) {
    std::string encoded;
    encoded.reserve((length + 2) / 3 * 4);
    for (unsigned long long at = 0; at < length; at += 3) {
        const std::uint32_t group = base64_group(data + at, length - at);
        for (unsigned digit = 0; digit < 4; ++digit)
            encoded +=
                at + digit > length ? '=' : BASE64_ALPHABET[group >> (18 - 6 * digit) & 0x3F];
    }
    return encoded;
}

std::string Base64Decode(const std::string& text) {
    std::string decoded;
    std::uint32_t bits = 0;
    unsigned bit_count = 0;
    for (const char digit : text) {
        const int value = base64_value(digit);
        if (value < 0) break;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        bit_count += 6;
        if (bit_count < 8) continue;
        bit_count -= 8;
        decoded += static_cast<char>(bits >> bit_count & 0xFF);
    }
    return decoded;
}

void bytes_to_hex(const char* data, unsigned long length, std::string& out) {
    out.clear();
    out.reserve(length * 3);
    for (unsigned long at = 0; at < length; ++at)
        out += charToHex(data[at]) + ' ';
}

void bytes_to_hex(const std::vector<char>& data, std::string& out) {
    bytes_to_hex(data.data(), data.size(), out);
}

void bufhex(const char* data, int length) {
    for (int at = 0; at < length; ++at)
        std::printf("%02X ", static_cast<unsigned>(static_cast<unsigned char>(data[at])));
}

std::string GenerateMD5Hash(const std::string& text) {
    std::string digits;
    for (const unsigned char byte : MD5::Digest(text)) {
        std::string pair = charToHex(static_cast<char>(byte));
        digits += tolower(pair);
    }
    return digits;
}
