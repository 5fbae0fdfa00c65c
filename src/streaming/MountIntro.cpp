#include "media/FileReader.h"
#include "media/PacketBuffer.h"
#include "streaming/Framers.h"
#include "streaming/Mount.h"

namespace {
// What kind of stream an intro file holds. Nothing tells the types of files apart yet, so all are
// taken as plain bytes.
std::string intro_type(const std::string&) { return "application/octet-stream"; }
} // namespace

bool Mount::SetIntroFile(const std::string& path) {
    if (path.empty()) return true;
    const auto intro = framer_for(intro_type(path)).make(std::make_shared<FileReader>(path));
    intro->SetPacketBufferSize(0); // nothing is trimmed
    while (intro->FillBuffer() == PacketBuffer::FILL_PACKET) {
    }
    if (intro->GetBufferSize() == 0) return false;
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
