#include "accounts/UserList.h"

#include "config/Config.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/LogLines.h"
#include "support/Sections.h"
#include "support/SentRequest.h"
#include "support/TemporaryDirectory.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string CREDENTIALS = "Authorization: Basic am9lOnNlY3JldA==\r\n"; // joe:secret

std::shared_ptr<User> add_joe(User::UserGroup group, int mount) {
    const auto joe = UserList::Add("joe", "secret");
    joe->SetGroup(group);
    joe->AddProperty(mount, "*", User::ALL);
    return joe;
}

std::shared_ptr<User> who(const std::string& headers) {
    const SentRequest sent(headers);
    return UserList::Get(sent.request);
}

std::vector<std::string> names(int mount) {
    std::vector<std::string> found;
    for (const auto& [name, user] : UserList::GetUserList(mount))
        found.push_back(name);
    return found;
}

} // namespace

TEST(UserList, PseudoUsersAreThereFromTheStart) {
    EXPECT_EQ(UserList::GetAnonymousUser()->Username(), "Anonymous");
    EXPECT_EQ(UserList::GetBanUser()->Username(), "Banned Users");
    EXPECT_EQ(UserList::GetReserveUser()->Username(), "Reserved Users");
    EXPECT_EQ(UserList::GetSystemUser()->Username(), "System");
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::GetBanUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::GetReserveUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::GetSystemUser()->GetGroup(), User::BANNED);
    EXPECT_THAT(names(-1), IsEmpty());
}

TEST(UserList, InitKeepsAccountsAndPseudoUsers) {
    const auto joe = add_joe(User::LISTENER, -1);
    const auto anonymous = UserList::GetAnonymousUser();
    UserList::Init("/nowhere/users.xml");
    EXPECT_EQ(UserList::Get("joe", "secret"), joe);
    EXPECT_EQ(UserList::GetAnonymousUser(), anonymous);
}

TEST(UserList, SettingsNameAnAdministrator) {
    Config::Get("AdminUser", true)->SetValue("boss");
    Config::Get("AdminPass", true)->SetValue("word");
    UserList::Init("/nowhere/users.xml");
    const auto boss = UserList::Get("boss", "word");
    EXPECT_EQ(boss->GetGroup(), User::ADMINISTRATOR);
    EXPECT_EQ(boss->GetAllProperties(-1, true).at(-1).at("*"), User::ALL);
    EXPECT_EQ(Config::Get("AdminPass", false)->GetValue(""), "word");
}

TEST(UserList, SettingsWithoutAPasswordMakeNobodyAnAdministrator) {
    Config::Get("AdminUser", true)->SetValue("boss");
    UserList::Init("/nowhere/users.xml");
    EXPECT_THAT(names(-1), IsEmpty());
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
}

TEST(UserList, SettingsThatNameATakenAccountPromoteNobody) {
    const auto joe = add_joe(User::LISTENER, 3);
    Config::Get("AdminUser", true)->SetValue("joe");
    Config::Get("AdminPass", true)->SetValue("word");
    UserList::Init("/nowhere/users.xml");
    EXPECT_EQ(joe->GetGroup(), User::LISTENER);
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_THAT(UserList::GetAnonymousUser()->GetAllProperties(-1, false), IsEmpty());
}

TEST(UserList, NameAndPasswordGiveTheAccount) {
    const auto joe = add_joe(User::LISTENER, -1);
    EXPECT_EQ(UserList::Get("joe", "secret"), joe);
    EXPECT_EQ(UserList::Get("joe", ""), joe);
    EXPECT_EQ(UserList::Get("joe", "Secret"), UserList::GetAnonymousUser());
    EXPECT_EQ(UserList::Get("Joe", "secret"), UserList::GetAnonymousUser());
    EXPECT_EQ(UserList::Get("", ""), UserList::GetAnonymousUser());
}

TEST(UserList, GroupsBelowTwoDoNotLogIn) {
    const auto joe = add_joe(User::BANNED, -1);
    EXPECT_EQ(UserList::Get("joe", "secret"), UserList::GetAnonymousUser());
    joe->SetGroup(User::ANONYMOUS);
    EXPECT_EQ(UserList::Get("joe", "secret"), UserList::GetAnonymousUser());
    joe->SetGroup(User::ADMINISTRATOR);
    EXPECT_EQ(UserList::Get("joe", "secret"), joe);
}

TEST(UserList, NewAccountCannotLogInYet) {
    EXPECT_EQ(UserList::Add("joe", "secret")->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::Get("joe", "secret"), UserList::GetAnonymousUser());
    EXPECT_THAT(names(-1), ElementsAre("joe"));
}

TEST(UserList, EmptyTextsMakeNoAccount) {
    EXPECT_EQ(UserList::Add("", "secret"), UserList::GetAnonymousUser());
    EXPECT_EQ(UserList::Add("joe", ""), UserList::GetAnonymousUser());
    EXPECT_THAT(names(-1), IsEmpty());
}

TEST(UserList, TakenNameIsLoggedAndKeepsItsAccount) {
    LogLines log;
    const auto joe = add_joe(User::LISTENER, -1);
    EXPECT_EQ(UserList::Add("joe", "other"), UserList::GetAnonymousUser());
    EXPECT_EQ(UserList::Get("joe", "secret"), joe);
    EXPECT_THAT(log.All(), ElementsAre("User joe already exists"));
}

TEST(UserList, RemovedAccountIsGoneAndStrangersAreIgnored) {
    add_joe(User::LISTENER, -1);
    UserList::Remove("");
    UserList::Remove("stranger");
    EXPECT_THAT(names(-1), ElementsAre("joe"));
    UserList::Remove("joe");
    EXPECT_THAT(names(-1), IsEmpty());
}

TEST(UserList, StrangerIsAnonymous) { EXPECT_EQ(who(""), UserList::GetAnonymousUser()); }

TEST(UserList, LoginWithAFittingFilterIsTheAccount) {
    const auto joe = add_joe(User::LISTENER, -1);
    EXPECT_EQ(who(CREDENTIALS), joe);
}

TEST(UserList, BanComesBeforeTheLogin) {
    add_joe(User::ADMINISTRATOR, -1);
    UserList::GetBanUser()->AddProperty(-1, "127.0.0.1", User::IP);
    EXPECT_EQ(who(CREDENTIALS), UserList::GetBanUser());
}

TEST(UserList, BanOfOneMountIsNotABan) {
    UserList::GetBanUser()->AddProperty(1, "127.0.0.1", User::IP);
    EXPECT_EQ(who(""), UserList::GetAnonymousUser());
}

TEST(UserList, AdministratorWithAnEmptyTableCannotLogIn) {
    UserList::Add("joe", "secret")->SetGroup(User::ADMINISTRATOR);
    EXPECT_EQ(who(CREDENTIALS), UserList::GetAnonymousUser());
}

TEST(UserList, AccountOfOneMountLogsInWhileTheMountExists) {
    const auto joe = add_joe(User::LISTENER, 5);
    AddSection("5", {{"Mount", "/five"}});
    MountList::Init();
    EXPECT_EQ(who(CREDENTIALS), joe);
    MountList::Remove(MountList::GetMount(5));
    EXPECT_EQ(who(CREDENTIALS), UserList::GetAnonymousUser());
}

TEST(UserList, WrongPasswordFromAReservedAddressIsTheReserveUser) {
    add_joe(User::LISTENER, -1)->SetPassword("other");
    UserList::GetReserveUser()->AddProperty(-1, "127.0.0.0/8", User::SUBNET);
    EXPECT_EQ(who(CREDENTIALS), UserList::GetReserveUser());
}

TEST(UserList, AccountComesBeforeTheReserve) {
    const auto joe = add_joe(User::LISTENER, -1);
    UserList::GetReserveUser()->AddProperty(-1, "*", User::ALL);
    EXPECT_EQ(who(CREDENTIALS), joe);
    EXPECT_EQ(who(""), UserList::GetReserveUser());
}

TEST(UserList, NameAloneIsNoLogin) {
    add_joe(User::LISTENER, -1);
    EXPECT_EQ(who("Authorization: Basic am9lOg==\r\n"), UserList::GetAnonymousUser()); // joe:
    EXPECT_EQ(who("Authorization: Basic am9l\r\n"), UserList::GetAnonymousUser());     // joe
}

TEST(UserList, AccountsOfAMountLeaveOutAdministrators) {
    add_joe(User::LISTENER, 2);
    UserList::Add("all", "x")->AddProperty(-1, "*", User::ALL);
    UserList::Add("other", "x")->AddProperty(3, "*", User::ALL);
    const auto boss = UserList::Add("boss", "x");
    boss->SetGroup(User::ADMINISTRATOR);
    boss->AddProperty(2, "*", User::ALL);
    EXPECT_THAT(names(2), ElementsAre("all", "joe"));
    EXPECT_THAT(names(-1), ElementsAre("all", "boss", "joe", "other"));
}

TEST(UserList, RemovedMountLeavesTheAccountsAndNotTheBans) {
    const auto joe = add_joe(User::LISTENER, 2);
    UserList::GetBanUser()->AddProperty(2, "*", User::ALL);
    UserList::MountRemoved(2);
    EXPECT_THAT(joe->GetAllProperties(-1, false), IsEmpty());
    EXPECT_THAT(UserList::GetBanUser()->GetAllProperties(2, true), testing::SizeIs(1));
}

TEST(UserList, IsAskedWhileItChangesAndIsWritten) {
    const TemporaryDirectory folder;
    UserList::Init(folder.Path("users.xml"));
    const auto joe = add_joe(User::LISTENER, -1);
    const SentRequest sent(CREDENTIALS);
    std::atomic<bool> done{false};
    std::atomic<int> strangers{0};
    std::thread asker([&] {
        while (!done)
            if (UserList::Get(sent.request) != joe) ++strangers;
    });
    std::thread writer([] {
        for (int i = 0; i < 20; ++i)
            UserList::Serialize();
    });
    for (int i = 0; i < 300; ++i) {
        UserList::Add("other" + std::to_string(i % 7), "x");
        UserList::MountRemoved(4);
        UserList::Remove("other" + std::to_string(i % 5));
    }
    writer.join();
    done = true;
    asker.join();
    EXPECT_EQ(strangers, 0);
    EXPECT_TRUE(folder.Has("users.xml"));
}
