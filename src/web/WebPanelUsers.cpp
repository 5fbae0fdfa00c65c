// The list of accounts: of the server, or of those with rights on one stream.

#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "web/AccountPage.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

using Accounts = std::map<std::string, std::shared_ptr<User>>;

// An account named like one of these can be ticked by nobody; all could do it unawares.
const std::vector<std::string> FIELDS_OF_THE_LIST = {"action"};

// ---- What the list does -------------------------------------------------------------------------

// Nobody deletes himself. The boxes of other accounts out of reach are disabled, which stops only
// browsers.
bool may_delete(const AccountPage& page, const std::shared_ptr<User>& target) {
    return target != UserList::GetAnonymousUser() && target != page.asker && page.MayEdit(*target);
}

// Takes the rights on the stream away, and the account with the last of them.
bool take_from_stream(User& target, int id) {
    if (target.GetGroup() == User::ADMINISTRATOR) return false;
    if (target.GetAllProperties(id, true).empty()) return false;
    target.RemoveMount(id);
    if (target.GetAllProperties(User::EVERY_MOUNT, false).empty())
        UserList::Remove(target.Username());
    return true;
}

bool delete_account(const AccountPage& page, const std::string& name) {
    const auto target = UserList::Get(name, "");
    if (!may_delete(page, target)) return false;
    if (page.IsOfOneStream()) return take_from_stream(*target, page.id);
    UserList::Remove(name);
    return true;
}

void delete_ticked(const AccountPage& page) {
    bool changed = false;
    for (const std::string& name : page.Ticked(FIELDS_OF_THE_LIST))
        if (delete_account(page, name)) changed = true;
    if (changed) UserList::Serialize();
}

// ---- The list -----------------------------------------------------------------------------------

Markup linked_name(const AccountPage& page, const std::string& name, const User& user) {
    if (!page.MayEdit(user)) return name;
    return html::anchor("?u=" + UrlEncode(name, false), name);
}

Markup account_row(const AccountPage& page, const std::string& name,
                   const std::shared_ptr<User>& user) {
    const bool fixed = user == page.asker || !page.MayEdit(*user);
    const auto group = static_cast<std::size_t>(user->GetGroup());
    return body_row(
        index_cell(create_row_check(name, fixed) + " " + linked_name(page, name, *user)) +
        html::cell(User::USER_GROUP_STRINGS.at(group)));
}

Markup account_rows(const AccountPage& page, const Accounts& accounts) {
    Markup rows;
    for (const auto& [name, user] : accounts)
        rows += account_row(page, name, user);
    return rows +
           wide_row(2, create_action_button("Create") + " " + create_action_button("Delete"));
}

} // namespace

Markup WebPanel::create_user_list(int id) {
    const AccountPage page(*request, user, panel_mounts, id);
    const auto target = UserList::Get(request->GetQuery("u"), "");
    if (page.MayEdit(*target)) return create_user_form(target, id);
    const std::string action = page.Action();
    if (action == "Create") return create_user_form(nullptr, id);
    if (action == "Delete") delete_ticked(page);

    const Accounts accounts = UserList::GetUserList(id);
    if (accounts.empty())
        return form_table(wide_row(2, "No users are currently configured.") +
                          wide_row(2, create_action_button("Create")));
    const Markup master = create_master_check("master_select_check", "select_check");
    return form_table(head_row({master + " Username", "Group"}) + account_rows(page, accounts));
}
