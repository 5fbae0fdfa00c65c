#pragma once

#include "net/url.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

class RouteLookup;
class Socket;

// The going half of an outbound request, in steps that do not wait: find the route, connect, send;
// and how long each half may take. Belongs to a Request, which reads the reply.
class OutboundExchange {
public:
    // `form` is the text of a POST body; `local_ip`, unless empty, the address to call from.
    OutboundExchange(url target, std::string form, std::string local_ip);

    const url& Target() const { return target; }
    const std::string& Form() const { return form; }

    // Makes the socket as soon as it is known where to. 1 connected, IO_AGAIN, IO_FAILED.
    int Connect(std::shared_ptr<Socket>& socket);
    // Sends `text`, which is asked for once, piece by piece. 1 all has left, IO_AGAIN, IO_FAILED.
    template <typename Text> int Send(Socket& socket, const Text& text) {
        if (unsent.empty() && !Sent()) unsent = text();
        return send_rest(socket);
    }
    bool Sent() const { return phase == Phase::READING; }

    // Whether the limits of a call are over, after a step that came to nothing. `bytes_read`, of
    // the reply, tells whether the peer says anything at all.
    bool OutOfTime(std::uint64_t bytes_read);
    // Waits, at most so long, until another step may come further.
    void Await(const Socket* socket, int milliseconds) const;

private:
    enum class Phase : std::uint8_t { FINDING, CONNECTING, READING };

    int find_route(std::shared_ptr<Socket>& socket);
    int send_rest(Socket& socket);
    void enter(Phase next);
    bool silent_for_too_long(std::uint64_t bytes_read);

    const url target;
    const std::string form;
    const std::string local_ip;
    std::shared_ptr<RouteLookup> lookup;
    std::string unsent;
    Phase phase = Phase::FINDING;
    time_t phase_start = 0; // 0 until the first step
    time_t last_byte = 0;
    std::uint64_t bytes_seen = 0;
};
