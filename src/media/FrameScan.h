#pragma once

#include "media/InputBuffer.h"

#include <cstddef>
#include <optional>
#include <span>

// Where the first frame begins, for `is_start` that looks at what lies from a position on: at least
// 5 bytes. Nothing when no frame begins before the last 4 bytes; what was in vain is not looked at
// again, or a source that sends noise in small pieces would be searched from its start with each.
template <typename IsStart>
std::optional<std::size_t> find_frame_start(InputBuffer& buffer, IsStart is_start) {
    constexpr std::size_t NOT_LOOKED_AT = 4;
    const std::span<const char> bytes = buffer.Data();
    std::size_t position = buffer.Searched();
    while (position + NOT_LOOKED_AT < bytes.size() && !is_start(bytes.subspan(position)))
        ++position;
    buffer.SetSearched(position);
    if (position + NOT_LOOKED_AT >= bytes.size()) return std::nullopt;
    return position;
}
