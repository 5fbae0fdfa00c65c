#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "media/MediaReader.h"
#include "media/Metadata.h"
#include "net/SocketTools.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {
constexpr double BITS = 8;
constexpr double BITRATE_MARGIN = 1.02;
constexpr double BITRATE_SETTLING_TIME = 20; // seconds after a source connected
constexpr const char* FLV_TYPE = "video/x-flv";

std::string peer_of(const Receiver& receiver) { return "<" + receiver.GetIP() + "> "; }

std::string user_of(const Receiver& receiver) {
    const auto account = receiver.GetUserAccount();
    return account ? log_text(account->Username()) : std::string();
}

// The stream that is asked for, in the words of the log.
std::string target_of(const Receiver& receiver, const Request& request) {
    return log_text(receiver.GetInterfaceIP() + ":" + tostring(request.Port()) + request.Path());
}

std::string agent_of(const Request& request) { return log_text(request.GetHeader("User-Agent")); }

bool has_property(const User& user, int mount, const std::shared_ptr<Request>& request) {
    return user.HasProperty(mount, request, false);
}
} // namespace

Admission Mount::RegisterReceiver(const std::shared_ptr<Receiver>& receiver,
                                  std::shared_ptr<Request>& inquiry) {
    Refusal refusal = inquiry ? Refusal() : bar(*receiver);
    if (refusal.status == Admission::ADMITTED) refusal = ask(*receiver, inquiry);
    if (refusal.status == Admission::PENDING) return {.status = Admission::PENDING};
    const std::uint64_t time_limit = refusal.time_limit;
    if (refusal.status == Admission::ADMITTED) refusal = take_in(receiver);
    const auto sent = receiver->GetRequest();
    if (refusal.status != Admission::ADMITTED) {
        LogWrite(2) << peer_of(*receiver) << refusal.words << " [U: " << user_of(*receiver)
                    << "] (A: " << target_of(*receiver, *sent) << ") {UA: " << agent_of(*sent)
                    << "}" << std::endl;
        return {.status = refusal.status};
    }
    LogWrite(2) << peer_of(*receiver) << "Connection Opened [U: " << user_of(*receiver)
                << "] (A: " << target_of(*receiver, *sent) << ") [L: " << receiver_count
                << "] {UA: " << agent_of(*sent) << "} [I: " << receiver->GetUUID() << "]"
                << std::endl;
    // The answer about this one took longer than the mount has lasted.
    if (dismissed) receiver->Kick();
    const bool wrap = !sent->Acceptable(ContentType()) && sent->Acceptable(FLV_TYPE);
    return {.status = wrap ? Admission::ADMITTED_AS_FLV : Admission::ADMITTED,
            .time_limit = time_limit};
}

// What bars a listener whoever it is.
Mount::Refusal Mount::bar(const Receiver& receiver) const {
    if (has_property(*UserList::GetBanUser(), id, receiver.GetRequest()))
        return {.status = Admission::BANNED, .words = "Banned"};
    if (exceeds_bitrate_limit())
        return {.status = Admission::ABOVE_BITRATE, .words = address + " Exceeds Bitrate Limit"};
    return {};
}

// The source itself is left alone, whatever it sends.
bool Mount::exceeds_bitrate_limit() const {
    const auto source = reader.load();
    if (bitrate_limit == 0 || !source) return false;
    const double rate = static_cast<double>(source->GetBytesPerSecond(false)) * BITS;
    return rate > static_cast<double>(bitrate_limit) * BITRATE_MARGIN &&
           difftime(now(), connect_time) > BITRATE_SETTLING_TIME;
}

// Where the accounts decide.
Mount::Refusal Mount::refuse_stranger(const Receiver& receiver) const {
    if (!auth_required) return {};
    const auto account = receiver.GetUserAccount();
    const auto sent = receiver.GetRequest();
    const bool known = account && account->GetGroup() != User::ANONYMOUS;
    if (known &&
        (has_property(*account, User::EVERY_MOUNT, sent) || has_property(*account, id, sent)))
        return {};
    return {.status = Admission::NOT_AUTHORIZED, .words = "Not Authorized"};
}

// Gives the listener a place, for which another may have to go.
Mount::Refusal Mount::take_in(const std::shared_ptr<Receiver>& receiver) {
    std::shared_ptr<Receiver> victim;
    {
        spin_guard guard(receivers_lock);
        if (is_ip_full(receiver->GetIP()))
            return {.status = Admission::FULL, .words = address + " IP Full"};
        if (is_full()) {
            if (!receiver->Vip()) return {.status = Admission::FULL, .words = address + " Full"};
            victim = longest_listener();
            if (!victim) return {.status = Admission::FULL, .words = address + " Reserve Full"};
        }
        count_in(receiver);
    }
    if (!victim) return {};
    LogWrite(2) << peer_of(*receiver) << address << " Kicking " << victim->GetIP()
                << " to make room for new Reserve" << std::endl;
    victim->Kick();
    return {};
}

bool Mount::is_ip_full(const std::string& ip) const {
    const std::int64_t most = ip_max_receivers;
    const auto known = ip_counts.find(ip);
    return most > 0 && known != ip_counts.end() && known->second >= most;
}

bool Mount::is_full() const {
    const std::int64_t most = max_receivers;
    return most >= 0 && receivers.size() >= static_cast<std::uint64_t>(most);
}

// Of those who hold no reserve.
std::shared_ptr<Receiver> Mount::longest_listener() const {
    std::shared_ptr<Receiver> longest;
    for (const auto& [uuid, listener] : receivers)
        if (!listener->Vip() && (!longest || listener->ConnectTime() < longest->ConnectTime()))
            longest = listener;
    return longest;
}

void Mount::count_in(const std::shared_ptr<Receiver>& receiver) {
    if (++ip_counts[receiver->GetIP()] == 1) {
        ++unique_receivers;
        MountList::IncTotalUniqueReceivers(1);
    }
    receivers.insert_or_assign(receiver->GetUUID(), receiver);
    receiver_count = receivers.size();
    peak_receivers = std::max(peak_receivers.load(), receiver_count.load());
    ++tune_ins;
    if (const auto record = current_record()) ++record->tune_ins;
    MountList::IncTotalReceivers(1);
}

void Mount::UnregisterReceiver(const std::shared_ptr<Receiver>& receiver) {
    const Log::ReceiverStats stats = receiver->GetLogStats();
    const auto seconds = static_cast<std::uint64_t>(std::max(stats.connected, 0.0));
    if (!count_out(*receiver, seconds)) {
        LogWrite(2) << peer_of(*receiver) << "Error trying to unregister receiver on " << address
                    << " that is not registered." << std::endl;
        return;
    }
    tell_listener_left(*receiver, stats.connected);
    const int error = receiver->LastError();
    LogWrite(2) << peer_of(*receiver) << "Connection Closed"
                << (error != 0 ? " (" + socket_strerror(error) + ")" : "")
                << " [U: " << user_of(*receiver) << "] [L: " << receiver_count << "] {"
                << stats.sc_bytes << " bytes} (" << seconds << " secs) [I: " << receiver->GetUUID()
                << "]" << std::endl;
    Log::LogReceiver(stats);
}

// False for one that is no listener here.
bool Mount::count_out(const Receiver& receiver, std::uint64_t seconds) {
    std::shared_ptr<Receiver> leaving; // released behind the lock
    spin_guard guard(receivers_lock);
    const auto place = receivers.find(receiver.GetUUID());
    if (place == receivers.end()) return false;
    leaving.swap(place->second);
    receivers.erase(place);
    receiver_count = receivers.size();
    count_out_ip(receiver.GetIP());
    MountList::IncTotalReceivers(-1);
    add_session(seconds);
    return true;
}

void Mount::count_out_ip(const std::string& ip) {
    const auto known = ip_counts.find(ip);
    if (known == ip_counts.end() || --known->second > 0) return;
    ip_counts.erase(known);
    --unique_receivers;
    MountList::IncTotalUniqueReceivers(-1);
}

std::vector<std::shared_ptr<Receiver>> Mount::GetReceiverList() const {
    std::vector<std::shared_ptr<Receiver>> all;
    spin_guard guard(receivers_lock);
    all.reserve(receivers.size());
    for (const auto& [uuid, listener] : receivers)
        all.push_back(listener);
    return all;
}

void Mount::KickReceivers() {
    spin_guard guard(receivers_lock);
    for (const auto& [uuid, listener] : receivers)
        listener->Kick();
}
