#include "core/Clock.h"
#include "media/Metadata.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double QUARTER_HOUR = 900;           // seconds
constexpr double SETTLING_TIME = 300;          // seconds after a source connected
constexpr std::uint64_t SHORTEST_SESSION = 60; // seconds, to count in the average
} // namespace

MountStatistics Mount::GetMountStatistics() const {
    return {.running = running,
            .connected = connected,
            .receivers = receiver_count,
            .max_receivers = static_cast<std::int32_t>(max_receivers),
            .ip_max_receivers = static_cast<std::int32_t>(ip_max_receivers),
            .unique_receivers = unique_receivers,
            .peak_receivers = peak_receivers,
            .tune_ins = tune_ins,
            .ex_tune_ins = ex_tune_ins,
            .avg_connect = avg_connect,
            .avg_quarter_hour = AvgQuarterHour(),
            .bytes_received = BytesReceived(),
            .bytes_sent = bytes_sent,
            .bitrate = GetBitrate(false),
            .metadata = GetMetaData(),
            .song_history = GetSongHistory()};
}

std::uint64_t Mount::AvgQuarterHour() const {
    return static_cast<std::uint64_t>(std::ceil(avg_quarter_hour));
}

void Mount::ExtendedReceiver() {
    ++ex_tune_ins;
    ++quarter_hour_count;
}

void Mount::ResetStats() {
    tune_ins = 0;
    ex_tune_ins = 0;
    avg_connect = 0;
    avg_quarter_hour = 0;
}

// A listener counts in a quarter hour if it was there for all of it, or became extended in it.
void Mount::do_stats_snap() {
    const time_t moment = now();
    if (difftime(moment, last_snap) <= QUARTER_HOUR) return;
    if (difftime(moment, connect_time) <= SETTLING_TIME) return;
    last_snap = moment;
    const std::uint64_t quarters = ++quarter_hour_samples;
    const auto listeners = GetReceiverList();
    const auto stayed = std::count_if(listeners.begin(), listeners.end(), [&](const auto& one) {
        return difftime(moment, one->ConnectTime()) > QUARTER_HOUR;
    });
    const double counted =
        static_cast<double>(quarter_hour_count.exchange(0)) + static_cast<double>(stayed);
    const double n = static_cast<double>(quarters);
    avg_quarter_hour = (avg_quarter_hour * (n - 1) + counted) / n;
}

// A session's end, with its length in whole seconds.
void Mount::add_session(std::uint64_t seconds) {
    if (seconds < SHORTEST_SESSION) return;
    const std::uint64_t sessions = ++avg_connect_samples;
    avg_connect = ((sessions - 1) * avg_connect + seconds) / sessions;
}

std::shared_ptr<METADATA> Mount::GetMetaData() const {
    const auto record = current_record();
    return record ? record : std::make_shared<METADATA>();
}

std::shared_ptr<METADATA> Mount::current_record() const {
    spin_guard guard(settings_lock);
    return metadata;
}

SongHistory Mount::GetSongHistory() const {
    spin_guard guard(settings_lock);
    return song_history;
}

void Mount::SetMetaData(const std::shared_ptr<METADATA>& next) {
    change_meta_data(next);
    if (const auto buffer = live_buffer.load()) buffer->SetMetaData(next);
}

// The history takes songs that have ended, each with the time of its end.
void Mount::change_meta_data(const std::shared_ptr<METADATA>& next) {
    spin_guard guard(settings_lock);
    if (metadata && same_metadata(*metadata, *next)) return;
    if (metadata) song_history.emplace_front(now(), metadata);
    song_history.resize(std::min<std::size_t>(song_history.size(), history_length));
    metadata = next;
}
