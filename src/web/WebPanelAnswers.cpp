// What the panel sends: whole pages and documents, a redirect, a question for a login.

#include "http/Request.h"
#include "http/Response.h"
#include "web/WebPanel.h"

#include <string>

using html::Markup;

// The footer first: all that the page wants in its head must be known before the head is built.
void WebPanel::page_wrap(const Markup& content, const std::string& title, unsigned int status) {
    if (redirected || is_still_answering()) return;
    const Markup footer = get_page_footer();
    send_final((get_page_header(title) + content + footer).str(), "text/html; charset=UTF-8",
               status, false);
}

// The answer before has not left yet. What is sent now would land in the middle of it.
bool WebPanel::is_still_answering() const { return response && response->GetBytesBuffered() > 0; }

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
    response->SendDocument(body);
}

void WebPanel::send_redirect(const std::string& location) {
    redirected = true;
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
