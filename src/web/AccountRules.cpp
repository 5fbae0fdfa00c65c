#include "web/AccountRules.h"

#include <algorithm>
#include <charconv>

namespace {

// Digits alone, of a size that fits.
std::optional<int> number_of(const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [behind, fault] = std::from_chars(text.data(), end, number);
    if (fault != std::errc() || behind != end || text.starts_with('-')) return std::nullopt;
    return number;
}

} // namespace

bool reaches(const Rank& asker, const Rank& target) {
    if (asker.group == User::ADMINISTRATOR) return true;
    if (asker.group != User::MOUNT_MANAGER || target.mounts.size() != 1) return false;
    const int only = *target.mounts.begin();
    return only != User::EVERY_MOUNT && asker.mounts.contains(only);
}

bool may_edit(const Rank& asker, const Rank& target) {
    return target.group >= asker.group && reaches(asker, target);
}

std::optional<User::UserGroup> group_to_hand_out(const std::string& number, User::UserGroup own) {
    const int highest = std::max(own, User::ADMINISTRATOR);
    const auto group = number_of(number);
    if (!group || *group < highest || *group > User::LISTENER) return std::nullopt;
    return static_cast<User::UserGroup>(*group);
}

std::optional<User::RequestProperty> property_type(const std::string& number) {
    const auto type = number_of(number);
    if (!type || *type > User::ALL) return std::nullopt;
    return static_cast<User::RequestProperty>(*type);
}

std::optional<int> mount_number(const std::string& number) {
    return number == std::to_string(User::EVERY_MOUNT) ? User::EVERY_MOUNT : number_of(number);
}
