#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Audio frames of MPEG and ADTS streams: real headers, payload of one byte.
namespace frames {
inline std::string bytes(const std::vector<unsigned>& values) {
    std::string text;
    for (const unsigned value : values)
        text += static_cast<char>(value);
    return text;
}

// MPEG-1 Layer III, 128 kbit/s, 44100 Hz, stereo: 417 bytes, 418 with padding.
inline std::string mp3(char fill = 'm', bool padding = false) {
    return bytes({0xFF, 0xFB, padding ? 0x92U : 0x90U, 0x00}) +
           std::string(413 + (padding ? 1 : 0), fill);
}

struct AdtsOptions {
    unsigned rate_index = 4; // 44100 Hz
    unsigned channels = 2;
    unsigned profile = 1;
    bool crc = false;
};

// An AAC frame of `length` bytes, its header included.
inline std::string adts(std::size_t length, char fill = 'a', const AdtsOptions& options = {}) {
    const auto size = static_cast<unsigned>(length);
    const std::string header = bytes(
        {0xFF, options.crc ? 0xF0U : 0xF1U,
         options.profile << 6 | options.rate_index << 2 | options.channels >> 2,
         (options.channels & 3) << 6 | size >> 11, size >> 3 & 0xFF, (size & 7) << 5 | 0x1F, 0xFC});
    return length < header.size() ? header : header + std::string(length - header.size(), fill);
}
} // namespace frames
