#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

// The same bytes without a sign, as formats count them.
inline std::span<const unsigned char> unsigned_bytes(std::span<const char> bytes) {
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

// A little-endian number at `offset`; what lies beyond the end counts as 0.
template <typename Number> Number little_endian(std::span<const char> bytes, std::size_t offset) {
    Number value = 0;
    const std::span<const unsigned char> digits = unsigned_bytes(bytes);
    for (std::size_t i = 0; i < sizeof(Number) && offset + i < digits.size(); ++i)
        value |= static_cast<Number>(static_cast<Number>(digits[offset + i]) << (8 * i));
    return value;
}

// Appends the low `count` bytes of `value`, most significant first.
inline void append_big_endian(std::string& out, std::uint64_t value, unsigned count) {
    while (count-- > 0)
        out += static_cast<char>(value >> (8 * count) & 0xFF);
}
