#include "media/InputBuffer.h"

#include <algorithm>
#include <cstring>

char* InputBuffer::Memory() {
    if (start > 0) std::memmove(bytes.data(), bytes.data() + start, fill);
    start = 0;
    return bytes.data();
}

std::vector<char> InputBuffer::Take(std::size_t count) {
    if (count == 0 || count > fill) return {};
    const auto oldest = Data().first(count);
    std::vector<char> taken(oldest.begin(), oldest.end());
    Skip(count);
    return taken;
}

void InputBuffer::Skip(std::size_t count) {
    if (count > fill) return;
    start += count;
    fill -= count;
    searched = 0;
    shrink_if_it_fits();
}

void InputBuffer::Clear() {
    start = 0;
    fill = 0;
    searched = 0;
    shrink_if_it_fits();
    std::fill(bytes.begin(), bytes.end(), '\0');
}

void InputBuffer::Resize(std::size_t length) {
    wanted_length = length;
    if (length > Length()) bytes.resize(length);
    shrink_if_it_fits();
}

void InputBuffer::shrink_if_it_fits() {
    if (Length() <= wanted_length || fill > wanted_length) return;
    Memory();
    bytes.resize(wanted_length);
    bytes.shrink_to_fit();
}
