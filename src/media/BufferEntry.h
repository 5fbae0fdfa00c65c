#pragma once

#include "core/SharedBytes.h"
#include "core/spinlock.h"
#include "media/Metadata.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

// One packet of a stream: a frame, a page or a piece of bytes, exactly as it goes to a listener.
// Made once and then shared by the retained list and every listener's queue; any thread reads it.
struct BufferEntry {
    // `group` other than 0 marks a packet of a stream's headers, which trimming keeps.
    explicit BufferEntry(std::vector<char> bytes, std::uint64_t group = 0,
                         std::shared_ptr<METADATA> begins = nullptr)
        : data(std::move(bytes)), size(data.size()), header_id(group) {
        if (begins) SetMetaData(std::move(begins));
    }

    const std::vector<char> data;
    const std::uint64_t size; // bytes
    const std::uint64_t header_id;

    // The record that begins with this packet, nothing when the former one goes on. A trimmed
    // packet leaves its record to the next one, so it may come later than the packet.
    std::shared_ptr<METADATA> GetMetaData() const EXCLUDES(lock) {
        if (!has_metadata.load(std::memory_order_acquire)) return nullptr;
        spin_guard guard(lock);
        return metadata;
    }
    void SetMetaData(std::shared_ptr<METADATA> next) EXCLUDES(lock) {
        spin_guard guard(lock);
        has_metadata.store(next != nullptr, std::memory_order_release);
        metadata.swap(next);
    }

    // The packet's bytes by reference; they keep the packet.
    static SharedBytes Bytes(const std::shared_ptr<BufferEntry>& entry) {
        return {entry, &entry->data};
    }

private:
    mutable spinlock lock;
    std::shared_ptr<METADATA> metadata GUARDED_BY(lock);
    std::atomic<bool> has_metadata{false};
};
