#include "directory/YellowPage.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "core/Version.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "streaming/Mount.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <limits>
#include <utility>

namespace {
constexpr int ACCEPTED = 200;

double socket_timeout() { return Config::Get("SocketTimeout", false)->GetValue(5); }
} // namespace

const char* const YellowPage::USER_AGENT =
    "Quillwave/" QUILLWAVE_VERSION QUILLWAVE_CODE_NAME " (" QUILLWAVE_PLATFORM ")";

YellowPage::YellowPage(std::shared_ptr<Mount> listed_mount, const std::string& listing_at)
    : address(listing_at), mount(std::move(listed_mount)), address_text(listing_at) {}

YellowPage::~YellowPage() = default;

// A listing whose removal has timed out is given up: the directory drops it by itself in the end.
void YellowPage::Start(const std::shared_ptr<Mount>& listed_mount) {
    bool joins = false;
    {
        spin_guard guard(lock);
        if (stop_requested) return;
        mount = listed_mount;
        restart_wanted = enrolled && remove_timeouts == 0;
        if (restart_wanted) return;
        joins = !std::exchange(enrolled, true);
        reset();
    }
    if (joins) ThreadPool::Add(shared_from_this());
    ThreadPool::AddWork(shared_from_this(), ThreadPool::LOW);
}

void YellowPage::SetMount(const std::shared_ptr<Mount>& listed_mount) {
    spin_guard guard(lock);
    mount = listed_mount;
}

void YellowPage::Reset() {
    spin_guard guard(lock);
    reset();
}

void YellowPage::reset() {
    stop_requested = false;
    last_touch = 0;
    listed = false;
    touch_errors = 0;
    remove_requested = false;
    id.clear();
    interval = FIRST_INTERVAL;
    status = "Initialized";
    pending = Exchange::NONE;
    request.reset();
    remove_timeouts = 0;
    restart_wanted = false;
    busy = true;
}

void YellowPage::Remove() {
    {
        spin_guard guard(lock);
        remove_requested = true;
        restart_wanted = false;
    }
    if (!busy.exchange(true)) ThreadPool::AddWork(shared_from_this(), ThreadPool::LOW);
}

std::string YellowPage::Status() const {
    spin_guard guard(lock);
    return status;
}

std::string YellowPage::Address() const {
    spin_guard guard(lock);
    return address_text;
}

bool YellowPage::HoldsUpStop() const {
    spin_guard guard(lock);
    return enrolled && listed && remove_timeouts == 0;
}

void YellowPage::SignalStop() {
    spin_guard guard(lock);
    stop_started = now();
    stop_requested = true;
    remove_requested = true;
}

ThreadPool::Priority YellowPage::Poll(long long) {
    if (busy.exchange(true)) return ThreadPool::NOTHING;
    const time_t touch = last_touch;
    const std::int32_t seconds = std::clamp(interval.load(), 0, LONGEST_INTERVAL);
    if (touch == 0 || difftime(now(), touch) > seconds || remove_requested || stop_requested)
        return ThreadPool::LOW;
    busy = false;
    return ThreadPool::NOTHING;
}

void YellowPage::Process() {
    std::shared_ptr<Mount> released; // when the lock is: the page may have been its last holder
    spin_guard guard(lock);
    try {
        if (!has_finished()) advance();
        if (has_finished()) released = finish();
    } catch (const std::exception& fault) {
        released = break_off(fault.what());
    }
    busy = false;
}

void YellowPage::advance() {
    if (pending != Exchange::NONE)
        go_on();
    else
        begin(due());
}

YellowPage::Exchange YellowPage::due() const {
    if (!enrolled) return Exchange::NONE;
    const bool stays = !remove_requested && !stop_requested && mount->IsConnected();
    if (!listed) return stays ? Exchange::ADD : Exchange::NONE;
    if (!stays || touch_errors >= MOST_TOUCH_ERRORS) return Exchange::REMOVE;
    return Exchange::TOUCH;
}

void YellowPage::begin(Exchange next) {
    if (next == Exchange::NONE) return;
    const std::string obstacle = next == Exchange::REMOVE ? std::string() : limit();
    if (!obstacle.empty()) {
        LogWrite(2) << "<" << mount->Address() << "> " << log_text(obstacle) << std::endl;
        touch_errors = BARRED;
        return end_exchange();
    }
    if (next == Exchange::REMOVE && touch_errors >= MOST_TOUCH_ERRORS && mount->IsConnected())
        log("Attempting delisting due to too many touch errors");
    pending = next;
    started = now();
    starts(next);
    request = make_request(next);
    go_on();
}

void YellowPage::go_on() {
    const int result = step();
    if (result == 1) return judge();
    if (result != IO_AGAIN) return fail(words().connection_failed, "Error: Connection Failed");
    if (is_overdue()) time_out();
}

bool YellowPage::is_overdue() const {
    return difftime(now(), started) > socket_timeout() || outstays_pool();
}

// All that a page still does once the pool stops has the time of one exchange.
bool YellowPage::outstays_pool() const {
    return stop_requested && difftime(now(), stop_started) > socket_timeout();
}

// What arrives of a body that breaks off counts.
int YellowPage::step() {
    const int head = request->Complete() ? 1 : request->InitiateRequest();
    if (head != 1 || !answers_in_body() || request->Status() != ACCEPTED) return head;
    return request->ReadReplyBody() == IO_AGAIN ? IO_AGAIN : 1;
}

void YellowPage::judge() {
    if (request->Status() != ACCEPTED) {
        const std::string message = request->Message();
        return fail(words().refused + tostring(request->Status()) + " " + message,
                    "Error: " + message);
    }
    const Answer answer = read_answer(*request);
    switch (answer.verdict) {
    case Answer::Verdict::NONE:
        return fail(words().no_answer, words().no_answer_status);
    case Answer::Verdict::REFUSED:
        return refuse(answer);
    case Answer::Verdict::ACCEPTED:
        return accept(answer);
    }
}

void YellowPage::accept(const Answer& answer) {
    const Exchange done = pending;
    end_exchange();
    if (done == Exchange::ADD) return added(answer);
    touch_errors = 0;
    listed = done == Exchange::TOUCH;
    if (listed)
        touched(answer);
    else
        removed(answer);
}

// A directory that refuses a touch has forgotten the stream.
void YellowPage::refuse(const Answer& answer) {
    const Exchange done = pending;
    log(words().refused + answer.message + (answer.code.empty() ? "" : " (" + answer.code + ")"));
    status = words().refused_status + answer.message;
    end_exchange();
    if (done != Exchange::ADD) end_listing();
}

void YellowPage::fail(const std::string& log_words, const std::string& status_words) {
    const Exchange done = pending;
    log(log_words);
    status = status_words;
    end_exchange();
    if (done == Exchange::TOUCH) ++touch_errors;
    if (done == Exchange::REMOVE) end_listing();
}

// A listing whose removal timed out still stands, and its removal is tried again.
void YellowPage::time_out() {
    log(words().timed_out);
    status = "Error: Connection Timed Out";
    if (pending == Exchange::TOUCH) ++touch_errors;
    if (pending == Exchange::REMOVE) ++remove_timeouts;
    end_exchange();
}

void YellowPage::end_exchange() {
    last_touch = now();
    pending = Exchange::NONE;
    request.reset();
}

void YellowPage::end_listing() {
    listed = false;
    touch_errors = 0;
}

// A stopping pool is not kept waiting by a directory that has been silent twice, or for too long.
bool YellowPage::has_finished() const {
    if (!enrolled || !remove_requested) return false;
    if (stop_requested && remove_timeouts > 1) return true;
    if (pending != Exchange::NONE) return false;
    return !listed || (restart_wanted && remove_timeouts > 0) || outstays_pool();
}

// Leaves the pool, or starts anew. Gives back the mount that it held.
std::shared_ptr<Mount> YellowPage::finish() {
    if (!restart_wanted || stop_requested) return leave();
    reset();
    return nullptr;
}

std::shared_ptr<Mount> YellowPage::leave() {
    pending = Exchange::NONE;
    request.reset();
    if (std::exchange(enrolled, false)) ThreadPool::Remove(shared_from_this());
    return std::exchange(mount, nullptr);
}

// What fails in a way that nobody foresaw ends this listing, never the server.
std::shared_ptr<Mount> YellowPage::break_off(const std::string& fault) {
    LogWrite(2) << "Listing on " << log_text(address_text)
                << " ended by an error: " << log_text(fault) << std::endl;
    status = "Error: " + fault;
    end_listing();
    return leave();
}

void YellowPage::log(const std::string& words) const {
    LogWrite(2) << log_text(log_head() + words) << std::endl;
}

void YellowPage::log_touch(const std::string& words) const {
    if (Config::Get("YPLog", false)->GetValue(true)) log(words);
}

void YellowPage::enter_listing(const std::string& listing_id, std::int64_t seconds) {
    id = listing_id;
    set_interval(seconds);
    listed = true;
    touch_errors = 0;
}

void YellowPage::set_interval(std::int64_t seconds) {
    using Limits = std::numeric_limits<std::int32_t>;
    interval =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(seconds, Limits::min(), Limits::max()));
}

// Small enough to be multiplied by sixty.
std::int64_t YellowPage::decimal(const std::string& text) {
    using Limits = std::numeric_limits<std::int32_t>;
    return std::clamp<std::int64_t>(std::strtoll(text.c_str(), nullptr, 10), Limits::min(),
                                    Limits::max());
}
