#include "core/TransferRate.h"

#include "core/Clock.h"

#include <algorithm>

void TransferRate::Add(std::uint64_t bytes) {
    const time_t second = now();
    spin_guard guard(lock);
    if (used == MOST) {
        std::move(buckets.begin() + 1, buckets.end(), buckets.begin());
        --used;
    }
    if (used > 0 && buckets[used - 1].second == second)
        buckets[used - 1].bytes += bytes;
    else
        buckets[used++] = {second, bytes};
}

std::uint64_t TransferRate::GetBytesPerSecond(bool recent) const {
    spin_guard guard(lock);
    if (used == 0) return 0;
    const time_t from = recent ? now() - RECENT_SECONDS : buckets[0].second;
    std::uint64_t sum = 0;
    time_t newest = from;
    for (std::size_t i = 0; i < used; ++i) {
        if (buckets[i].second < from) continue;
        sum += buckets[i].bytes;
        newest = buckets[i].second;
    }
    return newest > from ? sum / static_cast<std::uint64_t>(newest - from) : sum;
}

std::size_t TransferRate::Buckets() const {
    spin_guard guard(lock);
    return used;
}
