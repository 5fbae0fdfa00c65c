#pragma once

#include "core/concurrent_queue.h"
#include "core/spinlock.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <list>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

// The event log, the listener log (W3C extended format) and the status line of the console.
// Serving threads only queue; one log thread formats, writes and drops. A file that cannot be
// opened loses the line, and nobody is told. Any thread may call anything, unless said otherwise.
class Log {
public:
    enum Level : int { DETAIL = 1, NORMAL = 2 };
    enum LogType : int { EVENT_LOG = 0, LISTENER_LOG = 1 };

    // One finished connection, in the order of the fields of the record. Control bytes are blanked
    // when the record is written; the writer need not.
    struct ReceiverStats {
        std::string s_ip = {}; // the server's end
        std::string s_dns = {};
        std::string c_ip = {}; // the client's end
        std::string c_dns = {};
        std::string cs_username = {};
        std::string cs_method = {}; // one byte, the number of Request::RequestMethod
        std::string cs_uri_stem = {};
        std::string cs_uri_query = {};
        double connected = 0; // seconds since the connection began; not printed
        std::uint16_t sc_status = 0;
        std::uint64_t sc_bytes = 0;
        double time_taken = 0; // seconds since the connection's last record, or its start
        std::string cs_version = {};
        std::string cs_user_agent = {};
        std::string x_metatitle = {};
    };

    // Initial thread, first of all: the path until the settings are read, and the banner.
    static void Init(const std::string& path);
    // Takes over the paths that are not empty, starts the log thread if it does not run yet, and
    // writes the pid file.
    static void SetFile(const std::string& log_path, const std::string& w3c_path);
    // Initial thread, last of all: everything queued is written before it returns.
    static void Stop();
    static bool IsRunning();

    static Level GetLevel();
    static void SetLevel(Level level);
    static void WriteString(std::string text);
    static void LogReceiver(ReceiverStats stats);
    // While paused the status line shows `message`, or nothing when that is empty.
    static void Pause(bool on, const std::string& message);
    // Safe in a signal handler: the log thread writes the line about it.
    static void NoteTermination() noexcept;

    // Live readers of a log, by the smallest free number. A new one begins with the last 20 lines
    // of the event log, whatever its type; only those of the event log get more.
    static int AddLogReceiver(LogType type);
    // The lines since the last query. Throws std::out_of_range for a number that does not exist.
    static std::list<std::string> QueryLog(int id, LogType type);
    // How many lines have been handed to the readers of the event log.
    static std::uint64_t LinesWritten() { return lines_written.load(std::memory_order_acquire); }
    // Whether a query would bring any.
    static bool HasLines(int id, LogType type);
    static void RemoveLogReceiver(int id, LogType type);

    // A diagnostic counter: adds `delta` and returns the total.
    static std::int64_t Memory(short delta);
    // Every double quote doubled.
    static std::string w3c_escape_quote(const std::string& text);

private:
    using Receivers = std::map<int, std::list<std::string>>;

    // The log thread, and everything that only it does.
    static void Update();
    static void drain_events();
    static void drain_records();
    static void write_event(time_t time, const std::string& message);
    static void write_line(const std::string& line);
    static void announce_console();
    static void to_screen(const std::string& line);
    static void to_file(const std::string& line);
    static void RLog(bool refresh);
    static std::string line_to_draw(bool refresh);
    static std::string status_line(bool refresh);
    static void tell_of_termination();

    static void write_pid_file();
    static std::string path_of(LogType type) EXCLUDES(log_lock);
    static Receivers& receivers_of(LogType type) REQUIRES(log_receiver_lock);

    static spinlock log_lock; // the paths and the prompt
    static std::string log_file GUARDED_BY(log_lock);
    static std::string w3clog_file GUARDED_BY(log_lock);
    static bool pause GUARDED_BY(log_lock);
    static std::string pause_message GUARDED_BY(log_lock);

    static concurrent_queue<std::pair<time_t, std::string>> log_buff;
    static concurrent_queue<std::pair<time_t, ReceiverStats>> w3c_buff;

    static spinlock log_receiver_lock;
    static std::list<std::string> last_log_entries GUARDED_BY(log_receiver_lock);
    static Receivers log_service_clients GUARDED_BY(log_receiver_lock);
    static Receivers w3clog_service_clients GUARDED_BY(log_receiver_lock);

    // The log thread's own.
    static std::string last_message;
    static std::uint64_t last_message_count;
    static std::string last_rcv_bitrate;
    static std::string last_snd_bitrate;
    static std::size_t rlogsz; // length of the status line last drawn

    static std::atomic<Level> log_level;
    static std::atomic<bool> running;
    static std::atomic<bool> stop;
    static std::atomic<bool> termination_noted;
    static std::atomic<std::int64_t> in_memory;
    static std::atomic<std::uint64_t> lines_written;
    static std::thread log_thread;
};

// A text that came from a peer, as it may stand in a log line: control bytes become blanks, so that
// nobody writes a line of his own. EVERY text of a peer (names, agents, addresses, titles, header
// values) passes through here before it goes into a LogWrite.
std::string log_text(std::string text);

// One log statement: LogWrite(2) << "text " << value << std::endl. Each std::endl passes a line on;
// the destructor passes on what is left. A muted statement costs a comparison for each <<.
class LogWrite {
public:
    explicit LogWrite(int level) : muted(Log::GetLevel() > level) {}
    LogWrite(const LogWrite&) = delete;
    LogWrite& operator=(const LogWrite&) = delete;
    ~LogWrite();

    template <typename T> LogWrite& operator<<(const T& value) {
        if (!muted) stream_of_line() << value;
        return *this;
    }
    LogWrite& operator<<(std::ostream& (*manipulator)(std::ostream&));

private:
    std::ostringstream& stream_of_line();
    void pass_on();

    bool muted;
    std::unique_ptr<std::ostringstream> line; // made by the first value
};
