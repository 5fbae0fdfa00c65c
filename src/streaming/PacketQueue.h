#pragma once

#include "core/spinlock.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct BufferEntry;

// The packets that wait for one listener, oldest first. Any thread appends; one thread at a time,
// the listener's, does the rest. That thread takes all that arrived in one step and works from it
// without the lock. What waited in a burst is given back, what steady streaming needs is kept.
class PacketQueue {
public:
    void Push(std::shared_ptr<BufferEntry> packet) EXCLUDES(lock);

    bool Empty() const { return Count() == 0; }
    std::uint64_t Count() const {
        return pushed_count.load(std::memory_order_acquire) - popped_count;
    }
    // Sum of the sizes of all packets that wait.
    std::uint64_t Bytes() const {
        return pushed_bytes.load(std::memory_order_acquire) - popped_bytes;
    }

    // The oldest packet. Not for an empty queue.
    std::shared_ptr<BufferEntry> Pop() EXCLUDES(lock);
    void Clear() EXCLUDES(lock);

private:
    using Packets = std::vector<std::shared_ptr<BufferEntry>>;
    static constexpr std::size_t KEPT_CAPACITY = 32; // packets; a burst has hundreds

    void take_arrived() EXCLUDES(lock);
    void reset_taken();

    spinlock lock;
    Packets arrived GUARDED_BY(lock);
    // Running totals: the first two change under the lock only, the others on the listener's thread
    // only, so that the difference needs neither lock nor atomic addition.
    std::atomic<std::uint64_t> pushed_count{0};
    std::atomic<std::uint64_t> pushed_bytes{0};
    std::uint64_t popped_count = 0;
    std::uint64_t popped_bytes = 0;
    Packets taken;
    std::size_t next = 0; // in `taken`
};
