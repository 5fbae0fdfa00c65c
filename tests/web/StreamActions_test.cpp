#include "web/StreamActions.h"

#include "support/PanelRequest.h"
#include "support/Sections.h"

#include <gtest/gtest.h>

namespace {

using Mounts = std::vector<std::shared_ptr<Mount>>;
using Addresses = std::vector<std::string>;

struct StreamActions : testing::Test {
    OnAir live{"/live", 1};
    OnAir more{"/more", 2};
    Mounts mounts = MountList::GetAllMounts(false);

    void post(const PanelRequest::Form& form, bool is_admin = true) {
        run_list_action(*PanelRequest("/admin", "", form).request, is_admin, mounts);
    }
    void post_to_live(const std::string& action) {
        run_mount_action(*PanelRequest("/admin/stream/1/", "", {{"action", action}}).request,
                         *live.mount);
    }
    Addresses listed() const {
        Addresses addresses;
        for (const auto& mount : mounts)
            addresses.push_back(mount->Address());
        return addresses;
    }
    static std::string setting(const std::string& id, const std::string& key) {
        return Sections()->GetChild(id, false)->GetChild(key, false)->GetValue("");
    }
    static bool stops(const OnAir& stream) {
        return comes_true([&] { return !stream.mount->IsRunning(); });
    }
    static bool is_dropped(const OnAir& stream) {
        return comes_true([&] { return !stream.mount->IsConnected(); });
    }
};

// ---- Making mounts ------------------------------------------------------------------------------

TEST_F(StreamActions, AMountIsMade) {
    post({{"action", "Create"}, {"addr", "/new"}});
    EXPECT_EQ(listed(), (Addresses{"/live", "/more", "/new"}));
    const auto made = MountList::GetMount("/new");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->GetID(), 3);
    EXPECT_TRUE(made->IsRunning());
    EXPECT_EQ(setting("3", "Mount"), "/new");
    made->WaitForStop();
}

TEST_F(StreamActions, TheAddressGetsItsSlash) {
    post({{"action", "Create"}, {"addr", "new"}});
    post({{"action", "Create"}, {"addr", "a/b"}});
    EXPECT_EQ(listed(), (Addresses{"/a/b", "/live", "/more", "/new"}));
    MountList::GetMount("/new")->WaitForStop();
    MountList::GetMount("/a/b")->WaitForStop();
}

TEST_F(StreamActions, AMountWithoutAnAddressIsNotMade) {
    post({{"action", "Create"}, {"addr", ""}});
    post({{"action", "Create"}, {"addr", " \t"}});
    post({{"action", "Create"}});
    EXPECT_EQ(MountList::GetAllMounts(false).size(), 2U);
}

TEST_F(StreamActions, TheAddressesOfTheDefaultMountAreNotGivenAway) {
    for (const char* address : {"/", "/;", "/;stream.mp3", ";stream.mp3", "/a/;b"})
        post({{"action", "Create"}, {"addr", address}});
    EXPECT_EQ(MountList::GetAllMounts(false).size(), 2U);
}

TEST_F(StreamActions, BlanksAroundAnAddressAreNoneOfIt) {
    post({{"action", "Create"}, {"addr", " /a b "}});
    EXPECT_NE(MountList::GetMount("/a b", "", ""), nullptr);
}

TEST_F(StreamActions, AnAddressEndsAtTheFirstLineEnd) {
    post({{"action", "Create"}, {"addr", "/a\r\nAdminPass=x"}});
    post({{"action", "Create"}, {"addr", "/b\nAdminPass=x"}});
    post({{"action", "Create"}, {"addr", std::string("/c\0x", 4)}});
    post({{"action", "Create"}, {"addr", "\n/d"}});
    EXPECT_EQ(listed(), (Addresses{"/a", "/b", "/c", "/live", "/more"}));
    EXPECT_EQ(setting("3", "Mount"), "/a");
    for (const auto& mount : mounts)
        mount->WaitForStop();
}

TEST_F(StreamActions, ATakenAddressStaysWithItsMount) {
    const auto before = MountList::GetAllMounts(false);
    post({{"action", "Create"}, {"addr", "/live"}});
    EXPECT_EQ(MountList::GetAllMounts(false), before);
    EXPECT_FALSE(Sections()->ChildExists("3"));
}

TEST_F(StreamActions, OnlyAdministratorsMakeMounts) {
    post({{"action", "Create"}, {"addr", "/new"}}, false);
    EXPECT_FALSE(MountList::GetMount("/new"));
    EXPECT_EQ(listed(), (Addresses{"/live", "/more"}));
}

TEST_F(StreamActions, MountsThatAreMadeAtOnceHaveIdsOfTheirOwn) {
    std::vector<std::thread> posters;
    for (int number = 0; number < 8; ++number)
        posters.emplace_back([number] {
            Mounts list;
            const PanelRequest visit("/admin", "",
                                     {{"action", "Create"}, {"addr", std::to_string(number)}});
            run_list_action(*visit.request, true, list);
        });
    for (std::thread& poster : posters)
        poster.join();
    for (int id = 1; id <= 10; ++id) {
        ASSERT_TRUE(MountList::GetMount(id)) << id;
        MountList::GetMount(id)->WaitForStop();
    }
}

// ---- The ticked mounts --------------------------------------------------------------------------

TEST_F(StreamActions, ATickedSourceIsDroppedAndItsMountStays) {
    live.Connect();
    more.Connect();
    post({{"action", "Kick"}, {"/live", "on"}});
    EXPECT_TRUE(is_dropped(live));
    EXPECT_TRUE(live.mount->IsRunning());
    EXPECT_TRUE(more.mount->IsConnected());
}

TEST_F(StreamActions, WithNothingTickedNothingHappens) {
    live.Connect();
    for (const char* action : {"Kick", "Disable", "Delete"}) {
        post({{"action", action}});
        post({{"action", action}, {"/live", ""}});
        post({{"action", action}, {"/gone", "on"}});
    }
    EXPECT_TRUE(live.mount->IsConnected());
    EXPECT_EQ(setting("1", "Disabled"), "");
    EXPECT_EQ(MountList::GetAllMounts(false).size(), 2U);
}

TEST_F(StreamActions, TickedMountsAreDisabledAndEnabled) {
    post({{"action", "Disable"}, {"/live", "on"}, {"/more", "on"}});
    EXPECT_EQ(setting("1", "Disabled") + setting("2", "Disabled"), "TrueTrue");
    EXPECT_TRUE(stops(live) && stops(more));
    post({{"action", "Enable"}, {"/more", "on"}});
    EXPECT_TRUE(live.mount->IsDisabled());
    EXPECT_TRUE(more.mount->IsRunning());
    EXPECT_FALSE(Sections()->GetChild("2", false)->ChildExists("Disabled"));
}

TEST_F(StreamActions, AMountThatIsEnabledBeforeItHasStoppedRuns) {
    for (int round = 0; round < 50; ++round) {
        post({{"action", "Disable"}, {"/live", "on"}});
        post({{"action", "Enable"}, {"/live", "on"}});
    }
    // A source that comes while the mount is still closing down is sent away with those before it.
    for (int attempt = 0; attempt < 3 && !live.mount->IsConnected(); ++attempt)
        live.Connect();
    EXPECT_TRUE(live.mount->IsConnected());
}

TEST_F(StreamActions, EnablingWhatIsNotDisabledMakesNoSetting) {
    post({{"action", "Enable"}, {"/live", "on"}});
    EXPECT_FALSE(Sections()->GetChild("1", false)->ChildExists("Disabled"));
}

TEST_F(StreamActions, ADeletedMountIsGone) {
    live.Connect();
    post({{"action", "Delete"}, {"/live", "on"}});
    EXPECT_EQ(listed(), (Addresses{"/more"}));
    EXPECT_FALSE(MountList::GetMount("/live"));
    EXPECT_FALSE(live.mount->IsRunning());
    EXPECT_TRUE(Sections()->GetChild("1", false)->GetAllChildren(false).empty());
}

TEST_F(StreamActions, OnlyAdministratorsDelete) {
    post({{"action", "Delete"}, {"/live", "on"}}, false);
    EXPECT_EQ(listed(), (Addresses{"/live", "/more"}));
    EXPECT_TRUE(MountList::GetMount("/live"));
}

TEST_F(StreamActions, ManagersDoTheRest) {
    live.Connect();
    post({{"action", "Kick"}, {"/live", "on"}}, false);
    EXPECT_TRUE(is_dropped(live));
    post({{"action", "Disable"}, {"/live", "on"}}, false);
    EXPECT_TRUE(stops(live));
    post({{"action", "Enable"}, {"/live", "on"}}, false);
    EXPECT_TRUE(live.mount->IsRunning());
}

TEST_F(StreamActions, OfOthersMountsNoneIsTouched) {
    mounts = {live.mount};
    post({{"action", "Disable"}, {"/more", "on"}});
    EXPECT_FALSE(more.mount->IsDisabled());
}

TEST_F(StreamActions, AMountThatHasGoneLeavesNoSettings) {
    MountList::Remove(live.mount);
    post({{"action", "Disable"}, {"/live", "on"}});
    EXPECT_EQ(setting("1", "Disabled"), "");
}

TEST_F(StreamActions, OtherWordsDoNothing) {
    live.Connect();
    for (const char* action : {"", "kick", "Reset Stats", "Anything"})
        post({{"action", action}, {"/live", "on"}});
    EXPECT_TRUE(live.mount->IsConnected());
    EXPECT_EQ(setting("1", "Disabled"), "");
}

// Actions are fields of a form, and no address ever makes one.
TEST_F(StreamActions, AnAddressIsNoAction) {
    const PanelRequest visit("/admin?action=Disable&/live=on");
    run_list_action(*visit.request, true, mounts);
    EXPECT_FALSE(live.mount->IsDisabled());
}

// ---- One mount ----------------------------------------------------------------------------------

TEST_F(StreamActions, OneMountIsKicked) {
    live.Connect();
    post_to_live("Kick");
    EXPECT_TRUE(is_dropped(live));
    EXPECT_TRUE(live.mount->IsRunning());
}

TEST_F(StreamActions, OneMountIsDisabledAndEnabled) {
    post_to_live("Disable");
    EXPECT_TRUE(stops(live));
    EXPECT_EQ(setting("1", "Disabled"), "True");
    post_to_live("Enable");
    EXPECT_TRUE(live.mount->IsRunning());
    EXPECT_EQ(setting("1", "Disabled"), "");
}

TEST_F(StreamActions, TheFiguresOfOneMountStartAnew) {
    live.mount->ExtendedReceiver();
    EXPECT_EQ(live.mount->ExTuneIns(), 1U);
    post_to_live("Reset Stats");
    EXPECT_EQ(live.mount->ExTuneIns(), 0U);
}

TEST_F(StreamActions, OneMountIsNotDeletedOnItsPage) {
    post_to_live("Delete");
    post_to_live("Create");
    EXPECT_EQ(MountList::GetAllMounts(false).size(), 2U);
}

} // namespace
