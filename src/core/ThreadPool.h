#pragma once

#include "core/concurrent_queue.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class ThreadPoolWork;

// All connections and streams run on these few threads. A manager has every registered object
// polled once in 50 milliseconds; what asks for a slice is queued at the priority it named and
// processed once. Polls come before slices, high before normal before low, strictly. Any thread:
// Add, Remove, AddWork. Start, SignalStop and WaitForStop: in this order, by whoever starts and
// stops the server.
class ThreadPool {
public:
    using WorkPointer = std::shared_ptr<ThreadPoolWork>;
    enum Priority : std::uint8_t { HIGH = 0, NORMAL = 1, LOW = 2, NOTHING = 3 };

    // Registered from the next cycle on. Ignored once the stop was signalled.
    static void Add(WorkPointer work);
    // Leaves with the next cycle; may be called from within Process, and during the stop.
    static void Remove(WorkPointer work);
    // One Process at this priority, without waiting for a poll. Any other priority does nothing.
    static void AddWork(WorkPointer work, Priority priority);

    // Starts the manager and as many workers as the setting ThreadPool says.
    static void Start();
    static void SignalStop();
    // Returns when every registered object has left and all threads have ended; at once when the
    // pool was never started.
    static void WaitForStop();

    // Workers for a value of the setting, on a machine with so many processors.
    static std::size_t WorkerCount(int setting, long processors);

private:
    using Clock = std::chrono::steady_clock;
    // A stretch of the registered list, for one worker to poll.
    struct PollBatch {
        std::size_t first = 0;
        std::size_t last = 0; // the one behind the stretch
    };
    // What a worker does next: a stretch to poll or a slice; neither once the pool has ended.
    struct Job {
        PollBatch polls = {};
        WorkPointer slice = {};
        bool IsNothing() const { return polls.first == polls.last && slice == nullptr; }
    };
    struct Ready {
        WorkPointer work;
        Priority priority;
    };

    // Manager thread.
    static void manage();
    static void take_added();
    static void take_out(const std::deque<WorkPointer>& removals);
    static void run_cycle(Clock::time_point started);
    static void have_list_polled();
    static bool keep_duration(Clock::time_point started);
    static void sleep_until_stop(Clock::time_point end);
    static void stop_all_work();
    static void end_workers();

    // Workers.
    static void run_worker();
    static Job take_job();
    static PollBatch claim_polls();
    static WorkPointer next_slice();
    static void poll(PollBatch batch, std::vector<Ready>& ready);
    static void queue_ready(PollBatch polled, std::vector<Ready>& ready);

    static void wake_workers(std::size_t jobs);
    static void drop_leftovers();

    static concurrent_queue<WorkPointer> work_to_add;
    static concurrent_queue<WorkPointer> work_to_rem;
    // The manager's list. It does not change while workers poll it.
    static std::vector<WorkPointer> registered;

    static std::mutex ntMutex;       // guards the next block
    static std::size_t polls_wanted; // of this cycle: indexes of `registered`
    static std::size_t polls_claimed;
    static std::size_t polls_finished;
    static std::deque<WorkPointer> queues[3]; // high, normal, low
    static std::size_t idle_workers;
    static bool working;

    static std::condition_variable notifyThreads; // there is a job, or the pool has ended
    static std::condition_variable polls_done;
    static std::condition_variable stop_signalled;

    static std::thread manager_thread;
    static std::vector<std::thread> worker_pool;
    static std::atomic<bool> stop_signal;
    static std::atomic<long long> last_duration; // milliseconds
};
