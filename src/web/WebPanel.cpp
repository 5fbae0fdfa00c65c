#include "web/WebPanel.h"

#include "http/Request.h"
#include "http/Response.h"
#include "http/StatusText.h"

#include <utility>

WebPanel::WebPanel(std::shared_ptr<Request> request_to_answer)
    : request(std::move(request_to_answer)) {}

// No path is the panel's own yet: every request goes on to the mounts.
int WebPanel::ProcessRequest() { return NOT_A_PAGE; }

std::string WebPanel::BuildErrorPage(int code, const std::string& title,
                                     const std::string& message) {
    const std::string heading = title.empty() ? StatusText(code) : title;
    const std::string words = message.empty() ? StatusText(code) : message;
    return get_page_header(heading) + create_mb(words, heading) + get_page_footer();
}
