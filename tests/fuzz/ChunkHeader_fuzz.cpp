#include "media/ChunkHeader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    parse_chunk_header(bytes);
    if (const auto line = find_chunk_line(bytes)) {
        if (line->text_start > line->text_end || line->end > size) std::abort();
        parse_chunk_header(bytes.substr(line->text_start, line->text_end - line->text_start));
    }
    return 0;
}
