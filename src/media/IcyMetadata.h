#pragma once

#include "media/Metadata.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// What arrives in ICY metadata blocks and in the extensions of chunk size lines:
//   key='value';key='value';...
// Keys and values are encoded as in a URL, or stand as they are. "StreamTitle" and "StreamUrl", in
// any case, are known; every other key is carried along.
namespace icy_metadata {

// The words of a block as received, up to its first NUL. Nothing when this is no block, which also
// tells that the place in the stream was lost: words begin with an S and a NUL follows them.
std::optional<std::string> block_words(const std::vector<char>& block);

// The record of a block's words; null when they are in no form that is known. Without a ';' it is
// the form of old encoders, a word that ends in 'title='TEXT.
std::shared_ptr<METADATA> parse_block(const std::string& words);

// The record of a chunk's extension; null when there are no pairs in it.
std::shared_ptr<METADATA> parse_chunk_extension(const std::string& words);

} // namespace icy_metadata
