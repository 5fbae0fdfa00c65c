#pragma once

#include <memory>
#include <string>

class MediaReader;
class PacketBuffer;

// How streams of some content types are cut into packets.
struct Framer {
    const char* word;     // stands somewhere in the content type
    const char* log_name; // what the stream is called in the log
    // Null for streams that cannot be taken.
    std::shared_ptr<PacketBuffer> (*make)(const std::shared_ptr<MediaReader>& reader);
};

// The framer for a content type. There is always one: plain bytes in the end.
const Framer& framer_for(const std::string& content_type);
