#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

enum class CodecType { UNKNOWN = 0, VORBIS = 1, OPUS = 2, THEORA = 3 };

// "Vorbis", "Opus" or "Theora"; empty for an unknown one.
const char* codec_name(CodecType codec);

// The header of an Ogg page (RFC 3533), little-endian:
//    0   4   "OggS"
//    4   1   stream structure version, 0
//    5   1   flags
//    6   8   granule position
//   14   4   stream serial number
//   18   4   page sequence number
//   22   4   checksum, not looked at
//   26   1   segment count
//   27   n   lacing table: the length of each segment
// The data of the segments follows.
struct OggPage {
    static constexpr std::size_t HEADER_SIZE = 27;
    static constexpr std::size_t LONGEST = HEADER_SIZE + 255 + 255 * 255;
    static constexpr unsigned CONTINUED = 1;
    static constexpr unsigned BEGINNING_OF_STREAM = 2;

    unsigned flags = 0;
    std::uint64_t granule_position = 0;
    std::uint32_t sequence_number = 0;
    std::size_t segment_count = 0;

    bool IsContinued() const { return (flags & CONTINUED) != 0; }
    bool IsBeginningOfStream() const { return (flags & BEGINNING_OF_STREAM) != 0; }
    // Where the data of the first segment begins.
    std::size_t DataOffset() const { return HEADER_SIZE + segment_count; }
};

// The header at the start of `bytes`; nothing when they are fewer than 27. The capture pattern is
// not looked at.
std::optional<OggPage> parse_ogg_page(std::span<const char> bytes);

// Whether a page begins with these five bytes: the capture pattern and version 0.
bool is_ogg_page_start(std::span<const char, 5> bytes);

// What the first packet of a logical stream, on its first page, says about the codec.
CodecType detect_bitstream_type(std::span<const char> page);

// Puts a packet together out of the pages that it spans. One thread.
class OggSegments {
public:
    // What a packet may grow to; a header larger than that is given up.
    static constexpr std::size_t MOST_BYTES = 1024 * 1024;

    // Adds the segments of `page` up to the end of the packet. True when the packet ended: `result`
    // then has its segments, or none if there were more than MOST_BYTES. False when the packet goes
    // on with the next page, or the page is not whole.
    bool Retrieve(std::span<const char> page, std::vector<std::vector<char>>& result);

    // Forgets what was collected.
    void Clear();

private:
    void append(std::span<const char> segment);

    std::vector<std::vector<char>> segments;
    std::size_t bytes = 0; // in `segments`
    bool too_large = false;
};
