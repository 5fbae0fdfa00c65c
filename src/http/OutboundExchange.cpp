#include "http/OutboundExchange.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "net/RouteLookup.h"
#include "net/Socket.h"

#include <netinet/in.h>
#include <utility>

namespace {

constexpr int SILENCE_SECONDS = 30; // of the resolver, and of a peer that is to answer
constexpr int REPLY_SECONDS = 15;   // for a reply that comes in pieces

double seconds_since(time_t moment) { return difftime(now(), moment); }

} // namespace

OutboundExchange::OutboundExchange(url where, std::string form_text, std::string from_ip)
    : target(std::move(where)), form(std::move(form_text)), local_ip(std::move(from_ip)) {}

int OutboundExchange::Connect(std::shared_ptr<Socket>& socket) {
    if (phase_start == 0) enter(Phase::FINDING);
    if (!socket) {
        const int found = find_route(socket);
        if (found < 0) return found;
    }
    const int ready = socket->CanSend();
    return ready == 0 ? IO_AGAIN : ready;
}

// 0 once the connection is made or under way.
int OutboundExchange::find_route(std::shared_ptr<Socket>& socket) {
    if (!target.IsValid()) return IO_FAILED;
    if (!lookup)
        lookup = RouteLookup::Start(
            {.host = target.Host(), .port = target.Port(), .from = LocalAddresses::For(local_ip)});
    const Route* route = lookup->Found();
    if (route == nullptr) return IO_AGAIN;
    enter(Phase::CONNECTING);
    socket = std::make_shared<Socket>(0, SOCK_STREAM, IPPROTO_TCP);
    const int result = socket->Connect(*route, true);
    return result == IO_FAILED ? IO_FAILED : 0;
}

int OutboundExchange::send_rest(Socket& socket) {
    if (Sent()) return 1;
    const int sent = socket.Send(&unsent, 0);
    if (sent < 1) return sent == IO_AGAIN ? IO_AGAIN : IO_FAILED;
    unsent.erase(0, static_cast<std::size_t>(sent));
    if (!unsent.empty()) return IO_AGAIN;
    enter(Phase::READING);
    return 1;
}

void OutboundExchange::enter(Phase next) {
    phase = next;
    phase_start = now();
    last_byte = phase_start;
}

bool OutboundExchange::OutOfTime(std::uint64_t bytes_read) {
    switch (phase) {
    case Phase::FINDING:
        return seconds_since(phase_start) >= SILENCE_SECONDS;
    case Phase::CONNECTING: {
        const int limit = Config::Get("SocketTimeout", false)->GetValue(5);
        return limit > 0 && seconds_since(phase_start) >= limit;
    }
    case Phase::READING:
        return silent_for_too_long(bytes_read);
    }
    return true;
}

// The time of a reply is looked at when something of it comes, so that a peer that thinks long and
// answers at once is heard.
bool OutboundExchange::silent_for_too_long(std::uint64_t bytes_read) {
    if (bytes_read != bytes_seen) {
        bytes_seen = bytes_read;
        last_byte = now();
        return seconds_since(phase_start) > REPLY_SECONDS;
    }
    return seconds_since(last_byte) >= SILENCE_SECONDS;
}

void OutboundExchange::Await(const Socket* socket, int milliseconds) const {
    if (phase == Phase::READING)
        socket->AwaitRecv(milliseconds);
    else if (socket != nullptr)
        socket->AwaitSend(milliseconds);
    else if (lookup)
        lookup->Wait(milliseconds);
}
