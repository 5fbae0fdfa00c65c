#include "media/OggPage.h"

#include "media/Bytes.h"

#include <algorithm>
#include <string_view>

namespace {
constexpr std::size_t FLAGS = 5;
constexpr std::size_t GRANULE_POSITION = 6;
constexpr std::size_t SEQUENCE_NUMBER = 18;
constexpr std::size_t SEGMENT_COUNT = 26;
constexpr std::size_t FULL_TABLE = 255;

struct CodecMark {
    CodecType codec;
    std::string_view beginning; // of the first packet
};
constexpr CodecMark CODEC_MARKS[] = {
    {CodecType::VORBIS, "\x01vorbis"},
    {CodecType::OPUS, "OpusHead"},
    {CodecType::THEORA, "\x80theora"},
};

std::size_t lacing_value(std::span<const char> page, std::size_t segment) {
    return unsigned_bytes(page)[OggPage::HEADER_SIZE + segment];
}

// A shorter segment is the last of its packet.
bool ends_packet(std::size_t lacing) { return lacing % 255 != 0; }

// The bytes of the first segment, as far as they are there.
std::string_view first_segment(std::span<const char> page) {
    const std::optional<OggPage> header = parse_ogg_page(page);
    if (!header || header->segment_count == 0 || header->DataOffset() >= page.size()) return {};
    const std::span<const char> data = page.subspan(header->DataOffset());
    return {data.data(), std::min(data.size(), lacing_value(page, 0))};
}
} // namespace

const char* codec_name(CodecType codec) {
    switch (codec) {
    case CodecType::VORBIS:
        return "Vorbis";
    case CodecType::OPUS:
        return "Opus";
    case CodecType::THEORA:
        return "Theora";
    case CodecType::UNKNOWN:
        break;
    }
    return "";
}

std::optional<OggPage> parse_ogg_page(std::span<const char> bytes) {
    if (bytes.size() < OggPage::HEADER_SIZE) return std::nullopt;
    OggPage page;
    page.flags = unsigned_bytes(bytes)[FLAGS];
    page.granule_position = little_endian<std::uint64_t>(bytes, GRANULE_POSITION);
    page.sequence_number = little_endian<std::uint32_t>(bytes, SEQUENCE_NUMBER);
    page.segment_count = unsigned_bytes(bytes)[SEGMENT_COUNT];
    return page;
}

bool is_ogg_page_start(std::span<const char, 5> bytes) {
    return std::string_view(bytes.data(), bytes.size()) == std::string_view("OggS\0", 5);
}

CodecType detect_bitstream_type(std::span<const char> page) {
    const std::string_view packet = first_segment(page);
    for (const CodecMark& mark : CODEC_MARKS)
        if (packet.starts_with(mark.beginning)) return mark.codec;
    return CodecType::UNKNOWN;
}

bool OggSegments::Retrieve(std::span<const char> page, std::vector<std::vector<char>>& result) {
    const std::optional<OggPage> header = parse_ogg_page(page);
    if (!header || header->DataOffset() >= page.size()) return false;
    std::size_t offset = header->DataOffset();
    bool ended = false;
    for (std::size_t i = 0; i < header->segment_count && !ended; ++i) {
        const std::size_t length = lacing_value(page, i);
        if (offset + length <= page.size()) append(page.subspan(offset, length));
        offset += length;
        ended = ends_packet(length);
    }
    // Kept: a full table counts as a packet that goes on, also if it ended before. Its comments
    // then appear with the next page.
    if (!ended || header->segment_count == FULL_TABLE) return false;
    result.clear();
    result.swap(segments);
    Clear();
    return true;
}

void OggSegments::append(std::span<const char> segment) {
    bytes += sizeof(std::vector<char>) + segment.size();
    if (bytes > MOST_BYTES) too_large = true;
    if (too_large)
        segments.clear();
    else
        segments.emplace_back(segment.begin(), segment.end());
}

void OggSegments::Clear() {
    segments.clear();
    bytes = 0;
    too_large = false;
}
