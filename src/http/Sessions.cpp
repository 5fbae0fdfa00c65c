#include "http/Sessions.h"

#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"

#include <utility>

namespace {

constexpr double PRUNE_SECONDS = 300.0;
constexpr double IDLE_SECONDS = 3600.0;
constexpr int ID_ATTEMPTS = 6;
constexpr std::size_t PRUNED_AT_A_TIME = 256;

} // namespace

Session::Session(std::string session_id)
    : create_date(now()), update_date(create_date), id(std::move(session_id)) {}

time_t Session::UpdateDate() const {
    spin_guard guard(lock);
    return update_date;
}

double Session::LifeSpan() const { return difftime(now(), create_date); }

std::string Session::Get(const std::string& key, const std::string& /*default_value*/) {
    spin_guard guard(lock);
    update_date = now();
    const auto found = values.find(key);
    return found == values.end() ? std::string() : found->second;
}

void Session::Set(const std::string& key, const std::string& value) {
    spin_guard guard(lock);
    update_date = now();
    values[key] = value;
}

void Session::Erase(const std::string& key) {
    spin_guard guard(lock);
    update_date = now();
    values.erase(key);
}

std::map<std::string_view, std::shared_ptr<Session>> SessionList::session_list;
spinlock SessionList::session_list_lock;
time_t SessionList::last_prune = 0;
std::string (*SessionList::id_source)() = [] { return GenerateUuid(); };

void SessionList::Init() {
    spin_guard guard(session_list_lock);
    last_prune = now();
}

std::string SessionList::Add(const std::string& /*ip*/, const std::string& /*user_agent*/,
                             std::string& id) {
    bool found = true;
    bool prune = false;
    {
        spin_guard guard(session_list_lock);
        if (id.empty() || !session_list.contains(id)) {
            found = free_id(id);
            if (found) {
                auto session = std::make_shared<Session>(id);
                session_list.emplace(session->Id(), session);
            }
        }
        prune = take_prune_turn();
    }
    if (!found) LogWrite(Log::NORMAL) << "Unable to Generate a Session ID." << std::endl;
    if (prune) Prune();
    return id;
}

std::shared_ptr<Session> SessionList::Get(const std::string& id) {
    spin_guard guard(session_list_lock);
    const auto found = session_list.find(id);
    return found == session_list.end() ? nullptr : found->second;
}

void SessionList::Remove(const std::string& id) {
    std::shared_ptr<Session> removed; // its end, if nobody else holds it, is outside the lock
    spin_guard guard(session_list_lock);
    const auto found = session_list.find(id);
    if (found == session_list.end()) return;
    removed = std::move(found->second);
    session_list.erase(found);
}

// A few at a time, so that no request waits long for the list.
void SessionList::Prune() {
    const time_t moment = now();
    std::string last;
    for (auto some = sessions_behind(last); !some.empty(); some = sessions_behind(last)) {
        last = some.back()->Id();
        for (const auto& session : some)
            if (difftime(moment, session->UpdateDate()) > IDLE_SECONDS) Remove(session->Id());
    }
}

std::vector<std::shared_ptr<Session>> SessionList::sessions_behind(const std::string& id) {
    std::vector<std::shared_ptr<Session>> some;
    some.reserve(PRUNED_AT_A_TIME);
    spin_guard guard(session_list_lock);
    for (auto next = session_list.upper_bound(id);
         next != session_list.end() && some.size() < PRUNED_AT_A_TIME; ++next)
        some.push_back(next->second);
    return some;
}

std::size_t SessionList::Count() {
    spin_guard guard(session_list_lock);
    return session_list.size();
}

void SessionList::SetIdSource(std::string (*source)()) {
    spin_guard guard(session_list_lock);
    id_source = source;
}

// Makes `id` one that no session has. False, and no id, which could be that of somebody else's
// session, when chance does not give one or there are too many.
bool SessionList::free_id(std::string& id) {
    const bool full = session_list.size() >= MOST_SESSIONS;
    for (int attempt = 0; attempt < ID_ATTEMPTS && !full; ++attempt) {
        id = id_source();
        if (!session_list.contains(id)) return true;
    }
    id.clear();
    return false;
}

bool SessionList::take_prune_turn() {
    const time_t moment = now();
    if (difftime(moment, last_prune) <= PRUNE_SECONDS) return false;
    last_prune = moment;
    return true;
}
