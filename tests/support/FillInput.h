#pragma once

#include "media/InputBuffer.h"

#include <cstring>
#include <string>

// As a read does: the bytes come behind what the buffer holds, which has room for them.
inline void fill(InputBuffer& buffer, const std::string& bytes) {
    std::memcpy(buffer.Memory() + buffer.Fill(), bytes.data(), bytes.size());
    buffer.Filled(bytes.size());
}
