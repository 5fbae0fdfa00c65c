#pragma once

#include "core/ThreadPool.h"

// Something that the pool polls every 50 milliseconds and lets do a slice of work when it asks for
// one. Registered with ThreadPool::Add, it stays until it calls ThreadPool::Remove on itself.
// A work object guards itself against running twice: while it waits in a queue or runs, its Poll
// answers NOTHING. What it throws ends the process, so it catches its own.
class ThreadPoolWork {
public:
    ThreadPoolWork() = default;
    ThreadPoolWork(const ThreadPoolWork&) = delete;
    ThreadPoolWork& operator=(const ThreadPoolWork&) = delete;
    virtual ~ThreadPoolWork() = default;

    // Manager thread: the pool is stopping; arrange to leave it.
    virtual void SignalStop();
    // One worker: is there something to do? `elapsed` is the length of the last cycle in
    // milliseconds. Takes no blocking lock.
    virtual ThreadPool::Priority Poll(long long elapsed);
    // One worker: a slice of work; never waits on a socket.
    virtual void Process();
};
