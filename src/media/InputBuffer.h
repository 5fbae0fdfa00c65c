#pragma once

#include <cstddef>
#include <span>
#include <vector>

// Bytes that came in and are not framed yet. What is taken leaves at the front without moving the
// rest; the rest moves only when space behind it is asked for. One thread.
class InputBuffer {
public:
    explicit InputBuffer(std::size_t length) : bytes(length), wanted_length(length) {}

    // How many bytes it may hold.
    std::size_t Length() const { return bytes.size(); }
    std::size_t Fill() const { return fill; }
    bool Full() const { return fill >= Length(); }

    // What it holds, oldest first; valid until the next call that changes it.
    std::span<const char> Data() const { return {bytes.data() + start, fill}; }

    // How many of the oldest bytes were found to begin no frame; 0 again once any leave.
    std::size_t Searched() const { return searched; }
    void SetSearched(std::size_t count) { searched = count; }

    // All of the memory, with what it holds at its start; the first `Fill()` bytes stay.
    char* Memory();
    // `count` bytes were written behind those that it held.
    void Filled(std::size_t count) { fill += count; }

    // The oldest `count` bytes; nothing, and no change, for 0 and for more than it holds.
    std::vector<char> Take(std::size_t count);
    // The same without a copy.
    void Skip(std::size_t count);
    // Empty, and every byte 0.
    void Clear();
    // Grows at once. Shrinks when what it holds fits, now or later.
    void Resize(std::size_t length);

private:
    void shrink_if_it_fits();

    std::vector<char> bytes;
    std::size_t wanted_length;
    std::size_t start = 0;
    std::size_t fill = 0;
    std::size_t searched = 0;
};
