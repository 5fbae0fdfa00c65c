// What the buttons of the listener table do.

#include "support/FormPost.h"
#include "support/LogLines.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using testing::HasSubstr;
using Tables = User::Properties;

const std::string ADMIN = "root:secret";
const std::string MANAGER = "manager:secret"; // of /live and /other

struct ListenerActions : testing::Test {
    ListenerActions() {
        make_account("root", "secret", User::ADMINISTRATOR);
        make_account("manager", "secret", User::MOUNT_MANAGER, 1)->AddProperty(2, "*", User::ALL);
        for (OnAir* on_air : {&air, &other, &foreign})
            on_air->Connect();
    }

    static std::unique_ptr<Visitor> listen(const std::string& target,
                                           const std::string& fields = {}) {
        auto visitor =
            std::make_unique<Visitor>("GET " + target + " HTTP/1.0\r\n" + fields + "\r\n");
        ReceiverList::Add(visitor->receiver);
        visitor->Slice();
        return visitor;
    }
    // The button is pressed with this listener ticked, on the page of a mount or of all.
    static void press(const std::string& button, const Visitor& visitor,
                      const std::string& login = ADMIN, int page = -1, FormPost::Fields more = {}) {
        more["action"] = button;
        more[visitor.receiver->GetUUID()] = "on";
        FormPost(login, more).panel.create_listener_stats(page);
    }
    static void move(const Visitor& visitor, const std::string& place,
                     const std::string& login = ADMIN) {
        press("Move To:", visitor, login, -1, {{"destStationId", place}});
    }
    // Whether the connection is ended by its next slices.
    static bool is_kicked(Visitor& visitor) {
        visitor.Slice(2);
        return visitor.receiver->Status() == 3;
    }
    static Tables bans() { return UserList::GetBanUser()->GetAllProperties(-1, false); }
    static Tables reserves() { return UserList::GetReserveUser()->GetAllProperties(-1, false); }
    static Tables rights(const std::string& name) {
        return UserList::Get(name, "")->GetAllProperties(-1, false);
    }

    OnAir air{"/live", 1};
    OnAir other{"/other", 2};
    OnAir foreign{"/foreign", 3};
};

// ---- Kick and ban -------------------------------------------------------------------------------

TEST_F(ListenerActions, KickEndsTheListenerAndNoOther) {
    const auto visitor = listen("/live");
    const auto neighbour = listen("/live");
    press("Kick", *visitor);
    EXPECT_TRUE(is_kicked(*visitor));
    EXPECT_FALSE(is_kicked(*neighbour));
    EXPECT_EQ(bans(), Tables());
}

TEST_F(ListenerActions, SeveralListenersGoAtOnce) {
    const auto first = listen("/live");
    const auto second = listen("/other");
    press("Kick", *first, MANAGER, -1, {{second->receiver->GetUUID(), "on"}});
    EXPECT_TRUE(is_kicked(*first));
    EXPECT_TRUE(is_kicked(*second));
}

TEST_F(ListenerActions, AnAdministratorBansWhereHeIs) {
    auto visitor = listen("/live");
    press("Ban", *visitor);
    EXPECT_TRUE(is_kicked(*visitor));
    EXPECT_EQ(bans(), (Tables{{-1, {{"127.0.0.1", User::IP}}}}));

    UserList::GetBanUser()->RemoveMount(-1);
    visitor = listen("/live");
    press("Ban", *visitor, ADMIN, 2);
    EXPECT_TRUE(is_kicked(*visitor));
    EXPECT_EQ(bans(), (Tables{{2, {{"127.0.0.1", User::IP}}}}));
}

TEST_F(ListenerActions, AManagerBansOnAllHisMounts) {
    const auto visitor = listen("/live");
    press("Ban", *visitor, MANAGER, 1);
    EXPECT_EQ(bans(), (Tables{{1, {{"127.0.0.1", User::IP}}}, {2, {{"127.0.0.1", User::IP}}}}));
}

TEST_F(ListenerActions, BanNetTakesTheAddressesAroundAsWell) {
    const auto visitor = listen("/live");
    press("Ban Net", *visitor, ADMIN, 1);
    EXPECT_TRUE(is_kicked(*visitor));
    EXPECT_EQ(bans(), (Tables{{1, {{"127.0.0.0/24", User::SUBNET}}}}));
}

TEST_F(ListenerActions, BanUserAgentTakesTheHeaderAsItCame) {
    const auto visitor = listen("/live", "User-Agent: \"><script>\r\n");
    press("Ban User Agent", *visitor, ADMIN, 1);
    EXPECT_TRUE(is_kicked(*visitor));
    EXPECT_EQ(bans(), (Tables{{1, {{"\"><script>", User::USER_AGENT}}}}));
}

TEST_F(ListenerActions, AListenerWithoutAnAgentIsKickedOnly) {
    const auto visitor = listen("/live");
    press("Ban User Agent", *visitor);
    EXPECT_TRUE(is_kicked(*visitor));
    EXPECT_EQ(bans(), Tables());
}

TEST_F(ListenerActions, AnAgentThatTheFileCouldNotHoldIsNoFilter) {
    for (const std::string& agent : {std::string("Player\0x", 8), std::string("Player\rx")}) {
        const auto visitor = listen("/live", "User-Agent: " + agent + "\r\n");
        EXPECT_EQ(visitor->receiver->GetRequest()->GetHeader("User-Agent"), agent);
        press("Ban User Agent", *visitor);
        EXPECT_TRUE(is_kicked(*visitor));
    }
    EXPECT_EQ(bans(), Tables());
}

TEST_F(ListenerActions, BansAreInTheFileAtOnce) {
    const TemporaryDirectory directory;
    UserList::Init(directory.Path("users.xml"));
    const auto visitor = listen("/live");
    press("Kick", *visitor);
    EXPECT_FALSE(directory.Has("users.xml"));
    press("Ban", *visitor);
    EXPECT_THAT(directory.Read("users.xml"), HasSubstr(R"(<filter type="IP">127.0.0.1</filter>)"));
}

// ---- VIP ----------------------------------------------------------------------------------------

TEST_F(ListenerActions, VipReservesForTheAddressOfAStranger) {
    const auto visitor = listen("/live");
    press("VIP", *visitor, ADMIN, 1);
    EXPECT_EQ(reserves(), (Tables{{1, {{"127.0.0.1", User::IP}}}}));
    EXPECT_FALSE(is_kicked(*visitor));
}

TEST_F(ListenerActions, HalfALoginIsNone) {
    const auto name_only = listen("/live", basic("joe:"));
    const auto password_only = listen("/live", basic(":x"));
    press("VIP", *name_only, ADMIN, 1);
    EXPECT_EQ(reserves(), (Tables{{1, {{"127.0.0.1", User::IP}}}}));
    press("VIP", *password_only, ADMIN, 2);
    EXPECT_EQ(reserves(), (Tables{{1, {{"127.0.0.1", User::IP}}}, {2, {{"127.0.0.1", User::IP}}}}));
    EXPECT_EQ(UserList::Get("joe", ""), UserList::GetAnonymousUser());
}

TEST_F(ListenerActions, VipMakesAnAccountOfAListenersLogin) {
    const auto visitor = listen("/live", basic("joe:x"));
    press("VIP", *visitor, MANAGER, 1);
    const auto account = UserList::Get("joe", "x");
    EXPECT_EQ(account->GetGroup(), User::LISTENER);
    EXPECT_EQ(account->GetAllProperties(-1, false),
              (Tables{{1, {{"*", User::ALL}}}, {2, {{"*", User::ALL}}}}));
    EXPECT_EQ(reserves(), Tables());
}

TEST_F(ListenerActions, VipOfAnAdministratorNamesEachMount) {
    const auto visitor = listen("/live", basic("joe:x"));
    press("VIP", *visitor, ADMIN, 1);
    EXPECT_EQ(rights("joe"),
              (Tables{{1, {{"*", User::ALL}}}, {2, {{"*", User::ALL}}}, {3, {{"*", User::ALL}}}}));
}

TEST_F(ListenerActions, VipAddsToAListenerAccount) {
    make_account("joe", "x", User::LISTENER, 3);
    const auto visitor = listen("/live", basic("joe:x"));
    press("VIP", *visitor, MANAGER);
    EXPECT_EQ(rights("joe"),
              (Tables{{1, {{"*", User::ALL}}}, {2, {{"*", User::ALL}}}, {3, {{"*", User::ALL}}}}));
}

TEST_F(ListenerActions, VipLeavesAccountsOfOtherGroupsAlone) {
    make_account("boss", "x", User::ADMINISTRATOR);
    const auto visitor = listen("/live", basic("boss:x"));
    press("VIP", *visitor, MANAGER);
    EXPECT_EQ(UserList::Get("boss", "")->GetGroup(), User::ADMINISTRATOR);
    EXPECT_EQ(rights("boss"), (Tables{{-1, {{"*", User::ALL}}}}));
}

TEST_F(ListenerActions, VipForATakenNameDoesNotPromoteStrangers) {
    make_account("joe", "right", User::LISTENER, 3);
    const auto visitor = listen("/live", basic("joe:wrong"));
    press("VIP", *visitor, MANAGER);
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::GetAnonymousUser()->GetAllProperties(-1, false), Tables());
    EXPECT_EQ(rights("joe"), (Tables{{3, {{"*", User::ALL}}}}));
}

TEST_F(ListenerActions, VipMakesNoAccountThatTheFileCouldNotHold) {
    for (const std::string& login :
         {std::string("jo\ne:x"), std::string("root\0:x", 7), std::string("joe:x\r")}) {
        const auto visitor = listen("/live", basic(login));
        press("VIP", *visitor);
    }
    EXPECT_EQ(UserList::GetUserList(-1).size(), 2U);
}

// ---- Moving -------------------------------------------------------------------------------------

TEST_F(ListenerActions, MoveTakesTheListenerToAnotherMount) {
    LogLines log;
    const auto visitor = listen("/live");
    move(*visitor, "2", MANAGER);
    EXPECT_EQ(visitor->receiver->GetMount(), other.mount);
    EXPECT_EQ(other.mount->GetReceiverList().size(), 1U);
    EXPECT_EQ(air.mount->GetReceiverList().size(), 0U);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Moving from /live to /other"));
}

TEST_F(ListenerActions, WhatIsNoMountOfTheUsersIsNoPlace) {
    LogLines log;
    const auto visitor = listen("/live");
    for (const char* place : {"", "0", "-1", "-", "x", "2x", "9", "99999999999999999999", "3"})
        move(*visitor, place, MANAGER);
    EXPECT_EQ(visitor->receiver->GetMount(), air.mount);
    EXPECT_THAT(log.All(), testing::Each(testing::Not(HasSubstr("Moving from"))));
    move(*visitor, "3", ADMIN);
    EXPECT_EQ(visitor->receiver->GetMount(), foreign.mount);
}

// ---- Who and what is left alone -----------------------------------------------------------------

TEST_F(ListenerActions, ListenersOfForeignMountsAreLeftAlone) {
    const auto visitor = listen("/foreign");
    for (const char* button : {"Kick", "Ban", "Ban Net", "Ban User Agent", "VIP"})
        press(button, *visitor, MANAGER);
    move(*visitor, "1", MANAGER);
    EXPECT_FALSE(is_kicked(*visitor));
    EXPECT_EQ(bans(), Tables());
    EXPECT_EQ(reserves(), Tables());
    EXPECT_EQ(visitor->receiver->GetMount(), foreign.mount);
}

TEST_F(ListenerActions, ConnectionsThatHearNothingAreLeftAlone) {
    Visitor reading;
    ReceiverList::Add(reading.receiver);
    press("Kick", reading);
    press("Ban", reading);
    move(reading, "1");
    EXPECT_FALSE(is_kicked(reading));
    EXPECT_EQ(bans(), Tables());
}

TEST_F(ListenerActions, AStrangerAndAnAccountWithoutMountsDoNothing) {
    make_account("listener", "secret", User::LISTENER);
    make_account("watcher", "secret", User::STATISTICS);
    const auto visitor = listen("/live");
    for (const char* login : {"nobody:x", "manager:wrong", "listener:secret", "watcher:secret"})
        press("Ban", *visitor, login, 1);
    EXPECT_FALSE(is_kicked(*visitor));
    EXPECT_EQ(bans(), Tables());
}

TEST_F(ListenerActions, UnknownButtonsAndBoxesThatAreNotTickedDoNothing) {
    const auto visitor = listen("/live");
    press("kick", *visitor);
    press("", *visitor);
    FormPost(ADMIN, {{"action", "Kick"}, {visitor->receiver->GetUUID(), ""}})
        .panel.create_listener_stats(-1);
    FormPost(ADMIN, {}, "/admin/listeners?action=Kick&" + visitor->receiver->GetUUID() + "=on")
        .panel.create_listener_stats(-1);
    FormPost(ADMIN, {{"action", "Kick"}, {"no-such-listener", "on"}})
        .panel.create_listener_stats(-1);
    EXPECT_FALSE(is_kicked(*visitor));
}

} // namespace
