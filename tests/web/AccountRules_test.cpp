#include "web/AccountRules.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

// The groups, by their digits, that may be edited by an account of this group that manages the
// mounts 1 and 2, when the rights of those edited are on these mounts.
struct Reach {
    User::UserGroup asker;
    std::set<int> mounts;
    std::string editable;
};

const Reach REACH[] = {
    {User::ADMINISTRATOR, {}, "23456"},
    {User::ADMINISTRATOR, {1}, "23456"},
    {User::ADMINISTRATOR, {3}, "23456"},
    {User::ADMINISTRATOR, {-1}, "23456"},
    {User::ADMINISTRATOR, {-1, 1, 2}, "23456"},
    {User::MOUNT_MANAGER, {}, ""},
    {User::MOUNT_MANAGER, {1}, "456"},
    {User::MOUNT_MANAGER, {2}, "456"},
    {User::MOUNT_MANAGER, {3}, ""}, // a stranger's stream
    {User::MOUNT_MANAGER, {-1}, ""},
    {User::MOUNT_MANAGER, {1, 2}, ""},
    {User::MOUNT_MANAGER, {-1, 1}, ""},
    {User::ANONYMOUS, {1}, ""},
    {User::BANNED, {1}, ""},
    {User::STATISTICS, {1}, ""},
    {User::MOUNT_SOURCE, {1}, ""},
    {User::LISTENER, {1}, ""},
};

std::string described(const Reach& reach) {
    std::string text = "group " + std::to_string(reach.asker) + ", mounts";
    for (const int mount : reach.mounts)
        text += " " + std::to_string(mount);
    return text;
}

TEST(AccountRules, WhoMayEditWhom) {
    for (const Reach& reach : REACH) {
        std::string editable;
        for (int group = User::ANONYMOUS; group <= User::LISTENER; ++group)
            if (may_edit({reach.asker, {1, 2}},
                         {static_cast<User::UserGroup>(group), reach.mounts}))
                editable += std::to_string(group);
        EXPECT_EQ(editable, reach.editable) << described(reach);
    }
}

TEST(AccountRules, RankPlaysNoPartInReach) {
    EXPECT_TRUE(reaches({User::MOUNT_MANAGER, {1}}, {User::ADMINISTRATOR, {1}}));
    EXPECT_TRUE(reaches({User::ADMINISTRATOR, {}}, {User::ANONYMOUS, {}}));
    EXPECT_FALSE(reaches({User::MOUNT_SOURCE, {1}}, {User::LISTENER, {1}}));
}

TEST(AccountRules, AManagerOfNoMountReachesNobody) {
    EXPECT_FALSE(may_edit({User::MOUNT_MANAGER, {}}, {User::LISTENER, {1}}));
    EXPECT_FALSE(may_edit({User::MOUNT_MANAGER, {-1}}, {User::LISTENER, {-1}}));
}

std::string groups_handed_out_by(User::UserGroup own) {
    std::string groups;
    for (int group = 0; group < 10; ++group)
        if (group_to_hand_out(std::to_string(group), own) == group) groups += std::to_string(group);
    return groups;
}

TEST(AccountRules, NobodyHandsOutMoreRankThanHisOwn) {
    EXPECT_EQ(groups_handed_out_by(User::ADMINISTRATOR), "23456");
    EXPECT_EQ(groups_handed_out_by(User::STATISTICS), "3456");
    EXPECT_EQ(groups_handed_out_by(User::MOUNT_MANAGER), "456");
    EXPECT_EQ(groups_handed_out_by(User::MOUNT_SOURCE), "56");
    EXPECT_EQ(groups_handed_out_by(User::LISTENER), "6");
    EXPECT_EQ(groups_handed_out_by(User::ANONYMOUS), "23456");
    EXPECT_EQ(groups_handed_out_by(User::BANNED), "23456");
}

const char* const NO_NUMBERS[] = {"",   "-",   "--1", "+2",         "2 ",          " 2",
                                  "2x", "0x2", "2.0", "2147483648", "99999999999", "-2"};

TEST(AccountRules, WhatIsNoNumberIsNoGroupNoTypeAndNoMount) {
    for (const std::string text : NO_NUMBERS) {
        EXPECT_FALSE(group_to_hand_out(text, User::ADMINISTRATOR)) << text;
        EXPECT_FALSE(property_type(text)) << text;
        EXPECT_FALSE(mount_number(text)) << text;
    }
}

TEST(AccountRules, GroupsAndTypesBehindTheLastAreNone) {
    EXPECT_EQ(group_to_hand_out("6", User::ADMINISTRATOR), User::LISTENER);
    EXPECT_FALSE(group_to_hand_out("7", User::ADMINISTRATOR));
    EXPECT_FALSE(group_to_hand_out("99", User::ADMINISTRATOR));
    EXPECT_EQ(property_type("0"), User::NONE);
    EXPECT_EQ(property_type("4"), User::ALL);
    EXPECT_FALSE(property_type("5"));
    EXPECT_FALSE(property_type("-1"));
}

TEST(AccountRules, MinusOneIsEveryMount) {
    EXPECT_EQ(mount_number("-1"), User::EVERY_MOUNT);
    EXPECT_EQ(mount_number("0"), 0);
    EXPECT_EQ(mount_number("2147483647"), std::numeric_limits<int>::max());
    EXPECT_FALSE(mount_number("-01"));
}

} // namespace
