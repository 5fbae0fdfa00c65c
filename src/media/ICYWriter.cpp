#include "media/ICYWriter.h"

#include "http/Response.h"
#include "media/IcyBlock.h"
#include "net/url.h"

#include <utility>
#include <vector>

namespace {
// The block that says that nothing changed; one for all listeners.
const SharedBytes& empty_block() {
    static const SharedBytes BLOCK = std::make_shared<const std::vector<char>>(1, '\0');
    return BLOCK;
}

// What every listener begins with, so that its first block is an empty one.
const std::shared_ptr<METADATA>& empty_metadata() {
    static const std::shared_ptr<METADATA> RECORD = std::make_shared<METADATA>();
    return RECORD;
}
} // namespace

ICYWriter::ICYWriter(std::shared_ptr<Response> to, unsigned int interval, bool is_shoutcast,
                     bool chunked)
    : MediaWriter(std::move(to)), meta_interval(interval), shoutcast_client(is_shoutcast),
      chunk_comments(chunked && interval == 0) {
    metadata = empty_metadata();
}

unsigned long ICYWriter::Write(const SharedBytes& data, unsigned long offset,
                               unsigned long length) {
    if (chunk_comments && has_words()) send_chunk_comment(until_meta(length));
    unsigned long total = 0;
    while (length > 0) {
        const unsigned long step = until_meta(length);
        if (response->Buffer(data, offset, step) == 0) return total;
        total += step;
        offset += step;
        length -= step;
        if (meta_interval == 0) continue;
        since_meta += static_cast<unsigned int>(step);
        if (since_meta < meta_interval) continue;
        since_meta = 0;
        const unsigned long block = send_meta_data();
        if (block == 0) return total;
        total += block;
    }
    return total;
}

// How many of `length` bytes go out before the next block is due.
unsigned long ICYWriter::until_meta(unsigned long length) const {
    if (meta_interval == 0) return length;
    const unsigned long left = meta_interval - since_meta;
    return length < left ? length : left;
}

void ICYWriter::send_chunk_comment(unsigned long chunk_size) {
    if (!response->IsTransferChunkedEncoding()) return;
    response->SetTransferEncodingComment(chunk_comment::encode(*metadata, chunk_size));
    metadata = nullptr;
}

// Returns the bytes of the block that could be buffered. The length byte goes by itself: in a
// chunked body it is a chunk of its own.
unsigned long ICYWriter::send_meta_data() {
    if (!has_words()) return response->Buffer(empty_block(), 0, 1) == 0 ? 0 : 1;
    const std::string words = block_words();
    if (response->Buffer(std::string(1, icy_block::length_byte(words))) == 0) return 0;
    const std::string rest = icy_block::rest(words);
    if (response->Buffer(rest) == 0) return 1;
    metadata = nullptr;
    return 1 + rest.size();
}

std::string ICYWriter::block_words() const {
    const bool has_url = !shoutcast_client || url(metadata->url).IsValid();
    return icy_block::words(metadata->title, has_url ? metadata->url : std::string());
}
