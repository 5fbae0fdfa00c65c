// The pages of one stream: which stream and which page an address means.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/WebPanel.h"

#include <charconv>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>

using html::Markup;

namespace {

constexpr std::string_view VIEW = "/view/";
constexpr std::string_view STREAM = "/admin/stream/";

const std::string NO_STREAM = "Stream ID Not Found";

// Of a text that passes is_number. One that is too long is the id of no stream either.
int stream_id(const std::string& number) {
    int id = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), id);
    if (result.ec != std::errc::result_out_of_range) return id;
    using Limits = std::numeric_limits<int>;
    return number.starts_with('-') ? Limits::min() : Limits::max();
}

} // namespace

// Which page of which stream: -1 for an address that names none.
struct WebPanel::StreamAddress {
    int id = -1;
    std::string page = {};
};

// A page of a stream, the last word of its address and its tab.
struct WebPanel::StreamPage {
    const char* label;
    const char* word;
    Markup (*content)(WebPanel& panel, int id);
};

// In the order of the tabs. What is none of them is the first.
const WebPanel::StreamPage WebPanel::STREAM_PAGES[] = {
    {"Stats", "stats", [](WebPanel& panel, int id) { return panel.create_mount_stats(id, true); }},
    {"Listeners", "listeners",
     [](WebPanel& panel, int id) { return panel.create_listener_stats(id); }},
    {"Played", "played",
     [](WebPanel& panel, int id) { return panel.create_mount_last_played(id); }},
    {"Publication Lists", "publication",
     [](WebPanel& panel, int id) { return panel.create_publication_list(id); }},
    {"Configure", "configure",
     [](WebPanel& panel, int id) { return panel.create_mount_config(id); }},
    {"Users", "users", [](WebPanel& panel, int id) { return panel.create_user_list(id); }},
    {"Bans", "bans",
     [](WebPanel& panel, int id) {
         return panel.create_property_list(UserList::GetBanUser(), id);
     }},
    {"Reserve", "reserve",
     [](WebPanel& panel, int id) {
         return panel.create_property_list(UserList::GetReserveUser(), id);
     }},
};

// ---- For everybody ------------------------------------------------------------------------------

// Kept: a refusal is sent and the request goes on to the mounts, for one may lie at this address.
// The connection ends with the second answer.
int WebPanel::show_view() {
    const std::string path = request->Path();
    const std::string rest = path.substr(VIEW.size());
    const std::size_t slash = rest.find('/');
    if (slash == std::string::npos) {
        send_redirect(path + "/");
        return ANSWERED;
    }
    const std::string id_text = rest.substr(0, slash);
    if (!is_number(id_text)) {
        request->ForgoKeepAlive();
        not_found(NO_STREAM, "This stream id is invalid.");
        return NOT_A_PAGE;
    }
    const int id = stream_id(id_text);
    if (!may_view(id)) {
        request->ForgoKeepAlive();
        send_authentication_request();
        return NOT_A_PAGE;
    }
    return show_public_stream(id, rest.substr(slash + 1) == "played");
}

// Whether the stream may be looked at. One that does not exist may.
bool WebPanel::may_view(int id) const {
    const std::shared_ptr<Mount> mount = MountList::GetMount(id);
    if (!mount || !mount->AuthRequired()) return true;
    return user->HasProperty(id, request, false) ||
           user->HasProperty(User::EVERY_MOUNT, request, false);
}

int WebPanel::show_public_stream(int id, bool played) {
    const Tabs tabs = {{"Stats", played ? "stats" : ""}, {"Played", played ? "" : "played"}};
    const Markup content = played ? create_mount_last_played(id) : create_mount_stats(id, false);
    page_wrap(create_tab(tabs, content), "", 200);
    return ANSWERED;
}

// ---- For managers -------------------------------------------------------------------------------

// Who manages one stream only finds all of the panel about that one.
int WebPanel::show_only_stream() {
    return panel_mounts.size() == 1 && !is_admin() ? show_stream() : GO_ON;
}

int WebPanel::show_stream() {
    const std::string path = request->Path();
    const auto [id, page] = stream_asked_for();
    if (!path.ends_with('/') && page.empty()) {
        send_redirect(path + "/");
        return ANSWERED;
    }
    if (id < 0) return not_found(NO_STREAM, "This stream id is invalid.");
    if (!get_mount_by_id(id))
        return not_found(NO_STREAM, "The Stream ID " + std::to_string(id) + " does not exist");
    return show_stream_page(id, page);
}

WebPanel::StreamAddress WebPanel::stream_asked_for() const {
    const std::string path = request->Path();
    if (panel_mounts.size() == 1) {
        const std::size_t slash = path.rfind('/');
        return {panel_mounts.front()->GetID(), slash == 0 ? "" : path.substr(slash + 1)};
    }
    const std::string rest = path.substr(STREAM.size());
    const std::size_t slash = rest.find('/');
    if (slash == std::string::npos) return {};
    const std::string id_text = rest.substr(0, slash);
    return {is_number(id_text) ? stream_id(id_text) : -1, rest.substr(slash + 1)};
}

int WebPanel::show_stream_page(int id, const std::string& page) {
    const auto* shown = std::begin(STREAM_PAGES);
    Tabs tabs;
    for (const StreamPage& tab : STREAM_PAGES)
        if (tab.word == page) shown = &tab;
    for (const StreamPage& tab : STREAM_PAGES)
        tabs.emplace_back(tab.label, &tab == shown ? "" : tab.word);
    page_wrap(create_tab(tabs, shown->content(*this, id)), "", 200);
    return ANSWERED;
}
