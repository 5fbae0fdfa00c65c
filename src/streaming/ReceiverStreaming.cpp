// A listener's slice: which mount is heard, the packets' way to the socket, and what ends it.

#include "http/Response.h"
#include "media/BufferEntry.h"
#include "media/MediaWriter.h"
#include "media/Metadata.h"
#include "media/PacketBuffer.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"

#include <utility>

namespace {

constexpr double EXTENDED_SECONDS = 300;
constexpr long long IDLE_MS = 200;               // what gathers meanwhile leaves in one send
constexpr std::uint64_t SEND_FROM_BYTES = 20481; // buffered between two tries to send
constexpr std::uint64_t MOST_QUEUED_BYTES = 0xFB000;
constexpr std::uint64_t SECONDS_PER_MINUTE = 60;

bool reached(double seconds, std::uint64_t limit) {
    return limit != 0 && seconds >= static_cast<double>(limit);
}

} // namespace

void Receiver::stream() {
    if (!mount) {
        LogWrite(2) << "Orphan instance of Reciever, this is certainly not intended. [I: " << uuid
                    << "]" << std::endl;
        become(ENDING);
        return;
    }
    note_extended();
    follow_sources();
    if (!mount->IsConnected()) {
        wait_for_source();
        return;
    }
    if (next_metadata && next_metadata != metadata) assign(metadata, next_metadata);
    if (!join_buffer()) {
        become(ENDING);
        return;
    }
    bool ran_empty = packets.Empty();
    if (send_what_waits()) ran_empty = write_packets();
    check_streaming_limits();
    if (ran_empty) wait_ms = IDLE_MS;
}

void Receiver::note_extended() {
    if (extended || seconds_since(connect_time) < EXTENDED_SECONDS) return;
    extended = true;
    LogWrite(1) << peer() << "Receiver extended listener." << std::endl;
    mount->ExtendedReceiver();
}

// ---- Which mount is heard -----------------------------------------------------------------------

// A mount that lost its source is left for its fallback, and returned to when the source is back.
// A fallback that is silent itself would only cost the burst on return.
void Receiver::follow_sources() {
    if (!mount->IsConnected()) {
        const std::shared_ptr<Mount> fallback = mount->GetFallbackMount();
        if (fallback && fallback->IsConnected())
            move_to(fallback, origin_mount ? origin_mount : mount);
    }
    if (origin_mount && origin_mount->IsConnected()) move_to(origin_mount, nullptr);
}

void Receiver::move_to(std::shared_ptr<Mount> next, std::shared_ptr<Mount> origin) {
    set_mounts(std::move(next), std::move(origin));
    leave_buffer();
    buffer_index = -1; // so that the new mount is joined with its burst
}

// The time counts from the last packet, not from the source's end.
void Receiver::wait_for_source() {
    if (client_timeout != 0 && seconds_since(last_send) > client_timeout)
        become(ENDING);
    else
        wait_ms = IDLE_MS;
}

// False when the mount has nothing to join.
bool Receiver::join_buffer() {
    if (buffer_index < 0) {
        leave_buffer();
        buffer_index = 0;
    }
    if (packet_buffer) return true;
    packet_buffer = mount->GetNextPacketBuffer(buffer_index);
    if (!packet_buffer) return false;
    packet_buffer->AddListener(getptr(), true);
    return true;
}

void Receiver::leave_buffer() {
    if (packet_buffer) packet_buffer->RemoveListener(getptr());
    packet_buffer.reset();
}

// After an intro the live stream.
void Receiver::take_next_buffer() {
    leave_buffer();
    packet_buffer = mount->GetNextPacketBuffer(buffer_index);
    if (packet_buffer) packet_buffer->AddListener(getptr(), false);
}

// ---- Packets ------------------------------------------------------------------------------------

// False when the socket takes no more for now, or has failed.
bool Receiver::send_what_waits() {
    const int result = response->SendBuffer();
    if (result == IO_FAILED || result == IO_END)
        end_stream("Receiver disconnected due to write error on send");
    return result > 0;
}

// Writes what is queued until the socket takes no more. True when the queue was empty at the last
// look.
bool Receiver::write_packets() {
    std::uint64_t written = 0;
    bool ran_empty = packets.Empty();
    while (!ran_empty && write_packet(packets.Pop(), written))
        ran_empty = packets.Empty();

    if (packets.Empty() && mount->HasNextPacketBuffer(buffer_index)) take_next_buffer();
    if (written != 0) {
        mount->IncBytesSent(written);
        last_send = last_service.load(std::memory_order_relaxed);
    }
    if (response->SendBuffer() == IO_FAILED)
        end_stream("Receiver disconnected due to write error. SB");
    return ran_empty;
}

// False when the slice is not to write another one.
bool Receiver::write_packet(const std::shared_ptr<BufferEntry>& packet, std::uint64_t& written) {
    note_metadata(packet->GetMetaData());
    const unsigned long taken = writer->Write(BufferEntry::Bytes(packet), 0, packet->size);
    if (taken == 0) {
        end_stream("Receiver disconnected due error on media write.");
        return false;
    }
    written += taken;
    if (response->GetBytesBuffered() < SEND_FROM_BYTES) return true;
    const int result = response->SendBuffer();
    if (result == IO_FAILED) end_stream("Receiver disconnected due to write error on send buffer");
    return result != IO_FAILED && result != IO_AGAIN;
}

// Each record that is played to a listener ends a line of the listener log, for what was played
// before.
// Kept: the first record ends one too, without a title. Log readers count tracks by these lines.
void Receiver::note_metadata(std::shared_ptr<METADATA> next) {
    next_metadata = std::move(next);
    if (!next_metadata || (metadata && same_metadata(*metadata, *next_metadata))) return;
    Log::LogReceiver(GetLogStats());
    assign(metadata, next_metadata);
    last_log.store(last_service.load(std::memory_order_relaxed), std::memory_order_relaxed);
    writer->SetMetadata(next_metadata);
}

// ---- Limits -------------------------------------------------------------------------------------

void Receiver::check_streaming_limits() {
    if (packets.Bytes() > MOST_QUEUED_BYTES) {
        response->SetLastError(Response::NO_BUFFERS);
        end_stream("Receiver disconnected due to too large of a packet queue.  Size: " +
                   std::to_string(packets.Bytes()) + " Count: " + std::to_string(packets.Count()) +
                   " Last Send: " +
                   std::to_string(last_service.load(std::memory_order_relaxed) - last_send));
    }
    const double connected = seconds_since(connect_time);
    if (reached(connected, mount->ListenerTimer() * SECONDS_PER_MINUTE))
        end_stream("Receiver disconnected due to listener timer.");
    if (reached(connected, time_limit))
        end_stream("Receiver disconnected due to mount listener timer.");
}

void Receiver::end_stream(const std::string& why) {
    LogWrite(1) << peer() << why << std::endl;
    become(ENDING);
}

// ---- Moves from outside -------------------------------------------------------------------------

// A connection that listens to no mount is left alone before its lock is waited for: the caller may
// be such a connection itself, and two of them would wait for each other.
void Receiver::SetMount(const std::shared_ptr<Mount>& new_mount) {
    if (Status() != RUNNING || !GetMount()) return;
    spin_guard guard(process_lock);
    if (!is_listener() || !mount || new_mount == mount || !new_mount->IsConnected()) return;
    const std::string wanted = new_mount->ContentType();
    if (!wanted.empty() && wanted != mount->ContentType()) {
        LogWrite(2) << peer() << "Mount Move request ignored, invalid target mime type!"
                    << std::endl;
        return;
    }
    leave_mount();
    move_to(new_mount, nullptr);
    finish_move();
}

// A refusal is not looked at; but the answer of a server that is asked is waited for.
void Receiver::finish_move() {
    is_moving = mount->RegisterReceiver(getptr(), inquiry).status == Admission::PENDING;
    if (is_moving) return;
    packet_buffer = mount->GetNextPacketBuffer(buffer_index);
    if (packet_buffer) packet_buffer->AddListener(getptr(), false);
}
