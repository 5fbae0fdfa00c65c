#pragma once

#include "media/BufferEntry.h"
#include "media/PacketBufferListener.h"

#include <memory>
#include <mutex>
#include <vector>

// Keeps every packet that it gets, in order. Any thread.
class RecordingListener : public PacketBufferListener {
public:
    void OnNewPacket(const std::shared_ptr<BufferEntry>& packet) override {
        const std::lock_guard guard(lock);
        packets.push_back(packet);
    }

    std::vector<std::shared_ptr<BufferEntry>> Packets() const {
        const std::lock_guard guard(lock);
        return packets;
    }

private:
    mutable std::mutex lock;
    std::vector<std::shared_ptr<BufferEntry>> packets;
};
