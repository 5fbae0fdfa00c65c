#pragma once

#include "media/OggPage.h"
#include "media/PacketBuffer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The packet buffer of Ogg streams: every packet is exactly one page. The pages of the first two
// packets of each chain link get a header id, so that trimming keeps them for those who join
// later, and the comment header becomes a metadata record.
// Owned, shared and called as PacketBuffer says.
class OggBuffer : public PacketBuffer {
public:
    static constexpr unsigned SIZE_LIMIT = 0x10000;         // bytes retained
    static constexpr unsigned THEORA_SIZE_LIMIT = 0x100000; // the same, for video
    // Header pages of one chain link beyond this many bytes are trimmed like any other page.
    static constexpr std::size_t MOST_HEADER_BYTES = OggSegments::MOST_BYTES;

    explicit OggBuffer(std::shared_ptr<MediaReader> source);

protected:
    bool read_packet() override;

private:
    static constexpr std::size_t THEORA_READ_BUFFER = 32768;

    bool find_first_frame();
    // Nothing when the page cannot fit into the read buffer.
    std::optional<std::size_t> page_length(const OggPage& page);
    void compensate();
    void follow_position(const OggPage& page, const std::vector<char>& bytes);
    void take_codec(const std::vector<char>& page);
    std::shared_ptr<BufferEntry> make_entry(std::vector<char> page);
    std::uint64_t header_id_of(std::size_t length);
    std::shared_ptr<METADATA> read_comments(const std::vector<char>& page);
    std::string peer() const;

    // All of these belong to the thread that fills the buffer.
    std::uint32_t packet_index = 0; // since the last beginning of a stream; 1 on that page
    CodecType codec = CodecType::UNKNOWN;
    std::uint64_t header_group; // id of the current group, other than that of other buffers
    std::size_t header_bytes = 0;
    OggSegments segments;       // of the comment header
    bool comments_read = false; // since the last beginning of a stream
};
