#include "streaming/Framers.h"

#include "media/AacBuffer.h"
#include "media/MpegBuffer.h"
#include "media/OggBuffer.h"
#include "media/PacketBuffer.h"

#include <algorithm>
#include <iterator>

namespace {
template <typename Buffer>
std::shared_ptr<PacketBuffer> framed(const std::shared_ptr<MediaReader>& reader) {
    return std::make_shared<Buffer>(reader);
}

std::shared_ptr<PacketBuffer> plain(const std::shared_ptr<MediaReader>& reader) {
    return std::make_shared<PacketBuffer>(reader, PacketBuffer::GENERIC_SIZE_LIMIT);
}

// Tried from the top; the first word that is found decides. The last one is found in any text.
const Framer FRAMERS[] = {
    {"aac", "AAC Object", framed<AacBuffer>},
    {"ultravox", "", nullptr},
    {"mpeg", "Mpeg Object", framed<MpegBuffer>},
    {"ogg", "Ogg Object", framed<OggBuffer>},
    {"", "Generic Object", plain},
};
} // namespace

const Framer& framer_for(const std::string& content_type) {
    return *std::find_if(std::begin(FRAMERS), std::end(FRAMERS), [&](const Framer& framer) {
        return content_type.find(framer.word) != std::string::npos;
    });
}
