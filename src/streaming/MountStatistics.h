#pragma once

#include <cstdint>
#include <ctime>
#include <list>
#include <memory>
#include <utility>

struct METADATA;

// Records that have ended, each with the time of its end, newest first.
using SongHistory = std::list<std::pair<time_t, std::shared_ptr<METADATA>>>;

// A mount's figures at one moment.
struct MountStatistics {
    bool running = false;
    bool connected = false;
    std::uint64_t receivers = 0;
    std::int32_t max_receivers = 0;    // below 0 for no limit
    std::int32_t ip_max_receivers = 0; // below 1 for no limit
    std::uint64_t unique_receivers = 0;
    std::uint64_t peak_receivers = 0;
    std::uint64_t tune_ins = 0;
    std::uint64_t ex_tune_ins = 0;
    std::uint64_t avg_connect = 0;      // seconds
    std::uint64_t avg_quarter_hour = 0; // listeners, rounded up
    std::uint64_t bytes_received = 0;
    std::uint64_t bytes_sent = 0;
    std::uint64_t bitrate = 0;               // bits per second over all that is remembered
    std::shared_ptr<METADATA> metadata = {}; // never null: an empty record when there is none
    SongHistory song_history = {};
};
