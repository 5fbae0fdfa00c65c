#pragma once

#include "core/SharedBytes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <sys/uio.h>
#include <vector>

// Bytes that wait for a socket, in order: references to shared packets, and short texts by value.
// The storage is used over and over, so that a listener that keeps up costs no allocation. Used by
// one thread at a time.
class SendQueue {
public:
    void Push(const SharedBytes& data, std::uint32_t offset, std::uint32_t length);
    // Copies the bytes; up to INLINE_BYTES of them without an allocation.
    void Push(std::string_view bytes);

    bool Empty() const { return head == segments.size(); }
    std::uint64_t Bytes() const { return bytes_waiting; }
    // Points up to `count` parts at what waits first; valid until the next call of another
    // operation.
    int Parts(iovec* parts, int count) const;
    // Forgets the first `count` bytes, which were sent.
    void Drop(std::uint64_t count);
    void Clear();

    static constexpr std::size_t INLINE_BYTES = 8; // the size line of a chunk

private:
    struct Segment {
        SharedBytes shared = {}; // or empty, and the bytes stand in `own`
        std::uint32_t offset = 0;
        std::uint32_t length = 0;
        std::array<char, INLINE_BYTES> own = {};

        const char* bytes() const { return shared ? shared->data() + offset : own.data() + offset; }
    };

    void append(Segment segment);
    void start_over();

    std::vector<Segment> segments;
    std::size_t head = 0; // the first that waits; those before it are spent
    std::uint64_t bytes_waiting = 0;
};
