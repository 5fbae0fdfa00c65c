#pragma once

#include "core/Log.h"

#include <ctime>
#include <string>

// The files of the logs and the texts in them. Log thread, but for the formats and replace_file.
// Files are opened for each line and closed again, so that they can be moved away at any time; what
// cannot be written is lost without a word. New files have mode 0644.

// A path is off when it is empty or holds a "0" anywhere.
bool is_file_on(const std::string& path);

// A path with a "%" goes through strftime for each line; missing directories are made.
void append_event(const std::string& path, const std::string& line);
// With the four header lines in front where the file is new or empty.
void append_record(const std::string& path, time_t time, const Log::ReceiverStats& stats);
void replace_file(const std::string& path, const std::string& content);

// strftime into at most 127 bytes; empty when it does not fit.
std::string local_time_text(const std::string& format, time_t time);
std::string utc_time_text(const std::string& format, time_t time);

// The first four lines of a listener log, and a line of it.
std::string record_header(time_t time);
std::string record_line(time_t time, const Log::ReceiverStats& stats);
