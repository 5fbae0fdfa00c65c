#include "core/OSTools.h"

#include <cstdio>

namespace {

constexpr unsigned long long MINUTE = 60;
constexpr unsigned long long HOUR = 60 * MINUTE;
constexpr unsigned long long DAY = 24 * HOUR;

std::string two_digits(unsigned long long value) {
    return (value < 10 ? "0" : "") + std::to_string(value);
}

// Units of one step of a scale, "KMGTPE": how a value of that step is divided and named.
struct Scale {
    unsigned long long base;
    const char* prefixes;
    const char* infix; // between prefix and unit
    const char* unit;
};
constexpr Scale BYTES = {1024, "KMGTPE", "i", "B"};
constexpr Scale BITS_PER_SECOND = {1000, "kMGTPE", "", "bps"};

} // namespace

std::string TimeToString(unsigned long long seconds, bool clock) {
    const std::string s = two_digits(seconds % MINUTE);
    const std::string m = two_digits(seconds / MINUTE % 60);
    if (clock) return std::to_string(seconds / HOUR) + ":" + m + ":" + s;
    if (seconds < MINUTE) return std::to_string(seconds) + " secs";
    if (seconds < HOUR) return std::to_string(seconds / MINUTE) + " mins " + s + " secs";
    const std::string rest = "h " + m + "m " + s + "s";
    if (seconds < DAY) return std::to_string(seconds / HOUR) + rest;
    return std::to_string(seconds / DAY) + "d " + two_digits(seconds / HOUR % 24) + rest;
}

std::string DataSizeToString(unsigned long long value, bool bitrate) {
    const Scale& scale = bitrate ? BITS_PER_SECOND : BYTES;
    if (value < scale.base) return std::to_string(value) + " " + scale.unit;
    unsigned long long divisor = scale.base;
    const char* prefix = scale.prefixes;
    for (; prefix[1] != '\0' && value / divisor >= scale.base; ++prefix)
        divisor *= scale.base;
    char number[32];
    std::snprintf(number, sizeof number, "%.2f ",
                  static_cast<double>(value) / static_cast<double>(divisor));
    return std::string(number) + *prefix + scale.infix + scale.unit;
}

struct tm ParseBuildTime(const std::string& date, const std::string& time_of_day) {
    struct tm moment = {};
    strptime((date + " " + time_of_day).c_str(), "%b %d %Y %H:%M:%S", &moment);
    return moment;
}

struct tm BuildTime() {
    return ParseBuildTime(__DATE__, __TIME__);
}
