#include "core/LogFiles.h"

#include "core/Clock.h"
#include "core/OSTools.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t TIME_TEXT = 128;
constexpr mode_t FILE_MODE = 0644;

// A descriptor that closes itself.
class File {
public:
    File(const std::string& path, int flags)
        : fd(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, FILE_MODE)) {}
    ~File() {
        if (fd >= 0) close(fd);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsEmpty() const { return lseek(fd, 0, SEEK_END) == 0; }
    void Write(const std::string& text) const {
        std::size_t written = 0;
        while (written < text.size()) {
            const ssize_t count = write(fd, text.data() + written, text.size() - written);
            if (count <= 0) return;
            written += static_cast<std::size_t>(count);
        }
    }

private:
    int fd;
};

std::string time_text(const std::string& format, const struct tm& moment) {
    char text[TIME_TEXT];
    return {text, strftime(text, sizeof text, format.c_str(), &moment)};
}

void make_prefixes(const std::string& path, char separator) {
    for (auto at = path.find(separator); at != std::string::npos; at = path.find(separator, at + 1))
        system_mkdir(path.substr(0, at).c_str());
}

// Kept: a backslash divides directories too, for paths that were written on another system.
void make_directories(const std::string& path) {
    make_prefixes(path, '\\');
    make_prefixes(path, '/');
}

bool is_pattern(const std::string& path) { return path.find('%') != std::string::npos; }

} // namespace

std::string local_time_text(const std::string& format, time_t time) {
    struct tm moment = {};
    localtime_r(&time, &moment);
    return time_text(format, moment);
}

std::string utc_time_text(const std::string& format, time_t time) {
    struct tm moment = {};
    gmtime_r(&time, &moment);
    return time_text(format, moment);
}

// Kept: a "0" anywhere in the path as it is configured switches the file off, not only "0" itself.
bool is_file_on(const std::string& path) {
    return !path.empty() && path.find('0') == std::string::npos;
}

void append_event(const std::string& path, const std::string& line) {
    if (!is_file_on(path)) return;
    const std::string target = is_pattern(path) ? local_time_text(path, now()) : path;
    make_directories(target);
    File(target, O_APPEND).Write(line + "\n");
}

void append_record(const std::string& path, time_t time, const Log::ReceiverStats& stats) {
    if (!is_file_on(path)) return;
    const std::string target = is_pattern(path) ? utc_time_text(path, now()) : path;
    make_directories(target);
    const File file(target, O_APPEND);
    file.Write((file.IsEmpty() ? record_header(time) : "") + record_line(time, stats));
}

void replace_file(const std::string& path, const std::string& content) {
    File(path, O_TRUNC).Write(content);
}
