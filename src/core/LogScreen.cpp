#include "config/Config.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "core/Service.h"
#include "streaming/MountList.h"

#include <iostream>

namespace {

// Read for each line, so that a changed setting counts at once.
bool shows_lines() {
    return !Service::IsService() && Config::Get("ScreenLog", false)->GetValue(true);
}

bool shows_status() {
    return !Service::IsService() && Config::Get("RealtimeLog", false)->GetValue(true) &&
           MountList::Ready();
}

std::string padded(std::string text, std::size_t length) {
    if (text.size() < length) text.resize(length, ' ');
    return text;
}

} // namespace

void Log::announce_console() {
    if (shows_lines()) std::cout << "Event Log:" << std::endl;
}

// The blanks wipe out what the status line left.
void Log::to_screen(const std::string& line) {
    if (shows_lines()) std::cout << "\r" << padded(line, rlogsz + 1) << std::endl;
}

void Log::RLog(bool refresh) {
    if (!shows_status()) return;
    const std::string line = line_to_draw(refresh);
    if (line.empty()) return;
    std::cout << "\r" << padded(line, rlogsz) << std::flush;
    rlogsz = line.size();
}

// The prompt while paused, which is empty where nothing is to be drawn; otherwise the status.
std::string Log::line_to_draw(bool refresh) {
    {
        spin_guard guard(log_lock);
        if (pause) return pause_message;
    }
    return status_line(refresh);
}

std::string Log::status_line(bool refresh) {
    if (refresh) {
        last_rcv_bitrate = DataSizeToString(MountList::TotalSourceBitrate(), true);
        last_snd_bitrate = DataSizeToString(MountList::TotalReceiverBitrate(), true);
    }
    return "<Status> Sources: " + tostring(MountList::TotalActiveMounts()) +
           " Nodes: " + tostring(MountList::TotalReceivers()) +
           " (Unique: " + tostring(MountList::TotalUniqueReceivers()) +
           ") Tx: " + last_rcv_bitrate + "<->" + last_snd_bitrate;
}
