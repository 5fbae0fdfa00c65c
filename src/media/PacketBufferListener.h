#pragma once

#include <memory>

struct BufferEntry;

// Whoever gets the packets of a stream, one by one and in order.
class PacketBufferListener {
public:
    virtual ~PacketBufferListener() = default;

    // Any thread, with locks of the buffer held: it takes the reference and returns. It does not
    // block and does not call the buffer.
    virtual void OnNewPacket(const std::shared_ptr<BufferEntry>& packet) = 0;
};
