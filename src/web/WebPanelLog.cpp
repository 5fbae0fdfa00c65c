// The event log as it is written: the page, and the endless document in its frame.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Log.h"
#include "http/Request.h"
#include "http/Response.h"
#include "net/Socket.h"
#include "web/WebPanel.h"

#include <string>

namespace {

const std::string LOG_SCROLL_SCRIPT = R"(
document.addEventListener("readystatechange", function () {
  if (document.readyState == "interactive" && document.getElementById("log_window")) pageScroll();
});
)";

const std::string PAGE_SCROLL_SCRIPT = R"(
var numUnits = 0;
function pageScroll() {
  numUnits++;
  document.getElementById("log_window").contentWindow.scrollTo(0, numUnits * 10);
  setTimeout(pageScroll, 10);
}
)";

// Log lines hold what strangers sent: no script in them may run beside the panel's own.
const html::Attributes LOG_FRAME = {
    {"id", "log_window"}, {"src", "/admin/tail/log"},       {"width", "100%"},
    {"height", "100%"},   {"sandbox", "allow-same-origin"}, {"title", "Event log"}};

} // namespace

int WebPanel::show_log() {
    send_log_page();
    return ANSWERED;
}

void WebPanel::send_log_page() {
    head_extra += html::script(LOG_SCROLL_SCRIPT);
    page_wrap(html::script(PAGE_SCROLL_SCRIPT) + html::element("h2", "Event Log:") +
                  html::element("iframe", LOG_FRAME, {}),
              "Quillwave Administration - Log", 200);
}

// Without type or length: the log has no end. To a HEAD the head is the whole answer.
int WebPanel::tail_log() {
    response = std::make_shared<Response>(request, 200, "");
    response->SendHeader("");
    if (request->Method() == Request::METHOD_HEAD) return ANSWERED;
    log_receiver_id = Log::AddLogReceiver(Log::EVENT_LOG);
    return send_log_lines();
}

// Who has lost the right to the log meanwhile gets no more of it, and the end of the connection,
// for nothing else tells the end of a log.
int WebPanel::continue_log_tail() {
    user = UserList::Get(request);
    if (is_admin()) return send_log_lines();
    request->ForgoKeepAlive();
    return ANSWERED;
}

int WebPanel::send_log_lines() {
    for (const std::string& line : Log::QueryLog(log_receiver_id, Log::EVENT_LOG))
        response->Buffer(line + "\r\n");
    return response->SendBuffer() == IO_FAILED ? ANSWERED : IN_PROGRESS;
}
