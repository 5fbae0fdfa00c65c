#pragma once

#include "core/SharedBytes.h"
#include "media/Metadata.h"

#include <memory>
#include <utility>

class Response;

// Turns the packets of one listener into the bytes of its response.
// Owned and called by one Receiver, in its slices only.
class MediaWriter {
public:
    explicit MediaWriter(std::shared_ptr<Response> to) : response(std::move(to)) {}
    virtual ~MediaWriter() = default;
    MediaWriter(const MediaWriter&) = delete;
    MediaWriter& operator=(const MediaWriter&) = delete;

    // What the following packets belong to. No record is no change.
    virtual void SetMetadata(std::shared_ptr<METADATA> next) {
        if (next) metadata = std::move(next);
    }

    // Hands `length` bytes of a packet from `offset` on to the response, with what goes between
    // them. Returns how many bytes were handed over, chunk framing not counted; 0 when nothing more
    // could be buffered.
    virtual unsigned long Write(const SharedBytes& data, unsigned long offset,
                                unsigned long length) = 0;

protected:
    // Whether the record has anything that a player shows.
    bool has_words() const {
        return metadata && !(metadata->title.empty() && metadata->url.empty());
    }

    std::shared_ptr<Response> response;
    std::shared_ptr<METADATA> metadata; // still to be sent
};
