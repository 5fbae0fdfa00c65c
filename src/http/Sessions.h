#pragma once

#include "core/spinlock.h"

#include <cstddef>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// What the server remembers of one browser, by a cookie. Held by the list and by the requests that
// came with it. Any thread.
class Session {
public:
    explicit Session(std::string id);

    const std::string& Id() const { return id; }
    time_t CreateDate() const { return create_date; }
    // The last Get, Set or Erase; a request alone does not count.
    time_t UpdateDate() const EXCLUDES(lock);
    // Seconds since it was made.
    double LifeSpan() const;

    // Kept: a missing key gives the empty text, whatever the default; pages rely on that.
    std::string Get(const std::string& key, const std::string& default_value) EXCLUDES(lock);
    void Set(const std::string& key, const std::string& value) EXCLUDES(lock);
    void Erase(const std::string& key) EXCLUDES(lock);

private:
    mutable spinlock lock;
    const time_t create_date;
    time_t update_date GUARDED_BY(lock);
    const std::string id;
    std::map<std::string, std::string> values GUARDED_BY(lock);
};

// All sessions, by id. Any thread. Nothing is kept over a restart.
class SessionList {
public:
    static constexpr const char* COOKIE = "__quill_sess";
    // Every request without the cookie makes one, so a flood must not fill the memory: 75 MiB.
    static constexpr std::size_t MOST_SESSIONS = 262144;

    // Counts the time to the first prune from now; without it the first Add prunes.
    static void Init();
    // The id that the client is to use: `id` when it names a session, otherwise that of a new one,
    // which `id` becomes. Empty, as is the result, when no id was free or MOST_SESSIONS are there.
    // `ip` and `user_agent` say whose it is and are not kept. Prunes when the last time is long
    // ago.
    static std::string Add(const std::string& ip, const std::string& user_agent, std::string& id)
        EXCLUDES(session_list_lock);
    // The session, or nothing.
    static std::shared_ptr<Session> Get(const std::string& id) EXCLUDES(session_list_lock);
    static void Remove(const std::string& id) EXCLUDES(session_list_lock);
    // Removes those that nobody read or wrote for an hour.
    static void Prune() EXCLUDES(session_list_lock);

    static std::size_t Count() EXCLUDES(session_list_lock);
    // For tests: where new ids come from.
    static void SetIdSource(std::string (*source)()) EXCLUDES(session_list_lock);

private:
    static bool free_id(std::string& id) REQUIRES(session_list_lock);
    static bool take_prune_turn() REQUIRES(session_list_lock);
    // The next in the order of their ids; nothing behind the last one.
    static std::vector<std::shared_ptr<Session>> sessions_behind(const std::string& id)
        EXCLUDES(session_list_lock);

    // Keys are views of the sessions' own ids.
    static std::map<std::string_view, std::shared_ptr<Session>>
        session_list GUARDED_BY(session_list_lock);
    static spinlock session_list_lock;
    static time_t last_prune GUARDED_BY(session_list_lock);
    static std::string (*id_source)() GUARDED_BY(session_list_lock);
};
