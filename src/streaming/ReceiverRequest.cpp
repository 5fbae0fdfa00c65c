// Reading a request, and telling what it asks for.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "http/Response.h"
#include "media/MediaWriter.h"
#include "net/NameLookupThread.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverOutput.h"
#include "web/WebPanel.h"

#include <utility>

namespace {

constexpr double ANSWERED_TIMEOUT_SECONDS = 60; // answered with a 408
constexpr double HEAD_TIMEOUT_SECONDS = 15;
constexpr long long PAGE_WAIT_MS = 10000; // until a page without news looks for its peer again

bool is_served(int method) {
    switch (method) {
    case Request::METHOD_GET:
    case Request::METHOD_HEAD:
    case Request::METHOD_POST:
    case Request::METHOD_OPTIONS:
    case Request::METHOD_PUT:
    case Request::METHOD_SOURCE:
        return true;
    default:
        return false;
    }
}

bool wants_head_only(int method) {
    return method == Request::METHOD_HEAD || method == Request::METHOD_OPTIONS;
}

// Who the credentials of a request stand for. Both are needed: a name alone is no login.
std::shared_ptr<User> account_of(const std::string& user, const std::string& pass) {
    if (user.empty() || pass.empty()) return UserList::GetAnonymousUser();
    return UserList::Get(user, pass);
}

// The mount whose stream a listener of `mount` gets now, or null.
std::shared_ptr<Mount> mount_to_play(const std::shared_ptr<Mount>& mount) {
    if (mount->IsConnected()) return mount;
    const std::shared_ptr<Mount> fallback = mount->GetFallbackMount();
    return fallback && fallback->IsConnected() ? fallback : nullptr;
}

// Whether some of an answer waits for its way out, so that no other may be sent yet.
bool is_leaving(const std::shared_ptr<Response>& answer) {
    return answer && answer->GetBytesBuffered() > 0;
}

std::string user_agent(const Request& request) { return log_text(request.GetHeader("User-Agent")); }

} // namespace

// ---- Reading ------------------------------------------------------------------------------------

void Receiver::read_request() {
    const int result = request->ReadRequest();
    if (result == IO_FAILED) answer_read_failure();
    if (request->Method() == Request::METHOD_ICY_LOGIN) {
        greet_icy_source(result);
        if (Status() == FINISHED) return;
    } else if (request->Complete() && request->FormComplete()) {
        answer_request();
        return;
    }
    check_reading_limits(result);
}

void Receiver::answer_read_failure() {
    const int code = request->GetErrorCode();
    become(ENDING);
    if (code <= 0) return;
    start_answer(static_cast<unsigned short>(code))
        .SendHeader(WebPanel(request).BuildErrorPage(code, "", ""));
    end_answer();
}

// How long a request may take to arrive. Counted from the connection's start, so a kept connection
// is good for requests that arrive within its first 15 seconds.
void Receiver::check_reading_limits(int read_result) {
    const double connected = seconds_since(connect_time);
    if (connected > ANSWERED_TIMEOUT_SECONDS && !request->KeepAlive()) {
        start_answer(408).SendHeader("");
        end_answer();
    }
    if (read_result == IO_FAILED) become(ENDING);
    if (connected > HEAD_TIMEOUT_SECONDS && Status() == READING && !request->Complete())
        become(ENDING);
}

// ---- Judging ------------------------------------------------------------------------------------

// One request, in the order in which it is judged. Every step answers, or leaves it to the next.
void Receiver::answer_request() {
    if (refused_as_invalid() || refused_as_banned() || refused_by_method()) return;
    identify_account();
    if (answered_by_panel() || refused_as_unknown_mount() || taken_as_source()) return;
    if (refused_without_source() || refused_by_admission()) return;
    start_listening();
}

bool Receiver::refused_as_invalid() {
    if (request->Valid()) return false;
    LogWrite(1) << peer() << "Receiver invalid request." << std::endl;
    start_answer(400).SendHeader("");
    end_answer();
    return true;
}

bool Receiver::refused_as_banned() {
    if (!UserList::GetBanUser()->HasProperty(User::EVERY_MOUNT, request, false)) return false;
    LogWrite(2) << peer() << "Banned user" << std::endl;
    Response& answer = start_answer(403);
    answer.SetHeader("Content-Type", "text/plain");
    answer.SendHeader("Forbidden");
    end_answer();
    return true;
}

bool Receiver::refused_by_method() {
    if (is_served(request->Method())) return false;
    Response& answer = start_answer(405);
    answer.SetHeader("Allow", "GET,HEAD,POST,PUT,OPTIONS,SOURCE");
    answer.SendHeader(WebPanel(request).BuildErrorPage(
        405, "",
        html::raw("An inappropriate method was requested.  See 'Allow' Header for more details.")));
    LogWrite(2) << peer() << "Invalid Method Requested [" << request->MethodString() << "] "
                << asked_for() << std::endl;
    conclude();
    return true;
}

void Receiver::identify_account() { assign(account, account_of(request->User(), request->Pass())); }

bool Receiver::answered_by_panel() {
    web_panel = std::make_shared<WebPanel>(request);
    const int result = web_panel->ProcessRequest();
    if (result == WebPanel::IN_PROGRESS) {
        become(RUNNING);
        page_waits = true;
        return true;
    }
    if (result == WebPanel::NOT_A_PAGE && !is_leaving(web_panel->GetResponse())) {
        web_panel.reset();
        return false;
    }
    if (Config::Get("WebLog", false)->GetValue(true))
        LogWrite(2) << peer() << "WEB REQ: " << request->GetLocalIP() << ":" << request->Port()
                    << log_text(request->Path()) << " {UA: " << user_agent(*request)
                    << "} |R: " << log_text(request->GetHeader("Referer")) << "| [I: " << uuid
                    << "]" << std::endl;
    finish_page();
    return true;
}

bool Receiver::refused_as_unknown_mount() {
    set_mounts(MountList::GetMount(UrlDecode(request->Path()), request->GetLocalIP(),
                                   std::to_string(request->Port())),
               nullptr);
    if (mount) {
        LogWrite(1) << peer() << "Receiver media found." << std::endl;
        return false;
    }
    Response& answer = start_answer(404);
    if (request->GetPreferredProtocol() == Request::PROTOCOL_ICY) {
        answer.SetProtocol(Response::ICY, 1.0F);
        answer.SendHeader("");
    } else {
        answer.SetHeader("Content-Type", "text/html");
        answer.SendHeader(WebPanel(request).BuildErrorPage(
            404, "Page Not Found", "The requested resource could not be located"));
    }
    LogWrite(2) << peer() << "Invalid Resource Request " << asked_for() << std::endl;
    conclude();
    return true;
}

bool Receiver::taken_as_source() {
    const int method = request->Method();
    if (method != Request::METHOD_SOURCE && method != Request::METHOD_PUT) return false;
    if (mount->IsConnected() || !mount->IsRunning()) return false;
    if (account->GetGroup() == User::ANONYMOUS) return false;
    answer_http_source();
    return true;
}

bool Receiver::refused_without_source() {
    if (mount_to_play(mount)) return false;
    if (request->GetPreferredProtocol() == Request::PROTOCOL_ICY) {
        Response& answer = start_answer(401, "No Source");
        answer.SetProtocol(Response::ICY, 1.0F);
        answer.SendHeader("");
    } else {
        Response& answer = start_answer(503);
        answer.SetHeader("Content-Type", "text/html");
        answer.SendHeader(WebPanel(request).BuildErrorPage(509, "Mount has no source",
                                                           "Mount source is unavailable."));
    }
    LogWrite(2) << peer() << "No Source " << asked_for() << std::endl;
    conclude();
    return true;
}

// The mount asked for admits, also when its fallback is to be played. Another server may have to be
// asked, and then nothing is decided yet.
bool Receiver::refused_by_admission() {
    if (!inquiry) vip = is_reserved();
    const Admission admission = mount->RegisterReceiver(getptr(), inquiry);
    if (admission.status == Admission::PENDING) {
        become(RUNNING);
        return true;
    }
    time_limit = admission.time_limit;
    admission_status = admission.status;
    if (admission.status == Admission::ADMITTED || admission.status == Admission::ADMITTED_AS_FLV)
        return false;
    Response& answer = start_answer(451);
    answer.SetHeader("Content-Type", "text/html");
    answer.SendHeader(WebPanel(request).BuildErrorPage(
        451, "Unavailable For Legal Reasons", "Access to this server has been terminated."));
    conclude();
    return true;
}

void Receiver::continue_admission() {
    if (is_moving)
        finish_move();
    else if (!refused_by_admission())
        start_listening();
}

// Without a source of its own a mount has its connected fallback played; admission and figures stay
// with the mount asked for. Sources may have come and gone while another server was asked, so that
// only now it is told which of the two it is.
void Receiver::choose_played_mount() {
    std::shared_ptr<Mount> played = mount_to_play(mount);
    if (played && played != mount) set_mounts(std::move(played), mount);
}

void Receiver::start_listening() {
    NameLookupThread::AddReceiver(getptr());
    choose_played_mount();
    ListenerOutput output =
        open_listener_output(request, *mount, admission_status == Admission::ADMITTED_AS_FLV);
    assign(response, std::move(output.response));
    writer = std::move(output.writer);
    if (wants_head_only(request->Method())) {
        leave_mount();
        conclude();
    } else {
        become(RUNNING);
    }
}

bool Receiver::is_reserved() const {
    const std::shared_ptr<User> reserve = UserList::GetReserveUser();
    return reserve->HasProperty(User::EVERY_MOUNT, request, false) ||
           reserve->HasProperty(mount->GetID(), request, false);
}

// What was asked for by whom, as refusals are logged.
std::string Receiver::asked_for() const {
    return "(" + log_text(request->Path()) + ") {UA: " + user_agent(*request) + "}";
}

// ---- Pages of the panel -------------------------------------------------------------------------

void Receiver::continue_page() {
    news_number = nullptr;
    if (web_panel->HasNews() && web_panel->ProcessRequest() != WebPanel::IN_PROGRESS)
        finish_page();
    else
        wait_ms = PAGE_WAIT_MS;
}

void Receiver::finish_page() {
    assign(response, web_panel->GetResponse());
    drop_page();
    if (request->KeepAlive())
        answer_then(Then::NEXT_REQUEST);
    else
        end_answer();
}

void Receiver::drop_page() {
    page_waits = false;
    news_number = nullptr;
    web_panel.reset();
}
