#pragma once

#include <atomic>
#include <cstdint>

// Lock annotations, checked by clang's thread safety analysis and nothing to other compilers.
#if defined(__clang__)
#define QW_ATTRIBUTE(x) __attribute__((x))
#else
#define QW_ATTRIBUTE(x)
#endif
#define GUARDED_BY(lock) QW_ATTRIBUTE(guarded_by(lock))
#define REQUIRES(...) QW_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) QW_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) QW_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS QW_ATTRIBUTE(no_thread_safety_analysis)

// A small lock for short stretches: one exchange when free. A thread that finds it taken looks
// again a few times and then sleeps in the kernel, so a holder that lost its processor is not
// spun against. Not recursive.
class QW_ATTRIBUTE(capability("spinlock")) spinlock {
public:
    void lock() QW_ATTRIBUTE(acquire_capability()) NO_THREAD_SAFETY_ANALYSIS {
        if (try_lock()) return;
        wait_and_lock();
    }
    bool try_lock() QW_ATTRIBUTE(try_acquire_capability(true)) {
        std::uint32_t expected = FREE;
        return state.compare_exchange_strong(expected, TAKEN, std::memory_order_acquire);
    }
    void unlock() QW_ATTRIBUTE(release_capability()) {
        if (state.exchange(FREE, std::memory_order_release) == WAITED_FOR) state.notify_one();
    }

private:
    static constexpr std::uint32_t FREE = 0;
    static constexpr std::uint32_t TAKEN = 1;
    static constexpr std::uint32_t WAITED_FOR = 2; // taken, and somebody may be asleep
    static constexpr int LOOKS = 64;

    void wait_and_lock() {
        for (int look = 0; look < LOOKS; ++look) {
            std::uint32_t expected = FREE;
            if (state.load(std::memory_order_relaxed) == FREE &&
                state.compare_exchange_strong(expected, TAKEN, std::memory_order_acquire))
                return;
        }
        while (state.exchange(WAITED_FOR, std::memory_order_acquire) != FREE)
            state.wait(WAITED_FOR, std::memory_order_relaxed);
    }

    std::atomic<std::uint32_t> state{FREE};
};

// Holds a spinlock for a scope; std::lock_guard would hide the lock from the analysis.
class QW_ATTRIBUTE(scoped_lockable) spin_guard {
public:
    explicit spin_guard(spinlock& l) QW_ATTRIBUTE(acquire_capability(l)) : lock(l) { lock.lock(); }
    ~spin_guard() QW_ATTRIBUTE(release_capability()) { lock.unlock(); }
    spin_guard(const spin_guard&) = delete;
    spin_guard& operator=(const spin_guard&) = delete;

private:
    spinlock& lock;
};
