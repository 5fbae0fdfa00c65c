#pragma once

#include <cstddef>
#include <optional>
#include <span>

// The fixed and variable header of an ADTS frame (ISO 13818-7, ISO 14496-3), 7 bytes, or 9 when a
// CRC follows:
//   byte 0   11111111
//   byte 1   1111 I LL A   id, layer (always 0), protection absent
//   byte 2   PP SSSS X C   profile, sampling index, private, high bit of the channels
//   byte 3   CC O H I S LL original, home, copyright id bit and start, top of the frame length
//   byte 4   LLLLLLLL      middle of the frame length
//   byte 5   LLL ...       end of the frame length
struct AdtsHeader {
    static constexpr std::size_t SIZE = 7;
    static constexpr std::size_t SIZE_WITH_CRC = 9;
    static constexpr int SAMPLES_PER_FRAME = 1024;

    bool id = false;
    unsigned layer = 0;
    bool protection_absent = false;
    unsigned profile = 0;
    unsigned sampling_index = 0;
    int sampling_rate = 0; // samples per second
    int samples_per_frame = SAMPLES_PER_FRAME;
    unsigned channels = 0; // 1 to 7; a stream that leaves it open (0) counts as 2
    bool original = false;
    bool home = false;
    bool copyright_id_bit = false;
    bool copyright_start = false;
    int frame_length = 0; // bytes of the whole frame, header included; may come out as 0 or less

    // What stands before the raw AAC data of the frame.
    std::size_t HeaderSize() const { return protection_absent ? SIZE : SIZE_WITH_CRC; }
};

// The header at the start of `bytes`; nothing when they are fewer than 7. The sync bits are not
// looked at.
std::optional<AdtsHeader> parse_adts_header(std::span<const unsigned char> bytes);

// Whether a frame may begin with these two bytes: sync and layer 0.
bool is_adts_frame_start(std::span<const unsigned char, 2> bytes);
