#pragma once

#include "media/AdtsHeader.h"
#include "media/PacketBuffer.h"

#include <cstddef>
#include <memory>
#include <vector>

// The packet buffer of AAC streams in ADTS form: every packet is exactly one frame, its header
// included. Owned, shared and called as PacketBuffer says.
class AacBuffer : public PacketBuffer {
public:
    static constexpr unsigned SIZE_LIMIT = 0x20000; // bytes retained

    explicit AacBuffer(std::shared_ptr<MediaReader> source);

    // The header at `position`. Throws std::out_of_range when it runs past the end.
    static AdtsHeader ParseFrame(const std::vector<char>& bytes, std::size_t position);

protected:
    bool read_packet() override;

private:
    bool find_first_frame();
    void take_format(const AdtsHeader& header);
};
