#include "streaming/PacketQueue.h"

#include "media/PacketBuffer.h"

#include <utility>

void PacketQueue::Push(std::shared_ptr<BufferEntry> packet) {
    const std::uint64_t size = packet->size;
    spin_guard guard(lock);
    arrived.push_back(std::move(packet));
    pushed_bytes.store(pushed_bytes.load(std::memory_order_relaxed) + size,
                       std::memory_order_release);
    pushed_count.store(pushed_count.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

std::shared_ptr<BufferEntry> PacketQueue::Pop() {
    if (next == taken.size()) take_arrived();
    std::shared_ptr<BufferEntry> packet = std::move(taken[next++]);
    popped_count += 1;
    popped_bytes += packet->size;
    if (next == taken.size()) reset_taken();
    return packet;
}

void PacketQueue::Clear() {
    while (!Empty())
        Pop();
}

void PacketQueue::take_arrived() {
    spin_guard guard(lock);
    taken.swap(arrived);
    next = 0;
}

// All of `taken` has been worked on.
void PacketQueue::reset_taken() {
    next = 0;
    if (taken.capacity() > KEPT_CAPACITY)
        Packets().swap(taken);
    else
        taken.clear();
}
