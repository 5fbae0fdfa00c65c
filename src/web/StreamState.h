#pragma once

#include "streaming/MountDescription.h"
#include "streaming/MountStatistics.h"
#include "web/Html.h"

#include <ctime>
#include <string>

class Mount;

// A mount as it stood at one moment. Pages are drawn from this, whatever becomes of the mount.
struct StreamState {
    explicit StreamState(const Mount& mount);

    MountDescription description;
    MountStatistics figures;
};

// What a source sent, in Latin-1 or UTF-8, as a page can show it.
std::string converted(const std::string& text);
// A time in seconds, in words; none for what is below 0.
std::string time_text(time_t seconds);
// The time between two moments; none when the first comes later, as it may while a page is built.
std::string time_since(time_t then, time_t moment);
