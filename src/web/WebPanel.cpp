#include "web/WebPanel.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "http/Request.h"
#include "http/Response.h"
#include "http/StatusText.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"

#include <algorithm>
#include <iterator>
#include <utility>

using html::Markup;

namespace {

bool is_pseudo_user(const std::shared_ptr<User>& user) {
    return user == UserList::GetAnonymousUser() || user == UserList::GetBanUser() ||
           user == UserList::GetReserveUser();
}

std::vector<std::shared_ptr<Mount>> mounts_managed_by(const std::shared_ptr<User>& user) {
    if (is_pseudo_user(user)) return {};
    std::vector<std::shared_ptr<Mount>> mounts = MountList::GetAllMountsByCredentials(user, false);
    std::erase_if(mounts,
                  [&](const auto& mount) { return !user->IsMountSourceUser(mount->GetID()); });
    return mounts;
}

} // namespace

WebPanel::WebPanel(const std::shared_ptr<Request>& request_to_answer) {
    SetRequest(request_to_answer);
}

WebPanel::~WebPanel() {
    if (log_receiver_id >= 0) Log::RemoveLogReceiver(log_receiver_id, Log::EVENT_LOG);
}

void WebPanel::SetRequest(const std::shared_ptr<Request>& request_to_answer) {
    request = request_to_answer;
    user = request ? UserList::Get(request) : UserList::GetAnonymousUser();
    panel_mounts = mounts_managed_by(user);
    panel_time = now();
}

bool WebPanel::is_admin() const { return user->GetGroup() == User::ADMINISTRATOR; }

// ---- Routes -------------------------------------------------------------------------------------

// Tried from the top; the first that does not go on has answered. The method plays no part.
const WebPanel::Route WebPanel::ROUTES[] = {
    {Match::IS, "/robots.txt", &WebPanel::send_robots},
    {Match::IS, "/crossdomain.xml", &WebPanel::send_crossdomain},
    {Match::IS, "/index.html", &WebPanel::send_home_page},
    {Match::IS, "/", &WebPanel::show_home_unless_mount},
    {Match::STARTS_WITH, "/view/", &WebPanel::show_view},
    {Match::STARTS_WITH, "/about", &WebPanel::send_about_page},
    {Match::STARTS_WITH, "/admin", &WebPanel::show_admin},
    {Match::IS, "/status.xml", &WebPanel::show_xml_feed},
    {Match::IS, "/status.json", &WebPanel::show_json_feed},
    {Match::IS, "/7", &WebPanel::show_comma_feed},
    {Match::IS, "/7.html", &WebPanel::show_comma_feed},
    {Match::STARTS_WITH, "/sbin/tunein", &WebPanel::show_tunein},
    {Match::IS, "/favicon.ico", &WebPanel::send_asset},
    {Match::IS, "/images/logo.png", &WebPanel::send_asset},
    {Match::IS, "/images/quillwave.png", &WebPanel::send_asset},
    {Match::IS, "/images/play.png", &WebPanel::send_asset},
    {Match::IS, "/images/stop.png", &WebPanel::send_asset},
    {Match::IS, "/flash/quillwave.swf", &WebPanel::send_asset},
    {Match::IS, "/stylesheets/main.css", &WebPanel::send_asset},
};

int WebPanel::ProcessRequest() {
    if (!request) return NOT_A_PAGE;
    panel_time = now();
    redirected = false;
    if (log_receiver_id >= 0) return continue_log_tail();
    const int result = answer_by(ROUTES);
    return result == GO_ON ? NOT_A_PAGE : result;
}

// Who looks at "/" or at a playlist may get the mount there.
bool WebPanel::Shadows(const std::string& path) {
    return std::any_of(std::begin(ROUTES), std::end(ROUTES), [&](const Route& route) {
        const bool goes_on = route.answer == &WebPanel::show_home_unless_mount ||
                             route.answer == &WebPanel::show_tunein;
        return !goes_on && matches(route, path);
    });
}

int WebPanel::answer_by(std::span<const Route> routes) {
    const std::string path = request->Path();
    for (const Route& route : routes) {
        if (!matches(route, path)) continue;
        if (route.access == Access::ADMINISTRATORS && !is_admin()) continue;
        const int result = (this->*route.answer)();
        if (result != GO_ON) return result;
    }
    return GO_ON;
}

bool WebPanel::matches(const Route& route, std::string_view path) {
    return route.match == Match::IS ? path == route.path : path.starts_with(route.path);
}

// A player at "/" is after the stream there, a browser after the page.
int WebPanel::show_home_unless_mount() {
    const bool browser = request->GetHeader("User-Agent").find("Mozilla") != std::string::npos;
    return browser || !MountList::GetMount("/") ? send_home_page() : GO_ON;
}

int WebPanel::show_tunein() { return request->GetQuery("mnt").empty() ? GO_ON : send_tunein(); }

// ---- Feeds --------------------------------------------------------------------------------------

// With `wfc` (wait for change) the feed is sent when there is something new in it.
bool WebPanel::waits_for_change() { return !request->GetQuery("wfc").empty() && !stats_changed(); }

int WebPanel::show_xml_feed() {
    if (waits_for_change()) return IN_PROGRESS;
    send_xml_stats();
    return ANSWERED;
}

int WebPanel::show_json_feed() {
    if (waits_for_change()) return IN_PROGRESS;
    send_json_stats();
    return ANSWERED;
}

int WebPanel::show_comma_feed() {
    send_comma_delimited_stats();
    return ANSWERED;
}

// -------------------------------------------------------------------------------------------------

std::string WebPanel::BuildErrorPage(int code, const std::string& title,
                                     const html::Markup& message) {
    const std::string heading = title.empty() ? StatusText(code) : title;
    const Markup words = message.empty() ? Markup(StatusText(code)) : message;
    return (get_page_header(heading) + create_mb(words, heading) + get_page_footer()).str();
}

std::shared_ptr<Mount> WebPanel::get_mount_by_address(const std::string& address) const {
    const auto place = std::find_if(panel_mounts.begin(), panel_mounts.end(),
                                    [&](const auto& mount) { return mount->Address() == address; });
    return place == panel_mounts.end() ? nullptr : *place;
}

std::shared_ptr<Mount> WebPanel::get_mount_by_id(int id) const {
    const auto place = std::find_if(panel_mounts.begin(), panel_mounts.end(),
                                    [id](const auto& mount) { return mount->GetID() == id; });
    return place == panel_mounts.end() ? nullptr : *place;
}
