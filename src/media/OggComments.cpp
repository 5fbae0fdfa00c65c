#include "media/OggComments.h"

#include "core/OSTools.h"
#include "media/Bytes.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace {
constexpr std::size_t VORBIS_NAME = 7; // 0x03 "vorbis"
constexpr std::size_t OPUS_NAME = 8;   // "OpusTags"
constexpr std::size_t LENGTH = 4;
constexpr std::size_t LEAST_AROUND_VENDOR = 11;

// A comment header, read from front to back.
struct CommentReader {
    std::vector<char> bytes;
    std::size_t position;

    std::uint64_t take_number() {
        const std::uint32_t number = little_endian<std::uint32_t>(bytes, position);
        position += LENGTH;
        return number;
    }
    std::uint64_t left() const { return position < bytes.size() ? bytes.size() - position : 0; }
    // At most what is left.
    std::string take_text(std::uint64_t length) {
        const std::size_t taken = std::min(length, left());
        if (taken == 0) return {};
        std::string text(bytes.data() + position, taken);
        position += taken;
        return text;
    }
};

std::vector<char> join(const std::vector<std::vector<char>>& segments) {
    std::vector<char> bytes;
    for (const std::vector<char>& segment : segments)
        bytes.insert(bytes.end(), segment.begin(), segment.end());
    return bytes;
}

// Kept: the value ends at a second "=". Titles have always been shown like this.
void add_comment(const std::string& comment, std::map<std::string, std::string>& fields) {
    std::vector<std::string> pieces = split(comment, '=');
    if (pieces.size() < 2) return;
    fields[toupper(pieces[0])] = pieces[1];
}

std::string length_fault(const CommentReader& reader, std::uint64_t number, std::uint64_t count,
                         std::uint64_t need) {
    return "Comment " + tostring(number) + " of " + tostring(count) +
           " Invalid String length passed for comment at " + tostring(reader.position) + ", need " +
           tostring(need) + " bytes.  BufSz: " + tostring(reader.bytes.size());
}

void read_comments(CommentReader& reader, OggComments& comments) {
    const std::uint64_t count = reader.take_number();
    for (std::uint64_t number = 1; number <= count; ++number) {
        if (reader.left() < LENGTH) {
            comments.fault = length_fault(reader, number, count, LENGTH);
            return;
        }
        const std::uint64_t length = reader.take_number();
        if (length > reader.left()) {
            comments.fault = length_fault(reader, number, count, length);
            return;
        }
        add_comment(reader.take_text(length), comments.fields);
    }
}
} // namespace

OggComments parse_ogg_comments(const std::vector<std::vector<char>>& segments, CodecType codec) {
    OggComments comments;
    if (codec != CodecType::VORBIS && codec != CodecType::OPUS) {
        comments.fault = "Ogg comment parser error: Invalid segment passed";
        return comments;
    }
    CommentReader reader{join(segments), codec == CodecType::VORBIS ? VORBIS_NAME : OPUS_NAME};
    const std::uint64_t vendor_length = reader.take_number();
    if (vendor_length + LEAST_AROUND_VENDOR > reader.bytes.size()) {
        comments.fault = "Vendor Length too large: " + tostring(vendor_length) + " bytes";
        return comments;
    }
    comments.fields["Vendor"] = reader.take_text(vendor_length);
    read_comments(reader, comments);
    return comments;
}
