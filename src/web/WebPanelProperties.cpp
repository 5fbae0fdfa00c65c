// The filters of an account, of the ban list or of the reserve list.

#include "accounts/UserList.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/AccountPage.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

// A filter of one of these texts can be ticked by nobody; all could do it unawares.
const std::vector<std::string> FIELDS_OF_THE_LIST = {"action", "property_list",
                                                     "property_list_subform"};

// ---- What the list does -------------------------------------------------------------------------

// The page of one property is asked for, or posts here. Accounts are the administrators' to tie to
// streams; bans and reserves every manager's.
bool leads_to_form(const AccountPage& page, const User& target) {
    const std::string action = page.Action();
    if (!page.IsAdmin() && target.GetGroup() != User::ANONYMOUS) return false;
    return action == "Create" || (!action.empty() && page.Field("property_list_subform") == "form");
}

// Kept: a filter goes from the mount that the list is about, though filters of other mounts may be
// ticked beside it. Those stay, until they are ticked on a page about their own mount.
void delete_ticked(const AccountPage& page, User& target) {
    const auto context = mount_number(page.Field("property_list"));
    if (!context || !page.MayRemoveFrom(*context)) return;
    const std::vector<std::string> ticked = page.Ticked(FIELDS_OF_THE_LIST);
    bool removed = false;
    for (const auto& [mount, filters] : target.GetAllProperties(page.id, false))
        for (const std::string& filter : ticked) {
            if (!filters.contains(filter)) continue;
            target.RemoveProperty(*context, filter);
            removed = true;
        }
    if (removed) UserList::Serialize();
}

// ---- The list -----------------------------------------------------------------------------------

// The mount that the list is about.
int context_of(const AccountPage& page) {
    if (page.IsOfOneStream()) return page.id;
    return mount_number(page.Field("property_list")).value_or(page.id);
}

bool is_list_of_clients(const std::shared_ptr<User>& target) {
    return target == UserList::GetBanUser() || target == UserList::GetReserveUser();
}

// Kept: what remains of a mount that is gone is shown as if it were for all.
std::string mount_name(int id) {
    const auto mount = id >= 0 ? MountList::GetMount(id) : nullptr;
    return mount ? mount->Address() : "All Resources";
}

Markup property_rows(const AccountPage& page, const User::Properties& properties) {
    Markup rows;
    for (const auto& [mount, filters] : properties)
        for (const auto& [filter, type] : filters)
            rows += body_row(
                index_cell(create_row_check(filter, !page.MayRemoveFrom(mount)) + " " + filter) +
                html::cell(User::REQUEST_PROPERTY_STRINGS.at(static_cast<std::size_t>(type))) +
                html::cell(mount_name(mount)));
    return rows;
}

Markup hidden_fields(int context) {
    return create_form_field(
               {.type = FieldType::HIDDEN, .name = "property_list_subform", .value = "list"}) +
           create_form_field({.type = FieldType::HIDDEN,
                              .name = "property_list",
                              .value = std::to_string(context)});
}

} // namespace

Markup WebPanel::create_property_list(const std::shared_ptr<User>& target, int id) {
    const AccountPage page(*request, user, panel_mounts, id);
    if (leads_to_form(page, *target)) return create_property_form(target, id);
    if (page.Action() == "Delete") delete_ticked(page, *target);

    const int context = context_of(page);
    const auto properties = target->GetAllProperties(context, !is_list_of_clients(target));
    if (properties.empty())
        return form_table(
            hidden_fields(context),
            wide_row(3, "No properties are currently configured for " + target->Username() + ".") +
                wide_row(3, create_action_button("Create")));
    const Markup master = create_master_check("master_select_check", "select_check");
    return form_table(
        hidden_fields(context),
        head_row({master + " Target", "Type", "Context"}) + property_rows(page, properties) +
            wide_row(3, create_action_button("Create") + " " + create_action_button("Delete")));
}
