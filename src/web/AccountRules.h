#pragma once

#include "accounts/User.h"

#include <optional>
#include <set>
#include <string>

// Who may change which account on the panel, and what the numbers of its forms mean. Nothing here
// asks a list or a request.

// What counts of an account. A lower group number has more rank, from ADMINISTRATOR on.
struct Rank {
    User::UserGroup group = User::ANONYMOUS;
    std::set<int> mounts = {}; // who asks: that he manages; whom it is about: that he has rights on
};

// An administrator reaches everybody; a Mount Manager those who have rights on one stream alone,
// which must be among his own; nobody else reaches anyone.
bool reaches(const Rank& asker, const Rank& target);
// He reaches the account, and its rank is not above his own.
bool may_edit(const Rank& asker, const Rank& target);

// The number of a form's field as a group that an account of the group `own` may hand out.
std::optional<User::UserGroup> group_to_hand_out(const std::string& number, User::UserGroup own);
std::optional<User::RequestProperty> property_type(const std::string& number);
// A mount's id, or -1 for every mount.
std::optional<int> mount_number(const std::string& number);
