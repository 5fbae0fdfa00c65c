#include "streaming/Notifier.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "net/Socket.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <list>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

namespace {

using std::chrono::milliseconds;
constexpr milliseconds PACE{20};     // between two steps of what is under way
constexpr milliseconds LINGER{2000}; // without anything to do
constexpr std::size_t MOST_AT_ONCE = 256;
constexpr std::size_t MOST_WAITING = 10000;

struct Call {
    std::shared_ptr<Request> request = {};
    std::string lane = {};
};

// The thread and what it shares with those who post.
class Desk {
public:
    Desk() = default;
    ~Desk() { WaitForStop(); }
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    void Post(Call call);
    void WaitForStop();

private:
    void start_thread();
    void run();
    void begin_some();
    void step_all();
    bool is_over() const;

    std::mutex mutex;
    std::condition_variable news;
    std::deque<Call> waiting; // under the mutex, as is what follows
    std::thread thread;
    bool running = false;
    bool stopping = false;
    time_t stop_by = 0;
    std::list<Call> under_way; // the thread's own
};

void Desk::Post(Call call) {
    {
        std::lock_guard guard(mutex);
        if (stopping) return;
        if (waiting.size() >= MOST_WAITING) {
            LogWrite(2) << "Notification of " << log_text(call.request->Host())
                        << " dropped, too many are waiting" << std::endl;
            return;
        }
        waiting.push_back(std::move(call));
        if (!running) start_thread();
    }
    news.notify_one();
}

// The former thread has nothing left to do, so it is joined at once. Where no thread is to be had
// the calls wait for the next try.
void Desk::start_thread() {
    if (thread.joinable()) thread.join();
    try {
        thread = std::thread([this] { run(); });
        running = true;
    } catch (const std::system_error& fault) {
        LogWrite(2) << "Notifications have to wait: " << fault.what() << std::endl;
    }
}

void Desk::WaitForStop() {
    const int limit = Config::Get("SocketTimeout", false)->GetValue(5);
    std::thread last;
    {
        std::lock_guard guard(mutex);
        stopping = true;
        stop_by = now() + std::max(limit, 1);
        last.swap(thread);
    }
    news.notify_one();
    if (last.joinable()) last.join();
}

void Desk::run() {
    SetThreadName("Notifications");
    std::unique_lock guard(mutex);
    for (;;) {
        begin_some();
        if (is_over()) break;
        guard.unlock();
        step_all();
        guard.lock();
        if (!under_way.empty())
            news.wait_for(guard, PACE);
        else if (waiting.empty() && !stopping &&
                 !news.wait_for(guard, LINGER, [this] { return stopping || !waiting.empty(); }))
            break;
    }
    under_way.clear();
    waiting.clear();
    running = false;
}

bool Desk::is_over() const {
    if (!stopping) return false;
    return (under_way.empty() && waiting.empty()) || difftime(now(), stop_by) >= 0;
}

// Takes what may begin: all but those whose lane is taken by one before.
void Desk::begin_some() {
    std::set<std::string> taken = {};
    for (const Call& call : under_way)
        taken.insert(call.lane);
    for (auto call = waiting.begin(); call != waiting.end() && under_way.size() < MOST_AT_ONCE;) {
        const bool is_free = taken.insert(call->lane).second || call->lane.empty();
        if (is_free) under_way.push_back(std::move(*call));
        call = is_free ? waiting.erase(call) : call + 1;
    }
}

bool is_done(const Call& call) {
    try {
        return call.request->ContinueRequest() != IO_AGAIN;
    } catch (const std::exception& fault) {
        LogWrite(2) << "Notification of " << log_text(call.request->Host())
                    << " failed: " << fault.what() << std::endl;
        return true;
    }
}

void Desk::step_all() { under_way.remove_if(is_done); }

Desk& desk() {
    static Desk only;
    return only;
}

} // namespace

void Notifier::Post(std::shared_ptr<Request> call, const std::string& lane) {
    desk().Post({.request = std::move(call), .lane = lane});
}

void Notifier::WaitForStop() { desk().WaitForStop(); }
