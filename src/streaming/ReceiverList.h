#pragma once

#include "core/spinlock.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

class Receiver;

// Every live connection by its identifier, and the way into the pool and out of it. Any thread may
// call anything; no other lock is taken while the list's own is held.
class ReceiverList {
public:
    // Until the accounts are read no connection is served: those that knock earlier wait in the
    // pool. Called once, by the start.
    static void Open();
    static bool IsOpen();

    // Has the receiver polled, and its first slice run without waiting for a poll.
    static void Add(std::shared_ptr<Receiver> receiver) EXCLUDES(recvlist_lock);
    // Takes it out of the pool and the list; returns how many are left.
    static long Remove(const std::shared_ptr<Receiver>& receiver) EXCLUDES(recvlist_lock);
    // An empty pointer when there is none.
    static std::shared_ptr<Receiver> GetReceiver(const std::string& uuid) EXCLUDES(recvlist_lock);
    static long Count();
    // One that no listed receiver has. It is not reserved: Add is what takes it.
    static std::string GenerateUUID() EXCLUDES(recvlist_lock);
    // `candidate`, or a new one when a listed receiver has that.
    static std::string unused_uuid(std::string candidate) EXCLUDES(recvlist_lock);

private:
    static spinlock recvlist_lock;
    static std::map<std::string, std::shared_ptr<Receiver>> receiver_list GUARDED_BY(recvlist_lock);
    static std::atomic<long> receiver_size;
    static std::atomic<bool> open;
};
