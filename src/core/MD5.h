#pragma once

#include <array>
#include <cstdint>
#include <string>

// The message digest of RFC 1321. Digest logins and page tags need it; it protects nothing by
// itself.
class MD5 {
public:
    static std::array<unsigned char, 16> Digest(const std::string& message);

private:
    using State = std::array<std::uint32_t, 4>;
    // Takes one block of 64 bytes into the state.
    static void MD5Transform(State& state, const unsigned char* block);
};
