#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The size line of a chunk (RFC 9112, section 7.1), with the line end that closes the chunk before:
//   [CR LF]                  but before the first chunk
//   size [; extension]       size in hexadecimal, 0 for the last chunk
//   CR LF
struct ChunkHeader {
    std::uint64_t size = 0;     // 0 also for what is no number
    std::string extension = {}; // blanks around it cut
};

// Where a size line lies in what has come so far.
struct ChunkLine {
    std::size_t text_start = 0;
    std::size_t text_end = 0;
    std::size_t end = 0; // behind the line's own CR LF
};

// Nothing while the line is not complete.
std::optional<ChunkLine> find_chunk_line(std::string_view bytes);

// The line without its end.
ChunkHeader parse_chunk_header(const std::string& text);
