#pragma once

#include "media/MediaReader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

// A source made of bytes: delivers them in pieces of at most `piece`, then ends in good order.
class ByteReader : public MediaReader {
public:
    static constexpr std::size_t WHOLE = std::numeric_limits<std::size_t>::max();

    explicit ByteReader(std::string content, std::size_t largest_piece = WHOLE)
        : bytes(std::move(content)), piece(largest_piece) {}

    int Read(char* buffer, unsigned long long offset, unsigned long long length) override {
        const std::size_t count =
            std::min({static_cast<std::size_t>(length), piece, bytes.size() - position});
        if (count == 0) return 0;
        std::memcpy(buffer + offset, bytes.data() + position, count);
        position += count;
        return static_cast<int>(count);
    }

    // What comes after that.
    void Append(const std::string& more) { bytes += more; }
    void SetMetaData(std::shared_ptr<METADATA> record) { metadata.store(std::move(record)); }

private:
    std::string bytes;
    std::size_t piece;
    std::size_t position = 0;
};
