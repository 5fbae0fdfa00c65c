#include "web/StreamState.h"

#include "core/OSTools.h"
#include "streaming/Mount.h"
#include "web/FeedText.h"

#include <algorithm>

StreamState::StreamState(const Mount& mount)
    : description(mount.GetMountDescription()), figures(mount.GetMountStatistics()) {}

std::string converted(const std::string& text) { return feed_text::to_utf8(text); }

std::string time_text(time_t seconds) {
    return TimeToString(static_cast<unsigned long long>(std::max<time_t>(seconds, 0)), false);
}

std::string time_since(time_t then, time_t moment) { return time_text(moment - then); }
