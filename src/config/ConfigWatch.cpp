#include "config/ConfigWatch.h"

#include "config/ConfigKey.h"
#include "config/ConfigNode.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"

#include <chrono>
#include <system_error>

namespace {
constexpr double QUIET_SECONDS = 5.0;
constexpr std::chrono::seconds TICK{1};
} // namespace

bool ConfigWatch::OnConfigNodeChanged(std::shared_ptr<ConfigNode> node, std::string) {
    note_change();
    // Kept: heard only as a live change. The first load and a reload pass unwatched, so "Debug=1"
    // in the file does not raise the level at the start.
    if (config_key::same(node->GetKey(true), "debug"))
        Log::SetLevel(node->GetValue(false) ? Log::DETAIL : Log::NORMAL);
    return false;
}

void ConfigWatch::note_change() {
    std::thread ended; // at most a few instructions from its end, and joined without the lock
    {
        const std::lock_guard guard(lock);
        last_change = now();
        pending = true;
        if (!timer_lives) ended = start_timer();
    }
    if (ended.joinable()) ended.join();
}

// The thread of the run before, if there was one. Where no thread can be had now, the next change
// tries again.
std::thread ConfigWatch::start_timer() {
    try {
        std::thread started(&ConfigWatch::Timer, this);
        timer.swap(started);
        timer_lives = true;
        return started;
    } catch (const std::system_error& error) {
        LogWrite(2) << "WARNING: no automatic save of the configuration: " << error.what()
                    << std::endl;
        return {};
    }
}

void ConfigWatch::Timer() {
    SetThreadName("ConfigWatch Timer");
    std::unique_lock guard(lock);
    while (pending) {
        wait_for_quiet(guard);
        pending = false;
        guard.unlock();
        save();
        guard.lock();
    }
    timer_lives = false;
}

void ConfigWatch::wait_for_quiet(std::unique_lock<std::mutex>& guard) {
    while (!flushing && difftime(now(), last_change) <= QUIET_SECONDS)
        wake.wait_for(guard, TICK);
}

void ConfigWatch::Flush() {
    std::thread ending;
    {
        const std::lock_guard guard(lock);
        flushing = true;
        ending = std::move(timer);
    }
    wake.notify_all();
    if (ending.joinable()) ending.join();
    const std::lock_guard guard(lock);
    flushing = false;
}
