#include "core/Log.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "core/LogFiles.h"
#include "core/OSTools.h"
#include "core/Service.h"
#include "core/Version.h"

#include <algorithm>
#include <iostream>
#include <unistd.h>

namespace {

constexpr std::size_t TAIL_LINES = 20;
constexpr unsigned int TICK_MILLISECONDS = 10;
constexpr int TICKS_BETWEEN_BITRATES = 50;
constexpr char DEFAULT_PID_FILE[] = "quillwave.pid";

std::string event_line(time_t time, const std::string& message) {
    return "[" + local_time_text("%m/%d/%Y@%H:%M:%S", time) + "] " + message;
}

} // namespace

spinlock Log::log_lock;
std::string Log::log_file;
std::string Log::w3clog_file;
bool Log::pause = false;
std::string Log::pause_message;
concurrent_queue<std::pair<time_t, std::string>> Log::log_buff;
concurrent_queue<std::pair<time_t, Log::ReceiverStats>> Log::w3c_buff;
spinlock Log::log_receiver_lock;
std::list<std::string> Log::last_log_entries;
Log::Receivers Log::log_service_clients;
Log::Receivers Log::w3clog_service_clients;
std::string Log::last_message;
std::uint64_t Log::last_message_count = 0;
std::string Log::last_rcv_bitrate;
std::string Log::last_snd_bitrate;
std::size_t Log::rlogsz = 0;
std::atomic<Log::Level> Log::log_level{Log::NORMAL};
std::atomic<bool> Log::running{false};
std::atomic<bool> Log::stop{false};
std::atomic<bool> Log::termination_noted{false};
std::atomic<std::int64_t> Log::in_memory{0};
std::atomic<std::uint64_t> Log::lines_written{0};
std::thread Log::log_thread;

// ---- Start and stop -----------------------------------------------------------------------------

void Log::Init(const std::string& path) {
    {
        spin_guard guard(log_lock);
        log_file = path;
    }
    if (Service::IsService()) return;
    const std::string frame = "/" + std::string(50, '*') + "/\n";
    std::cout << frame
              << "/** Quillwave Distributed Network Multimedia Server/" QUILLWAVE_VERSION
                     QUILLWAVE_CODE_NAME " (" QUILLWAVE_PLATFORM ")\n"
              << "/** Made by the Quillwave developers. Comes with no warranty of any kind.\n"
              << frame << std::endl;
}

// The paths come first, so that not a line goes where the settings do not want it.
void Log::SetFile(const std::string& log_path, const std::string& w3c_path) {
    {
        spin_guard guard(log_lock);
        if (!log_path.empty()) log_file = log_path;
        if (!w3c_path.empty()) w3clog_file = w3c_path;
    }
    if (!log_thread.joinable()) log_thread = std::thread(Update);
    LogWrite(2) << "PID: " << getpid() << std::endl;
    write_pid_file();
}

void Log::write_pid_file() {
    std::string path = Config::Get("PidFile", false)->GetValue(DEFAULT_PID_FILE);
    if (path.empty()) path = DEFAULT_PID_FILE;
    if (path != "0") replace_file(path, std::to_string(getpid()));
}

void Log::Stop() {
    stop = true;
    if (log_thread.joinable()) log_thread.join();
}

bool Log::IsRunning() { return running; }

// ---- Any thread ---------------------------------------------------------------------------------

Log::Level Log::GetLevel() { return log_level; }
void Log::SetLevel(Level level) { log_level = level; }
void Log::WriteString(std::string text) { log_buff.push({now(), std::move(text)}); }
void Log::LogReceiver(ReceiverStats stats) { w3c_buff.push({now(), std::move(stats)}); }
void Log::NoteTermination() noexcept { termination_noted = true; }

void Log::Pause(bool on, const std::string& message) {
    spin_guard guard(log_lock);
    pause = on;
    pause_message = message;
}

Log::Receivers& Log::receivers_of(LogType type) {
    return type == EVENT_LOG ? log_service_clients : w3clog_service_clients;
}

std::string Log::path_of(LogType type) {
    spin_guard guard(log_lock);
    return type == EVENT_LOG ? log_file : w3clog_file;
}

int Log::AddLogReceiver(LogType type) {
    spin_guard guard(log_receiver_lock);
    Receivers& receivers = receivers_of(type);
    int id = 0;
    while (receivers.count(id) != 0)
        ++id;
    // Kept: receivers of the listener log begin with the event log too.
    receivers[id] = last_log_entries;
    return id;
}

std::list<std::string> Log::QueryLog(int id, LogType type) {
    std::list<std::string> lines;
    spin_guard guard(log_receiver_lock);
    lines.swap(receivers_of(type).at(id));
    return lines;
}

bool Log::HasLines(int id, LogType type) {
    spin_guard guard(log_receiver_lock);
    return !receivers_of(type).at(id).empty();
}

void Log::RemoveLogReceiver(int id, LogType type) {
    spin_guard guard(log_receiver_lock);
    receivers_of(type).erase(id);
}

std::int64_t Log::Memory(short delta) { return delta == 0 ? in_memory.load() : in_memory += delta; }

// ---- Log thread ---------------------------------------------------------------------------------

void Log::Update() {
    running = true;
    SetThreadName("Log Thread");
    announce_console();
    for (int tick = 0;;) {
        const bool ending = stop;
        tell_of_termination();
        drain_events();
        drain_records();
        if (ending) {
            if (log_buff.empty() && w3c_buff.empty()) break;
            continue;
        }
        const bool refresh = tick >= TICKS_BETWEEN_BITRATES;
        tick = refresh ? 0 : tick + 1;
        RLog(refresh);
        Sleep(TICK_MILLISECONDS);
    }
    std::cout << "Logging Thread shutting down" << std::endl;
    running = false;
}

void Log::tell_of_termination() {
    if (termination_noted.exchange(false))
        LogWrite(2) << "Received termination request, shutting down..." << std::endl;
}

void Log::drain_events() {
    while (const auto event = log_buff.pop())
        write_event(event->first, event->second);
}

// With its file off the records are dropped, so that they do not gather in memory.
void Log::drain_records() {
    const std::string path = path_of(LISTENER_LOG);
    if (!is_file_on(path)) {
        std::deque<std::pair<time_t, ReceiverStats>> dropped;
        w3c_buff.swap(dropped);
        return;
    }
    while (const auto record = w3c_buff.pop())
        append_record(path, record->first, record->second);
}

// A message that comes again and again is written once and counted; the next other one tells how
// often it came.
void Log::write_event(time_t time, const std::string& message) {
    if (message == last_message) {
        ++last_message_count;
        return;
    }
    if (last_message_count > 0) {
        write_line(event_line(time, "Last message repeated " + std::to_string(last_message_count) +
                                        " times"));
    }
    last_message_count = 0;
    last_message = message;
    write_line(event_line(time, message));
}

void Log::write_line(const std::string& line) {
    to_screen(line);
    to_file(line);
}

void Log::to_file(const std::string& line) {
    {
        spin_guard guard(log_receiver_lock);
        last_log_entries.push_back(line);
        while (last_log_entries.size() > TAIL_LINES)
            last_log_entries.pop_front();
    }
    append_event(path_of(EVENT_LOG), line);
    {
        spin_guard guard(log_receiver_lock);
        for (auto& [id, lines] : log_service_clients)
            lines.push_back(line);
    }
    lines_written.fetch_add(1, std::memory_order_release);
}
