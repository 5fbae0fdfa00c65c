#pragma once

#include "http/Request.h"
#include "support/LoopbackPair.h"

#include <memory>
#include <string>

// A request that a client at 127.0.0.1 has sent and the server has read. Keep the pair for as long
// as the request.
struct SentRequest {
    // headers: each with its line end.
    explicit SentRequest(const std::string& headers = {})
        : request(std::make_shared<Request>(pair.server)) {
        pair.Send("GET /x HTTP/1.0\r\n" + headers + "\r\n");
        for (int steps = 0; steps < 1000 && !request->Complete(); ++steps) {
            request->ReadRequest();
            usleep(1000);
        }
    }

    LoopbackPair pair;
    const std::shared_ptr<Request> request;
};
