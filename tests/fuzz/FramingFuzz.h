#pragma once

#include "media/PacketBuffer.h"
#include "support/ByteReader.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Feeds the bytes to a framing buffer, in pieces of a length that the first byte chooses, until the
// buffer gives up.
template <typename Buffer> void fuzz_framing(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    const std::size_t piece = data[0] == 0 ? ByteReader::WHOLE : data[0];
    const std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto buffer = std::make_shared<Buffer>(std::make_shared<ByteReader>(stream, piece));
    while (buffer->FillBuffer() == PacketBuffer::FILL_PACKET) {
    }
}
