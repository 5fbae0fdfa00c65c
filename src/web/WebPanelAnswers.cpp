// What the panel sends: whole pages and documents, a redirect, a question for a login.

#include "http/Request.h"
#include "http/Response.h"
#include "web/WebPanel.h"

#include <string>

using html::Markup;

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
const html::Attributes LOG_FRAME = {{"id", "log_window"},
                                    {"src", "/admin/tail/log"},
                                    {"width", "100%"},
                                    {"height", "100%"},
                                    {"sandbox", "allow-same-origin"}};

} // namespace

// The footer first: all that the page wants in its head must be known before the head is built.
void WebPanel::page_wrap(const Markup& content, const std::string& title, unsigned int status) {
    const Markup footer = get_page_footer();
    send_final((get_page_header(title) + content + footer).str(), "text/html; charset=UTF-8",
               status, false);
}

void WebPanel::send_final(const std::string& body, const std::string& content_type,
                          unsigned int status, bool cors) {
    response = std::make_shared<Response>(request, static_cast<unsigned short>(status), "");
    if (status == 401) response->RequireAuthorization("Quillwave Server");
    response->SetHeader("Content-Type", content_type);
    response->SetHeader("Content-Length", std::to_string(body.size()));
    response->SetHeader("Cache-Control", "no-store, no-cache, must-revalidate");
    response->SetHeader("Pragma", "no-cache");
    response->SetHeader("Expires", "Mon, 25 Jan 2002 10:11:57 GMT");
    if (cors) response->SetHeader("Access-Control-Allow-Origin", "*");
    response->SendHeader(body);
}

void WebPanel::send_redirect(const std::string& location) {
    response = std::make_shared<Response>(request, 303, "");
    response->SetHeader("Content-Length", "0");
    response->SetHeader("Location", location);
    response->SendHeader("");
}

void WebPanel::send_authentication_request() {
    page_wrap(
        create_mb("You must autheticate to use the Administration panel.", "Not Authenticated"),
        "Not Authenticated", 401);
}

void WebPanel::send_log_page() {
    head_extra += html::script(LOG_SCROLL_SCRIPT);
    page_wrap(html::script(PAGE_SCROLL_SCRIPT) + html::element("h2", "Event Log:") +
                  html::element("iframe", LOG_FRAME, {}),
              "Quillwave Administration - Log", 200);
}
