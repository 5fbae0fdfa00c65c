// What lies below /admin: who gets which page of the panel.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "http/Request.h"
#include "web/WebPanel.h"

#include <string>
#include <string_view>

using html::Markup;

namespace {

constexpr std::string_view ADMIN = "/admin";

// One of the panel's tabs, shown at `path`.
struct PanelTab {
    const char* label;
    const char* path;
    bool for_administrators;
};
constexpr PanelTab PANEL_TABS[] = {
    {"Streams", "/admin", false},
    {"Listeners", "/admin/listeners", false},
    {"Settings", "/admin/configure", true},
    {"Mount Defaults", "/admin/configure_defaults", true},
};

// A list of accounts, chosen by query `m`.
struct AccountTab {
    const char* label;
    const char* key;
};
constexpr AccountTab ACCOUNT_TABS[] = {{"Users", "u"}, {"Bans", "b"}, {"Reserves", "v"}};

std::string behind_last_slash(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool is_index(std::string_view path) {
    return path == ADMIN || path == "/admin/" || path == "/admin/index.html";
}

} // namespace

// Tried from the top; the first that does not go on has answered.
const WebPanel::Route WebPanel::ADMIN_STEPS[] = {
    {Match::STARTS_WITH, ADMIN, &WebPanel::take_title_from_source},
    {Match::STARTS_WITH, ADMIN, &WebPanel::ask_for_login},
    {Match::IS, "/admin/metadata", &WebPanel::take_title_from_manager},
    {Match::IS, "/admin/log", &WebPanel::show_log, Access::ADMINISTRATORS},
    {Match::IS, "/admin/tail/log", &WebPanel::tail_log, Access::ADMINISTRATORS},
    {Match::IS, "/admin/status.xml", &WebPanel::show_admin_xml},
    {Match::IS, "/admin/status.json", &WebPanel::show_admin_json},
    {Match::STARTS_WITH, "/admin/receiver/", &WebPanel::show_receiver},
    {Match::IS, "/admin/users", &WebPanel::show_users, Access::ADMINISTRATORS},
    {Match::STARTS_WITH, "/admin/stream/", &WebPanel::show_stream},
    {Match::STARTS_WITH, ADMIN, &WebPanel::show_only_stream},
    {Match::STARTS_WITH, ADMIN, &WebPanel::refuse_manager_of_few},
    {Match::IS, "/admin/listeners", &WebPanel::show_listeners},
    {Match::IS, "/admin/configure", &WebPanel::show_settings, Access::ADMINISTRATORS},
    {Match::IS, "/admin/configure_defaults", &WebPanel::show_defaults, Access::ADMINISTRATORS},
    {Match::IS, ADMIN, &WebPanel::show_overview},
    {Match::IS, "/admin/", &WebPanel::show_overview},
    {Match::IS, "/admin/index.html", &WebPanel::show_overview},
    {Match::STARTS_WITH, ADMIN, &WebPanel::show_missing_page},
};

int WebPanel::show_admin() { return answer_by(ADMIN_STEPS); }

int WebPanel::ask_for_login() {
    if (!panel_mounts.empty() || is_admin()) return GO_ON;
    send_authentication_request();
    return ANSWERED;
}

int WebPanel::show_admin_xml() {
    send_xml_stats();
    return ANSWERED;
}

int WebPanel::show_admin_json() {
    send_json_stats();
    return ANSWERED;
}

int WebPanel::show_receiver() {
    const std::string uuid = behind_last_slash(request->Path());
    page_wrap(create_mb(create_receiver_stats(uuid), "Receiver Stats for " + uuid), "", 200);
    return ANSWERED;
}

int WebPanel::show_users() {
    const std::string asked = request->GetQuery("m");
    const std::string shown = asked == "b" || asked == "v" ? asked : "u";
    Tabs tabs;
    for (const AccountTab& tab : ACCOUNT_TABS)
        tabs.emplace_back(tab.label, tab.key == shown ? "" : std::string("?m=") + tab.key);
    const Markup content = shown == "u"
                               ? create_user_list(User::EVERY_MOUNT)
                               : create_property_list(shown == "b" ? UserList::GetBanUser()
                                                                   : UserList::GetReserveUser(),
                                                      User::EVERY_MOUNT);
    page_wrap(create_tab(tabs, content), "", 200);
    return ANSWERED;
}

// The tabbed pages are for who has more than one stream to manage.
int WebPanel::refuse_manager_of_few() {
    if (panel_mounts.size() >= 2 || is_admin()) return GO_ON;
    return not_found("Page Not Found", "The requested page does not exist.");
}

int WebPanel::show_listeners() { return page_of_panel(create_listener_stats(-1)); }

int WebPanel::show_settings() { return page_of_panel(create_root_config()); }

int WebPanel::show_defaults() { return page_of_panel(create_mount_config(-1)); }

int WebPanel::show_overview() {
    player_enabled = true;
    return page_of_panel(create_overall_stats());
}

// Kept: an empty page follows the refusal. Scripts of running installations look for its 200. The
// connection ends with it, for there it would be taken for the answer to the next request.
int WebPanel::show_missing_page() {
    request->ForgoKeepAlive();
    not_found("Page Not Found", "The requested page does not exist.");
    page_wrap({}, "Administration Panel", 200);
    return ANSWERED;
}

int WebPanel::page_of_panel(const Markup& content) {
    const std::string path = request->Path();
    const std::string shown = is_index(path) ? std::string(ADMIN) : path;
    Tabs tabs;
    for (const PanelTab& tab : PANEL_TABS)
        if (!tab.for_administrators || is_admin())
            tabs.emplace_back(tab.label, tab.path == shown ? "" : tab.path);
    page_wrap(create_tab(tabs, content), "Administration Panel", 200);
    return ANSWERED;
}

int WebPanel::not_found(const std::string& heading, const Markup& words) {
    page_wrap(create_mb(words, heading), heading, 404);
    return ANSWERED;
}
