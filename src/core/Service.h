#pragma once

#include <atomic>
#include <sstream>
#include <string>

// Running in the background, and the service words of the command line, which lead to no service on
// this platform: their operations only leave a message. Initial thread; IsService: any thread.
class Service {
public:
    // Sees that the standard descriptors are taken, and with `daemonise` forks. True in the parent,
    // which has nothing more to do.
    static bool Init(bool daemonise);
    static void Install();
    static void Uninstall();
    static void Start();
    static void Stop();
    // True in a daemon, which has no console.
    static bool IsService();
    // The message of the last service word.
    static std::string GetError();

private:
    static std::atomic<bool> is_service;
    static std::ostringstream last_error;
};
