#pragma once

#include "http/Request.h"
#include "http/Response.h"
#include "support/LoopbackPair.h"

#include <memory>
#include <string>

// A response on a loopback connection, and what its peer receives.
class ResponsePipe {
public:
    ResponsePipe()
        : response(std::make_shared<Response>(std::make_shared<Request>(pair.server), 200, "")) {}

    // From here on each piece is a chunk of its own.
    void BeginChunks() {
        response->SetProtocol(Response::HTTP, 1.1F);
        response->SendHeader("");
        Sent();
    }

    // Sends all that waits; everything that has arrived since the last call.
    std::string Sent() {
        std::string bytes;
        while (true) {
            response->SendBuffer();
            const auto waiting = pair.server->BytesSent() - received;
            if (waiting == 0) return bytes;
            bytes += pair.Receive(waiting);
            received += waiting;
        }
    }

    LoopbackPair pair;
    std::shared_ptr<Response> response;

private:
    std::uint64_t received = 0;
};
