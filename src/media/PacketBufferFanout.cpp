#include "core/Log.h"
#include "media/PacketBuffer.h"

#include <exception>

ThreadPool::Priority PacketBuffer::Poll(long long) {
    if (processing.exchange(true)) return ThreadPool::NOTHING;
    if (!packet_queue.empty() || !listener_queue.empty()) return ThreadPool::HIGH;
    processing = false;
    return ThreadPool::NOTHING;
}

void PacketBuffer::Process() {
    try {
        apply_listener_changes(); // most of them, while no other lock is held
        take_new_packets();
        deliver_new_packets();
    } catch (const std::exception& failure) {
        LogWrite(2) << "Packets lost in delivery: " << failure.what() << std::endl;
    }
    end_delivery();
    processing = false;
}

void PacketBuffer::AddListener(const ListenerPointer& listener, bool burst) {
    {
        spin_guard guard(snapshot_lock);
        if (burst)
            for (const EntryPointer& entry : snapshot)
                listener->OnNewPacket(entry);
        listener_queue.push({listener, ListenerType::JOIN});
    }
    if (!started) apply_listener_changes();
}

void PacketBuffer::RemoveListener(const ListenerPointer& listener) {
    listener_queue.push({listener, ListenerType::LEAVE});
    if (!started) apply_listener_changes();
}

void PacketBuffer::apply_listener_changes() {
    if (listener_queue.empty()) return;
    ListenerList::Changes changes; // released without the lock
    spin_guard guard(listeners_lock);
    take_listener_changes(changes);
}

void PacketBuffer::take_listener_changes(ListenerList::Changes& changes) {
    listener_queue.swap(changes);
    const bool in_delivery = listeners.use_count() > 1;
    if (in_delivery) listeners = std::make_shared<ListenerList>(*listeners);
    listeners->Apply(changes);
}

// Takes the packets and the joins up to one and the same moment, and shows those packets to all who
// join later: whoever joins gets each packet either in the burst or by delivery.
void PacketBuffer::take_new_packets() {
    ListenerList::Changes changes;
    spin_guard entries_guard(entries_lock);
    spin_guard snapshot_guard(snapshot_lock);
    spin_guard listeners_guard(listeners_lock);
    if (!listener_queue.empty()) take_listener_changes(changes);
    packet_queue.swap(new_packets);
    old_snapshot.assign(entries.begin(), entries.end());
    snapshot.swap(old_snapshot);
}

// One listener after the other gets all packets, oldest first. No lock is held meanwhile.
void PacketBuffer::deliver_new_packets() {
    if (new_packets.empty()) return;
    {
        spin_guard guard(listeners_lock);
        receiving = listeners;
    }
    for (const ListenerPointer& listener : receiving->All())
        for (const EntryPointer& packet : new_packets)
            listener->OnNewPacket(packet);
}

// Given back under the lock, so that who finds the list unshared there may change it.
void PacketBuffer::end_delivery() {
    new_packets.clear();
    old_snapshot.clear();
    std::shared_ptr<const ListenerList> replaced; // released behind the lock, with who has left
    spin_guard guard(listeners_lock);
    if (receiving == listeners)
        receiving.reset();
    else
        replaced.swap(receiving);
}

// Without the pool, the newest packet goes into the burst here, and to those who are returned.
std::vector<PacketBuffer::ListenerPointer>
PacketBuffer::show_to_joiners(const EntryPointer& newest) {
    ListenerList::Changes changes;
    spin_guard snapshot_guard(snapshot_lock);
    spin_guard listeners_guard(listeners_lock);
    const bool only_newest_is_new = snapshot.size() + 1 == entries.size() &&
                                    (snapshot.empty() || snapshot.back() == entries.end()[-2]);
    if (only_newest_is_new)
        snapshot.push_back(newest);
    else
        snapshot.assign(entries.begin(), entries.end());
    if (!listener_queue.empty()) take_listener_changes(changes);
    return listeners->All();
}
