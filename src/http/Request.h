#pragma once

#include "core/shared_cell.h"
#include "core/spinlock.h"
#include "http/HeaderFields.h"
#include "http/HttpWords.h"
#include "http/Multipart.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

class OutboundExchange;
class Session;
class Socket;
class url;

// What was read from one connection: a request, or the reply to a request of this server's own.
// Held by a Receiver, or by the Mount that took over its source. One thread at a time reads
// (ReadRequest, get_raw_header, parse_header, ReadForm, receive_form_data, GetBody, PostData, the
// Set operations) or works on its exchange; any thread may use the other accessors, which copy. Not
// used for a second request: bytes behind the head and the body stay in the socket for who reads
// next.
class Request : public HttpWords {
public:
    using TransmittedObject = ::TransmittedObject;

    // Inbound. An empty socket is allowed: nothing can be read then, and the addresses are empty.
    explicit Request(std::shared_ptr<::Socket> connection);
    // Outbound: `address` says where to, `post_type` is the text of a POST body, and `local_ip`,
    // unless empty, the address to call from.
    Request(const std::string& address, RequestMethod method, std::string post_type,
            std::string local_ip, RequestProtocol protocol, float version);
    Request(const ::url& target, RequestMethod method, std::string post_type, std::string local_ip,
            RequestProtocol protocol, float version);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // One step that does not wait. Above 0 something was read and what could be judged is in order;
    // 0 the peer ended; -2 (IO_AGAIN) more is needed; -1 this will be no request. Call again until
    // Complete and FormComplete; an ICY login (METHOD_ICY_LOGIN) is known before its head is
    // complete. With -1, GetErrorCode tells whether an answer is due.
    int ReadRequest();
    // One step (or, with `wait`, up to 15 seconds) towards the end of the head. Its length once
    // complete, -2 more is needed, 0 the peer ended, -1 failed. Never takes a byte behind the head.
    int get_raw_header(bool wait);
    // Reads the fields out of the raw head: of a request, with login and session, or of a reply.
    void parse_header(bool request_side);
    // One step towards the end of a POST body: -1 failed, -2 (IO_AGAIN) nothing yet, 0 nothing to
    // read, or the bytes of this step. 30 seconds without a byte are a failure.
    int ReadForm();
    int receive_form_data();
    // The body as text, read in one go; waits up to 30 seconds for each piece.
    std::string GetBody();

    // Outbound. One step that does not wait, of finding the address, connecting, sending and
    // reading the head of the reply: 1 once that has been read (Status is 0 when it was no reply),
    // IO_AGAIN, 0 or -1 when nothing more will come. No time limit, and again after the end the
    // same result, but -1 after what was no reply. SetHeader sets fields to send before the first
    // step.
    int InitiateRequest();
    // The same within the limits of a call: SocketTimeout for connecting, 30 seconds of silence, 15
    // for a reply that comes in pieces. 1, IO_AGAIN, or -1, and then the socket is closed.
    int ContinueRequest();
    // Waits, at most so long, until another step may come further.
    void AwaitStep(int milliseconds) const;
    // All steps of a call, waiting in between. The socket, or null without a reply.
    std::shared_ptr<::Socket> CompleteRequest();
    // After the reply's head, one step that does not wait of reading a body of told length, which
    // PostData then gives: 1 it is there, IO_AGAIN, -1 it will not come.
    int ReadReplyBody();

    bool Complete() const { return complete; }
    bool FormComplete() const { return form_complete || method != METHOD_POST; }
    // Whether the head makes a request that can be answered.
    bool Valid() const EXCLUDES(field_lock);
    // HTTP/1.1 without "Connection: close"; false until the head is parsed.
    bool KeepAlive() const { return keep_alive; }
    // The connection is to end with the answer to this request.
    void ForgoKeepAlive() { keep_alive = false; }
    bool IsShoutcastSource() const { return false; }

    int Protocol() const { return protocol; }
    float Version() const { return version; }
    int Method() const { return method; }
    // Empty for an ICY login.
    std::string MethodString() const;
    // The target up to "?", as received.
    std::string Path() const EXCLUDES(field_lock);
    // The target from "?" on, as received; empty without one.
    std::string Query() const EXCLUDES(field_lock);
    // Up to its line feed, which is not part of it; empty until that was read.
    std::string FirstLine() const EXCLUDES(field_lock);
    // The only word of a first line that had a space.
    std::string BareLine() const EXCLUDES(field_lock);
    // All bytes of the head that were read.
    std::string GetRawRequest() const EXCLUDES(field_lock);
    std::uint64_t BytesIn() const { return bytes_in; }

    std::string User() const EXCLUDES(field_lock);
    std::string Pass() const EXCLUDES(field_lock);
    void SetCredientials(std::string name, std::string password) EXCLUDES(field_lock);

    // Of a reply; or 110 (ETIMEDOUT) after 15 seconds without the end of a head.
    int Status() const { return status; }
    std::string Message() const EXCLUDES(field_lock);
    // HTTP status to answer with after a -1 of ReadRequest; 0 for none.
    int GetErrorCode() const { return error_code; }

    std::string GetIP() const EXCLUDES(field_lock);
    std::string GetLocalIP() const EXCLUDES(field_lock);
    // Of an outbound request not before its reply is there.
    std::shared_ptr<::Socket> Socket() const { return socket; }
    // The host the client asked for, without a port.
    std::string Host() const;
    // The local port of the connection.
    int Port() const;

    // A value, or the empty text. Field names go without regard to case, the others with.
    std::string GetHeader(const std::string& name) const EXCLUDES(field_lock);
    std::string GetQuery(const std::string& name) const EXCLUDES(field_lock);
    std::string GetCookie(const std::string& name) const EXCLUDES(field_lock);
    std::string GetFormField(const std::string& name) const EXCLUDES(field_lock);
    // Control bytes of the value are cut.
    void SetHeader(const std::string& name, const std::string& value) EXCLUDES(field_lock);

    std::vector<std::string> GetAllHeaderKeys() const EXCLUDES(field_lock);
    std::vector<std::string> GetAllQueryKeys() const EXCLUDES(field_lock);
    std::vector<std::string> GetAllCookieKeys() const EXCLUDES(field_lock);
    std::vector<std::string> GetAllFormFields() const EXCLUDES(field_lock);
    // The uploaded files.
    std::vector<TransmittedObject> GetAllMultipartForm() const EXCLUDES(field_lock);
    // The POST body as received.
    const std::vector<char>& PostData() const { return post_data; }

    // Empty until the head is parsed.
    std::string GetSessionUUID() const EXCLUDES(field_lock);
    // Without a session the default itself; with one as Session::Get.
    std::string GetSessionVar(const std::string& name, const std::string& default_value) const;
    void SetSessionVar(const std::string& name, const std::string& value);

    // Whether the client wants this media type.
    bool Acceptable(const std::string& media_type) const;
    // Whether a listener gets an ICY (PROTOCOL_ICY) or an HTTP status line.
    int GetPreferredProtocol() const;

private:
    using Texts = std::map<std::string, std::string>;
    using FormData = MultipartForm;

    // The head (RequestHead.cpp).
    int peek(bool wait) EXCLUDES(field_lock);
    int take_from_socket(int peeked) EXCLUDES(field_lock);
    int consume(std::size_t count) EXCLUDES(field_lock);
    int grow_buffer();
    int time_out() EXCLUDES(field_lock);
    int refuse_as_too_large(std::uint64_t limit);
    int judge_head();
    void parse_first_line() EXCLUDES(field_lock);
    void parse_request_fields() EXCLUDES(field_lock);
    void parse_reply() EXCLUDES(field_lock);
    bool is_http11() const;

    // Who asks (RequestLogin.cpp).
    void parse_login() EXCLUDES(field_lock);
    void log_in_by_digest(const std::string& list) EXCLUDES(field_lock);
    void join_session() EXCLUDES(field_lock);

    // The body (RequestForm.cpp).
    int finish_form(int result);
    int wait_for_body();
    int read_body(std::uint64_t length);
    void parse_body() EXCLUDES(field_lock);
    void parse_multipart_body(const std::string& content_type) EXCLUDES(field_lock);
    void keep_form(FormData data) EXCLUDES(field_lock);

    // A request of this server's own (RequestOutbound.cpp).
    std::string outbound_text() const EXCLUDES(field_lock);
    void note_sent() EXCLUDES(field_lock);
    int read_reply() EXCLUDES(field_lock);

    std::string peer() const;

    static constexpr int TIME_OUT_SECONDS = 15;
    static constexpr int WAIT_SECONDS = 30;
    static constexpr std::size_t PEEK_BYTES = 1024;

    std::shared_ptr<::Socket> socket;
    const std::unique_ptr<OutboundExchange> exchange; // outbound only
    shared_cell<Session> session;

    // The reading thread's own.
    std::vector<char> buffer;    // peeked bytes; given back with the end of the head
    std::vector<char> post_data; // grows with what arrives
    time_t last_body_byte = 0;   // 0 until the body is waited for
    bool line_parsed = false;
    bool outbound = false; // the request was sent, what arrives is a reply

    std::atomic<bool> complete{false};
    std::atomic<bool> form_complete{false};
    std::atomic<bool> keep_alive{false};
    std::atomic<int> method{METHOD_UNKNOWN};
    std::atomic<int> protocol{PROTOCOL_UNKNOWN};
    std::atomic<float> version{1.0F};
    std::atomic<unsigned short> status{0};
    std::atomic<int> error_code{0};
    std::atomic<std::uint64_t> bytes_in{0};

    mutable spinlock field_lock;
    std::string ip GUARDED_BY(field_lock);
    std::string local_ip GUARDED_BY(field_lock);
    std::string raw_header GUARDED_BY(field_lock);
    std::string path GUARDED_BY(field_lock);
    std::string query_string GUARDED_BY(field_lock);
    std::string bare_line GUARDED_BY(field_lock);
    std::string user GUARDED_BY(field_lock);
    std::string pass GUARDED_BY(field_lock);
    std::string message GUARDED_BY(field_lock);
    std::string session_uuid GUARDED_BY(field_lock);
    HeaderFields headers GUARDED_BY(field_lock);
    Texts query GUARDED_BY(field_lock);
    std::unique_ptr<FormData> form GUARDED_BY(field_lock);
};
