// The form of one account, or of a new one.

#include "accounts/UserList.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/AccountPage.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

// Stands in the place of a password, which no page tells. Posted back, it changes nothing.
const std::string UNCHANGED = "*******";

// ---- What the form does -------------------------------------------------------------------------

bool passwords_differ(const AccountPage& page) {
    return page.Field("password") != page.Field("password-confirm");
}

// Empty when none was entered, or not the same one twice.
std::string new_password(const AccountPage& page) {
    const std::string password = page.Field("password");
    return password == UNCHANGED || passwords_differ(page) ? std::string() : password;
}

bool is_read_only(const AccountPage& page, const std::shared_ptr<User>& target) {
    return target && !page.Reaches(*target);
}

// These three tell whether the form is done with; otherwise it is shown again.
bool save(const AccountPage& page, const std::shared_ptr<User>& target) {
    if (!target || target == UserList::GetAnonymousUser() || is_read_only(page, target))
        return false;
    const auto group = page.GroupField();
    if (!group || passwords_differ(page)) return false;
    if (const std::string password = new_password(page); !password.empty())
        target->SetPassword(password);
    target->SetGroup(*group);
    UserList::Serialize();
    return true;
}

bool create(const AccountPage& page) {
    const std::string password = new_password(page);
    const auto group = page.GroupField();
    if (password.empty() || !group) return false;
    const auto account = UserList::Add(page.Field("username"), password);
    if (account == UserList::GetAnonymousUser()) return false;
    account->SetGroup(*group);
    if (page.IsOfOneStream() && *group >= User::MOUNT_MANAGER)
        account->AddProperty(page.id, "*", User::ALL);
    UserList::Serialize();
    return true;
}

bool act(const AccountPage& page, const std::shared_ptr<User>& target) {
    const std::string action = page.Action();
    if (action == "Save") return save(page, target);
    if (action == "Create") return create(page);
    return action == "Cancel";
}

// The list of properties is asked for, or one of its pages posts here.
bool leads_to_properties(const AccountPage& page) {
    const std::string action = page.Action();
    return action == "Edit Access" ||
           (!action.empty() && !page.Field("property_list_subform").empty());
}

// ---- The form -----------------------------------------------------------------------------------

struct FormState {
    const AccountPage& page;
    const std::shared_ptr<User> target; // null for a new account
    bool read_only;
};

Markup name_row(const FormState& form) {
    if (form.target) return html::label_row("Username:", form.target->Username());
    return field_row("Username:", "username",
                     create_form_field({.type = FieldType::TEXT,
                                        .name = "username",
                                        .value = form.page.Field("username"),
                                        .id = "username"}));
}

Markup password_row(const FormState& form, const std::string& label, const std::string& name) {
    return field_row(label, name,
                     create_form_field({.type = FieldType::PASSWORD,
                                        .name = name,
                                        .value = form.target ? UNCHANGED : "",
                                        .disabled = form.read_only,
                                        .id = name}));
}

Markup group_row(const FormState& form) {
    ComboFieldDescription combo{.name = "group", .id = "group"};
    for (const User::UserGroup group : form.page.asker->GetAdministrativeGroups())
        combo.options[std::to_string(group)] =
            User::USER_GROUP_STRINGS.at(static_cast<std::size_t>(group));
    if (form.target) combo.selected = std::to_string(form.target->GetGroup());
    return field_row("Group:", "group", create_combo_field(combo));
}

std::string counted(const std::string& label, const User& target, int mount) {
    std::size_t count = 0;
    for (const auto& [id, filters] : target.GetAllProperties(mount, true))
        count += filters.size();
    return label + " (" + std::to_string(count) + ")";
}

Markup access_row(const FormState& form) {
    ComboFieldDescription combo{.name = "property_list",
                                .selected = std::to_string(form.page.id),
                                .disabled = form.page.IsOfOneStream(),
                                .id = "property_list"};
    combo.options["-1"] = counted("All Resources", *form.target, User::EVERY_MOUNT);
    for (const auto& mount : MountList::GetAllMounts(false))
        combo.options[std::to_string(mount->GetID())] =
            counted(mount->Address(), *form.target, mount->GetID());
    return field_row("Access:", "property_list",
                     create_combo_field(combo) + " " + create_action_button("Edit Access"));
}

Markup button_row(const FormState& form) {
    return wide_row(
        2, create_action_button("Cancel") + " " +
               create_form_field(
                   {.type = FieldType::RESET, .value = "Reset", .disabled = form.read_only}) +
               " " + create_action_button(form.target ? "Save" : "Create", form.read_only));
}

Markup draw(const FormState& form) {
    Markup rows = name_row(form) + password_row(form, "Password:", "password") +
                  password_row(form, "Confirm Password:", "password-confirm") + group_row(form);
    if (form.target && form.page.IsAdmin()) rows += access_row(form);
    rows += button_row(form);
    // A browser would put its user's own password into the fields.
    return html::element("form", {{"method", "post"}, {"autocomplete", "off"}},
                         html::table({{"class", "tableView"}}, rows));
}

} // namespace

Markup WebPanel::create_user_form(const std::shared_ptr<User>& target, int id) {
    const AccountPage page(*request, user, panel_mounts, id);
    if (target && leads_to_properties(page)) return create_property_list(target, id);
    if (act(page, target)) send_redirect(request->Path());
    return draw({page, target, is_read_only(page, target)});
}
