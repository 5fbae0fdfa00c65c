#pragma once

#include "core/SharedBytes.h"
#include "core/TransferRate.h"
#include "http/SendQueue.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Request;
class Socket;

// The answer on one connection: a head and a body, or a head and a long run of stream data, in the
// HTTP or the ICY dialect. Nothing here waits: what the socket does not take is queued. Owned by a
// Receiver and shared with its MediaWriter. One thread at a time, the one that works the Receiver;
// any thread: GetBytesPerSecond, BytesSent, LastError, Status.
class Response {
public:
    enum Protocol : int { ICY = 0, HTTP = 1 };
    enum CookieFlag : unsigned char { COOKIE_SECURE = 1, COOKIE_HTTP_ONLY = 2 };

    // A document longer than this waits by itself, and enters the queue in pieces.
    static constexpr std::uint64_t DOCUMENT_PIECE = 262144;
    // More than MOST_BUFFERED bytes waiting in the queue, or SEND_SECONDS without a successful
    // send, drop what waits and set LastError to NO_BUFFERS or TIMED_OUT.
    static constexpr std::uint64_t MOST_BUFFERED = 1048576;
    static constexpr int SEND_SECONDS = 15;
    static constexpr int NO_BUFFERS = 105;
    static constexpr int TIMED_OUT = 110;

    // An empty `reason` stands for the table's text of the code.
    Response(std::shared_ptr<Request> to, unsigned short code, std::string reason);
    ~Response();
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;

    // Builds the head and sends it with `body`; the body is left out for HEAD. The length of all
    // that was taken, or -1. Without Content-Length an HTTP/1.1 answer is chunked from here on.
    // Throws std::out_of_range for a status without a text. The header fields are gone afterwards.
    int SendHeader(const std::string& body);
    // The same for a body whose length is among the header fields already, at its place there.
    int SendDocument(const std::string& body);
    // Sends, queues behind what waits what the socket does not take: the length, or -1. `flags` as
    // of send(2). No chunk framing.
    int Send(const std::vector<char>* data, unsigned long length, int flags);
    int Send(const std::string& bytes);
    // Only queues, `length` bytes that `data` has from `offset` on, in a chunk of its own when
    // chunked; with null data or length 0 the chunk's size line alone. The bytes that wait now,
    // framing included; 0 is a failure to take anything.
    long Buffer(const SharedBytes& data, unsigned long offset, unsigned long length);
    long Buffer(const std::string& bytes);
    // Tries to send what waits: the count sent, 1 when nothing waits, -2 (IO_AGAIN) when the socket
    // takes nothing, -1.
    int SendBuffer();
    // Ends a chunked body, once, and tries to send what waits: the total sent when nothing remains,
    // -2 (IO_AGAIN) while bytes wait: call again later. -1 at once if nothing waited, which is no
    // failure, or when sending failed.
    int Flush();
    // Ends a chunked body. Kept: without the empty line behind the last chunk, and again at every
    // call; peers go by the end of the connection.
    void Disconnect();

    // In the order set. A name set twice comes out twice, with its last value both times. "Date" is
    // ignored. Control bytes of the value are cut.
    void SetHeader(const std::string& name, const std::string& value);
    void RemoveHeader(const std::string& name);
    // `expires` seconds since 1970, 0 for the browser's session; `flags` of CookieFlag.
    void AddCookie(const std::string& name, const std::string& value, long expires,
                   const std::string& path, const std::string& domain, unsigned char flags);
    // Asks for a login: digest over HTTP/1.1, basic over HTTP/1.0.
    void RequireAuthorization(std::string realm);
    void SetProtocol(Protocol dialect, float number);

    Protocol GetProtocol() const { return protocol; }
    unsigned short Status() const { return status; }
    // For the listener log: "ICY", "HTTP/1.0".
    std::string Version() const;
    bool IsTransferChunkedEncoding() const { return chunked; }
    // An errno value; 0 as long as no send came back without success.
    int LastError() const { return last_error; }
    void SetLastError(int error) { last_error = error; }
    // A send has failed for good, and what waited was dropped: the connection is to end.
    bool Failed() const { return failed; }
    std::uint64_t GetBytesBuffered() const { return queue.Bytes(); }
    // All bytes sent on the connection.
    std::uint64_t BytesSent() const;

    // An extension for the next chunk's size line. Ignored unless chunked, and with a line feed.
    void SetTransferEncodingComment(const std::string& comment);
    std::uint64_t GetBytesPerSecond(bool recent) const;

private:
    // What only the head is made of, given back once that is sent.
    struct Head {
        std::string status_text = {};
        std::vector<std::pair<std::string, std::string>> headers = {};
        bool auth_required = false;
        std::string realm = {};

        void set(const std::string& name, const std::string& value);
        bool has(std::string_view name) const;
    };

    // The head (ResponseHead.cpp).
    Head& open_head();
    std::string build_head();
    std::string bad_request_document() const;
    std::string status_line() const;
    std::string http_fields();
    std::string challenge() const;
    std::string own_fields() const;
    std::string body_framing();
    std::string session_cookie() const;
    bool is_http11() const;

    // What waits.
    int queue_and_send(std::string_view bytes);
    int keep_rest(int sent, std::string_view bytes);
    int send_waiting();
    void take_document_pieces();
    int judge_send(int sent);
    int give_up(int error);
    void open_chunk(unsigned long length);
    void close_chunk();
    bool headers_only() const;

    std::shared_ptr<Socket> socket;
    std::shared_ptr<Request> request;
    std::unique_ptr<Head> head;
    Protocol protocol = HTTP;
    float version;
    unsigned short status;
    bool chunked = false;
    bool flushing = false;
    bool failed = false;
    std::atomic<int> last_error{0};
    time_t last_send;
    int flushed = 0;      // bytes, by the flush that is under way
    SharedBytes document; // what of it is not in the queue yet, from document_taken on; or null
    std::uint64_t document_taken = 0;
    SendQueue queue;
    TransferRate transfer;
    std::string chunk_comment;
};
