#include "core/MD5.h"

#include <bit>
#include <utility>

// A message is padded to whole blocks and then taken in block by block:
//   message  as it is
//   1 byte   0x80
//   zeros    up to 8 bytes before the end of a block
//   8 bytes  length of the message in bits, lowest byte first
namespace {

constexpr std::size_t BLOCK = 64;
constexpr std::size_t LENGTH_FIELD = 8;

constexpr std::uint32_t SINES[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

constexpr int TURNS[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

std::uint32_t little_endian(const unsigned char* bytes) {
    return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
           std::uint32_t{bytes[3]} << 24;
}

std::string padded(std::string message) {
    std::uint64_t bits = std::uint64_t{message.size()} * 8;
    message += '\x80';
    while (message.size() % BLOCK != BLOCK - LENGTH_FIELD)
        message += '\0';
    for (std::size_t at = 0; at < LENGTH_FIELD; ++at, bits >>= 8)
        message += static_cast<char>(bits & 0xFF);
    return message;
}

// What step `step` mixes in: the round's function of three words, and a word of the block.
std::pair<std::uint32_t, std::size_t> mix(unsigned step, std::uint32_t b, std::uint32_t c,
                                          std::uint32_t d) {
    switch (step / 16) {
    case 0:
        return {(b & c) | (~b & d), step};
    case 1:
        return {(d & b) | (~d & c), (5 * step + 1) % 16};
    case 2:
        return {b ^ c ^ d, (3 * step + 5) % 16};
    default:
        return {c ^ (b | ~d), 7 * step % 16};
    }
}

} // namespace

void MD5::MD5Transform(State& state, const unsigned char* block) {
    auto [a, b, c, d] = state;
    for (unsigned step = 0; step < 64; ++step) {
        const auto [mixed, word] = mix(step, b, c, d);
        const std::uint32_t sum =
            a + mixed + SINES[step] + little_endian(block + std::size_t{4} * word);
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, TURNS[step / 16][step % 4]);
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

std::array<unsigned char, 16> MD5::Digest(const std::string& message) {
    State state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    const std::string blocks = padded(message);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(blocks.data());
    for (std::size_t at = 0; at < blocks.size(); at += BLOCK)
        MD5Transform(state, bytes + at);
    std::array<unsigned char, 16> digest{};
    for (std::size_t at = 0; at < digest.size(); ++at)
        digest[at] = static_cast<unsigned char>(state[at / 4] >> (8 * (at % 4)) & 0xFF);
    return digest;
}
