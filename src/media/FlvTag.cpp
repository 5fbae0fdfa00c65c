#include "media/FlvTag.h"

#include "media/Bytes.h"

#include <cstddef>

namespace flv {
namespace {
constexpr std::size_t TAG_HEADER = 11;
constexpr unsigned TAG_SIZE = 4;
constexpr char WITH_AUDIO = 4;
constexpr char WITH_VIDEO = 5;
constexpr char WITHOUT_AUDIO = 1;

char file_flags(bool has_video, bool has_audio) {
    if (has_video) return WITH_VIDEO;
    return has_audio ? WITH_AUDIO : WITHOUT_AUDIO;
}
} // namespace

std::string file_header(bool has_video, bool has_audio) {
    std::string header = "FLV";
    append_big_endian(header, 1, 1);
    header += file_flags(has_video, has_audio);
    append_big_endian(header, 9, 4);
    insert_prev_tag_size(header, true);
    return header;
}

std::string create_tag(FLVTagType type, std::uint32_t timestamp, std::string_view head,
                       std::string_view data) {
    std::string tag;
    tag.reserve(TAG_HEADER + head.size() + data.size() + TAG_SIZE);
    append_big_endian(tag, static_cast<unsigned char>(type), 1);
    append_big_endian(tag, head.size() + data.size(), 3);
    append_big_endian(tag, timestamp & 0xFFFFFF, 3);
    append_big_endian(tag, timestamp >> 24, 1);
    append_big_endian(tag, 0, 3);
    tag += head;
    tag += data;
    insert_prev_tag_size(tag, false);
    return tag;
}

void insert_prev_tag_size(std::string& bytes, bool zero) {
    append_big_endian(bytes, zero ? 0 : bytes.size(), TAG_SIZE);
}
} // namespace flv
