// The table of listeners: who hears what, since when, and how much.

#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

using html::anchor;
using html::cell;
using html::Markup;
using html::raw;
using html::row;

namespace {

constexpr const char* SORT_VARIABLE = "admin_listener_table_sort";
constexpr unsigned int SHOWN_USER_AGENT = 60; // characters

const html::Attributes SPANS_THE_TABLE = {{"colspan", "8"}};
const html::Attributes SPANS_THE_ACTIONS = {{"colspan", "4"}};
const html::Attributes NO_WRAPPING = {{"style", "white-space: nowrap;"}};
const html::Attributes PLAIN_CELL = {};

// ---- A row --------------------------------------------------------------------------------------

Markup address_cell(const ListenerRow& listener, time_t) {
    const std::string uuid = listener.receiver->GetUUID();
    return create_row_check(uuid) + anchor("/admin/receiver/" + uuid, listener.hostname);
}

// With the fallback that is played in its place.
Markup mount_cell(const ListenerRow& listener, time_t) {
    const std::string played = listener.receiver->ActiveMount();
    const Markup fallback = played.empty() ? Markup() : Markup(" (" + played + ")");
    return anchor("/admin/stream/" + tostring(listener.mount->GetID()) + "/", listener.address) +
           fallback;
}

Markup user_cell(const ListenerRow& listener, time_t) {
    return latin1_to_utf8(listener.user, true);
}

Markup user_agent_cell(const ListenerRow& listener, time_t) {
    return welips(latin1_to_utf8(listener.user_agent, true), SHOWN_USER_AGENT);
}

// One that came after the page's time was taken has not listened yet.
Markup connect_time_cell(const ListenerRow& listener, time_t at) {
    const time_t seconds = std::max<time_t>(at - listener.connect_time, 0);
    return TimeToString(static_cast<unsigned long long>(seconds), false);
}

Markup data_sent_cell(const ListenerRow& listener, time_t) {
    return DataSizeToString(listener.bytes_sent, false);
}

// Kept: bytes per second, shown as if they were bits. Statistics read off this page count on it.
Markup bitrate_cell(const ListenerRow& listener, time_t) {
    return DataSizeToString(listener.recent_bitrate, true);
}

struct Column {
    const char* heading;
    const char* sort_key; // of the address that sorts by this column
    bool (*before)(const ListenerRow& a, const ListenerRow& b);
    Markup (*content)(const ListenerRow& listener, time_t at);
    const html::Attributes& attributes = PLAIN_CELL;
};

template <typename Functor> bool before(const ListenerRow& a, const ListenerRow& b) {
    return Functor()(a, b);
}

const Column COLUMNS[] = {
    {"Address", "h", before<WebPanel::sort_hostname>, address_cell, NO_WRAPPING},
    {"Mount", "m", before<WebPanel::sort_mount>, mount_cell},
    {"User", "u", before<WebPanel::sort_user>, user_cell},
    {"User-Agent", "ua", before<WebPanel::sort_useragent>, user_agent_cell},
    {"Connect Time", "c", before<WebPanel::sort_connecttime>, connect_time_cell},
    {"Data Sent", "d", before<WebPanel::sort_datasent>, data_sent_cell},
    {"Bitrate", "b", before<WebPanel::sort_bitrate>, bitrate_cell},
};

// Unknown keys sort by mount.
void sort_listeners(ListenerRows& listeners, const std::string& sort_key) {
    const auto column = std::ranges::find_if(
        COLUMNS, [&](const Column& candidate) { return candidate.sort_key == sort_key; });
    const auto order = column == std::end(COLUMNS) ? before<WebPanel::sort_mount> : column->before;
    std::ranges::stable_sort(listeners, order);
}

// The master check box stands in the first cell.
Markup head_row(const Markup& master_check) {
    Markup cells;
    for (const Column& column : COLUMNS)
        cells += cell((cells.empty() ? master_check : Markup()) +
                      anchor(std::string("?m=l&s=") + column.sort_key, column.heading));
    return row({{"class", "tableViewHead"}}, cells);
}

Markup listener_row(const ListenerRow& listener, time_t at) {
    Markup cells;
    for (const Column& column : COLUMNS)
        cells += cell(column.attributes, column.content(listener, at));
    return row({{"class", "tableViewCol"}}, cells);
}

// ---- The last row -------------------------------------------------------------------------------

Markup bold_cell(const Markup& content) { return cell(html::element("b", content)); }

Markup action_buttons() {
    Markup buttons;
    for (const char* action : {"Kick", "Ban", "Ban Net", "Ban User Agent", "VIP"})
        buttons += create_action_button(action);
    return buttons;
}

// A choice of one place, where the listener is already, is none.
Markup move_controls(const std::vector<std::shared_ptr<Mount>>& mounts) {
    ComboFieldDescription places = {.name = "destStationId",
                                    .options = {{"-1", "-- Select Mount --"}}};
    for (const auto& mount : mounts)
        if (mount->IsConnected()) places.options[tostring(mount->GetID())] = mount->Address();
    if (places.options.size() < 3) return {};
    return create_action_button("Move To:") + create_combo_field(places);
}

Markup last_row(const ListenerRows& listeners, const Markup& actions) {
    std::uint64_t bytes_sent = 0;
    std::uint64_t bitrate = 0;
    for (const ListenerRow& listener : listeners) {
        bytes_sent += listener.bytes_sent;
        bitrate += listener.recent_bitrate;
    }
    return row({{"class", "tableViewCol"}}, cell(SPANS_THE_ACTIONS, actions) +
                                                bold_cell("Totals:") +
                                                bold_cell(DataSizeToString(bytes_sent, false)) +
                                                bold_cell(DataSizeToString(bitrate, true)));
}

} // namespace

Markup WebPanel::create_listener_stats(int id) {
    act_on_listeners(id);
    const std::string sort_key = listener_sort_key();
    ListenerRows listeners = shown_listeners(id);
    if (listeners.empty())
        return listener_form(
            row({{"class", "tableViewCol"}},
                cell(SPANS_THE_TABLE, "There are currently no listeners connected.")));

    sort_listeners(listeners, sort_key);
    Markup rows = head_row(create_master_check("master_select_check", "select_check"));
    for (const ListenerRow& listener : listeners)
        rows += listener_row(listener, panel_time);
    return listener_form(rows +
                         last_row(listeners, action_buttons() + move_controls(panel_mounts)));
}

ListenerRows WebPanel::shown_listeners(int id) const {
    if (MountList::TotalReceivers() == 0) return {};
    if (id < 0) return listener_rows(panel_mounts);
    const auto mount = get_mount_by_id(id);
    return mount ? listener_rows({mount}) : ListenerRows();
}

// The choice holds for the session, until another is made. It may be made while nobody listens.
std::string WebPanel::listener_sort_key() const {
    const std::string chosen = request->GetQuery("s");
    if (chosen.empty()) return request->GetSessionVar(SORT_VARIABLE, "");
    request->SetSessionVar(SORT_VARIABLE, chosen);
    return chosen;
}

// Kept: the form's end stands on administrators' pages only. Programs that take listeners off the
// page of a manager know it without.
Markup WebPanel::listener_form(const Markup& rows) const {
    return raw("<form method=\"post\">") + html::table({{"class", "tableView"}}, rows) +
           (is_admin() ? raw("</form>") : Markup());
}
