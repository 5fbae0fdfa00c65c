#include "core/Log.h"
#include "core/OSTools.h"
#include "net/Socket.h"
#include "streaming/Mount.h"

#include <exception>
#include <system_error>
#include <utility>

namespace {
constexpr unsigned int SESSION_PAUSE_MS = 50;

void join(std::thread finished) {
    if (finished.joinable()) finished.join();
}
} // namespace

void Mount::Start() {
    std::thread former;
    bool runs = false;
    {
        std::lock_guard guard(thread_mutex);
        runs = running;
        wanted = wanted || !runs;
        if (!runs) former = start_thread();
    }
    join(std::move(former));
    if (runs)
        LogWrite(2) << "Attempting to start duplicate thread on Mount " << address << std::endl;
}

void Mount::SignalStop() {
    {
        std::lock_guard guard(thread_mutex);
        wanted = false;
        stop = true;
    }
    leave_source();
}

void Mount::WaitForStop() {
    SignalStop();
    std::thread ending;
    {
        std::lock_guard guard(thread_mutex);
        ending.swap(thread);
    }
    join(std::move(ending));
}

void Mount::Kick() {
    kick = true;
    leave_source();
}

// With thread_mutex held. Gives back the former thread, which has ended, to be joined without it.
std::thread Mount::start_thread() {
    if (disabled || dismissed) return {};
    stop = false;
    std::thread next;
    try {
        next = std::thread([self = shared_from_this()] { self->Process(); });
    } catch (const std::system_error& fault) {
        LogWrite(2) << "<" << address << "> Mount could not be started: " << fault.what()
                    << std::endl;
        return {};
    }
    running = true;
    next.swap(thread);
    return next;
}

void Mount::apply_disabled(bool now_disabled) {
    std::thread former;
    {
        std::lock_guard guard(thread_mutex);
        disabled = now_disabled;
        if (running && now_disabled) stop = true;
        if (!running && wanted) former = start_thread();
    }
    join(std::move(former));
    if (now_disabled) leave_source();
}

// The thread sees the flags that were set before this, wherever it waits.
void Mount::leave_source() {
    wake();
    if (const auto socket = source_socket.load()) socket->Shutdown();
}

void Mount::wake() {
    { std::lock_guard guard(wake_mutex); }
    wake_up.notify_all();
}

void Mount::Process() {
    SetThreadName(address.c_str());
    do {
        while (!stop) {
            attempt(&Mount::RetrieveStream);
            if (!stop) attempt(&Mount::rest);
        }
        attempt(&Mount::close_down);
    } while (goes_on());
}

void Mount::rest() {
    if (session.is_relay && is_relay()) rest_from_relay();
    Sleep(SESSION_PAUSE_MS);
}

// What fails in a way that nobody foresaw ends a session, never the server.
void Mount::attempt(void (Mount::*step)()) {
    try {
        (this->*step)();
    } catch (const std::exception& fault) {
        LogWrite(2) << "<" << address << "> Source session failed: " << fault.what() << std::endl;
        end_session();
    }
}

// The last look of a thread that was told to stop: one that was only disabled, and is enabled again
// by now, goes on.
bool Mount::goes_on() {
    std::lock_guard guard(thread_mutex);
    stop = false;
    running = wanted && !disabled;
    return running;
}
