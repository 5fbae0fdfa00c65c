#pragma once

#include <cstddef>
#include <optional>
#include <span>

// Where the first frame begins, for `is_start` that looks at what lies from a position on: at least
// 5 bytes. Nothing when no frame begins before the last 4 bytes.
template <typename IsStart>
std::optional<std::size_t> find_frame_start(std::span<const char> bytes, IsStart is_start) {
    constexpr std::size_t NOT_LOOKED_AT = 4;
    for (std::size_t position = 0; position + NOT_LOOKED_AT < bytes.size(); ++position)
        if (is_start(bytes.subspan(position))) return position;
    return std::nullopt;
}
