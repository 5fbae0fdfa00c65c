#pragma once

#include <cstdint>
#include <ctime>
#include <string>

// What a mount publishes about itself, taken at one moment, for pages, feeds and directories.
// Texts stand as the source sent them, Latin-1 or UTF-8.
struct MountDescription {
    int id = 0;
    std::string address = {};
    std::string name = {}; // with the mount's NameFormat applied
    std::string description = {};
    std::string genre = {};
    std::string bitrate = {}; // kilobits, as the source wrote it
    std::string website = {};
    std::string content_type = {};
    std::string audio_info = {};
    std::uint32_t meta_interval = 0;  // bytes between ICY metadata blocks
    std::uint64_t listener_timer = 0; // minutes, 0 for no limit
    std::string relay = {};           // the relay address in turn, or empty
    bool is_public = false;           // may stand in directories
    time_t connect_time = 0;          // when the last source connected
    std::string last_ip = {};         // where it came from
};
