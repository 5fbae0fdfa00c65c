#include "media/OggBuffer.h"

#include "core/Clock.h"
#include "core/Log.h"
#include "media/Bytes.h"
#include "media/FrameScan.h"
#include "media/MediaReader.h"
#include "media/OggComments.h"

#include <limits>
#include <ostream>
#include <utility>

namespace {
constexpr std::uint32_t CODEC_HEADER = 1;
constexpr std::uint32_t COMMENT_HEADER = 2;
// A buffer that retains this much is not for audio, and is not enlarged.
constexpr std::uint64_t COMPENSATED_BELOW = 0x100000;

// The record that these comments make. Title and artist are also told as one line.
std::shared_ptr<METADATA> make_metadata(OggComments comments, const std::vector<char>& page,
                                        CodecType codec) {
    auto record = std::make_shared<METADATA>();
    const auto title = comments.fields.find("TITLE");
    const auto artist = comments.fields.find("ARTIST");
    if (title != comments.fields.end()) record->song = record->title = title->second;
    if (artist != comments.fields.end()) {
        record->artist = record->title = artist->second;
        if (!record->song.empty()) record->title += " - " + record->song;
    }
    record->extended = std::move(comments.fields);
    record->raw = page;
    record->codec = codec_name(codec);
    return record;
}
} // namespace

OggBuffer::OggBuffer(std::shared_ptr<MediaReader> source)
    : PacketBuffer(std::move(source), SIZE_LIMIT), header_group(static_cast<std::uint64_t>(now())) {
    read_buffer.Resize(OggPage::LONGEST);
}

std::string OggBuffer::peer() const { return "<" + reader->GetIP() + "> "; }

bool OggBuffer::find_first_frame() {
    const auto start = find_frame_start(read_buffer, [](std::span<const char> bytes) {
        return is_ogg_page_start(bytes.first<5>());
    });
    if (start) skip_buffer(*start);
    return start.has_value();
}

bool OggBuffer::read_packet() {
    if (read_fill() <= OggPage::HEADER_SIZE || !find_first_frame()) return false;
    const auto header = parse_ogg_page(read_buffer.Data());
    if (!header || read_fill() < header->DataOffset()) return false;
    const auto length = page_length(*header);
    if (!length) return false;
    std::vector<char> page = advance_buffer(*length);
    if (page.empty()) return false;
    follow_position(*header, page);
    add(make_entry(std::move(page)));
    return true;
}

// Kept: a page whose last segment alone runs past the end of the buffer is not noticed, and the
// stream ends with a full buffer.
std::optional<std::size_t> OggBuffer::page_length(const OggPage& page) {
    const std::span<const unsigned char> bytes = unsigned_bytes(read_buffer.Data());
    std::size_t length = page.DataOffset();
    for (std::size_t i = 0; i < page.segment_count; ++i) {
        if (length >= read_buffer.Length()) {
            compensate();
            return std::nullopt;
        }
        length += bytes[OggPage::HEADER_SIZE + i];
    }
    return length;
}

void OggBuffer::compensate() {
    if (GetPacketBufferSize() >= COMPENSATED_BELOW) {
        LogWrite(2) << peer()
                    << "Ogg Packet exceeded end of buffer, compensation failed.  You should "
                       "restart this stream."
                    << std::endl;
        return;
    }
    read_buffer.Resize(2 * read_buffer.Length());
    LogWrite(2) << peer() << "Ogg Packet exceeded end of buffer, will attempt to compensate."
                << std::endl;
}

void OggBuffer::follow_position(const OggPage& page, const std::vector<char>& bytes) {
    if (page.IsBeginningOfStream()) {
        packet_index = CODEC_HEADER;
        comments_read = false;
        segments.Clear();
        if (page.granule_position == 0 && page.sequence_number == 0) take_codec(bytes);
        return;
    }
    const bool countable = packet_index < std::numeric_limits<std::uint32_t>::max();
    if (!page.IsContinued() && countable) ++packet_index;
}

void OggBuffer::take_codec(const std::vector<char>& page) {
    codec = detect_bitstream_type(page);
    if (codec == CodecType::THEORA) {
        read_buffer.Resize(THEORA_READ_BUFFER);
        SetPacketBufferSize(THEORA_SIZE_LIMIT);
    }
    if (codec == CodecType::UNKNOWN)
        LogWrite(2) << "OGG Bitstream is Unknown or unsupported" << std::endl;
}

// Kept: a third header, as Vorbis has one, is no member of the group. Those who join depend on its
// page being retained.
std::shared_ptr<BufferEntry> OggBuffer::make_entry(std::vector<char> page) {
    std::uint64_t group = 0;
    std::shared_ptr<METADATA> begins;
    if (packet_index == CODEC_HEADER) {
        ++header_group;
        header_bytes = 0;
        group = header_id_of(page.size());
    }
    if (packet_index == COMMENT_HEADER) {
        begins = read_comments(page);
        group = header_id_of(page.size());
    }
    return std::make_shared<BufferEntry>(std::move(page), group, std::move(begins));
}

// Header pages are never trimmed, so a packet without end must not make all of its pages headers.
std::uint64_t OggBuffer::header_id_of(std::size_t length) {
    header_bytes += length;
    return header_bytes > MOST_HEADER_BYTES ? 0 : header_group;
}

// The record of the comment header, on the page on which that ends. The pages behind it, which
// continue the next header, have none.
std::shared_ptr<METADATA> OggBuffer::read_comments(const std::vector<char>& page) {
    std::vector<std::vector<char>> packet;
    if (comments_read || !segments.Retrieve(page, packet)) return nullptr;
    comments_read = true;
    if (packet.empty()) {
        LogWrite(2) << "Warning: Unable to parse OGG comments." << std::endl;
        return nullptr;
    }
    OggComments comments = parse_ogg_comments(packet, codec);
    if (!comments.fault.empty()) LogWrite(2) << comments.fault << std::endl;
    return make_metadata(std::move(comments), page, codec);
}
