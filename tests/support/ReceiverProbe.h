#pragma once

#include "streaming/Receiver.h"

#include <memory>
#include <string>
#include <utility>

// What cannot be seen or brought about from outside a Receiver. Not while a slice runs.
struct ReceiverProbe {
    Receiver& receiver;

    std::uint64_t QueuedPackets() const { return receiver.packets.Count(); }
    long long Wait() const { return receiver.wait_ms; }
    std::shared_ptr<Response> GetResponse() const { return receiver.response; }
    void SetTimeLimit(std::uint64_t seconds) { receiver.time_limit = seconds; }
    void SetWriter(std::shared_ptr<MediaWriter> writer) { receiver.writer = std::move(writer); }
    void SetHostname(const std::string& hostname) { receiver.hostname = hostname; }
    void LosePackets() { receiver.packets.Clear(); }
    void LoseMount() { receiver.set_mounts(nullptr, nullptr); }
};
