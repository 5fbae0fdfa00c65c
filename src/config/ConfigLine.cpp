#include "config/ConfigLine.h"

#include "config/ConfigKey.h"
#include "core/OSTools.h"

#include <algorithm>

namespace {

constexpr std::string_view MOUNT_PREFIX = "source";
constexpr std::string_view DEFAULT_PREFIX = "default";
constexpr std::string_view DIGITS = "0123456789";

bool is_setting(std::string_view line) {
    return !line.empty() && line.find_first_of("; \t") != 0 && line.find('=') != line.npos;
}

std::string without_leading_zeros(std::string_view digits) {
    const auto first = std::min(digits.find_first_not_of('0'), digits.size() - 1);
    return std::string(digits.substr(first));
}

// The first digit ends the name and begins the index.
void read_mount_key(ConfigLine& line, std::string_view rest) {
    const auto digit = rest.find_first_of(DIGITS);
    line.name = rest.substr(0, digit);
    if (digit != rest.npos) {
        const auto tail = rest.substr(digit);
        line.kind = ConfigLine::Kind::INDEXED_MOUNT;
        line.index = without_leading_zeros(tail.substr(0, tail.find_first_not_of(DIGITS)));
    } else {
        line.kind = config_key::same(rest, "mount") ? ConfigLine::Kind::OPENS_MOUNT
                                                    : ConfigLine::Kind::MOUNT;
    }
}

void read_key(ConfigLine& line, std::string_view key) {
    // A bare "Source" or "Default" is a global key.
    const auto has_prefix = [&](std::string_view prefix) {
        return key.size() > prefix.size() && config_key::begins_with(key, prefix);
    };
    line.key = key;
    if (config_key::same(key, "include")) {
        line.kind = ConfigLine::Kind::INCLUDE;
    } else if (has_prefix(MOUNT_PREFIX)) {
        read_mount_key(line, key.substr(MOUNT_PREFIX.size()));
    } else if (has_prefix(DEFAULT_PREFIX)) {
        line.kind = ConfigLine::Kind::DEFAULT;
        line.name = key.substr(DEFAULT_PREFIX.size());
    } else {
        line.kind = ConfigLine::Kind::GLOBAL;
        line.name = key;
    }
}

} // namespace

ConfigLine ParseConfigLine(std::string_view text) {
    ConfigLine line;
    if (!is_setting(text)) return line;
    const auto equals = text.find('=');
    read_key(line, text.substr(0, equals));
    line.value = text.substr(equals + 1);
    trim(line.value);
    return line;
}
