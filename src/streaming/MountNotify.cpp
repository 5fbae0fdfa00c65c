// What other servers are told of mounts and listeners, and asked about those who want to listen.
// Applications read these texts, so they stand to the letter.

#include "config/Config.h"
#include "core/OSTools.h"
#include "http/LeadingNumber.h"
#include "http/Request.h"
#include "net/API.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/Notifier.h"
#include "streaming/Receiver.h"

#include <utility>

namespace {

std::string encoded(const std::string& text) { return UrlEncode(text, false); }

std::string server_name() { return encoded(Config::Get("Hostname", false)->GetValue("localhost")); }

unsigned short server_port() {
    return static_cast<unsigned short>(Config::Get("PortBase", false)->GetValue(8000));
}

std::shared_ptr<Request> listener_question(const Receiver& receiver, const std::string& mount,
                                           const MountNotifications& told) {
    const auto sent = receiver.GetRequest();
    return API::PrepareCall(
        told.listener_add, told.user, told.pass,
        "action=listener_add&server=%s&port=%hu&client=%s&mount=%s&user=%s&pass=%s&ip=%s&agent="
        "\"%s\"",
        server_name().c_str(), server_port(), receiver.GetUUID().c_str(), encoded(mount).c_str(),
        encoded(sent->User()).c_str(), encoded(sent->Pass()).c_str(), receiver.GetIP().c_str(),
        encoded(sent->GetHeader("User-Agent")).c_str());
}

} // namespace

// ---- Mounts -------------------------------------------------------------------------------------

void Mount::tell_source_came() const {
    const MountNotifications told = GetNotifications();
    if (told.mount_add.empty()) return;
    Notifier::Post(API::PrepareCall(told.mount_add, told.user, told.pass,
                                    "action=mount_add&mount=%s&server=%s&port=%hu",
                                    encoded(address).c_str(), server_name().c_str(), server_port()),
                   address);
}

void Mount::tell_source_left() const {
    const MountNotifications told = GetNotifications();
    if (told.mount_remove.empty()) return;
    Notifier::Post(API::PrepareCall(told.mount_remove, told.user, told.pass,
                                    "action=mount_remove&mount=%s&server=%s&port=%hu",
                                    encoded(address).c_str(), server_name().c_str(), server_port()),
                   address);
}

// ---- Listeners ----------------------------------------------------------------------------------

// Who decides is the application that has been named, or the listener's account.
Mount::Refusal Mount::ask(const Receiver& receiver, std::shared_ptr<Request>& inquiry) const {
    if (!inquiry) {
        const MountNotifications told = GetNotifications();
        if (told.listener_add.empty()) return refuse_stranger(receiver);
        inquiry = listener_question(receiver, address, told);
    }
    if (inquiry->ContinueRequest() == IO_AGAIN) return {.status = Admission::PENDING};
    return refuse_as_told(*std::exchange(inquiry, nullptr));
}

// The status of the answer does not matter, nor does an answer where nobody needs to be let in.
Mount::Refusal Mount::refuse_as_told(const Request& answer) const {
    if (!auth_required) return {};
    const MountNotifications told = GetNotifications();
    if (answer.GetHeader(told.auth_header) != "1")
        return {.status = Admission::NOT_AUTHORIZED, .words = "Not Authorized"};
    const std::string limit = answer.GetHeader(told.timelimit_header);
    return {.time_limit = leading_number<std::uint64_t>(limit)};
}

// Kept: the name of the server is given as a number. Applications never saw it otherwise.
void Mount::tell_listener_left(const Receiver& receiver, double seconds) const {
    const MountNotifications told = GetNotifications();
    if (told.listener_remove.empty()) return;
    const auto sent = receiver.GetRequest();
    const std::string user = sent->User();
    Notifier::Post(
        API::PrepareCall(told.listener_remove, told.user, told.pass,
                         "action=listener_remove&server=%d&port=%hu&client=%s&mount=%s&user=%s"
                         "&pass=%s&duration=%.0lf",
                         0, server_port(), receiver.GetUUID().c_str(), encoded(address).c_str(),
                         user.empty() ? "Anonymous" : encoded(user).c_str(),
                         encoded(sent->Pass()).c_str(), seconds),
        "");
}
