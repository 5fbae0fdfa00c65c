#include "media/IcyMetadata.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> bytes(data, data + size);
    if (const auto words = icy_metadata::block_words(bytes)) icy_metadata::parse_block(*words);
    icy_metadata::parse_chunk_extension({bytes.begin(), bytes.end()});
    return 0;
}
