#include "core/ThreadPool.h"

#include "config/Config.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "core/ThreadPoolWork.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

namespace {

constexpr std::chrono::milliseconds CYCLE(50);
constexpr std::size_t POLLS_PER_CLAIM = 64;
constexpr std::size_t FETCHED_AHEAD = 6;
constexpr int LEAST_WORKERS = 3;
constexpr int MOST_WORKERS = 64;
constexpr long WORKERS_OF_A_SMALL_MACHINE = 4;

// Thousands of objects do not stay in the processor's caches between two cycles. What a Poll looks
// at stands at the beginning of its object.
void fetch_ahead(const ThreadPoolWork* work) {
    const char* bytes = reinterpret_cast<const char*>(work);
    __builtin_prefetch(bytes, 1);
    __builtin_prefetch(bytes + 64, 1);
}

std::deque<ThreadPool::WorkPointer> all_of(concurrent_queue<ThreadPool::WorkPointer>& queue) {
    std::deque<ThreadPool::WorkPointer> taken;
    if (!queue.empty()) queue.swap(taken);
    return taken;
}

} // namespace

concurrent_queue<ThreadPool::WorkPointer> ThreadPool::work_to_add;
concurrent_queue<ThreadPool::WorkPointer> ThreadPool::work_to_rem;
std::vector<ThreadPool::WorkPointer> ThreadPool::registered;
std::mutex ThreadPool::ntMutex;
std::size_t ThreadPool::polls_wanted = 0;
std::size_t ThreadPool::polls_claimed = 0;
std::size_t ThreadPool::polls_finished = 0;
std::deque<ThreadPool::WorkPointer> ThreadPool::queues[3];
std::size_t ThreadPool::idle_workers = 0;
bool ThreadPool::working = true;
std::condition_variable ThreadPool::notifyThreads;
std::condition_variable ThreadPool::polls_done;
std::condition_variable ThreadPool::stop_signalled;
std::thread ThreadPool::manager_thread;
std::vector<std::thread> ThreadPool::worker_pool;
std::atomic<bool> ThreadPool::stop_signal{false};
std::atomic<long long> ThreadPool::last_duration{CYCLE.count()};

void ThreadPool::Add(WorkPointer work) {
    if (!stop_signal) work_to_add.push(std::move(work));
}

void ThreadPool::Remove(WorkPointer work) { work_to_rem.push(std::move(work)); }

void ThreadPool::AddWork(WorkPointer work, Priority priority) {
    if (priority > LOW) return;
    std::lock_guard guard(ntMutex);
    if (!working) return; // nobody would do it
    queues[priority].push_back(std::move(work));
    wake_workers(1);
}

std::size_t ThreadPool::WorkerCount(int setting, long processors) {
    if (setting >= LEAST_WORKERS) return static_cast<std::size_t>(std::min(setting, MOST_WORKERS));
    return static_cast<std::size_t>(processors <= 2 ? WORKERS_OF_A_SMALL_MACHINE : processors);
}

void ThreadPool::Start() {
    const int setting = Config::Get("ThreadPool", false)->GetValue(0);
    const std::size_t count = WorkerCount(setting, GetCoreCount());
    manager_thread = std::thread(manage);
    LogWrite(2) << "Starting thread pool of " << count << " threads..." << std::endl;
    for (std::size_t started = 0; started < count; ++started)
        worker_pool.emplace_back(run_worker);
}

void ThreadPool::SignalStop() {
    std::lock_guard guard(ntMutex);
    stop_signal = true;
    stop_signalled.notify_all();
}

void ThreadPool::WaitForStop() {
    SignalStop();
    if (manager_thread.joinable()) manager_thread.join();
    for (std::thread& worker : worker_pool)
        worker.join();
    worker_pool.clear();
    drop_leftovers();
}

// ---- Manager thread -----------------------------------------------------------------------------

void ThreadPool::manage() {
    SetThreadName("ThreadPool Manager");
    while (!stop_signal) {
        const Clock::time_point started = Clock::now();
        // Before the additions, so that each of these has been added by the time it is taken out.
        const std::deque<WorkPointer> removals = all_of(work_to_rem);
        take_added();
        take_out(removals);
        run_cycle(started);
    }
    stop_all_work();
    end_workers();
}

void ThreadPool::take_added() {
    for (WorkPointer& work : all_of(work_to_add))
        registered.push_back(std::move(work));
}

// Each removal takes out the first entry of its work; one that is not registered is passed over.
void ThreadPool::take_out(const std::deque<WorkPointer>& removals) {
    if (removals.empty()) return;
    std::unordered_map<const ThreadPoolWork*, std::size_t> entries_to_go;
    for (const WorkPointer& work : removals)
        ++entries_to_go[work.get()];
    std::erase_if(registered, [&entries_to_go](const WorkPointer& work) {
        const auto found = entries_to_go.find(work.get());
        if (found == entries_to_go.end() || found->second == 0) return false;
        --found->second;
        return true;
    });
}

void ThreadPool::run_cycle(Clock::time_point started) {
    have_list_polled();
    if (keep_duration(started)) sleep_until_stop(started + CYCLE);
}

void ThreadPool::have_list_polled() {
    std::unique_lock lock(ntMutex);
    polls_claimed = 0;
    polls_finished = 0;
    polls_wanted = registered.size();
    wake_workers((polls_wanted + POLLS_PER_CLAIM - 1) / POLLS_PER_CLAIM);
    polls_done.wait(lock, [] { return polls_finished == polls_wanted; });
}

// Tells the next polls how long the cycle took. True when it took less than it may.
bool ThreadPool::keep_duration(Clock::time_point started) {
    const auto taken =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
    last_duration = std::max(taken, CYCLE).count();
    if (taken < CYCLE) return true;
    LogWrite(2) << "ThreadPool polling taking too long. Took " << taken.count() << " ms!"
                << std::endl;
    return false;
}

// A stop that comes during the sleep ends it; one that came before does not, for its cycles keep
// their pace.
void ThreadPool::sleep_until_stop(Clock::time_point end) {
    std::unique_lock lock(ntMutex);
    const bool stopping = stop_signal;
    stop_signalled.wait_until(lock, end, [stopping] { return stop_signal != stopping; });
}

void ThreadPool::stop_all_work() {
    for (const WorkPointer& work : registered)
        work->SignalStop();
    all_of(work_to_add); // never registered: released without a signal
    while (!registered.empty()) {
        const Clock::time_point started = Clock::now();
        take_out(all_of(work_to_rem));
        run_cycle(started);
    }
}

void ThreadPool::end_workers() {
    std::lock_guard guard(ntMutex);
    working = false;
    notifyThreads.notify_all();
}

// What was queued behind the last cycle is released now and not with the process.
void ThreadPool::drop_leftovers() {
    all_of(work_to_add);
    all_of(work_to_rem);
    std::deque<WorkPointer> left[std::size(queues)]; // released without the lock
    std::lock_guard guard(ntMutex);
    std::ranges::swap_ranges(queues, left);
}

// ---- Workers ------------------------------------------------------------------------------------

void ThreadPool::run_worker() {
    SetThreadName("ThreadPool Worker");
    std::vector<Ready> ready; // kept between batches for its memory
    for (;;) {
        const Job job = take_job();
        if (job.IsNothing()) return;
        if (job.slice) {
            job.slice->Process();
        } else {
            poll(job.polls, ready);
            queue_ready(job.polls, ready);
        }
    }
}

// Polls first, so that the manager's cycle ends fast.
ThreadPool::Job ThreadPool::take_job() {
    std::unique_lock lock(ntMutex);
    while (working) {
        Job job;
        job.polls = claim_polls();
        if (job.IsNothing()) job.slice = next_slice();
        if (!job.IsNothing()) return job;
        ++idle_workers;
        notifyThreads.wait(lock);
        --idle_workers;
    }
    return {};
}

ThreadPool::PollBatch ThreadPool::claim_polls() {
    const std::size_t first = polls_claimed;
    polls_claimed = std::min(first + POLLS_PER_CLAIM, polls_wanted);
    return {first, polls_claimed};
}

ThreadPool::WorkPointer ThreadPool::next_slice() {
    for (std::deque<WorkPointer>& queue : queues) {
        if (queue.empty()) continue;
        WorkPointer work = std::move(queue.front());
        queue.pop_front();
        return work;
    }
    return nullptr;
}

// No lock: the list stands still until every batch is finished. Work with nothing to do costs its
// Poll and not even a reference.
void ThreadPool::poll(PollBatch batch, std::vector<Ready>& ready) {
    const long long elapsed = last_duration;
    for (std::size_t at = batch.first; at < batch.last; ++at) {
        if (at + FETCHED_AHEAD < batch.last) fetch_ahead(registered[at + FETCHED_AHEAD].get());
        const Priority priority = registered[at]->Poll(elapsed);
        if (priority <= LOW) ready.push_back({registered[at], priority});
    }
}

void ThreadPool::queue_ready(PollBatch polled, std::vector<Ready>& ready) {
    std::lock_guard guard(ntMutex);
    for (Ready& entry : ready)
        queues[entry.priority].push_back(std::move(entry.work));
    if (!ready.empty()) wake_workers(ready.size() - 1); // this worker takes one itself
    ready.clear();
    polls_finished += polled.last - polled.first;
    if (polls_finished == polls_wanted) polls_done.notify_one();
}

// Under ntMutex. A worker that is not idle looks for a job by itself.
void ThreadPool::wake_workers(std::size_t jobs) {
    for (std::size_t woken = std::min(jobs, idle_workers); woken > 0; --woken)
        notifyThreads.notify_one();
}
