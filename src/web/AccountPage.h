#pragma once

#include "accounts/User.h"
#include "web/AccountRules.h"
#include "web/Html.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

class Mount;
class Request;

// What all pages of accounts ask of the request that they answer: who asks, for which stream, and
// what was posted. Lives for one page, on the worker that builds it.
class AccountPage {
public:
    // Of the page of all streams, `id` is -1.
    AccountPage(const Request& request, std::shared_ptr<User> asker,
                const std::vector<std::shared_ptr<Mount>>& managed, int id);

    const std::shared_ptr<User> asker;
    const int id;

    bool IsAdmin() const;
    bool IsOfOneStream() const { return id >= 0; }
    // See AccountRules.h.
    bool MayEdit(const User& target) const;
    bool Reaches(const User& target) const;
    // Whether the entries of a mount may be removed here. The page of a stream lists those of every
    // mount beside its own, for information.
    bool MayRemoveFrom(int mount) const;

    std::string Action() const { return Field("action"); }
    // The first line of a field.
    std::string Field(const std::string& name) const;
    // The group that the form asks for, when the asker may hand it out.
    std::optional<User::UserGroup> GroupField() const;
    // The names of the fields that were posted with a value, as ticked boxes are. Without `own`,
    // the names that the page itself gives to its other fields.
    std::vector<std::string> Ticked(const std::vector<std::string>& own) const;

private:
    const Request& request;
    const Rank rank;
};

// Pieces of these pages: a table in a form that posts to the page, and its rows.
html::Markup form_table(const html::Markup& rows);
html::Markup form_table(const html::Markup& hidden_fields, const html::Markup& rows);
html::Markup head_row(const std::vector<html::Markup>& headings);
html::Markup body_row(const html::Markup& cells);
html::Markup index_cell(const html::Markup& content);
html::Markup wide_row(int columns, const html::Markup& content);
// A control whose element has the id `field`, behind its label.
html::Markup field_row(const std::string& label, const std::string& field,
                       const html::Markup& control);
