#pragma once

#include "core/spinlock.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>

// Bytes per second over the last few seconds in which anything moved. One thread adds, any reads.
class TransferRate {
public:
    // Counts `bytes` for the current second. At most 11 seconds are remembered; of more than 10 the
    // oldest goes with the next addition, even to the same second.
    void Add(std::uint64_t bytes) EXCLUDES(lock);

    // With `recent`, only the seconds of the last ten, against the time since then; otherwise all
    // that is remembered, against the span from the oldest to the newest. The plain sum when no
    // time lies between, 0 when nothing is remembered.
    std::uint64_t GetBytesPerSecond(bool recent) const EXCLUDES(lock);

    std::size_t Buckets() const EXCLUDES(lock);

private:
    struct Bucket {
        time_t second;
        std::uint64_t bytes;
    };
    static constexpr std::size_t MOST = 11;
    static constexpr time_t RECENT_SECONDS = 10;

    mutable spinlock lock;
    std::array<Bucket, MOST> buckets GUARDED_BY(lock) = {}; // oldest first
    std::size_t used GUARDED_BY(lock) = 0;
};
