#include "http/Request.h"
#include "media/HTTPReader.h"
#include "media/ICYReader.h"
#include "media/PacketBuffer.h"
#include "net/Socket.h"
#include "streaming/Framers.h"
#include "streaming/Mount.h"

#include <cstdlib>

namespace {
// Whether a source puts metadata blocks between its bytes. A transfer coding wins over them.
bool sends_blocks(const Request& request) {
    return !request.GetHeader("icy-metaint").empty() &&
           request.GetHeader("Transfer-Encoding").empty();
}

unsigned int block_interval(const Request& request) {
    return static_cast<unsigned int>(
        std::strtoul(request.GetHeader("icy-metaint").c_str(), nullptr, 10));
}

// Whether the reader of the former source can go on with this one, which it then does.
bool continued(MediaReader& reader, const std::shared_ptr<Request>& source) {
    const bool blocks = sends_blocks(*source);
    if (auto* icy = dynamic_cast<ICYReader*>(&reader); icy != nullptr && blocks) {
        icy->SetSocket(source->Socket());
        icy->SetMetaInterval(block_interval(*source));
        return true;
    }
    if (auto* http = dynamic_cast<HTTPReader*>(&reader); http != nullptr && !blocks) {
        http->SetRequest(source);
        return true;
    }
    return false;
}
} // namespace

bool Mount::HasNextPacketBuffer(int& index) const {
    return index >= 0 && static_cast<std::size_t>(index) < buffer_count;
}

std::shared_ptr<PacketBuffer> Mount::GetNextPacketBuffer(int& index) const {
    spin_guard guard(buffers_lock);
    const bool within = index >= 0 && static_cast<std::size_t>(index) < buffers.size();
    if (within && connected) return buffers[static_cast<std::size_t>(index++)];
    index = -1;
    return buffers.empty() ? nullptr : buffers.front();
}

std::shared_ptr<MediaReader> Mount::get_media_reader(const std::shared_ptr<Request>& source) const {
    if (!sends_blocks(*source)) return std::make_shared<HTTPReader>(source);
    return std::make_shared<ICYReader>(source->Socket(), block_interval(*source));
}

// The reader of the former source goes on where it can, with its figures and its record in any
// case.
void Mount::open_reader(const std::shared_ptr<Request>& source) {
    const std::shared_ptr<MediaReader> former = reader.load();
    if (former && continued(*former, source)) return;
    const std::shared_ptr<MediaReader> next = get_media_reader(source);
    if (former) next->Continue(*former);
    if (const auto buffer = live_buffer.load()) buffer->SetReader(next);
    reader.store(next);
}

void Mount::open_buffer(const Framer& framer) {
    if (!live_buffer.load()) {
        const std::shared_ptr<PacketBuffer> made = framer.make(reader.load());
        spin_guard guard(buffers_lock);
        buffers.push_back(made);
        buffer_count = buffers.size();
        live_buffer.store(made);
    }
    const std::shared_ptr<PacketBuffer> buffer = live_buffer.load();
    buffer->SetMetaData(current_record());
    buffer->Start();
}

// Lets the live stream go; the intro stays.
void Mount::cleanup_buffer() {
    std::shared_ptr<PacketBuffer> live = live_buffer.exchange(nullptr);
    {
        spin_guard guard(buffers_lock);
        if (buffers.size() == (has_intro ? 2 : 1)) buffers.pop_back();
        buffer_count = buffers.size();
    }
    if (live) live->SignalStop();
    reader.store(nullptr);
    take_text(&Mount::content_type, "application/octet-stream");
}

void Mount::reset() {
    if (const auto buffer = live_buffer.load()) buffer->Resync();
    connected = false;
}
