#include "web/AccountPage.h"

#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/FormFields.h"

#include <algorithm>
#include <utility>

using html::Markup;

namespace {

Rank rank_of(const User& asker, const std::vector<std::shared_ptr<Mount>>& managed) {
    Rank rank{asker.GetGroup()};
    for (const auto& mount : managed)
        rank.mounts.insert(mount->GetID());
    return rank;
}

Rank rank_of(const User& target) {
    Rank rank{target.GetGroup()};
    for (const auto& [mount, filters] : target.GetAllProperties(User::EVERY_MOUNT, false))
        rank.mounts.insert(mount);
    return rank;
}

} // namespace

AccountPage::AccountPage(const Request& posted, std::shared_ptr<User> user,
                         const std::vector<std::shared_ptr<Mount>>& managed, int stream)
    : asker(std::move(user)), id(stream), request(posted), rank(rank_of(*asker, managed)) {}

bool AccountPage::IsAdmin() const { return rank.group == User::ADMINISTRATOR; }

bool AccountPage::MayEdit(const User& target) const { return may_edit(rank, rank_of(target)); }

bool AccountPage::Reaches(const User& target) const { return reaches(rank, rank_of(target)); }

bool AccountPage::MayRemoveFrom(int mount) const {
    return IsAdmin() || !IsOfOneStream() || mount == id;
}

std::string AccountPage::Field(const std::string& name) const {
    return one_line(request.GetFormField(name));
}

std::optional<User::UserGroup> AccountPage::GroupField() const {
    return group_to_hand_out(Field("group"), rank.group);
}

std::vector<std::string> AccountPage::Ticked(const std::vector<std::string>& own) const {
    std::vector<std::string> names = request.GetAllFormFields();
    std::erase_if(names, [&](const std::string& name) {
        return request.GetFormField(name).empty() || std::ranges::find(own, name) != own.end();
    });
    return names;
}

Markup form_table(const Markup& rows) { return form_table({}, rows); }

Markup form_table(const Markup& hidden_fields, const Markup& rows) {
    return html::form(hidden_fields + html::table({{"class", "tableView"}}, rows));
}

Markup head_row(const std::vector<Markup>& headings) {
    Markup cells;
    for (const Markup& heading : headings)
        cells += html::cell({{"role", "columnheader"}}, heading);
    return html::row({{"class", "tableViewHead"}}, cells);
}

Markup body_row(const Markup& cells) { return html::row({{"class", "tableViewCol"}}, cells); }

Markup index_cell(const Markup& content) {
    return html::cell({{"class", "tableViewIndex"}}, content);
}

Markup wide_row(int columns, const Markup& content) {
    return body_row(html::cell({{"colspan", std::to_string(columns)}}, content));
}

Markup field_row(const std::string& label, const std::string& field, const Markup& control) {
    return html::label_row(html::element("label", {{"for", field}}, label), control);
}
