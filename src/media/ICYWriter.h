#pragma once

#include "media/MediaWriter.h"

#include <memory>
#include <string>

// Sends the packets unchanged, with metadata as ICY blocks at a fixed interval, or in the size
// lines of chunks, or not at all. Packets are handed on by reference.
// Owned and called as MediaWriter says.
class ICYWriter : public MediaWriter {
public:
    // `meta_interval`: bytes of audio between blocks, 0 for none. `shoutcast_client`: gets no
    // StreamUrl that is not a valid address. `chunked`: without an interval, metadata goes into
    // chunk lines.
    ICYWriter(std::shared_ptr<Response> to, unsigned int meta_interval, bool shoutcast_client,
              bool chunked);

    unsigned long Write(const SharedBytes& data, unsigned long offset,
                        unsigned long length) override;

private:
    unsigned long until_meta(unsigned long length) const;
    void send_chunk_comment(unsigned long chunk_size);
    unsigned long send_meta_data();
    std::string block_words() const;

    unsigned int meta_interval;
    unsigned int since_meta = 0; // bytes of audio since the last block
    bool shoutcast_client;
    bool chunk_comments;
};
