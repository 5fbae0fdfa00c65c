#include "http/SendQueue.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

namespace {

// Storage that a queue keeps when it ran empty: more than a listener that keeps up ever needs.
constexpr std::size_t KEPT_SEGMENTS = 32;

} // namespace

void SendQueue::Push(const SharedBytes& data, std::uint32_t offset, std::uint32_t length) {
    if (length == 0) return;
    append({.shared = data, .offset = offset, .length = length});
}

void SendQueue::Push(std::string_view bytes) {
    if (bytes.empty()) return;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    Segment segment = {.length = length};
    if (length <= INLINE_BYTES)
        std::memcpy(segment.own.data(), bytes.data(), length);
    else
        segment.shared = std::make_shared<const std::vector<char>>(bytes.begin(), bytes.end());
    append(std::move(segment));
}

int SendQueue::Parts(iovec* parts, int count) const {
    const int filled =
        static_cast<int>(std::min(segments.size() - head, static_cast<std::size_t>(count)));
    for (int i = 0; i < filled; ++i) {
        const Segment& segment = segments[head + static_cast<std::size_t>(i)];
        parts[i] = {const_cast<char*>(segment.bytes()), segment.length};
    }
    return filled;
}

void SendQueue::Drop(std::uint64_t count) {
    bytes_waiting -= count;
    while (count > 0) {
        Segment& first = segments[head];
        if (count < first.length) {
            first.offset += static_cast<std::uint32_t>(count);
            first.length -= static_cast<std::uint32_t>(count);
            return;
        }
        count -= first.length;
        first.shared.reset();
        ++head;
    }
    if (Empty()) start_over();
}

void SendQueue::Clear() {
    bytes_waiting = 0;
    start_over();
}

void SendQueue::append(Segment segment) {
    const bool full = segments.size() == segments.capacity();
    if (full && head > segments.size() / 2) { // spent ones make room, each moved once at most
        segments.erase(segments.begin(), segments.begin() + static_cast<std::ptrdiff_t>(head));
        head = 0;
    }
    bytes_waiting += segment.length;
    segments.push_back(std::move(segment));
}

void SendQueue::start_over() {
    head = 0;
    if (segments.capacity() > KEPT_SEGMENTS)
        std::vector<Segment>().swap(segments);
    else
        segments.clear();
}
