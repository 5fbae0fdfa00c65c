#include "media/AdtsHeader.h"

namespace {
// Samples per second by index.
// Kept: the last three stand for reserved and escape values; such streams show these figures.
constexpr int sampling_rates_table[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                          16000, 12000, 11025, 8000,  7350,  18,    18,    0};

// Kept: the middle byte counts with its sign. Frames of 1024 bytes and more whose length has bit
// 10 set come out wrong, and the stream is cut at the next sync instead, as it has always been.
int frame_length_of(std::span<const unsigned char> bytes) {
    const int middle = static_cast<signed char>(bytes[4]);
    return ((bytes[3] & 3) << 11) + middle * 8 + (bytes[5] >> 5 & 7);
}
} // namespace

std::optional<AdtsHeader> parse_adts_header(std::span<const unsigned char> bytes) {
    if (bytes.size() < AdtsHeader::SIZE) return std::nullopt;
    const unsigned b1 = bytes[1];
    const unsigned b2 = bytes[2];
    const unsigned b3 = bytes[3];
    AdtsHeader header;
    header.id = (b1 >> 3 & 1) != 0;
    header.layer = b1 >> 1 & 3;
    header.protection_absent = (b1 & 1) != 0;
    header.profile = b2 >> 6;
    header.sampling_index = b2 >> 2 & 15;
    header.sampling_rate = sampling_rates_table[header.sampling_index];
    header.channels = (b2 & 1) * 4 + (b3 >> 6);
    if (header.channels == 0) header.channels = 2;
    header.original = (b3 >> 5 & 1) != 0;
    header.home = (b3 >> 4 & 1) != 0;
    header.copyright_id_bit = (b3 >> 3 & 1) != 0;
    header.copyright_start = (b3 >> 2 & 1) != 0;
    header.frame_length = frame_length_of(bytes);
    return header;
}

bool is_adts_frame_start(std::span<const unsigned char, 2> bytes) {
    return bytes[0] == 0xFF && (bytes[1] & 0xF6) == 0xF0;
}
