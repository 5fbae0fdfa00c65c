#pragma once

#include "config/ConfigNodeListener.h"

#include <condition_variable>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

// Saves some 6 seconds after the last of a run of changes, once for the run. It listens on the
// root of the settings. The thread "ConfigWatch Timer" is there only while a save is pending, and
// does the save. Also makes a changed key "Debug" take effect.
// Any thread. It must outlive its thread: Flush before it goes.
class ConfigWatch final : public ConfigNodeListener {
public:
    explicit ConfigWatch(std::function<void()> save_settings) : save(std::move(save_settings)) {}
    ~ConfigWatch() { Flush(); }
    ConfigWatch(const ConfigWatch&) = delete;
    ConfigWatch& operator=(const ConfigWatch&) = delete;

    bool OnConfigNodeChanged(std::shared_ptr<ConfigNode> node, std::string old_value) override;
    // A pending save is done, and the timer has ended, before this returns. To be called when no
    // changes arrive any more.
    void Flush();

private:
    void note_change();
    std::thread start_timer();
    void Timer();
    void wait_for_quiet(std::unique_lock<std::mutex>& guard);

    const std::function<void()> save;
    std::mutex lock; // of all that follows; not held while saving or joining
    std::condition_variable wake;
    time_t last_change = 0;
    bool pending = false;     // something changed since the last save began
    bool timer_lives = false; // cleared by the timer as the last thing it does
    bool flushing = false;
    std::thread timer;
};
