#include "net/API.h"

#include "core/OSTools.h"
#include "http/Request.h"
#include "net/url.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace {

constexpr unsigned int PAUSE_MS = 50;
constexpr std::size_t BODY_BYTES = 256; // with the closing NUL
constexpr float VERSION = 1.0F;

// Kept: what does not fit is cut without a word. Applications know the length of these texts.
std::string formatted(const char* format, va_list values) {
    char body[BODY_BYTES];
    vsnprintf(body, sizeof body, format, values);
    return body;
}

std::shared_ptr<Request> call(const std::string& address, const std::string& user,
                              const std::string& pass, std::string body) {
    url target(address);
    target.SetLogin(target.User().empty() ? user : target.User(),
                    target.Pass().empty() ? pass : target.Pass());
    target.DropQuery();
    return std::make_shared<Request>(target, Request::METHOD_POST, std::move(body), "",
                                     Request::PROTOCOL_HTTP, VERSION);
}

} // namespace

std::atomic<bool> API::stop{false};
std::thread API::api_thread;

void API::Process() {
    SetThreadName("API Process");
    while (!stop)
        Sleep(PAUSE_MS);
}

std::shared_ptr<Request> API::CallURL(const std::string& url_text, const std::string& user,
                                      const std::string& pass, const char* format, ...) {
    va_list values;
    va_start(values, format);
    auto request = call(url_text, user, pass, formatted(format, values));
    va_end(values);
    if (request->CompleteRequest()) return request;
    return std::make_shared<Request>(std::shared_ptr<Socket>());
}

std::shared_ptr<Request> API::PrepareCall(const std::string& url_text, const std::string& user,
                                          const std::string& pass, const char* format, ...) {
    va_list values;
    va_start(values, format);
    auto request = call(url_text, user, pass, formatted(format, values));
    va_end(values);
    return request;
}
