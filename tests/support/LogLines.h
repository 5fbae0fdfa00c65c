#pragma once

#include "config/Config.h"
#include "core/Log.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

// What the server has written to its event log since this was made. Starts the logging, without
// files, for the rest of the process.
class LogLines {
public:
    LogLines() {
        static const Logging logging;
        reader = Log::AddLogReceiver(Log::EVENT_LOG);
        All();
        lines.clear();
    }
    ~LogLines() { Log::RemoveLogReceiver(reader, Log::EVENT_LOG); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    // Whether so many lines that hold this text are there, or come within five seconds.
    bool Wait(const std::string& text, int wanted = 1) {
        for (int tries = 0; tries < 500; ++tries) {
            if (Count(text) >= wanted) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    // How many lines that have been written by now hold this text. A line that comes twice in a
    // row is written once.
    int Count(const std::string& text) {
        collect();
        int count = 0;
        for (const std::string& line : lines)
            count += line.find(text) != std::string::npos;
        return count;
    }

    // Everything logged before this call, one line each, without the time.
    std::vector<std::string> All() {
        static int marks = 0;
        const std::string mark = "end of the lines, mark " + std::to_string(++marks);
        LogWrite(2) << mark << std::endl;
        Wait(mark);
        std::vector<std::string> texts;
        for (const std::string& line : lines)
            if (line.find(mark) == std::string::npos)
                texts.push_back(line.substr(line.find("] ") + 2));
        return texts;
    }

private:
    struct Logging {
        Logging() {
            Config::Get("PidFile", true)->SetValue("0");
            Config::Get("ScreenLog", true)->SetValue(false);
            Config::Get("RealtimeLog", true)->SetValue(false);
            Log::SetFile("/dev/null", "/dev/null");
        }
        ~Logging() { Log::Stop(); }
    };

    void collect() {
        for (std::string& line : Log::QueryLog(reader, Log::EVENT_LOG))
            lines.push_back(std::move(line));
    }

    int reader = 0;
    std::vector<std::string> lines;
};
