#include "core/LogFiles.h"
#include "core/Version.h"

#include <algorithm>

// A listener log in the W3C extended log file format:
//   #Software, #Version, #Date, #Fields    once, at the beginning of the file
//   one line per connection                the fields of #Fields, a blank between them
namespace {

constexpr char DATE_AND_TIME[] = "%Y-%m-%d %H:%M:%S";

bool is_control(char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; }

std::string word_or_dash(const std::string& text) { return text.empty() ? "-" : log_text(text); }

std::string quoted(const std::string& text) { return "\"" + log_text(text) + "\""; }

std::string quoted_or_dash(const std::string& text) {
    return text.empty() ? "-" : quoted(Log::w3c_escape_quote(text));
}

} // namespace

std::string log_text(std::string text) {
    std::replace_if(text.begin(), text.end(), is_control, ' ');
    return text;
}

std::string Log::w3c_escape_quote(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char byte : text)
        escaped.append(byte == '"' ? 2 : 1, byte);
    return escaped;
}

std::string record_header(time_t time) {
    return "#Software:  Quillwave Distributed Network Media Server " QUILLWAVE_VERSION
               QUILLWAVE_CODE_NAME "\n"
           "#Version: 1.0\n"
           "#Date: " +
           utc_time_text(DATE_AND_TIME, time) +
           "\n"
           "#Fields: date time s-ip s-dns c-ip c-dns cs-username cs-method cs-uri-stem "
           "cs-uri-query sc-status sc-bytes time-taken cs-version cs(User-Agent) x-metatitle\n";
}

// Kept: cs-method is one byte, the number of the method. Log readers in use know 0x02 as GET.
// Kept: an empty version is "", where an empty agent or title is a bare dash.
std::string record_line(time_t time, const Log::ReceiverStats& stats) {
    const std::string fields[] = {
        utc_time_text(DATE_AND_TIME, time),
        log_text(stats.s_ip),
        log_text(stats.s_dns),
        log_text(stats.c_ip),
        log_text(stats.c_dns),
        word_or_dash(stats.cs_username),
        stats.cs_method,
        log_text(stats.cs_uri_stem),
        word_or_dash(stats.cs_uri_query),
        std::to_string(stats.sc_status),
        std::to_string(stats.sc_bytes),
        std::to_string(stats.time_taken),
        quoted(stats.cs_version),
        quoted_or_dash(stats.cs_user_agent),
        quoted_or_dash(stats.x_metatitle),
    };
    std::string line;
    for (const std::string& field : fields)
        line += (line.empty() ? "" : " ") + field;
    return line + "\n";
}
