#pragma once

#include "media/BufferEntry.h"
#include "support/ByteReader.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

// A framing buffer that is fed with bytes. `Buffer` is a class built from a reader.
template <typename Buffer> class Framed {
public:
    explicit Framed(const std::string& bytes, std::size_t piece = ByteReader::WHOLE)
        : source(std::make_shared<ByteReader>(bytes, piece)),
          buffer(std::make_shared<Buffer>(source)) {}

    // Fills until something other than a packet comes, and returns that.
    int FillToTheEnd() {
        int result = 0;
        while (result == 0)
            result = buffer->FillBuffer();
        return result;
    }

    // The packets that are retained.
    std::vector<std::shared_ptr<BufferEntry>> Entries() const {
        return buffer->GetBufferSnapShot();
    }
    std::vector<std::string> Packets() const {
        std::vector<std::string> packets;
        for (const auto& entry : Entries())
            packets.emplace_back(entry->data.begin(), entry->data.end());
        return packets;
    }

    std::shared_ptr<ByteReader> source;
    std::shared_ptr<Buffer> buffer;
};
