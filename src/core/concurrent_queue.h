#pragma once

#include "core/spinlock.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

// The hand-over between threads: a deque behind a spinlock, with a count that is read without it.
// Any thread may call anything. No call into an element's code happens under the lock, moves
// excepted; what a swap takes out is released by the caller.
template <typename T> class concurrent_queue {
public:
    void push(T value) {
        spin_guard guard(lock);
        items.push_back(std::move(value));
        count.fetch_add(1, std::memory_order_release);
    }

    // The oldest element, or nothing.
    std::optional<T> pop() {
        if (empty()) return std::nullopt;
        spin_guard guard(lock);
        if (items.empty()) return std::nullopt;
        std::optional<T> front(std::move(items.front()));
        items.pop_front();
        count.fetch_sub(1, std::memory_order_release);
        return front;
    }

    // Everything that waits, oldest first, in one step; what the caller put into `out` before is
    // what the queue holds afterwards, so an empty deque that is handed in again saves allocations.
    void swap(std::deque<T>& out) {
        spin_guard guard(lock);
        items.swap(out);
        count.store(items.size(), std::memory_order_release);
    }

    bool empty() const { return size() == 0; }
    std::uint64_t size() const { return count.load(std::memory_order_acquire); }

private:
    spinlock lock;
    std::deque<T> items GUARDED_BY(lock);
    std::atomic<std::uint64_t> count{0};
};
