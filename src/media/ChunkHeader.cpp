#include "media/ChunkHeader.h"

#include "core/OSTools.h"

#include <charconv>
#include <vector>

namespace {

constexpr std::string_view LINE_END = "\r\n";

std::uint64_t parse_size(std::string text) {
    trim(text);
    std::uint64_t size = 0;
    std::from_chars(text.data(), text.data() + text.size(), size, 16);
    return size;
}

} // namespace

std::optional<ChunkLine> find_chunk_line(std::string_view bytes) {
    const std::size_t start = bytes.starts_with(LINE_END) ? LINE_END.size() : 0;
    const std::size_t end = bytes.find(LINE_END, start);
    if (end == std::string_view::npos) return std::nullopt;
    return ChunkLine{start, end, end + LINE_END.size()};
}

ChunkHeader parse_chunk_header(const std::string& text) {
    std::vector<std::string> parts = split(text, ';', 1);
    if (parts.size() != 2) return {parse_size(text), {}};
    return {parse_size(parts[0]), trim(parts[1])};
}
