// The form of a new filter of an account, of the ban list or of the reserve list.

#include "accounts/UserList.h"
#include "http/Request.h"
#include "web/AccountPage.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

// ---- What the form does -------------------------------------------------------------------------

// The mount that the filter is for. Only administrators on the page of all streams choose it.
std::optional<int> chosen_mount(const AccountPage& page) {
    if (page.IsAdmin() && !page.IsOfOneStream()) return mount_number(page.Field("property_list"));
    return page.id;
}

// Whether the form is done with; otherwise it is shown again.
bool create(const AccountPage& page, User& target) {
    const auto type = property_type(page.Field("type"));
    const auto mount = chosen_mount(page);
    const bool is_whole = type && mount;
    if (is_whole) target.AddProperty(*mount, page.Field("target"), *type);
    UserList::Serialize(); // Kept: in any case, as those who watch the user file know it
    return is_whole;
}

bool act(const AccountPage& page, User& target) {
    const std::string action = page.Action();
    return action == "Create" ? create(page, target) : action == "Cancel";
}

// ---- The form -----------------------------------------------------------------------------------

Markup hidden_fields(const AccountPage& page) {
    return create_form_field(
               {.type = FieldType::HIDDEN, .name = "property_list_subform", .value = "form"}) +
           create_form_field({.type = FieldType::HIDDEN,
                              .name = "property_list",
                              .value = page.Field("property_list")});
}

Markup target_row() {
    return field_row(
        "Target:", "target",
        create_form_field({.type = FieldType::TEXT, .name = "target", .id = "target"}));
}

Markup type_row() {
    ComboFieldDescription combo{.name = "type", .id = "type"};
    for (std::size_t type = 0; type < User::REQUEST_PROPERTY_STRINGS.size(); ++type)
        combo.options[std::to_string(type)] = User::REQUEST_PROPERTY_STRINGS.at(type);
    return field_row("Type:", "type", create_combo_field(combo));
}

Markup help(const std::string& type, const std::string& words) {
    return html::element("dt", type) + html::element("dd", words);
}

// What to write as the target of each type.
Markup help_row() {
    return wide_row(
        2,
        html::element("dl", help("IP", "One address, such as 192.0.2.7.") +
                                help("Subnet",
                                     "A range that ends with /8, /16 or /24, such as 192.0.2.0/24. "
                                     "Never end it with /32 or /0: both match every "
                                     "client there is, yourself included.") +
                                help("User Agent", "The whole name a client gives itself.") +
                                help("All", "Every client; write * as the target.")));
}

Markup button_row() {
    return wide_row(2, create_action_button("Cancel") + " " +
                           create_form_field({.type = FieldType::RESET, .value = "Reset"}) + " " +
                           create_action_button("Create"));
}

} // namespace

Markup WebPanel::create_property_form(const std::shared_ptr<User>& target, int id) {
    const AccountPage page(*request, user, panel_mounts, id);
    if (act(page, *target)) send_redirect(request->Path() + request->Query());
    return form_table(hidden_fields(page), target_row() + type_row() + help_row() + button_row());
}
