#include "net/RouteLookup.h"

#include "core/OSTools.h"

#include <chrono>
#include <deque>
#include <map>
#include <thread>
#include <utility>

// Shared by its threads, which may outlive everything else: a resolver cannot be told to stop.
class RouteLookup::Desk : public std::enable_shared_from_this<Desk> {
public:
    static std::shared_ptr<Desk> Get() {
        static const auto desk = std::make_shared<Desk>();
        return desk;
    }

    std::shared_ptr<RouteLookup> Join(std::shared_ptr<RouteLookup> lookup) {
        std::lock_guard guard(mutex);
        const auto [place, is_new] = under_way.emplace(lookup->words(), lookup);
        if (is_new) waiting.push_back(lookup);
        auto joined = place->second;
        // Also for one that waits already: when it came there may have been no thread to be had.
        if (!waiting.empty() && threads < MOST_THREADS) {
            std::thread([self = shared_from_this()] { self->work(); }).detach();
            ++threads;
        }
        return joined;
    }

private:
    // A name whose servers are silent keeps a thread for half a minute, and every relay may have
    // one; the others are not to wait behind them.
    static constexpr int MOST_THREADS = 64;

    void work() {
        SetThreadName("Route Lookup");
        while (const auto lookup = next()) {
            lookup->answer(find_route(lookup->query));
            std::lock_guard guard(mutex);
            under_way.erase(lookup->words());
        }
    }

    // Null when nothing waits, and then the thread that asked counts no more.
    std::shared_ptr<RouteLookup> next() {
        std::lock_guard guard(mutex);
        if (waiting.empty()) {
            --threads;
            return nullptr;
        }
        auto lookup = std::move(waiting.front());
        waiting.pop_front();
        return lookup;
    }

    std::mutex mutex;
    std::map<std::string, std::shared_ptr<RouteLookup>> under_way; // by words()
    std::deque<std::shared_ptr<RouteLookup>> waiting;
    int threads = 0;
};

std::shared_ptr<RouteLookup> RouteLookup::Start(const RouteQuery& query) {
    std::shared_ptr<RouteLookup> lookup(new RouteLookup(query));
    if (auto known = find_numeric_route(query)) {
        lookup->answer(std::move(*known));
        return lookup;
    }
    return Desk::Get()->Join(std::move(lookup));
}

const Route* RouteLookup::Found() const {
    std::lock_guard guard(mutex);
    return done ? &route : nullptr;
}

void RouteLookup::Wait(int milliseconds) const {
    std::unique_lock guard(mutex);
    answered.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return done; });
}

// What makes two lookups the same.
std::string RouteLookup::words() const {
    std::string text =
        query.host + ' ' + std::to_string(query.port) + ' ' + std::to_string(query.from_port);
    for (const std::string& address : query.from.ipv6)
        text += ' ' + address;
    for (const std::string& address : query.from.ipv4)
        text += ' ' + address;
    return text;
}

void RouteLookup::answer(Route found) {
    {
        std::lock_guard guard(mutex);
        route = std::move(found);
        done = true;
    }
    answered.notify_all();
}
