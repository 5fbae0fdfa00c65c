// The pages of settings: the server's, a mount's, and those that hold for all mounts.

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/OSTools.h"
#include "streaming/Mount.h"
#include "web/SettingsForm.h"
#include "web/WebPanel.h"

using html::cell;
using html::Markup;
using html::row;

namespace {

constexpr const char* WHOLE_WIDTH = "width:100%";
const html::Attributes SPANS_THE_TABLE = {{"colspan", "2"}};

// The text box of the new row is named by the key; the form's own rows are named by numbers. The
// button that saves is away while the combo box is shown.
const std::string ADD_ROW_SCRIPT = R"(
function addRow() {
  var key = document.getElementById("newVariableName").value;
  if (key == "" || key == "0") {
    alert("You must select a key from the combo box!");
    return;
  }
  var form = document.getElementById("configForm");
  var row = form.insertRow(form.rows.length - 1);
  row.className = "tableViewCol";
  var label = row.insertCell(0);
  label.className = "tableViewIndex";
  label.appendChild(document.createTextNode(key));
  var input = document.createElement("input");
  input.type = "text";
  input.name = key;
  input.style.width = "100%";
  row.insertCell(1).appendChild(input);
  var saveButton = document.getElementById("saveButton");
  if (saveButton) saveButton.disabled = false;
}
)";

// A line "include=" of the file is no setting: it would have the file read another.
SettingsForm server_settings() {
    return {.heading = "Server Configuration",
            .section = Config::GetRoot(),
            .sorted = true,
            .hidden = {"source", "default", "adminuser", "adminpass", "include"},
            .repeatable = {"directory", "portbase"},
            .known = Config::GetKnownConfigKeys()};
}

// The account of a mount is changed on the pages of accounts, its address not at all: the mount
// would go on answering at the old one.
SettingsForm mount_settings(const std::string& name, const std::shared_ptr<ConfigNode>& section) {
    return {.heading = "Configuration for " + name,
            .section = section,
            .of_mount = true,
            .hidden = {"mount", "user", "pass"},
            .repeatable = {"directory", "relay"},
            .known = Mount::GetKnownConfigKeys()};
}

// What tells mounts apart cannot hold for all of them.
SettingsForm default_settings() {
    SettingsForm form = mount_settings("Default", Config::Get("default", false));
    form.of_mount = false; // a line of a default has no number
    form.unfit = {"relay", "ip", "port", "isdefault"};
    return form;
}

Markup setting_row(const ConfigNode& setting) {
    return html::label_row(setting.GetFriendlyName(), create_form_field({
                                                          .name = tostring(setting.GetId()),
                                                          .value = setting.GetValue(""),
                                                          .style = WHOLE_WIDTH,
                                                      }));
}

Markup combo_of_keys(const std::vector<std::string>& keys) {
    ComboFieldDescription combo = {.options = {{"0", "-- Select Name --"}},
                                   .id = "newVariableName"};
    for (const std::string& key : keys)
        combo.options[key] = key;
    return create_combo_field(combo);
}

Markup save_button() {
    return create_form_field(
        {.type = FieldType::SUBMIT, .name = "action", .value = "Save", .id = "saveButton"});
}

} // namespace

Markup WebPanel::create_root_config() { return settings_page(server_settings()); }

Markup WebPanel::create_mount_config(int id) {
    if (const auto mount = get_mount_by_id(id))
        return settings_page(mount_settings(mount->Address().substr(1), mount->GetConfigNode()));
    if (id == -1 && is_admin()) return settings_page(default_settings());
    return "Stream ID: " + tostring(id) + " is not a configured stream id.";
}

// A post is taken in first, so that the page shows what is now in force.
Markup WebPanel::settings_page(const SettingsForm& form) {
    form.Save(*request);
    create_form_inserter();
    Markup rows = row({{"class", "tableViewHead"}}, cell(SPANS_THE_TABLE, form.heading));
    for (const auto& setting : form.Shown())
        rows += setting_row(*setting);
    const Markup add_field =
        create_form_field({.type = FieldType::BUTTON, .value = "Add Field", .onclick = "addRow()"});
    const Markup add_entry = create_action_query("submit_options", "Add Entry",
                                                 combo_of_keys(form.Offered()) + add_field);
    rows += row({{"class", "tableViewCol"}},
                cell({{"colspan", "2"}, {"id", "submit_options"}}, save_button() + add_entry));
    return html::form(html::table({{"class", "tableView"}, {"id", "configForm"}}, rows));
}

void WebPanel::create_form_inserter() { head_extra += html::script(ADD_ROW_SCRIPT); }
