#include "accounts/User.h"
#include "accounts/UserList.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/LogLines.h"
#include "support/Sections.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace {
std::shared_ptr<Mount> mount_with(const Settings& settings) {
    return std::make_shared<Mount>("/live", 1, AddSection("1", settings));
}

std::string public_state(const Mount& mount) {
    switch (mount.GetPublicState()) {
    case Mount::PublicState::SOURCE:
        return "source";
    case Mount::PublicState::ALWAYS:
        return "always";
    case Mount::PublicState::NEVER:
        return "never";
    }
    return {};
}

std::string flag(bool value) { return value ? "yes" : "no"; }

// A setting, what it is without a value, and what it is with this one.
struct Row {
    const char* key;
    const char* key_in_default;
    const char* value;
    std::string (*effect)(const Mount&);
    const char* unset;
    const char* set;
    const char* emptied = unset; // after it was taken away again
};

using M = const Mount&;
const Row ROWS[] = {
    {"Auth", "Auth", "yes", [](M m) { return flag(m.AuthRequired()); }, "no", "yes"},
    {"AvgBitrateLimit", "AvgBitrateLimit", "128",
     [](M m) { return std::to_string(m.GetBitrateLimit()); }, "18446744073709550616", "128000",
     "0"},
    {"Disabled", "Disabled", "1", [](M m) { return flag(m.IsDisabled()); }, "no", "yes"},
    {"DisconnectWait", "DisconnectWait", "7",
     [](M m) { return std::to_string(m.RelayDisconnectWaitTime()); }, "30", "7", "7"},
    {"IP", "IP", "10.0.0.1", [](M m) { return m.GetAssignedIP(); }, "", "10.0.0.1"},
    {"IPUserMax", "IPUserMax", "3", [](M m) { return std::to_string(m.IPMaxReceivers()); }, "-1",
     "3"},
    {"IsDefault", "IsDefault", "true", [](M m) { return flag(m.IsSymLink("/")); }, "no", "yes"},
    {"ListenerTimer", "ListenerTimer", "90", [](M m) { return std::to_string(m.ListenerTimer()); },
     "0", "90"},
    {"MetaInterval", "MetaInterval", "4096", [](M m) { return std::to_string(m.MetaInterval()); },
     "8192", "4096"},
    {"NameFormat", "NameFormat", "%s (HQ)", [](M m) { return m.Name(); }, "Unnamed Stream",
     "Unnamed Stream (HQ)"},
    {"NotifyAuthHeader", "NotifyAuthHeader", "x-may",
     [](M m) { return m.GetNotifications().auth_header; }, "icecast-auth-user", "x-may"},
    {"NotifyAuthRealm", "NotifyAuthRealm", "Club",
     [](M m) { return m.GetNotifications().auth_realm; }, "", "Club"},
    {"NotifyListenerAdd", "NotifyListenerAdd", "http://h/a",
     [](M m) { return m.GetNotifications().listener_add; }, "", "http://h/a"},
    {"NotifyListenerRemove", "NotifyListenerRemove", "http://h/r",
     [](M m) { return m.GetNotifications().listener_remove; }, "", "http://h/r"},
    {"NotifyMountAdd", "NotifyMountAdd", "http://h/ma",
     [](M m) { return m.GetNotifications().mount_add; }, "", "http://h/ma"},
    {"NotifyMountRemove", "NotifyMountRemove", "http://h/mr",
     [](M m) { return m.GetNotifications().mount_remove; }, "", "http://h/mr"},
    {"NotifyPass", "NotifyPass", "secret", [](M m) { return m.GetNotifications().pass; }, "",
     "secret"},
    {"NotifyTimeLimitHeader", "TimelimitHeader", "x-time",
     [](M m) { return m.GetNotifications().timelimit_header; }, "icecast-auth-timelimit", "x-time"},
    {"NotifyTimelimitHeader", "TimelimitHeader", "x-time",
     [](M m) { return m.GetNotifications().timelimit_header; }, "icecast-auth-timelimit", "x-time"},
    {"NotifyUser", "NotifyUser", "joe", [](M m) { return m.GetNotifications().user; }, "", "joe"},
    {"Port", "Port", "8010", [](M m) { return m.GetAssignedPort(); }, "", "8010"},
    {"Public", "Public", "always", public_state, "source", "always"},
    {"Relay", "Relay", "http://far/x", [](M m) { return m.RelayAddress(); }, "", "http://far/x"},
    {"ShowLastSongs", "ShowLastSongs", "5",
     [](M m) { return std::to_string(m.SongHistoryLength()); }, "20", "5"},
    {"UserMax", "UserMax", "100", [](M m) { return std::to_string(m.MaxReceivers()); }, "-1",
     "100"},
};

class MountSetting : public testing::TestWithParam<Row> {};

std::string row_name(const testing::TestParamInfo<Row>& info) { return info.param.key; }
} // namespace

INSTANTIATE_TEST_SUITE_P(Rows, MountSetting, testing::ValuesIn(ROWS), row_name);

TEST_P(MountSetting, HasItsDefaultWithoutAValue) {
    EXPECT_EQ(GetParam().effect(*mount_with({})), GetParam().unset);
}

TEST_P(MountSetting, IsReadFromTheSection) {
    EXPECT_EQ(GetParam().effect(*mount_with({{GetParam().key, GetParam().value}})), GetParam().set);
}

TEST_P(MountSetting, IsReadFromDefaultWhenTheSectionLacksIt) {
    Set(Defaults(), GetParam().key_in_default, GetParam().value);
    EXPECT_EQ(GetParam().effect(*mount_with({})), GetParam().set);
}

TEST_P(MountSetting, TakesEffectWhenTheSectionChanges) {
    const auto mount = mount_with({});
    Set(mount->GetConfigNode(), GetParam().key, GetParam().value);
    EXPECT_EQ(GetParam().effect(*mount), GetParam().set);
}

TEST_P(MountSetting, TakesEffectWhenDefaultChanges) {
    const auto mount = mount_with({});
    Set(Defaults(), GetParam().key_in_default, GetParam().value);
    EXPECT_EQ(GetParam().effect(*mount), GetParam().set);
}

TEST_P(MountSetting, ChangesOfDefaultDoNotReachAMountThatSetsItItself) {
    const auto mount = mount_with({{GetParam().key, GetParam().value}});
    Set(Defaults(), GetParam().key_in_default, "0");
    EXPECT_EQ(GetParam().effect(*mount), GetParam().set);
}

TEST_P(MountSetting, GoesBackToItsDefaultWhenItLeavesTheSection) {
    const auto mount = mount_with({{GetParam().key, GetParam().value}});
    Set(mount->GetConfigNode(), GetParam().key, "");
    EXPECT_EQ(GetParam().effect(*mount), GetParam().emptied);
}

TEST_P(MountSetting, GoesBackToDefaultSectionWhenItLeavesItsOwn) {
    Set(Defaults(), GetParam().key_in_default, GetParam().value);
    const auto mount = mount_with({});
    Set(mount->GetConfigNode(), GetParam().key, GetParam().value);
    Set(mount->GetConfigNode(), GetParam().key, "");
    EXPECT_EQ(GetParam().effect(*mount), GetParam().set);
}

TEST(MountSettings, ANewKeyWithAnEmptyValueTakesTheDefault) {
    const auto mount = mount_with({});
    mount->GetConfigNode()->AddChild(std::make_shared<ConfigNode>("MetaInterval", ""));
    mount->GetConfigNode()->AddChild(std::make_shared<ConfigNode>("UserMax", ""));
    EXPECT_EQ(mount->MetaInterval(), 8192U);
    EXPECT_EQ(mount->MaxReceivers(), -1);
}

// The intro shows when a value is taken: its file is read anew.
TEST(MountSettings, WhatChangesNothingIsNotTakenAgain) {
    const TemporaryDirectory directory;
    const std::string shared = directory.Path("shared");
    directory.Write("shared", std::string(1001, 'a'));
    Set(Defaults(), "Intro", shared);
    const auto mount = mount_with({});
    const auto intro = [&mount] {
        int index = 0;
        return mount->GetNextPacketBuffer(index);
    };
    const auto first = intro();
    ASSERT_NE(first, nullptr);
    const auto own = mount->GetConfigNode()->AddChild(std::make_shared<ConfigNode>("Intro", ""));
    EXPECT_EQ(intro(), first);
    own->SetValue(shared);
    EXPECT_EQ(intro(), first);
    directory.Write("another", std::string(1001, 'b'));
    Set(Defaults(), "Intro", directory.Path("another"));
    EXPECT_EQ(intro(), first);
    own->SetValue(directory.Path("another"));
    EXPECT_NE(intro(), first);
}

TEST(MountSettings, TheMountsOwnValueWinsOverDefault) {
    Set(Defaults(), "UserMax", "10");
    EXPECT_EQ(mount_with({{"UserMax", "20"}})->MaxReceivers(), 20);
}

TEST(MountSettings, TimeLimitHeaderUnderItsLongNameMeansNothingInDefault) {
    Set(Defaults(), "NotifyTimelimitHeader", "x-time");
    EXPECT_EQ(mount_with({})->GetNotifications().timelimit_header, "icecast-auth-timelimit");
}

TEST(MountSettings, MetaIntervalIsAtLeast1024) {
    EXPECT_EQ(mount_with({{"MetaInterval", "0"}})->MetaInterval(), 1024U);
    const auto mount = std::make_shared<Mount>("/b", 2, AddSection("2", {{"MetaInterval", "100"}}));
    EXPECT_EQ(mount->MetaInterval(), 1024U);
    mount->SetMetaInterval(1025);
    EXPECT_EQ(mount->MetaInterval(), 1025U);
}

TEST(MountSettings, SongHistoryIsHeldAt50) {
    EXPECT_EQ(mount_with({{"ShowLastSongs", "100"}})->SongHistoryLength(), 50);
    const auto mount =
        std::make_shared<Mount>("/b", 2, AddSection("2", {{"ShowLastSongs", "65536"}}));
    EXPECT_EQ(mount->SongHistoryLength(), 50);
}

TEST(MountSettings, PublicWithACapitalLetterIsLeftToTheSource) {
    EXPECT_EQ(public_state(*mount_with({{"Public", "Always"}})), "source");
    EXPECT_EQ(
        public_state(*std::make_shared<Mount>("/b", 2, AddSection("2", {{"Public", "never"}}))),
        "never");
}

TEST(MountSettings, AlwaysPublicUnlessListenersHaveToLogIn) {
    const auto mount = mount_with({{"Public", "always"}});
    EXPECT_TRUE(mount->Public());
    EXPECT_TRUE(mount->GetMountDescription().is_public);
    Set(mount->GetConfigNode(), "Auth", "1");
    EXPECT_FALSE(mount->Public());
}

TEST(MountSettings, NameFormatWithoutAPlaceIsTheName) {
    const auto mount = mount_with({{"NameFormat", "Station"}});
    mount->SetName("Rock");
    EXPECT_EQ(mount->Name(), "Station");
}

TEST(MountSettings, EveryPlaceInNameFormatTakesTheName) {
    const auto mount = mount_with({{"NameFormat", "%s - %s"}});
    mount->SetName("%s!");
    EXPECT_EQ(mount->Name(), "%s! - %s!");
    EXPECT_EQ(mount->GetMountDescription().name, "%s! - %s!");
}

TEST(MountSettings, RelayWaitOfZeroIsIgnored) {
    const auto mount = mount_with({{"DisconnectWait", "9"}});
    mount->SetRelayDisconnectWaitTime(0);
    EXPECT_EQ(mount->RelayDisconnectWaitTime(), 9U);
}

TEST(MountSettings, EveryRelayOfTheSectionIsTaken) {
    const auto mount = mount_with({{"Relay", "http://a"}, {"Relay", "http://b"}});
    EXPECT_EQ(mount->RelayAddress(), "http://a");
    mount->RemoveRelayAddress("http://a");
    EXPECT_EQ(mount->RelayAddress(), "http://b");
}

TEST(MountSettings, AChangedRelayReplacesTheFormerOne) {
    const auto mount = mount_with({{"Relay", "http://a"}});
    Set(mount->GetConfigNode(), "Relay", "http://b");
    EXPECT_EQ(mount->RelayAddress(), "http://b");
    mount->RemoveRelayAddress("http://b");
    EXPECT_EQ(mount->RelayAddress(), "");
}

TEST(MountSettings, RelaysOfDefaultServeWhileTheSectionNamesNone) {
    Set(Defaults(), "Relay", "http://shared");
    const auto mount = mount_with({{"Relay", ""}});
    EXPECT_EQ(mount->RelayAddress(), "http://shared");
    Set(mount->GetConfigNode(), "Relay", "http://own");
    EXPECT_EQ(mount->RelayAddress(), "http://own");
    mount->RemoveRelayAddress("http://own");
    EXPECT_EQ(mount->RelayAddress(), "");
    Set(mount->GetConfigNode(), "Relay", "");
    EXPECT_EQ(mount->RelayAddress(), "http://shared");
}

TEST(MountSettings, ARelayThatDefaultNamesAsWellStays) {
    Set(Defaults(), "Relay", "http://shared");
    const auto mount = mount_with({});
    Set(mount->GetConfigNode(), "Relay", "http://shared");
    EXPECT_EQ(mount->RelayAddress(), "http://shared");
}

TEST(MountSettings, AnEmptyRelayLineDoesNotHideTheOthersOfTheSection) {
    Set(Defaults(), "Relay", "http://shared");
    const auto mount = mount_with({{"Relay", ""}, {"Relay", "http://own"}});
    EXPECT_EQ(mount->RelayAddress(), "http://own");
    mount->RemoveRelayAddress("http://own");
    EXPECT_EQ(mount->RelayAddress(), "");
}

TEST(MountSettings, DefaultMountNoLongerAnswersToTheRootWhenSwitchedOff) {
    const auto mount = mount_with({{"IsDefault", "yes"}});
    Set(mount->GetConfigNode(), "IsDefault", "no");
    EXPECT_FALSE(mount->IsSymLink("/"));
}

TEST(MountSettings, ChangesGoOnToTheRoot) {
    const auto mount = mount_with({{"UserMax", "1"}});
    EXPECT_FALSE(
        mount->OnConfigNodeChanged(mount->GetConfigNode()->GetChild("UserMax", false), ""));
    Set(mount->GetConfigNode(), "UserMax", "");
    EXPECT_FALSE(mount->GetConfigNode()->ChildExists("UserMax"));
}

TEST(MountSettings, AMountThatIsGoneHearsNothing) {
    const auto section = AddSection("1", {});
    std::make_shared<Mount>("/live", 1, section).reset();
    Set(section, "UserMax", "5");
    Set(Defaults(), "UserMax", "5");
}

TEST(MountSettings, RealmIsNamedOnlyWhenAnotherServerDecides) {
    const auto mount = mount_with({{"NotifyAuthRealm", "Club"}});
    EXPECT_EQ(mount->Realm(), "");
    Set(mount->GetConfigNode(), "NotifyListenerAdd", "http://h/a");
    EXPECT_EQ(mount->Realm(), "Club");
}

TEST(MountSettings, NobodyIsAuthenticatedByTheMount) {
    EXPECT_FALSE(mount_with({})->IsAuthenticated("admin", "admin"));
}

TEST(MountSettings, UserAndPassMakeAnAccountOfTheMount) {
    mount_with({{"User", "dj"}, {"Pass", "secret"}});
    const auto account = UserList::Get("dj", "secret");
    ASSERT_NE(account, UserList::GetAnonymousUser());
    EXPECT_EQ(account->GetGroup(), User::MOUNT_MANAGER);
    EXPECT_EQ(account->GetAllProperties(1, true), (User::Properties{{1, {{"*", User::ALL}}}}));
}

TEST(MountSettings, MountsThatShareUserAndPassShareTheAccount) {
    const Settings login = {{"User", "dj"}, {"Pass", "secret"}};
    mount_with(login);
    std::make_shared<Mount>("/b", 2, AddSection("2", login));
    const auto account = UserList::Get("dj", "secret");
    EXPECT_TRUE(account->IsMountSourceUser(1));
    EXPECT_TRUE(account->IsMountSourceUser(2));
}

TEST(MountSettings, AnAccountOfAnotherGroupGetsNoMountBySharingItsLogin) {
    const auto listener = UserList::Add("dj", "secret");
    listener->SetGroup(User::LISTENER);
    mount_with({{"User", "dj"}, {"Pass", "secret"}});
    EXPECT_EQ(listener->GetGroup(), User::LISTENER);
    EXPECT_TRUE(listener->GetAllProperties(-1, false).empty());
}

TEST(MountSettings, UserWithoutPassMakesNoAccount) {
    mount_with({{"User", "dj"}});
    EXPECT_EQ(UserList::Get("dj", ""), UserList::GetAnonymousUser());
}

TEST(MountSettings, UserAndPassInDefaultMeanNothing) {
    Set(Defaults(), "User", "dj");
    Set(Defaults(), "Pass", "secret");
    mount_with({});
    EXPECT_EQ(UserList::Get("dj", "secret"), UserList::GetAnonymousUser());
}

TEST(MountSettings, ATakenNameDoesNotTurnStrangersIntoManagers) {
    UserList::Add("dj", "other");
    mount_with({{"User", "dj"}, {"Pass", "secret"}});
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_TRUE(UserList::GetAnonymousUser()->GetAllProperties(-1, false).empty());
}

TEST(MountSettings, KnownKeysInTheOrderOfTheConfigurationPages) {
    const std::vector<std::string> expected = {"Auth",
                                               "AvgBitrateLimit",
                                               "Backup",
                                               "Directory",
                                               "DisconnectWait",
                                               "Intro",
                                               "IP",
                                               "IPUserMax",
                                               "IsDefault",
                                               "ListenerTimer",
                                               "MetaInterval",
                                               "NameFormat",
                                               "Note",
                                               "NotifyAuthHeader",
                                               "NotifyAuthRealm",
                                               "NotifyListenerAdd",
                                               "NotifyListenerRemove",
                                               "NotifyMountAdd",
                                               "NotifyMountRemove",
                                               "NotifyPass",
                                               "NotifyTimeLimitHeader",
                                               "NotifyUser",
                                               "Port",
                                               "Public",
                                               "PublicRelays",
                                               "Relay",
                                               "ShowLastSongs",
                                               "UserMax"};
    EXPECT_EQ(Mount::GetKnownConfigKeys(), expected);
}

TEST(MountSettings, DeletingTheSectionEmptiesItAndEndsTheListening) {
    const auto mount = mount_with({{"Mount", "/live"}, {"UserMax", "5"}});
    mount->DeleteConfigNode();
    EXPECT_TRUE(Sections()->GetChild("1", false)->GetAllChildren(false).empty());
    EXPECT_EQ(mount->MaxReceivers(), 5);
    Set(Defaults(), "UserMax", "6");
    EXPECT_EQ(mount->MaxReceivers(), 5);
}
