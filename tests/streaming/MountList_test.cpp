#include "streaming/MountList.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Clock.h"
#include "support/LogLines.h"
#include "support/Sections.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace {
using Mounts = std::vector<std::shared_ptr<Mount>>;

struct MountListTest : testing::Test {
    ~MountListTest() override { MountList::WaitForStop(); }

    static std::shared_ptr<Mount> add(const std::string& address, int id,
                                      const Settings& settings = {}) {
        const auto mount =
            std::make_shared<Mount>(address, id, AddSection(std::to_string(id), settings));
        MountList::Add(mount);
        return mount;
    }
};
} // namespace

TEST_F(MountListTest, AMountIsFoundByItsAddressAndItsId) {
    const auto mount = add("/live", 4);
    EXPECT_EQ(MountList::GetMount("/live"), mount);
    EXPECT_EQ(MountList::GetMount(4), mount);
    EXPECT_EQ(MountList::GetMount(5), nullptr);
    EXPECT_EQ(MountList::GetMount("/Live"), nullptr);
}

TEST_F(MountListTest, AddingStartsTheMount) { EXPECT_TRUE(add("/live", 1)->IsRunning()); }

TEST_F(MountListTest, ADisabledMountIsListedButDoesNotRun) {
    const auto mount = add("/live", 1, {{"Disabled", "1"}});
    EXPECT_FALSE(mount->IsRunning());
    EXPECT_EQ(MountList::GetMount("/live"), mount);
}

TEST_F(MountListTest, ASecondMountOfAnAddressIsDiscardedAndNeverRuns) {
    LogLines log;
    const auto first = add("/live", 1);
    const auto second = add("/live", 2);
    EXPECT_TRUE(log.Wait("Mount /live already defined, discarding additional duplicates."));
    EXPECT_EQ(MountList::GetMount("/live"), first);
    EXPECT_EQ(MountList::GetMount(2), nullptr);
    EXPECT_FALSE(second->IsRunning());
}

TEST_F(MountListTest, SemicolonAddressesLeadToTheDefaultMount) {
    const auto mount = add("/live", 1, {{"IsDefault", "yes"}});
    EXPECT_EQ(MountList::GetMount("/"), mount);
    EXPECT_EQ(MountList::GetMount("/;"), mount);
    EXPECT_EQ(MountList::GetMount("/;stream.nsv"), mount);
}

TEST_F(MountListTest, WithoutADefaultMountTheRootLeadsNowhere) {
    add("/live", 1);
    EXPECT_EQ(MountList::GetMount("/"), nullptr);
}

TEST_F(MountListTest, StreamNumbersLeadToTheMountOfThatId) {
    const auto mount = add("/live", 12);
    EXPECT_EQ(MountList::GetMount("/stream/12"), mount);
    EXPECT_EQ(MountList::GetMount("/stream/13"), nullptr);
}

// Kept: see Mount::IsSymLink.
TEST_F(MountListTest, AStreamThatIsNoNumberReadsAsTheIdZero) {
    EXPECT_FALSE(add("/live", 12)->IsSymLink("/stream/x"));
    EXPECT_TRUE(add("/zero", 0)->IsSymLink("/stream/x"));
}

TEST_F(MountListTest, ASymlinkIsRefusedWhereAMountAnswers) {
    const auto mount = add("/live", 1);
    EXPECT_FALSE(mount->SetSymLink("/live"));
    EXPECT_TRUE(mount->SetSymLink("/other"));
    EXPECT_EQ(MountList::GetMount("/other"), mount);
    EXPECT_FALSE(mount->SetSymLink("/other"));
}

TEST_F(MountListTest, OnlyTheFirstOfTwoDefaultMountsAnswersToTheRoot) {
    add("/b", 1, {{"IsDefault", "yes"}});
    EXPECT_FALSE(add("/a", 2, {{"IsDefault", "yes"}})->IsSymLink("/"));
}

TEST_F(MountListTest, TheRootIsServedByTheMountOfThatAddressAndPort) {
    const auto by_default = add("/a", 1, {{"IsDefault", "yes"}});
    const auto both = add("/b", 2, {{"IP", "10.0.0.1"}, {"Port", "8010"}});
    const auto ip = add("/c", 3, {{"IP", "10.0.0.1"}});
    const auto port = add("/d", 4, {{"Port", "8020"}});
    EXPECT_EQ(MountList::GetMount("/", "10.0.0.1", "8010"), both);
    EXPECT_EQ(MountList::GetMount("/", "10.0.0.1", "8000"), ip);
    EXPECT_EQ(MountList::GetMount("/", "10.0.0.2", "8020"), port);
    EXPECT_EQ(MountList::GetMount("/;", "", "8020"), port);
    EXPECT_EQ(MountList::GetMount("/", "10.0.0.2", "8000"), by_default);
    EXPECT_EQ(MountList::GetMount("/"), by_default);
    EXPECT_EQ(MountList::GetMount("/a", "10.0.0.1", "8010"), by_default);
}

TEST_F(MountListTest, TheNextFreeIdFillsGaps) {
    EXPECT_EQ(MountList::GetNextFreeID(), 1);
    add("/a", 1);
    add("/c", 3);
    EXPECT_EQ(MountList::GetNextFreeID(), 2);
    add("/b", -1);
    EXPECT_EQ(MountList::GetMount("/b")->GetID(), 2);
    EXPECT_EQ(MountList::GetNextFreeID(), 4);
}

TEST_F(MountListTest, NoIdIsFreeBeyondTheHighest) {
    add("/top", 0x7ffffffe);
    EXPECT_EQ(MountList::GetNextFreeID(), 1);
}

TEST_F(MountListTest, AMountMadeAtRunTimeGetsASectionInTheTree) {
    const auto node = std::make_shared<ConfigNode>();
    const auto mount = std::make_shared<Mount>("/new", -1, node);
    MountList::Add(mount);
    EXPECT_EQ(Sections()->GetChild("1", false), node);
    EXPECT_EQ(node->GetChild("mount", false)->GetValue(""), "/new");
    Set(Sections()->GetChild("1", false), "UserMax", "3");
    EXPECT_EQ(mount->MaxReceivers(), 3);
}

TEST_F(MountListTest, AMountWithoutANodeGetsOne) {
    MountList::Add(std::make_shared<Mount>("/new", 7, nullptr));
    EXPECT_EQ(Sections()->GetChild("7", false)->GetChild("Mount", false)->GetValue(""), "/new");
}

TEST_F(MountListTest, AnEmptiedSectionOfTheIdServesAgain) {
    MountList::Remove(add("/old", 1, {{"Mount", "/old"}}));
    const auto mount = std::make_shared<Mount>("/new", -1, std::make_shared<ConfigNode>());
    MountList::Add(mount);
    EXPECT_EQ(Sections()->GetChildren("1").size(), 1U);
    EXPECT_EQ(mount->GetConfigNode(), Sections()->GetChild("1", false));
    EXPECT_EQ(mount->GetConfigNode()->GetChild("Mount", false)->GetValue(""), "/new");
    Set(Sections()->GetChild("1", false), "UserMax", "3");
    EXPECT_EQ(mount->MaxReceivers(), 3);
}

TEST_F(MountListTest, RemovingEndsTheMountAndForgetsItsSettingsAndRights) {
    const auto mount = add("/live", 1, {{"Mount", "/live"}, {"UserMax", "5"}});
    const auto manager = UserList::Add("joe", "secret");
    manager->AddProperty(1, "*", User::ALL);
    MountList::Remove(mount);
    EXPECT_FALSE(mount->IsRunning());
    EXPECT_EQ(MountList::GetMount("/live"), nullptr);
    EXPECT_TRUE(Sections()->GetChild("1", false)->GetAllChildren(false).empty());
    EXPECT_TRUE(manager->GetAllProperties(-1, false).empty());
}

TEST_F(MountListTest, AMountThatWasDisabledAtRunTimeCanBeRemoved) {
    const auto mount = add("/live", 1);
    Set(mount->GetConfigNode(), "Disabled", "1");
    MountList::Remove(mount);
    EXPECT_FALSE(mount->IsRunning());
}

TEST_F(MountListTest, ARemovedMountStaysDownWhateverTheSettingsSay) {
    const auto mount = add("/live", 1);
    Set(Defaults(), "Disabled", "1");
    MountList::Remove(mount);
    Set(Defaults(), "Disabled", "0");
    EXPECT_FALSE(mount->IsRunning());
}

TEST_F(MountListTest, RemovingADiscardedMountLeavesTheListedOneAlone) {
    const auto listed = add("/live", 1);
    const auto discarded = add("/live", 2);
    MountList::Remove(discarded);
    EXPECT_EQ(MountList::GetMount("/live"), listed);
    EXPECT_TRUE(listed->IsRunning());
}

TEST_F(MountListTest, RemovingTwiceLeavesTheNextMountOfThatIdAlone) {
    const auto old = add("/old", 1, {{"Mount", "/old"}});
    MountList::Remove(old);
    const auto next = std::make_shared<Mount>("/new", -1, std::make_shared<ConfigNode>());
    MountList::Add(next);
    const auto manager = UserList::Add("joe", "secret");
    manager->AddProperty(1, "*", User::ALL);
    MountList::Remove(old);
    EXPECT_EQ(MountList::GetMount(1), next);
    EXPECT_EQ(Sections()->GetChild("1", false)->GetChild("Mount", false)->GetValue(""), "/new");
    EXPECT_FALSE(manager->GetAllProperties(1, true).empty());
}

TEST_F(MountListTest, AMountHoldsItsIdUntilItsSettingsAreGone) {
    struct Onlooker final : ConfigNodeListener {
        bool OnConfigNodeChanged(std::shared_ptr<ConfigNode>, std::string) override {
            ids.insert(MountList::GetNextFreeID());
            return false;
        }
        std::set<int> ids = {};
    } onlooker;
    const auto mount = add("/live", 1, {{"Mount", "/live"}, {"UserMax", "5"}});
    const auto section = mount->GetConfigNode();
    section->AddListener(&onlooker);
    MountList::Remove(mount);
    section->RemoveListener(&onlooker);
    EXPECT_EQ(onlooker.ids, std::set<int>{2});
    EXPECT_EQ(MountList::GetNextFreeID(), 1);
}

TEST_F(MountListTest, ARemovedMountIsNotStartedAgain) {
    const auto mount = add("/live", 1, {{"Mount", "/live"}});
    MountList::Remove(mount);
    mount->Start();
    EXPECT_FALSE(mount->IsRunning());
    EXPECT_EQ(MountList::GetMount(1), nullptr);
}

TEST_F(MountListTest, ADeletedMountIsFreed) {
    std::weak_ptr<Mount> gone;
    {
        const auto mount = add("/live", 1);
        gone = mount;
        MountList::Remove(mount);
    }
    EXPECT_TRUE(gone.expired());
}

TEST_F(MountListTest, AllMountsComeInTheOrderOfTheirAddresses) {
    const auto b = add("/b", 1);
    const auto a = add("/a", 2);
    EXPECT_EQ(MountList::GetAllMounts(false), (Mounts{a, b}));
    EXPECT_TRUE(MountList::GetAllMounts(true).empty());
}

TEST_F(MountListTest, AdministratorsHaveAllMountsInTheOrderOfTheirAddresses) {
    const auto b = add("/b", 1);
    const auto a = add("/a", 2);
    const auto user = std::make_shared<User>();
    user->SetGroup(User::ADMINISTRATOR);
    EXPECT_EQ(MountList::GetAllMountsByCredentials(user, false), (Mounts{a, b}));
    EXPECT_TRUE(MountList::GetAllMountsByCredentials(user, true).empty());
}

TEST_F(MountListTest, OthersHaveTheMountsOfTheirTableByIdEachOnce) {
    const auto b = add("/b", 1);
    const auto a = add("/a", 2);
    add("/c", 3);
    const auto user = std::make_shared<User>();
    user->SetGroup(User::MOUNT_MANAGER);
    user->AddProperty(2, "*", User::ALL);
    user->AddProperty(1, "*", User::ALL);
    user->AddProperty(99, "*", User::ALL);
    EXPECT_EQ(MountList::GetAllMountsByCredentials(user, false), (Mounts{b, a}));
}

TEST_F(MountListTest, APropertyOfEveryMountMeansEachMountOnce) {
    const auto b = add("/b", 1);
    const auto a = add("/a", 2);
    const auto user = std::make_shared<User>();
    user->AddProperty(User::EVERY_MOUNT, "*", User::ALL);
    user->AddProperty(1, "*", User::ALL);
    EXPECT_EQ(MountList::GetAllMountsByCredentials(user, false), (Mounts{b, a}));
}

TEST_F(MountListTest, AUserWithoutATableHasNoMounts) {
    add("/a", 1);
    EXPECT_TRUE(MountList::GetAllMountsByCredentials(std::make_shared<User>(), false).empty());
}

TEST_F(MountListTest, TheHighestNumberOfListenersIsKept) {
    MountList::IncTotalReceivers(1);
    MountList::IncTotalReceivers(1);
    MountList::IncTotalReceivers(-1);
    EXPECT_EQ(MountList::TotalReceivers(), 1U);
    EXPECT_EQ(MountList::TotalPeakReceivers(), 2U);
}

TEST_F(MountListTest, UniqueListenersAndActiveMountsAreCounted) {
    MountList::IncTotalUniqueReceivers(1);
    MountList::IncTotalActiveMounts(1);
    EXPECT_EQ(MountList::TotalUniqueReceivers(), 1U);
    EXPECT_EQ(MountList::TotalActiveMounts(), 1U);
    MountList::IncTotalUniqueReceivers(-1);
    MountList::IncTotalActiveMounts(-1);
    EXPECT_EQ(MountList::TotalUniqueReceivers(), 0U);
    EXPECT_EQ(MountList::TotalActiveMounts(), 0U);
}

TEST_F(MountListTest, StoppingEndsAllMountsAndEmptiesTheList) {
    const auto mount = add("/live", 1);
    MountList::SignalStop();
    MountList::WaitForStop();
    EXPECT_FALSE(mount->IsRunning());
    EXPECT_TRUE(MountList::GetAllMounts(false).empty());
    EXPECT_FALSE(MountList::Ready());
}

TEST_F(MountListTest, LookupsGoOnWhileMountsComeAndGo) {
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            MountList::GetMount("/x");
            MountList::GetAllMounts(false);
            MountList::GetNextFreeID();
        }
    });
    for (int round = 0; round < 20; ++round)
        MountList::Remove(add("/x", 1));
    done = true;
    reader.join();
    EXPECT_EQ(MountList::GetMount("/x"), nullptr);
}

// ---- Loading ------------------------------------------------------------------------------------

TEST_F(MountListTest, InitMakesAMountOfEverySection) {
    Clock::Hold(5000);
    AddSection("3", {{"Mount", "/a"}});
    AddSection("12", {{"mount", "/b"}});
    EXPECT_FALSE(MountList::Ready());
    MountList::Init();
    EXPECT_TRUE(MountList::Ready());
    EXPECT_EQ(MountList::StartTime(), 5000);
    EXPECT_EQ(MountList::GetMount("/a")->GetID(), 3);
    EXPECT_EQ(MountList::GetMount("/b")->GetID(), 12);
}

TEST_F(MountListTest, SectionsThatCannotBeMountsAreLoggedAndSkipped) {
    LogLines log;
    AddSection("1", {{"UserMax", "5"}});
    AddSection("2", {{"Mount", "live"}});
    AddSection("3", {{"Mount", "/"}});
    AddSection("4", {{"Mount", "/;x"}});
    AddSection("5", {{"Mount", "/good"}});
    MountList::Init();
    EXPECT_EQ(log.All(),
              (std::vector<std::string>{
                  "Configuration Error: Mount with no SourceMount1 definition.  Please define "
                  "SourceMount1.",
                  "Configuration Error: SourceMount2 must start with /.",
                  "Configuration Error: Definition of / or /;* as SourceMounts are illegal, use "
                  "SourceIsDefault3=Yes instead.",
                  "Configuration Error: Definition of / or /;* as SourceMounts are illegal, use "
                  "SourceIsDefault4=Yes instead."}));
    EXPECT_EQ(MountList::GetAllMounts(false).size(), 1U);
}

TEST_F(MountListTest, OfSeveralAddressesTheFirstIsUsed) {
    LogLines log;
    AddSection("2", {{"Mount", "/a"}, {"Mount", "/b"}});
    MountList::Init();
    EXPECT_TRUE(log.Wait("Warning: Source 2 has multiple SourceMount2 definitions.  Only one "
                         "definition can be used.  Using SourceMount2=/a."));
    EXPECT_NE(MountList::GetMount("/a"), nullptr);
    EXPECT_EQ(MountList::GetMount("/b"), nullptr);
}

TEST_F(MountListTest, ReloadMakesOnlyMountsWhoseIdIsNew) {
    AddSection("1", {{"Mount", "/a"}});
    MountList::Init();
    const auto first = MountList::GetMount("/a");
    AddSection("2", {{"Mount", "/b"}});
    MountList::Reload();
    EXPECT_EQ(MountList::GetMount("/a"), first);
    EXPECT_NE(MountList::GetMount("/b"), nullptr);
}

TEST_F(MountListTest, ReloadNamesTheEmptySectionOfARemovedMount) {
    AddSection("1", {{"Mount", "/a"}});
    MountList::Init();
    MountList::Remove(MountList::GetMount("/a"));
    LogLines log;
    MountList::Reload();
    EXPECT_TRUE(log.Wait("Configuration Error: Mount with no SourceMount1 definition."));
}
