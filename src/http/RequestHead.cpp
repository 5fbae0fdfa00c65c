#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "http/HeadBlock.h"
#include "http/Request.h"
#include "http/RequestLine.h"
#include "net/Socket.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

std::uint64_t most_head_bytes() {
    return static_cast<std::uint64_t>(
        std::max(0, Config::Get("MaxRequestBufferSize", false)->GetValue(9216)));
}

} // namespace

int Request::ReadRequest() {
    int read = 0;
    if (!complete) {
        read = get_raw_header(false);
        // A first line that is no request is refused at once, not when the head ends.
        if (read == IO_AGAIN && line_parsed && method == METHOD_UNKNOWN) return IO_FAILED;
        if (read < 1) return read;
    }
    if (method == METHOD_ICY_LOGIN) return read;
    if (method == METHOD_UNKNOWN || Path().empty() || protocol == PROTOCOL_UNKNOWN)
        return IO_FAILED;
    if (method != METHOD_POST || form_complete) return read;
    const int body = receive_form_data();
    if (body == IO_AGAIN) return read > 0 ? read : IO_AGAIN;
    return body < 0 ? IO_FAILED : read + body;
}

// Peeks, and takes no more than belongs to the head: what follows is for the reader of the stream.
int Request::get_raw_header(bool wait) {
    if (complete) return static_cast<int>(bytes_in);
    const time_t start = now();
    do {
        if (difftime(now(), start) > TIME_OUT_SECONDS) return time_out();
        const int peeked = peek(wait);
        if (peeked < 1) return peeked;
        const int taken = take_from_socket(peeked);
        if (taken < 0) return taken;
        if (taken > 0 && !wait) break;
    } while (!complete);
    return judge_head();
}

int Request::peek(bool wait) {
    if (!socket) return IO_FAILED;
    if (buffer.empty()) buffer.resize(PEEK_BYTES);
    const int size = static_cast<int>(buffer.size());
    const int peeked = socket->Recv(buffer.data(), size, MSG_PEEK, wait ? WAIT_SECONDS : 0);
    return peeked == IO_AGAIN && wait ? time_out() : peeked;
}

// Takes what was peeked up to the end of the head: a count, 0 to peek again into a larger buffer,
// or IO_FAILED.
int Request::take_from_socket(int peeked) {
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(peeked));
    const std::string read_before = GetRawRequest();
    const std::size_t end = head_end(read_before, bytes);
    if (end == HEAD_GOES_ON) {
        const std::uint64_t limit = most_head_bytes();
        if (read_before.size() + bytes.size() >= limit) return refuse_as_too_large(limit);
        if (bytes.size() == buffer.size()) return grow_buffer();
        return consume(bytes.size());
    }
    const int taken = consume(end);
    if (taken == static_cast<int>(end)) complete = true;
    return taken;
}

int Request::consume(std::size_t count) {
    const int taken = socket->Recv(buffer.data(), static_cast<int>(count), 0, 0);
    if (taken < 1) return IO_FAILED;
    bytes_in += static_cast<std::uint64_t>(taken);
    spin_guard guard(field_lock);
    raw_header.append(buffer.data(), static_cast<std::size_t>(taken));
    return taken;
}

int Request::grow_buffer() {
    const std::uint64_t limit = most_head_bytes();
    if (buffer.size() + PEEK_BYTES >= limit) return refuse_as_too_large(limit);
    buffer.resize(buffer.size() + PEEK_BYTES);
    return 0;
}

int Request::time_out() {
    status = ETIMEDOUT;
    spin_guard guard(field_lock);
    message = "Connection timed out";
    return IO_FAILED;
}

int Request::refuse_as_too_large(std::uint64_t limit) {
    keep_alive = false;
    error_code = 507;
    LogWrite(Log::NORMAL) << peer() << "Recv Failed: Client Trying to send more than "
                          << DataSizeToString(limit, false) << " of data in their request payload"
                          << std::endl;
    return IO_FAILED;
}

int Request::judge_head() {
    parse_first_line();
    if (!complete) return IO_AGAIN;
    std::vector<char>().swap(buffer);
    parse_header(!outbound);
    return static_cast<int>(bytes_in);
}

void Request::parse_first_line() {
    const std::string text = FirstLine();
    if (line_parsed || method != METHOD_UNKNOWN || text.empty()) return;
    line_parsed = true;
    RequestLine line = parse_request_line(text);
    protocol = line.protocol;
    version = line.version;
    spin_guard guard(field_lock);
    path.swap(line.path);
    query_string.swap(line.query_string);
    query.swap(line.query);
    bare_line.swap(line.bare_line);
    method = line.method;
}

void Request::parse_header(bool request_side) {
    if (!request_side) return parse_reply();
    parse_request_fields();
    parse_login();
    std::string connection = GetHeader("Connection");
    keep_alive = tolower(connection) != "close" && is_http11();
    join_session();
}

void Request::parse_request_fields() {
    const std::string raw = GetRawRequest();
    std::string_view lines = raw;
    take_line(lines);
    HeaderFields fields(parse_fields(lines));
    spin_guard guard(field_lock);
    headers = std::move(fields);
    raw_header.shrink_to_fit();
}

// Every line of three words may be the status line, until one names a protocol that is known.
void Request::parse_reply() {
    const std::string raw = GetRawRequest();
    std::string_view lines = raw;
    StatusLine reply;
    while (protocol == PROTOCOL_UNKNOWN && !lines.empty()) {
        StatusLine line = parse_status_line(std::string(take_line(lines)));
        if (!line.found) continue;
        protocol = line.protocol.protocol;
        version = line.protocol.version;
        status = line.status;
        reply = std::move(line);
    }
    HeaderFields fields(parse_fields(lines));
    spin_guard guard(field_lock);
    headers = std::move(fields);
    if (reply.found) message = std::move(reply.message);
}
