#pragma once

#include <atomic>
#include <string>

// Cleared by a termination signal. The initial thread looks at it once a second.
extern std::atomic<bool> quillwave_running;

// The order in which the subsystems come up and go down. Initial thread only, once per process.
class Quillwave {
public:
    static void Start(const std::string& config_path);
    static void Stop();
};
