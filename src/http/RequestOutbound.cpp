// A request of this server's own: connected, sent and answered in steps.

#include "http/LeadingNumber.h"
#include "http/OutboundExchange.h"
#include "http/OutboundText.h"
#include "http/Request.h"
#include "net/Socket.h"

namespace {

constexpr int LOOK_MS = 100;                       // between two looks at a clock
constexpr std::uint64_t MOST_REPLY_BODY = 1 << 20; // bytes

bool is_interim(int status) { return status >= 100 && status < 200; }

} // namespace

int Request::InitiateRequest() {
    if (!exchange || protocol == PROTOCOL_UNKNOWN) return IO_FAILED;
    const int connected = exchange->Connect(socket);
    if (connected < 1) return connected;
    if (!outbound) {
        const int sent = exchange->Send(*socket, [this] { return outbound_text(); });
        if (sent < 1) return sent;
        note_sent();
    }
    return read_reply();
}

int Request::ContinueRequest() {
    const int result = InitiateRequest();
    if (result > 0) return result;
    if (result == IO_AGAIN && !exchange->OutOfTime(bytes_in)) return IO_AGAIN;
    if (socket) socket->Close();
    return result == IO_AGAIN && outbound ? time_out() : IO_FAILED;
}

std::shared_ptr<Socket> Request::CompleteRequest() {
    int result = IO_AGAIN;
    while ((result = ContinueRequest()) == IO_AGAIN)
        AwaitStep(LOOK_MS);
    return result > 0 ? socket : nullptr;
}

void Request::AwaitStep(int milliseconds) const { exchange->Await(socket.get(), milliseconds); }

std::string Request::outbound_text() const {
    OutboundText text{.method = MethodString(),
                      .target = exchange->Target(),
                      .protocol = PROTOCOL_STRINGS[protocol],
                      .version = version};
    if (method == METHOD_POST) text.form = exchange->Form();
    spin_guard guard(field_lock);
    text.fields = headers.All();
    return text.Wire();
}

void Request::note_sent() {
    outbound = true;
    std::string peer_ip = socket->GetIP();
    std::string own_ip = socket->GetLocalIP();
    spin_guard guard(field_lock);
    ip.swap(peer_ip);
    local_ip.swap(own_ip);
}

// A head of the class 1xx only says that the reply is still to come.
int Request::read_reply() {
    const int read = get_raw_header(false);
    if (read < 1) return read;
    protocol = PROTOCOL_UNKNOWN;
    parse_header(false);
    if (!is_interim(status)) return 1;
    complete = false;
    status = 0;
    spin_guard guard(field_lock);
    raw_header.clear();
    message.clear();
    headers = {};
    return IO_AGAIN;
}

int Request::ReadReplyBody() {
    const auto length = leading_number<std::uint64_t>(GetHeader("Content-Length"));
    if (!complete || !socket || length > MOST_REPLY_BODY) return IO_FAILED;
    while (post_data.size() < length) {
        const int read = read_body(length);
        if (read < 1) return read == IO_AGAIN ? IO_AGAIN : IO_FAILED;
    }
    return 1;
}
