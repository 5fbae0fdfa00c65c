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
    bool IsKicked() const { return receiver.kicked; }
    std::shared_ptr<Response> GetResponse() const { return receiver.response; }
    void SetTimeLimit(std::uint64_t seconds) { receiver.time_limit = seconds; }
    void SetWriter(std::shared_ptr<MediaWriter> writer) { receiver.writer = std::move(writer); }
    // A lookup waits meanwhile, as for a resolver that takes its time.
    void HoldName() NO_THREAD_SAFETY_ANALYSIS { receiver.name_lock.lock(); }
    void LetNameGo() NO_THREAD_SAFETY_ANALYSIS { receiver.name_lock.unlock(); }
    void SetHostname(const std::string& hostname) {
        spin_guard guard(receiver.name_lock);
        receiver.hostname = hostname;
    }
    void LosePackets() { receiver.packets.Clear(); }
    void LoseMount() { receiver.set_mounts(nullptr, nullptr); }
};
