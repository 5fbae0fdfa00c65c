#pragma once

#include "core/ThreadPoolWork.h"
#include "core/spinlock.h"
#include "net/url.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

class Mount;
class Request;

// Keeps one mount listed on one directory: added, touched at the interval that the directory asks
// for, removed at the end. All of it is here but the directory's language, which the kinds tell:
// the request for each exchange, how its answer is read, and the words for the log. Shared by its
// Publication and, while it has something to do, by the pool. Poll takes no lock; the rest holds
// `lock`, Process for a slice in which nothing waits.
class YellowPage : public ThreadPoolWork, public std::enable_shared_from_this<YellowPage> {
public:
    static const char* const USER_AGENT;

    // `mount` may be null until Start gives one. `listing_at` is the directory as configured.
    YellowPage(std::shared_ptr<Mount> mount, const std::string& listing_at);
    ~YellowPage() override;

    // Into the pool with a fresh state. A page that is still leaving finishes that, then starts.
    void Start(const std::shared_ptr<Mount>& listed_mount) EXCLUDES(lock);
    void SetMount(const std::shared_ptr<Mount>& listed_mount) EXCLUDES(lock);
    // Back to the state of a page that was never listed; drops an exchange under way.
    void Reset() EXCLUDES(lock);
    // Asks for the end of the listing, after which the page leaves the pool by itself.
    void Remove() EXCLUDES(lock);

    bool Listed() const { return listed; }
    time_t LastTouchTime() const { return last_touch; } // 0 for never
    std::int32_t Interval() const { return interval; }  // seconds, as the directory said
    std::string Status() const EXCLUDES(lock);
    std::string Address() const EXCLUDES(lock);
    // Whether a stop is to wait for it: listed, and no attempt to remove it has timed out yet.
    bool HoldsUpStop() const EXCLUDES(lock);

    void SignalStop() override EXCLUDES(lock);
    ThreadPool::Priority Poll(long long elapsed) override;
    void Process() override EXCLUDES(lock);

protected:
    enum class Exchange : std::int32_t { NONE = 0, ADD = 1, TOUCH = 2, REMOVE = 3 };

    // What a directory said.
    struct Answer {
        enum class Verdict : std::uint8_t { NONE, ACCEPTED, REFUSED };
        Verdict verdict = Verdict::NONE;
        std::string message = {};   // for people
        std::string code = {};      // that goes with a refusal
        std::string id = {};        // of the listing
        std::string frequency = {}; // of touches; empty when it was not told
    };

    // How a kind words what comes to nothing.
    struct Words {
        const char* connection_failed;
        const char* timed_out;
        const char* refused;        // stands before the directory's own words, in the log
        const char* refused_status; // the same, on the panel
        const char* no_answer;
        const char* no_answer_status;
    };

    virtual const Words& words() const = 0;
    // How its log lines begin.
    virtual std::string log_head() const REQUIRES(lock) = 0;
    virtual std::shared_ptr<Request> make_request(Exchange next) REQUIRES(lock) = 0;
    virtual bool answers_in_body() const = 0;
    virtual Answer read_answer(const Request& reply) const = 0;
    // Why the directory cannot carry this mount, in the words of the log; empty when it can.
    virtual std::string limit() const REQUIRES(lock) { return {}; }
    // An exchange is about to go out.
    virtual void starts(Exchange) REQUIRES(lock) {}
    virtual void added(const Answer& answer) REQUIRES(lock) = 0;
    virtual void touched(const Answer& answer) REQUIRES(lock) = 0;
    virtual void removed(const Answer& answer) REQUIRES(lock) = 0;

    void log(const std::string& words) const REQUIRES(lock);
    // A touch's success, for those who want to read of it.
    void log_touch(const std::string& words) const REQUIRES(lock);
    // The directory has taken the mount, under this id, and wants to hear again after `seconds`.
    void enter_listing(const std::string& listing_id, std::int64_t seconds) REQUIRES(lock);
    void set_interval(std::int64_t seconds);
    static std::int64_t decimal(const std::string& text);

    mutable spinlock lock;
    url address GUARDED_BY(lock);
    std::shared_ptr<Mount> mount GUARDED_BY(lock);
    std::string id GUARDED_BY(lock);
    std::string status GUARDED_BY(lock) = "Initialized";
    std::atomic<bool> listed{false};
    std::atomic<std::uint16_t> touch_errors{0}; // failed touches in a row
    std::atomic<time_t> last_touch{0};          // end of the last exchange; 0: never, or due now

private:
    void reset() REQUIRES(lock);
    void advance() REQUIRES(lock);
    Exchange due() const REQUIRES(lock);
    void begin(Exchange next) REQUIRES(lock);
    void go_on() REQUIRES(lock);
    int step() REQUIRES(lock);
    bool is_overdue() const REQUIRES(lock);
    bool outstays_pool() const REQUIRES(lock);
    void judge() REQUIRES(lock);
    void accept(const Answer& answer) REQUIRES(lock);
    void refuse(const Answer& answer) REQUIRES(lock);
    void fail(const std::string& log_words, const std::string& status_words) REQUIRES(lock);
    void time_out() REQUIRES(lock);
    void end_exchange() REQUIRES(lock);
    void end_listing() REQUIRES(lock);
    bool has_finished() const REQUIRES(lock);
    std::shared_ptr<Mount> finish() REQUIRES(lock);
    std::shared_ptr<Mount> leave() REQUIRES(lock);
    std::shared_ptr<Mount> break_off(const std::string& fault) REQUIRES(lock);

    static constexpr int FIRST_INTERVAL = 300;
    static constexpr std::int32_t LONGEST_INTERVAL = 86400;
    static constexpr std::uint16_t MOST_TOUCH_ERRORS = 5;
    static constexpr std::uint16_t BARRED = 6; // touch errors of a mount that cannot be carried

    std::string address_text GUARDED_BY(lock);
    std::atomic<std::int32_t> interval{FIRST_INTERVAL};
    std::atomic<bool> stop_requested{false}; // the pool is going down
    std::atomic<bool> remove_requested{false};
    std::atomic<bool> busy{true};             // queued or at work: the pool does not queue it twice
    time_t started GUARDED_BY(lock) = 0;      // the exchange under way
    time_t stop_started GUARDED_BY(lock) = 0; // of the pool
    Exchange pending GUARDED_BY(lock) = Exchange::NONE;
    std::shared_ptr<Request> request GUARDED_BY(lock); // of the exchange under way
    int remove_timeouts GUARDED_BY(lock) = 0;
    bool enrolled GUARDED_BY(lock) = false;       // registered with the pool
    bool restart_wanted GUARDED_BY(lock) = false; // once it has left the directory
};
