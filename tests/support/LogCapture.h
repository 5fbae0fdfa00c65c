#pragma once

#include "config/Config.h"
#include "core/Log.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

// The event log of a test: the log thread runs for as long as this lives, with no file and a silent
// console. Once in a process.
class LogCapture {
public:
    LogCapture() {
        for (const char* off : {"ScreenLog", "RealtimeLog"})
            Config::Get(off, true)->SetValue(false);
        Config::Get("PidFile", true)->SetValue("0");
        id = Log::AddLogReceiver(Log::EVENT_LOG);
        Log::SetFile("0", "0");
    }
    ~LogCapture() { Log::Stop(); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Whether a line that holds `text` comes within some seconds. Lines that have passed count.
    bool WaitFor(const std::string& text) {
        for (int look = 0; look < 1000; ++look) {
            fetch();
            if (holds(text)) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    // Ends the log thread; all messages since the start, each without its time. The first one,
    // about the pid, is left out.
    std::vector<std::string> Messages() {
        Log::Stop();
        fetch();
        std::vector<std::string> messages;
        for (const std::string& line : lines)
            messages.push_back(line.substr(line.find(']') + 2));
        if (!messages.empty()) messages.erase(messages.begin());
        return messages;
    }

private:
    void fetch() {
        for (std::string& line : Log::QueryLog(id, Log::EVENT_LOG))
            lines.push_back(std::move(line));
    }
    bool holds(const std::string& text) const {
        return std::any_of(lines.begin(), lines.end(), [&text](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    }

    int id = 0;
    std::vector<std::string> lines;
};
