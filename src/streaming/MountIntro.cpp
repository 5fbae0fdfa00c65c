#include "http/MimeTypes.h"
#include "media/FileReader.h"
#include "media/PacketBuffer.h"
#include "streaming/Framers.h"
#include "streaming/Mount.h"

#include <algorithm>
#include <iterator>

namespace {
// Kept: these types to the letter, while the type of a source only has to hold one of the words.
// Files of all other types are played as plain bytes.
constexpr const char* FRAMED_TYPES[] = {"audio/mpeg", "audio/aacp", "application/ogg"};

// What kind of stream an intro file holds, as its name tells.
std::string intro_type(const std::string& path) {
    const std::string type = MimeTypes::GetMimeType(path);
    const bool framed =
        std::find(std::begin(FRAMED_TYPES), std::end(FRAMED_TYPES), type) != std::end(FRAMED_TYPES);
    return framed ? type : MimeTypes::UNKNOWN;
}
} // namespace

bool Mount::SetIntroFile(const std::string& path) {
    if (path.empty()) return true;
    const auto intro = framer_for(intro_type(path)).make(std::make_shared<FileReader>(path));
    intro->SetPacketBufferSize(0); // nothing is trimmed
    while (intro->FillBuffer() == PacketBuffer::FILL_PACKET) {
    }
    if (intro->GetBufferSize() == 0) return false;
    intro->SetReader(std::make_shared<MediaReader>()); // closes the file
    std::shared_ptr<PacketBuffer> former = intro;
    spin_guard guard(buffers_lock);
    if (has_intro)
        buffers.front().swap(former);
    else
        buffers.insert(buffers.begin(), intro);
    has_intro = true;
    buffer_count = buffers.size();
    return true;
}
