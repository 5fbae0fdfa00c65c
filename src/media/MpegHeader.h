#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// The header of an MPEG audio frame (ISO 11172-3, ISO 13818-3 and the 2.5 extension), 4 bytes:
//   byte 0   11111111
//   byte 1   111 VV LL P   version, layer, 0 when a CRC follows
//   byte 2   BBBB SS P X   bitrate index, sampling index, padding, private
//   byte 3   MM EE C O HH  channel mode, mode extension, copyright, original, emphasis
struct MpegHeader {
    static constexpr std::size_t SIZE = 4;
    static constexpr unsigned MPEG_1 = 3;
    static constexpr unsigned MPEG_RESERVED = 1;
    static constexpr unsigned MPEG_2 = 2;
    static constexpr unsigned MPEG_2_5 = 0;
    static constexpr unsigned MONO = 3;

    unsigned version = MPEG_2_5;
    unsigned layer = 0; // 0 Layer I, 1 Layer II, 2 Layer III, 3 reserved
    bool is_protected = false;
    unsigned bitrate_index = 0;
    int bitrate = 0;           // kilobits per second, 0 for free format and for reserved values
    int samples_per_frame = 0; // 0 for the reserved layer
    unsigned sampling_index = 0;
    int sampling_rate = 0; // samples per second, 0 for reserved values
    bool padding = false;
    bool private_bit = false;
    unsigned channel_mode = 0;
    bool stereo = false; // anything but one single channel
    unsigned mode_extension = 0;
    bool copyright = false;
    bool original = false;
    unsigned emphasis = 0;

    // Bytes of the whole frame, header included. 0 for free format without padding, and when the
    // sampling rate is unknown.
    std::size_t FrameLength() const;
};

// The header at the start of `bytes`; nothing when they are fewer than 4. The sync bits are not
// looked at.
std::optional<MpegHeader> parse_mpeg_header(std::span<const unsigned char> bytes);

// Whether a frame may begin with these three bytes: sync, no reserved version or layer, no
// forbidden bitrate, no reserved sampling rate.
bool is_mpeg_frame_start(std::span<const unsigned char, 3> bytes);
