#include "core/Log.h"

LogWrite::~LogWrite() {
    if (line != nullptr) pass_on();
}

LogWrite& LogWrite::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    if (muted) return *this;
    const bool is_end = manipulator == static_cast<std::ostream& (*)(std::ostream&)>(std::endl);
    if (!is_end)
        manipulator(stream_of_line());
    else
        pass_on();
    return *this;
}

std::ostringstream& LogWrite::stream_of_line() {
    if (line == nullptr) line = std::make_unique<std::ostringstream>();
    return *line;
}

void LogWrite::pass_on() {
    Log::WriteString(line == nullptr ? std::string() : line->str());
    line.reset();
}
