#include "http/Response.h"

#include "core/Clock.h"
#include "http/Request.h"
#include "net/Socket.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <charconv>
#include <numeric>
#include <utility>

namespace {

constexpr std::string_view LINE_END = "\r\n";
constexpr int PARTS_PER_CALL = 64;

std::size_t bytes_in(const iovec* parts, int count) {
    return std::accumulate(parts, parts + count, std::size_t{0},
                           [](std::size_t sum, const iovec& part) { return sum + part.iov_len; });
}

} // namespace

Response::Response(std::shared_ptr<Request> to, unsigned short code, std::string reason)
    : socket(to->Socket()), request(std::move(to)), version(request->Version()), status(code),
      last_send(now()) {
    if (!reason.empty()) open_head().status_text = std::move(reason);
}

Response::~Response() = default;

void Response::SetProtocol(Protocol dialect, float number) {
    protocol = dialect;
    version = number;
}

// Kept: never "HTTP/1.1". The version is a float, whose 1.1 is not the 1.1 of a double; logs and
// what reads them know these answers as HTTP/1.0.
std::string Response::Version() const {
    if (protocol == ICY) return "ICY";
    return static_cast<double>(version) == 1.1 ? "HTTP/1.1" : "HTTP/1.0";
}

std::uint64_t Response::BytesSent() const { return socket ? socket->BytesSent() : 0; }

void Response::SetTransferEncodingComment(const std::string& comment) {
    if (chunked && comment.find('\n') == std::string::npos) chunk_comment = comment;
}

std::uint64_t Response::GetBytesPerSecond(bool recent) const {
    return transfer.GetBytesPerSecond(recent);
}

int Response::Send(const std::vector<char>* data, unsigned long length, int flags) {
    const std::string_view bytes(data->data(), length);
    if (bytes.empty()) return 0;
    if (!socket) return give_up(ENOTCONN);
    if (!queue.Empty()) return queue_and_send(bytes);
    return keep_rest(socket->Send(data, static_cast<int>(length), flags), bytes);
}

int Response::Send(const std::string& bytes) {
    if (bytes.empty()) return 0;
    if (!socket) return give_up(ENOTCONN);
    if (!queue.Empty()) return queue_and_send(bytes);
    return keep_rest(socket->Send(&bytes, 0), bytes);
}

int Response::queue_and_send(std::string_view bytes) {
    queue.Push(bytes);
    return send_waiting() == IO_FAILED ? IO_FAILED : static_cast<int>(bytes.size());
}

// `bytes` went straight to the socket, with the result `sent`.
int Response::keep_rest(int sent, std::string_view bytes) {
    const auto taken = static_cast<std::size_t>(std::max(sent, 0));
    queue.Push(bytes.substr(taken));
    return judge_send(sent) == IO_FAILED ? IO_FAILED : static_cast<int>(bytes.size());
}

int Response::SendBuffer() {
    take_document_pieces();
    return queue.Empty() ? 1 : send_waiting();
}

int Response::Flush() {
    if (!flushing) {
        Disconnect();
        take_document_pieces();
        if (queue.Empty()) return IO_FAILED;
        flushing = true;
        flushed = 0;
    }
    const int sent = send_waiting();
    if (sent < 1) return sent;
    flushed += sent;
    if (!queue.Empty()) return IO_AGAIN;
    flushing = false;
    return flushed;
}

// Sends as much as the socket takes: a count, IO_AGAIN or IO_FAILED.
int Response::send_waiting() {
    if (!socket) return give_up(ENOTCONN);
    int total = 0;
    bool all_taken = true;
    while (all_taken && !queue.Empty()) {
        std::array<iovec, PARTS_PER_CALL> parts;
        const int count = queue.Parts(parts.data(), PARTS_PER_CALL);
        const int sent = socket->SendVector(parts.data(), count);
        if (sent == IO_AGAIN && total > 0) break;
        if (sent > 0) queue.Drop(static_cast<std::uint64_t>(sent));
        const int judged = judge_send(sent);
        if (judged < 1) return judged;
        total += sent;
        all_taken = static_cast<std::size_t>(sent) == bytes_in(parts.data(), count);
        take_document_pieces();
    }
    return total;
}

// What waits in the queue is held against a peer that is slow to take it. A long page is no fault
// of the peer's.
void Response::take_document_pieces() {
    while (document && queue.Bytes() < DOCUMENT_PIECE) {
        const std::uint64_t size =
            std::min<std::uint64_t>(document->size() - document_taken, DOCUMENT_PIECE);
        queue.Push(document, static_cast<std::uint32_t>(document_taken),
                   static_cast<std::uint32_t>(size));
        document_taken += size;
        if (document_taken == document->size()) document.reset();
    }
}

// What the result of one send means for the connection: the count, IO_AGAIN, or IO_FAILED when what
// waits was dropped.
int Response::judge_send(int sent) {
    if (sent > 0) {
        last_send = now();
        transfer.Add(static_cast<std::uint64_t>(sent));
    } else {
        last_error = socket->GetLastError();
        if (sent != IO_AGAIN) return give_up(last_error);
        if (difftime(now(), last_send) > SEND_SECONDS) return give_up(TIMED_OUT);
    }
    return queue.Bytes() > MOST_BUFFERED ? give_up(NO_BUFFERS) : sent;
}

int Response::give_up(int error) {
    last_error = error;
    failed = true;
    flushing = false;
    document.reset();
    queue.Clear();
    return IO_FAILED;
}

long Response::Buffer(const SharedBytes& data, unsigned long offset, unsigned long length) {
    open_chunk(length);
    if (data && length != 0) {
        assert(offset + length <= data->size());
        queue.Push(data, static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(length));
        close_chunk();
    }
    return static_cast<long>(queue.Bytes());
}

long Response::Buffer(const std::string& bytes) {
    open_chunk(bytes.size());
    if (!bytes.empty()) {
        queue.Push(bytes);
        close_chunk();
    }
    return static_cast<long>(queue.Bytes());
}

// The size line of a chunk (RFC 9112 section 7.1): hexadecimal length [; extension] CRLF
void Response::open_chunk(unsigned long length) {
    if (!chunked) return;
    std::array<char, 2 * sizeof length + LINE_END.size()> line;
    char* end = std::to_chars(line.data(), line.data() + line.size(), length, 16).ptr;
    if (!chunk_comment.empty()) {
        queue.Push(std::string(line.data(), end) + "; " + std::exchange(chunk_comment, {}) +
                   "\r\n");
        return;
    }
    end = std::copy(LINE_END.begin(), LINE_END.end(), end);
    queue.Push(std::string_view(line.data(), static_cast<std::size_t>(end - line.data())));
}

void Response::close_chunk() {
    if (chunked) queue.Push(LINE_END);
}

void Response::Disconnect() {
    if (chunked && !headers_only()) queue.Push("0\r\n");
}

// A kept connection would read anything behind the head as its next answer.
bool Response::headers_only() const {
    return request->Method() == Request::METHOD_HEAD ||
           request->Method() == Request::METHOD_OPTIONS;
}
