// The table of all streams: the home page, and the front page of the administration.

#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/LiveScript.h"
#include "web/StreamActions.h"
#include "web/StreamTable.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

using Mounts = std::vector<std::shared_ptr<Mount>>;
using Streams = StreamTable::Streams;

// The streams by what becomes of them.
struct Sorted {
    Streams connected = {};
    Streams inactive = {}; // waiting for a source
    Streams disabled = {};

    explicit Sorted(const Mounts& mounts) {
        for (const auto& mount : mounts) {
            StreamState stream(*mount);
            Streams& place = stream.figures.connected ? connected
                             : stream.figures.running ? inactive
                                                      : disabled;
            place.push_back(std::move(stream));
        }
    }
};

Markup rows_of(const StreamTable& table, const Streams& streams) {
    Markup rows;
    for (const StreamState& stream : streams)
        rows += table.Row(stream);
    return rows;
}

// Where a new mount is asked for. No single quotes: it may stand in a quoted text of a script.
Markup create_fields() {
    return html::element("label", "Mount address: " + create_form_field({.type = FieldType::TEXT,
                                                                         .name = "addr"})) +
           create_action_button("Create");
}

} // namespace

Markup WebPanel::create_overall_stats() {
    return manages_streams() ? managed_streams() : public_streams();
}

// Who manages no more than one mount has its page, and sees of the others what everybody sees.
bool WebPanel::manages_streams() const {
    const bool has_list = is_admin() || panel_mounts.size() >= 2;
    return has_list && request->Path().find("admin") != std::string::npos;
}

Markup WebPanel::public_streams() {
    player_enabled = request->GetQuery("lp").empty();
    head_extra += live_script(player_enabled);
    const Streams streams = Sorted(MountList::GetAllMounts(true)).connected;
    const StreamTable table(StreamTable::Form::FOR_ALL, panel_time);
    return html::table({{"class", "tableView"}}, table.Head(streams.empty(), {}) +
                                                     table.None(streams.empty()) +
                                                     rows_of(table, streams));
}

Markup WebPanel::managed_streams() {
    run_list_action(*request, is_admin(), panel_mounts);
    const Sorted streams(panel_mounts);
    const bool is_empty = panel_mounts.empty();
    const StreamTable table(StreamTable::Form::FOR_MANAGERS, panel_time);
    Markup rows = table.Head(is_empty, create_master_check("master_select_check", "select_check")) +
                  table.None(is_empty) + rows_of(table, streams.connected) +
                  table.Block("Inactive Mounts", "tableViewCol", streams.inactive) +
                  table.Block("Disabled Mounts", "tableViewColDisabled", streams.disabled);
    if (!is_empty)
        rows += StreamTable::Totals(list_actions(), streams.connected);
    else if (is_admin())
        rows += table.Wide({{"class", "tableViewCol"}}, create_fields());
    return html::form(html::table({{"class", "tableView"}}, rows));
}

Markup WebPanel::list_actions() {
    const Markup buttons = create_action_button("Kick") + create_action_button("Disable") +
                           create_action_button("Enable");
    if (!is_admin()) return buttons;
    return buttons + create_action_query("mount_actions", "Add", create_fields()) +
           create_action_button("Delete");
}
