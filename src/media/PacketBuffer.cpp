#include "media/PacketBuffer.h"

#include "core/Clock.h"
#include "media/MediaReader.h"
#include "net/Socket.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {
constexpr double STALL_SECONDS = 60;
} // namespace

PacketBuffer::PacketBuffer(std::shared_ptr<MediaReader> source, std::uint64_t limit)
    : read_buffer(READ_BUFFER_LENGTH), reader(std::move(source)), last_read_time(now()),
      size_limit(limit), listeners(std::make_shared<ListenerList>()) {}

void PacketBuffer::Start() {
    last_read_time = now();
    if (!started.exchange(true)) ThreadPool::Add(shared_from_this());
}

void PacketBuffer::SignalStop() {
    if (!started.exchange(false)) return;
    ThreadPool::Remove(shared_from_this());
    apply_listener_changes();
}

int PacketBuffer::FillBuffer() {
    const time_t start = now();
    while (true) {
        if (read_fill() > 0 && read_packet()) return FILL_PACKET;
        if (read_buffer.Full()) return give_up(FILL_FAILED);
        const int result = read_more();
        if (result < 0) return read_failed(result);
        if (result == IO_END) return give_up(FILL_END);
        // Kept: never true, as `start` is not after the last read. A source that sends slowly is
        // waited for, and the reader's time-out ends a silent one.
        if (difftime(start, last_read_time) >= STALL_SECONDS) return read_failed(IO_AGAIN);
    }
}

int PacketBuffer::read_more() {
    char* memory = read_buffer.Memory();
    const std::size_t room = read_buffer.Length() - read_fill();
    const int result =
        reader->Read(memory, read_fill(), flowing ? std::min(room, READ_STEP) : room);
    if (result < 1) return result;
    flowing = true;
    last_read_time = now();
    read_buffer.Filled(static_cast<unsigned>(result));
    return result;
}

int PacketBuffer::read_failed(int result) {
    if (result == IO_AGAIN)
        socket_error = ETIMEDOUT;
    else if (const std::shared_ptr<Socket> socket = reader->GetSocket())
        socket_error = socket->GetLastError();
    return give_up(FILL_FAILED);
}

int PacketBuffer::give_up(FillResult why) {
    read_buffer.Clear();
    return why;
}

void PacketBuffer::Resync() {
    read_buffer.Clear();
    flowing = false;
    socket_error = 0;
    reader->Reset();
}

void PacketBuffer::SetReader(std::shared_ptr<MediaReader> next) { reader = std::move(next); }

// Kept: what is short of a whole piece is never sent. Pieces of one size make a burst fall on the
// same borders for every listener.
bool PacketBuffer::read_packet() {
    if (read_fill() <= GENERIC_PACKET) return false;
    add(std::make_shared<BufferEntry>(advance_buffer(GENERIC_PACKET)));
    return true;
}

void PacketBuffer::set_audio_format(int frequency, std::uint16_t channels, double milliseconds) {
    audio_frequency = frequency;
    audio_channels = channels;
    frame_time = milliseconds;
}
