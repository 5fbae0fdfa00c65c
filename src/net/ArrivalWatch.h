#pragma once

#include "core/spinlock.h"

#include <memory>
#include <vector>

class Socket;

// Who wants to know that something has come in on a socket.
class ArrivalListener {
public:
    ArrivalListener() = default;
    ArrivalListener(const ArrivalListener&) = delete;
    ArrivalListener& operator=(const ArrivalListener&) = delete;
    virtual ~ArrivalListener() = default;

    // The listening thread. May come late, for a socket that has been read meanwhile. Does not
    // block.
    virtual void OnArrival() = 0;
};

// Spares a request the wait for the next poll, and a listener, from whom nothing is expected, a
// look at his socket with every packet: a connection that has read all there was asks to be told of
// more. All threads.
class ArrivalWatch {
public:
    // One OnArrival for the next bytes or the peer's end, at once when they are there. Another
    // watch of the socket takes the place of the first. False when the system refuses, and for a
    // socket that is closed.
    static bool Watch(const Socket& socket, std::weak_ptr<ArrivalListener> listener) EXCLUDES(lock);
    // To be called before a socket is closed that may still be watched. Where a hard error has
    // closed it, the listener's memory is held until the descriptor is watched again.
    static void Forget(const Socket& socket) EXCLUDES(lock);

    // A descriptor that polls as readable while Deliver has something to do; -1 if there is none.
    static int Descriptor();
    // Tells of what has come in, on some dozens of sockets at most.
    static void Deliver() EXCLUDES(lock);

private:
    static std::weak_ptr<ArrivalListener> taken(int fd) EXCLUDES(lock);

    static spinlock lock;
    static std::vector<std::weak_ptr<ArrivalListener>> listeners GUARDED_BY(lock); // by descriptor
};
