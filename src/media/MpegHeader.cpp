#include "media/MpegHeader.h"

namespace {
constexpr unsigned LAYERS = 3;
constexpr unsigned BITRATES = 15;
constexpr unsigned SAMPLING_RATES = 3;
constexpr unsigned BAD_BITRATE = 15;
constexpr unsigned RESERVED_RATE = 3;

// Kilobits per second by version, layer and index; the first of each row is free format.
constexpr int bitrates[2 * LAYERS][BITRATES] = {
    // MPEG-1, Layers I to III
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    // MPEG-2 and 2.5, Layers I to III
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
};

// The same rows.
constexpr int samples_per_frames_table[2 * LAYERS] = {384, 1152, 1152, 384, 1152, 576};

// Rows by version: 2.5, reserved, 2, 1.
constexpr int sampling_rates_table[4][SAMPLING_RATES] = {
    {11025, 12000, 8000},
    {0, 0, 0},
    {22050, 24000, 16000},
    {44100, 48000, 32000},
};

unsigned table_row(const MpegHeader& header) {
    return header.layer + (header.version < MpegHeader::MPEG_1 ? LAYERS : 0);
}

void look_up(MpegHeader& header) {
    if (header.sampling_index != RESERVED_RATE)
        header.sampling_rate = sampling_rates_table[header.version][header.sampling_index];
    if (header.layer == LAYERS) return;
    header.samples_per_frame = samples_per_frames_table[table_row(header)];
    if (header.bitrate_index != BAD_BITRATE)
        header.bitrate = bitrates[table_row(header)][header.bitrate_index];
}
} // namespace

// Kept: padding is one byte in Layer I too, where the standard has a slot of four. The packets of
// such streams have always been cut like this, and decoders find the next sync by themselves.
std::size_t MpegHeader::FrameLength() const {
    if (sampling_rate == 0) return 0;
    const int length = samples_per_frame / 8 * (bitrate * 1000) / sampling_rate;
    return static_cast<std::size_t>(length) + (padding ? 1 : 0);
}

std::optional<MpegHeader> parse_mpeg_header(std::span<const unsigned char> bytes) {
    if (bytes.size() < MpegHeader::SIZE) return std::nullopt;
    const unsigned b1 = bytes[1];
    const unsigned b2 = bytes[2];
    const unsigned b3 = bytes[3];
    MpegHeader header;
    header.version = b1 >> 3 & 3;
    header.layer = ~(b1 >> 1) & 3;
    header.is_protected = (b1 & 1) == 0;
    header.bitrate_index = b2 >> 4;
    header.sampling_index = b2 >> 2 & 3;
    header.padding = (b2 >> 1 & 1) != 0;
    header.private_bit = (b2 & 1) != 0;
    header.channel_mode = b3 >> 6;
    header.stereo = header.channel_mode < MpegHeader::MONO;
    header.mode_extension = b3 >> 4 & 3;
    header.copyright = (b3 >> 3 & 1) != 0;
    header.original = (b3 >> 2 & 1) != 0;
    header.emphasis = b3 & 3;
    look_up(header);
    return header;
}

bool is_mpeg_frame_start(std::span<const unsigned char, 3> bytes) {
    const unsigned version = bytes[1] >> 3 & 3;
    const unsigned layer_bits = bytes[1] >> 1 & 3;
    return bytes[0] == 0xFF && (bytes[1] & 0xE0) == 0xE0 && version != MpegHeader::MPEG_RESERVED &&
           layer_bits != 0 && bytes[2] >> 4 != BAD_BITRATE && (bytes[2] >> 2 & 3) != RESERVED_RATE;
}
