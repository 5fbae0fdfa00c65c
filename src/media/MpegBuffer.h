#pragma once

#include "media/MpegHeader.h"
#include "media/PacketBuffer.h"

#include <cstddef>
#include <memory>
#include <vector>

// The packet buffer of MPEG audio streams, Layers I to III: every packet is exactly one frame.
// Owned, shared and called as PacketBuffer says.
class MpegBuffer : public PacketBuffer {
public:
    static constexpr unsigned SIZE_LIMIT = 0x20000; // bytes retained

    explicit MpegBuffer(std::shared_ptr<MediaReader> source);

    // The header at `position`. Throws std::out_of_range when it runs past the end.
    static MpegHeader ParseFrame(const std::vector<char>& bytes, std::size_t position);

protected:
    bool read_packet() override;

private:
    bool find_first_frame();
    void take_format(const MpegHeader& header);
};
