#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Builders of Ogg pages and the packets inside them. Checksums are left 0.
namespace ogg {
constexpr unsigned CONTINUED = 1;
constexpr unsigned FIRST = 2;

inline std::string number(std::uint64_t value, unsigned bytes) {
    std::string text;
    for (unsigned i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i) & 0xFF);
    return text;
}

struct PageOptions {
    unsigned flags = 0;
    std::uint64_t granule = 0;
    std::uint32_t sequence = 0;
};

// A page with this lacing table, and as much data as that says.
inline std::string page(const PageOptions& options, const std::vector<unsigned>& lacing,
                        const std::string& data) {
    std::string bytes = "OggS" + number(0, 1) + number(options.flags, 1) +
                        number(options.granule, 8) + number(77, 4) + number(options.sequence, 4) +
                        number(0, 4) + number(lacing.size(), 1);
    for (const unsigned value : lacing)
        bytes += static_cast<char>(value);
    return bytes + data;
}

// The lacing of one whole packet.
inline std::vector<unsigned> lacing_of(std::size_t packet) {
    std::vector<unsigned> lacing(packet / 255, 255);
    lacing.push_back(static_cast<unsigned>(packet % 255));
    return lacing;
}

// A page of one packet that begins and ends on it.
inline std::string page(const PageOptions& options, const std::string& packet) {
    return page(options, lacing_of(packet.size()), packet);
}

inline std::string comment_header(const std::string& name, const std::string& vendor,
                                  const std::vector<std::string>& comments) {
    std::string bytes = name + number(vendor.size(), 4) + vendor + number(comments.size(), 4);
    for (const std::string& comment : comments)
        bytes += number(comment.size(), 4) + comment;
    return bytes;
}
inline std::string vorbis_comments(const std::vector<std::string>& comments) {
    return comment_header("\x03vorbis", "Maker", comments);
}
inline std::string opus_comments(const std::vector<std::string>& comments) {
    return comment_header("OpusTags", "Maker", comments);
}

inline const std::string VORBIS_HEAD = "\x01vorbis" + std::string(23, 'v');
inline const std::string OPUS_HEAD = "OpusHead" + std::string(11, 'o');
inline const std::string THEORA_HEAD = "\x80theora" + std::string(35, 't');
} // namespace ogg
