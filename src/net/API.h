#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

class Request;

// Calls to other servers by form-encoded POST. No state that calls share: any thread, at once.
class API {
public:
    // The places of the start and the stop at which nothing needs to be done.
    static void Init() {}
    static void SignalStop() {}
    static void WaitForStop() {}
    // The body of a thread for calls, which nobody starts: every call runs where it is made.
    static void Process();

    // Calls `url_text` and waits for the answer. Never null: without an answer the request has no
    // socket and no status. The format and its values must be fit for a form already. Login data in
    // the address wins over `user` and `pass`; its query and its scheme do not count.
    static std::shared_ptr<Request> CallURL(const std::string& url_text, const std::string& user,
                                            const std::string& pass, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    // The same call, not begun: for who takes it in steps (Request::ContinueRequest).
    static std::shared_ptr<Request> PrepareCall(const std::string& url_text,
                                                const std::string& user, const std::string& pass,
                                                const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    static std::atomic<bool> stop;
    static std::thread api_thread;
};
