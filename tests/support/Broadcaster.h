#pragma once

#include "http/Request.h"
#include "support/LoopbackPair.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

// A source on a loopback pair: sends the head of its request, whose other end is ready to be handed
// to a mount, and then whatever the test has it say.
class Broadcaster {
public:
    // `fields` with their line ends.
    explicit Broadcaster(const std::string& fields, const std::string& path = "/live")
        : request(std::make_shared<Request>(pair.server)) {
        pair.Send("SOURCE " + path + " HTTP/1.0\r\n" + fields + "\r\n");
        comes_true([this] { return request->ReadRequest() > 0 && request->Complete(); });
    }

    LoopbackPair pair;
    std::shared_ptr<Request> request;

    void Send(const std::string& bytes) const { pair.Send(bytes); }
    void Leave() { pair.CloseClient(); }
    // Whether the server's end was closed, with nothing left to read.
    bool IsDropped() const {
        char byte = 0;
        return recv(pair.client, &byte, 1, MSG_PEEK) <= 0;
    }

    // Waits up to five seconds for what another thread does.
    static bool comes_true(const std::function<bool()>& condition) {
        for (int look = 0; look < 5000; ++look) {
            if (condition()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
};
