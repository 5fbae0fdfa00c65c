#include "core/Log.h"
#include "core/OSTools.h"
#include "media/MediaReader.h"
#include "media/PacketBuffer.h"

#include <utility>

void PacketBuffer::SetPacketBufferSize(unsigned int limit) {
    spin_guard guard(entries_lock);
    size_limit = limit;
}

std::uint64_t PacketBuffer::GetPacketBufferSize() const {
    spin_guard guard(entries_lock);
    return size_limit;
}

std::vector<PacketBuffer::EntryPointer> PacketBuffer::GetBufferSnapShot() const {
    spin_guard guard(entries_lock);
    return {entries.begin(), entries.end()};
}

void PacketBuffer::add(const EntryPointer& entry) {
    attach_metadata(*entry);
    std::uint64_t grown_limit = 0;
    std::vector<ListenerPointer> waiting;
    {
        spin_guard guard(entries_lock);
        grown_limit = make_room(entry);
        retain(entry);
        if (started)
            packet_queue.push(entry);
        else
            waiting = show_to_joiners(entry);
    }
    if (grown_limit > 0)
        LogWrite(2) << "Large Packet detected.  Increasing PacketBuffer Size Limit."
                    << DataSizeToString(grown_limit, false) << std::endl;
    for (const ListenerPointer& listener : waiting)
        listener->OnNewPacket(entry);
}

// The packet's own record stands. The stream's own goes before one that was set from outside, which
// then waits for the next packet.
void PacketBuffer::attach_metadata(BufferEntry& entry) {
    if (std::shared_ptr<METADATA> own = entry.GetMetaData()) return last_metadata.store(own);
    const std::shared_ptr<METADATA> current = reader->GetMetaData();
    const std::shared_ptr<METADATA> last = last_metadata.load();
    if (current && (!last || !same_metadata(*current, *last))) {
        last_metadata.store(current);
        entry.SetMetaData(current);
        return;
    }
    // Kept: this one does not count as the stream's last. A title set from outside holds until the
    // stream names its own again.
    entry.SetMetaData(pending_metadata.exchange(nullptr));
}

// Trims for a new packet. Returns the new limit when it had to grow, otherwise 0.
std::uint64_t PacketBuffer::make_room(const EntryPointer& newest) {
    // Kept: the difference wraps around for a packet above the limit and for no limit at all, and
    // is 0 for a packet as large as the limit. None of these trims anything: a single large packet
    // must not cost joining listeners their burst.
    const std::uint64_t target = size_limit - newest->size;
    if (target == 0 || target >= buffered_bytes || trim(target, newest)) return 0;
    size_limit += newest->size;
    return size_limit;
}

// Removes the oldest packets until `target` bytes are left. The newest group of header packets
// stays, and false says that there was nothing else left to remove.
bool PacketBuffer::trim(std::uint64_t target, const EntryPointer& newest) {
    std::uint64_t total = buffered_bytes;
    std::uint64_t kept_group = 0;
    std::size_t position = 0;
    while (position < entries.size()) {
        const std::uint64_t group = entries[position]->header_id;
        if (group == 0) {
            total -= entries[position]->size;
            remove_packet(position, newest);
            if (target >= total) return true;
            continue;
        }
        // Kept: `total` is not lowered by the group that goes. With the headers that they need, the
        // packets of a finished chain link go as well, and not only as many as make room.
        if (kept_group != 0 && group != kept_group) {
            remove_before(position);
            position = 0;
        }
        kept_group = group;
        ++position;
    }
    return false;
}

void PacketBuffer::retain(const EntryPointer& entry) {
    entries.push_back(entry);
    buffered_bytes += entry->size;
    buffered_count = entries.size();
}

// A record that the packet carries goes to the next one, unless that begins its own.
void PacketBuffer::remove_packet(std::size_t position, const EntryPointer& newest) {
    const EntryPointer removed = std::move(entries[position]);
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
    buffered_bytes -= removed->size;
    const std::shared_ptr<METADATA> metadata = removed->GetMetaData();
    const EntryPointer& next = position < entries.size() ? entries[position] : newest;
    if (metadata && !next->GetMetaData()) next->SetMetaData(metadata);
}

void PacketBuffer::remove_before(std::size_t position) {
    for (; position > 0; --position) {
        buffered_bytes -= entries.front()->size;
        entries.pop_front();
    }
}
