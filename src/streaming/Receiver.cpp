#include "streaming/Receiver.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/Clock.h"
#include "http/Request.h"
#include "http/Response.h"
#include "media/BufferEntry.h"
#include "media/MediaWriter.h"
#include "media/PacketBuffer.h"
#include "net/Socket.h"
#include "net/SocketTools.h"
#include "streaming/Mount.h"
#include "streaming/ReceiverList.h"
#include "web/WebPanel.h"

#include <exception>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr int DEFAULT_CLIENT_TIMEOUT = 30; // seconds
constexpr long long OVERDUE_MS = -500;

} // namespace

Receiver::Receiver(std::shared_ptr<Socket> client)
    : connect_time(now()), last_service(connect_time), last_log(connect_time),
      last_send(connect_time),
      client_timeout(Config::Get("ClientTimeout", false)->GetValue(DEFAULT_CLIENT_TIMEOUT)),
      ip(client->GetIP()), interface_ip(client->GetLocalIP()),
      server_hostname(Config::Get("Hostname", false)->GetValue("localhost")),
      uuid(ReceiverList::GenerateUUID()), hostname(ip), request(std::make_shared<Request>(client)),
      account(UserList::Get("", "")), socket(std::move(client)) {}

Receiver::~Receiver() = default;

// ---- The pool side ------------------------------------------------------------------------------

ThreadPool::Priority Receiver::Poll(long long elapsed) {
    if (!ReceiverList::IsOpen()) return ThreadPool::NOTHING;
    if (page_sleeps(elapsed)) return ThreadPool::NOTHING;
    if (!take_turn()) return ThreadPool::NOTHING;
    if (slice_is_due(elapsed)) return priority();
    end_turn();
    return ThreadPool::NOTHING;
}

// A request, or more of one, is read at once. A listener is to say nothing: the slice that finds
// the socket no longer watched looks what it is.
void Receiver::OnArrival() {
    is_watched = false;
    if (Status() != READING) return;
    while (!take_turn()) {
        Turn taken = Turn::TAKEN;
        if (turn.compare_exchange_strong(taken, Turn::WANTED_AGAIN)) return;
        if (taken == Turn::WANTED_AGAIN) return;
    }
    ThreadPool::AddWork(getptr(), ThreadPool::LOW);
}

bool Receiver::take_turn() {
    Turn none = Turn::NONE;
    return turn.compare_exchange_strong(none, Turn::TAKEN, std::memory_order_acquire);
}

void Receiver::end_turn() {
    Turn taken = Turn::TAKEN;
    if (turn.compare_exchange_strong(taken, Turn::NONE, std::memory_order_release)) return;
    turn.store(Turn::TAKEN);
    ThreadPool::AddWork(getptr(), ThreadPool::LOW);
}

bool Receiver::slice_is_due(long long elapsed) {
    if (!process_lock.try_lock()) return false;
    const bool due = wait_ms.fetch_sub(elapsed) <= elapsed || page_has_news();
    process_lock.unlock();
    return due;
}

// Thousands of pages may wait at a time: here one costs the cycle no lock and no look at the panel.
bool Receiver::page_sleeps(long long elapsed) {
    const auto number = news_number.load(std::memory_order_acquire);
    if (!number || number() != news_seen.load(std::memory_order_relaxed)) return false;
    return wait_ms.fetch_sub(elapsed) > elapsed;
}

// The number is read before the news are asked for, so that none fall between.
bool Receiver::page_has_news() {
    if (!page_waits) return false;
    const WebPanel::NewsNumber number = web_panel->GetNewsNumber();
    const std::uint64_t seen = number ? number() : 0;
    if (web_panel->HasNews()) return true;
    news_seen.store(seen, std::memory_order_relaxed);
    news_number.store(number, std::memory_order_release);
    return false;
}

ThreadPool::Priority Receiver::priority() const {
    const int state = Status();
    if (state == READING || state == RUNNING || kicked) return ThreadPool::LOW;
    std::shared_ptr<Mount> attached;
    {
        spin_guard guard(name_lock);
        attached = mount;
    }
    if (!attached) return ThreadPool::LOW;
    const bool overdue = wait_ms < OVERDUE_MS;
    if (overdue || !attached->IsConnected() || !packet_buffer || !packets.Empty())
        return ThreadPool::NORMAL;
    return ThreadPool::LOW;
}

void Receiver::Process() {
    if (!process_lock.try_lock()) {
        end_turn();
        return;
    }
    turn.store(Turn::TAKEN, std::memory_order_relaxed);
    if (ReceiverList::IsOpen()) serve();
    const bool leaves = left_list;
    process_lock.unlock();
    // One that has left keeps its turn, so that a poll that is under way does not queue it again.
    if (!leaves) end_turn();
}

// Whatever goes wrong in a slice ends this connection and no other.
void Receiver::serve() {
    try {
        slice();
    } catch (const std::exception& error) {
        LogWrite(2) << peer() << "Receiver ended by an error: " << log_text(error.what())
                    << std::endl;
        if (Status() != FINISHED) become(ENDING);
        after_answer = Then::NOTHING;
    }
}

void Receiver::slice() {
    if (Status() == FINISHED) {
        LogWrite(2) << "Somethings wrong here" << std::endl;
        leave_list();
        return;
    }
    last_service.store(now(), std::memory_order_relaxed);
    wait_ms = 0;

    if (peer_is_gone())
        become(ENDING);
    else if (Status() == READING)
        read_request();

    const bool was_listener = is_listener();
    if (Status() == RUNNING) run_long_answer();
    // Read as far as it went, unless another request has come with the last.
    if (Status() == READING && !kicked) watch_socket();
    if (Status() == FINISHED) return;
    // What a stream wrote last gets one more slice to leave in.
    if (was_listener && Status() == ENDING) return;
    if (Status() == ENDING || kicked) tear_down();
}

// Looks for the peer's end with one peeked byte: a listener's socket is only written otherwise.
// While an answer or a farewell leaves, the sending notices; a peer that has said all it wants to
// say may close its end before it reads. A listener about whom another server is asked is taken in
// first, so that this server hears of the leave as it heard of the join.
bool Receiver::peer_is_gone() {
    if (after_answer != Then::NOTHING || body_ended || inquiry) return false;
    if (is_listener() && is_watched) return false;
    char byte = 0;
    const int result = socket->Recv(&byte, 1, MSG_PEEK, 0);
    if (is_listener() && result == IO_AGAIN) watch_socket();
    // What a peer has said behind the request of a waiting page would hide its end for ever.
    const bool closed = result == IO_END || (page_waits && socket->PeerHasClosed());
    if (!closed && result != IO_FAILED) return false;
    if (response) response->SetLastError(closed ? 0 : socket->GetLastError());
    LogWrite(2) << peer() << "Receiver disconnected during recv check with empty buffer"
                << std::endl;
    return true;
}

void Receiver::watch_socket() {
    if (is_watched.exchange(true)) return;
    if (!ArrivalWatch::Watch(*socket, weak_from_this())) is_watched = false;
}

// Before the socket is closed or becomes somebody else's.
void Receiver::stop_watching() {
    if (is_watched.exchange(false)) ArrivalWatch::Forget(*socket);
}

void Receiver::run_long_answer() {
    if (after_answer != Then::NOTHING)
        finish_answer();
    else if (web_panel)
        continue_page();
    else if (inquiry)
        continue_admission();
    else
        stream();
}

bool Receiver::is_listener() const {
    return Status() == RUNNING && after_answer == Then::NOTHING && !web_panel && !inquiry;
}

double Receiver::seconds_since(time_t moment) const {
    return difftime(last_service.load(std::memory_order_relaxed), moment);
}

void Receiver::OnNewPacket(const std::shared_ptr<BufferEntry>& packet) { packets.Push(packet); }

// The flag first: a slice that sets a wait looks at the flag afterwards.
void Receiver::Kick() {
    kicked = true;
    wait_ms = 0;
}

bool Receiver::Detached() {
    if (!process_lock.try_lock()) return false;
    const bool finished = Status() == FINISHED;
    process_lock.unlock();
    return finished;
}

// ---- What others read ---------------------------------------------------------------------------

template <typename T> void Receiver::assign(std::shared_ptr<T>& field, std::shared_ptr<T> next) {
    spin_guard guard(name_lock);
    field.swap(next);
}

template void Receiver::assign(std::shared_ptr<Request>&, std::shared_ptr<Request>);
template void Receiver::assign(std::shared_ptr<Response>&, std::shared_ptr<Response>);
template void Receiver::assign(std::shared_ptr<METADATA>&, std::shared_ptr<METADATA>);
template void Receiver::assign(std::shared_ptr<User>&, std::shared_ptr<User>);

void Receiver::set_mounts(std::shared_ptr<Mount> next, std::shared_ptr<Mount> origin) {
    spin_guard guard(name_lock);
    mount.swap(next);
    origin_mount.swap(origin);
}

std::string Receiver::GetHostname() const {
    spin_guard guard(name_lock);
    return hostname;
}

void Receiver::ResolveHostname() {
    if (GetHostname() != ip) return;
    std::string name = GetIPHostname(ip);
    spin_guard guard(name_lock);
    hostname.swap(name);
}

std::shared_ptr<Request> Receiver::GetRequest() const {
    spin_guard guard(name_lock);
    return request;
}

std::shared_ptr<Mount> Receiver::GetMount() const {
    spin_guard guard(name_lock);
    return origin_mount ? origin_mount : mount;
}

std::string Receiver::ActiveMount() const {
    std::shared_ptr<Mount> played;
    {
        spin_guard guard(name_lock);
        if (origin_mount) played = mount;
    }
    return played ? played->Address() : "";
}

std::shared_ptr<User> Receiver::GetUserAccount() const {
    spin_guard guard(name_lock);
    return account;
}

std::shared_ptr<Response> Receiver::get_response() const {
    spin_guard guard(name_lock);
    return response;
}

int Receiver::LastError() const {
    const std::shared_ptr<Response> current = get_response();
    return current ? current->LastError() : 0;
}

std::uint64_t Receiver::BytesSent() const {
    const std::shared_ptr<Response> current = get_response();
    return current ? current->BytesSent() : 0;
}

std::uint64_t Receiver::GetBitrate(bool recent) const {
    const std::shared_ptr<Response> current = get_response();
    return current ? current->GetBytesPerSecond(recent) : 0;
}

double Receiver::GetConnectTime() const { return difftime(now(), connect_time); }

Log::ReceiverStats Receiver::GetLogStats() const {
    Log::ReceiverStats stats;
    std::shared_ptr<Request> asked;
    std::shared_ptr<Response> answered;
    std::shared_ptr<METADATA> heard;
    {
        spin_guard guard(name_lock);
        stats.c_dns = hostname;
        asked = request;
        answered = response;
        heard = metadata;
    }
    stats.s_ip = interface_ip;
    stats.s_dns = server_hostname;
    stats.c_ip = ip;
    stats.cs_username = asked->User();
    // Kept: the number of the method as one byte, not its word. Log readers know it in this form.
    stats.cs_method = static_cast<char>(asked->Method());
    stats.cs_uri_stem = asked->Path();
    stats.cs_uri_query = asked->Query();
    stats.cs_user_agent = asked->GetHeader("User-Agent");
    stats.connected = GetConnectTime();
    stats.time_taken = difftime(now(), last_log.load(std::memory_order_relaxed));
    if (answered) {
        stats.sc_bytes = answered->BytesSent();
        stats.cs_version = answered->Version();
        stats.sc_status = answered->Status();
    }
    if (heard) stats.x_metatitle = heard->title;
    return stats;
}
