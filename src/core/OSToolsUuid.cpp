#include "core/OSTools.h"
#include "core/spinlock.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>

namespace {

template <typename T> T draw_any(std::mt19937_64& generator) {
    using limits = std::numeric_limits<T>;
    return std::uniform_int_distribution<T>(limits::min(), limits::max())(generator);
}

int draw_from_range(std::mt19937_64& generator) {
    return std::uniform_int_distribution<int>(16383, 32768)(generator);
}

// Seeded with more than the 32 bits of one draw of the device: the password of a first run comes
// from here, and whoever sees a session's id could try all such seeds.
std::mt19937_64 seeded_generator() {
    std::random_device device("default");
    std::array<std::random_device::result_type, 16> words{};
    std::ranges::generate(words, std::ref(device));
    std::seed_seq seed(words.begin(), words.end());
    return std::mt19937_64(seed);
}

// One generator for all threads.
struct Source {
    spinlock lock; // held for the six draws
    std::mt19937_64 generator GUARDED_BY(lock) = seeded_generator();
};

} // namespace

// Kept: the groups vary in length, and only the third looks like that of a version 4 UUID.
std::string GenerateUuid(std::mt19937_64& generator) {
    const auto a = draw_any<std::int32_t>(generator);
    const auto b = draw_any<std::int64_t>(generator);
    const int c = draw_from_range(generator);
    const auto d = draw_any<std::int32_t>(generator);
    const auto e = draw_any<std::int32_t>(generator);
    const auto f = draw_any<std::int64_t>(generator);
    char text[80];
    std::snprintf(text, sizeof text, "%lx-%02x-%02x-%02x-%02lx%02x", static_cast<unsigned long>(f),
                  static_cast<unsigned>(e), (static_cast<unsigned>(d) & 0xFFFU) | 0x4000U,
                  static_cast<unsigned>(c), static_cast<unsigned long>(b),
                  static_cast<unsigned>(a));
    return text;
}

std::string GenerateUuid() {
    static Source source;
    spin_guard guard(source.lock);
    return GenerateUuid(source.generator);
}
