#include "accounts/User.h"

#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/Sections.h"
#include "support/SentRequest.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

std::shared_ptr<User> user_of_group(User::UserGroup group) {
    auto user = std::make_shared<User>("name", "secret", User::NO_ENCRYPTION, true, "");
    user->SetGroup(group);
    return user;
}

bool fits(const std::string& filter, User::RequestProperty type, const std::string& headers = {}) {
    const SentRequest sent(headers);
    User user;
    user.AddProperty(3, filter, type);
    return user.HasProperty(3, sent.request, false);
}

} // namespace

TEST(User, WithoutANameIsAnonymous) {
    const User user;
    EXPECT_EQ(user.Username(), "Anonymous");
    EXPECT_EQ(user.Password(), "");
    EXPECT_EQ(user.GetGroup(), User::ANONYMOUS);
}

TEST(User, AuthenticatesByTheBytesWhateverTheEncryption) {
    for (const auto type : {User::NO_ENCRYPTION, User::MD5, User::SHA512}) {
        const User user("name", "Secret", type, false, "salt");
        EXPECT_TRUE(user.Authenticate("Secret"));
        EXPECT_FALSE(user.Authenticate("secret"));
        EXPECT_FALSE(user.Authenticate(""));
    }
}

TEST(User, NewPasswordReplacesTheOld) {
    User user("name", "old", User::NO_ENCRYPTION, true, "");
    user.SetPassword("new");
    EXPECT_EQ(user.Password(), "new");
    EXPECT_TRUE(user.Authenticate("new"));
}

TEST(User, SubnetWithoutRangeIsCompletedAtItsLastDot) {
    User user;
    user.AddProperty(1, "10.1.2.3", User::SUBNET);
    user.AddProperty(1, "10.1.2", User::SUBNET);
    user.AddProperty(1, "10.0.0.0/8", User::SUBNET);
    EXPECT_THAT(user.GetAllProperties(1, true),
                ElementsAre(Pair(1, ElementsAre(Pair("10.0.0.0/8", User::SUBNET),
                                                Pair("10.1.0/24", User::SUBNET),
                                                Pair("10.1.2.0/24", User::SUBNET)))));
}

TEST(User, SubnetOfAnIPv6AddressIsThatAddress) {
    User user;
    user.AddProperty(1, "fe80::1", User::SUBNET);
    EXPECT_THAT(user.GetAllProperties(1, true),
                ElementsAre(Pair(1, ElementsAre(Pair("fe80::1", User::IP)))));
}

TEST(User, FilterOfWhichNothingCanBeMadeIsDropped) {
    User user;
    user.AddProperty(1, "localhost", User::SUBNET);
    user.AddProperty(1, "", User::IP);
    EXPECT_THAT(user.GetAllProperties(-1, false), IsEmpty());
}

TEST(User, SameFilterTakesTheNewType) {
    User user;
    user.AddProperty(1, "x", User::IP);
    user.AddProperty(1, "x", User::USER_AGENT);
    EXPECT_THAT(user.GetAllProperties(1, true),
                ElementsAre(Pair(1, ElementsAre(Pair("x", User::USER_AGENT)))));
}

TEST(User, LastFilterTakesItsMountWithIt) {
    User user;
    user.AddProperty(1, "a", User::IP);
    user.AddProperty(1, "b", User::IP);
    user.RemoveProperty(1, "a");
    EXPECT_THAT(user.GetAllProperties(-1, false),
                ElementsAre(Pair(1, ElementsAre(Pair("b", User::IP)))));
    user.RemoveProperty(1, "b");
    user.RemoveProperty(1, "b");
    EXPECT_THAT(user.GetAllProperties(-1, false), IsEmpty());
}

TEST(User, RemovedMountLosesAllItsFilters) {
    User user;
    user.AddProperty(1, "a", User::IP);
    user.AddProperty(2, "b", User::IP);
    user.RemoveMount(1);
    EXPECT_THAT(user.GetAllProperties(-1, false),
                ElementsAre(Pair(2, ElementsAre(Pair("b", User::IP)))));
}

TEST(User, PropertiesComeInFourForms) {
    User user;
    for (const int mount : {-1, 1, 2})
        user.AddProperty(mount, "a", User::IP);
    const auto ids = [&](int mount, bool exact) {
        std::vector<int> found;
        for (const auto& [id, filters] : user.GetAllProperties(mount, exact))
            found.push_back(id);
        return found;
    };
    EXPECT_THAT(ids(-1, false), ElementsAre(-1, 1, 2));
    EXPECT_THAT(ids(-1, true), ElementsAre(-1));
    EXPECT_THAT(ids(1, false), ElementsAre(-1, 1));
    EXPECT_THAT(ids(1, true), ElementsAre(1));
}

TEST(User, FiltersCompareAddressRangeAndAgent) {
    EXPECT_TRUE(fits("127.0.0.1", User::IP));
    EXPECT_FALSE(fits("127.0.0.2", User::IP));
    EXPECT_TRUE(fits("127.0.0.0/24", User::SUBNET));
    EXPECT_FALSE(fits("128.0.0.0/24", User::SUBNET));
    EXPECT_TRUE(fits("mpv 1", User::USER_AGENT, "User-Agent: mpv 1\r\n"));
    EXPECT_FALSE(fits("mpv", User::USER_AGENT, "User-Agent: mpv 1\r\n"));
    EXPECT_FALSE(fits("127.0.0.1", User::NONE));
}

TEST(User, RangeOfThirtyTwoBitsFitsEverybody) { EXPECT_TRUE(fits("1.2.3.4/32", User::SUBNET)); }

TEST(User, StarOfTypeAllFitsEveryRequest) {
    EXPECT_TRUE(fits("*", User::ALL));
    EXPECT_FALSE(fits("x", User::ALL));
}

TEST(User, StarOfAnotherTypeIsAPlainFilter) {
    EXPECT_FALSE(fits("*", User::USER_AGENT, "User-Agent: mpv\r\n"));
    EXPECT_TRUE(fits("*", User::USER_AGENT, "User-Agent: *\r\n"));
}

TEST(User, AnyFilterOfSeveralIsEnough) {
    const SentRequest sent;
    User user;
    user.AddProperty(3, "0", User::USER_AGENT);
    user.AddProperty(3, "127.0.0.1", User::IP);
    EXPECT_TRUE(user.HasProperty(3, sent.request, false));
}

TEST(User, FiltersOfEveryMountAreNotThoseOfOne) {
    const SentRequest sent;
    User user;
    user.AddProperty(-1, "*", User::ALL);
    EXPECT_FALSE(user.HasProperty(3, sent.request, false));
    EXPECT_TRUE(user.HasProperty(-1, sent.request, false));
}

TEST(User, WithAllOnlyTheStarIsEnough) {
    const SentRequest sent;
    User user;
    user.AddProperty(3, "127.0.0.1", User::IP);
    EXPECT_FALSE(user.HasProperty(3, sent.request, true));
    user.AddProperty(3, "*", User::ALL);
    EXPECT_TRUE(user.HasProperty(3, sent.request, true));
}

TEST(User, AdministratorMayEverythingButHasNoProperty) {
    const SentRequest sent;
    const auto user = user_of_group(User::ADMINISTRATOR);
    EXPECT_TRUE(user->IsMountAdminUser(1));
    EXPECT_TRUE(user->IsMountSourceUser(1));
    EXPECT_TRUE(user->IsMountSourceUser(-1));
    EXPECT_TRUE(user->IsMountListenerUser(1));
    EXPECT_FALSE(user->HasProperty(1, sent.request, false));
}

TEST(User, RightsGoByGroupOnMountsOfTheTable) {
    const auto rights = [](User::UserGroup group, int mount) {
        const auto user = user_of_group(group);
        user->AddProperty(2, "*", User::ALL);
        return std::vector<bool>{user->IsMountAdminUser(mount), user->IsMountSourceUser(mount),
                                 user->IsMountListenerUser(mount)};
    };
    EXPECT_THAT(rights(User::MOUNT_MANAGER, 2), ElementsAre(true, true, true));
    EXPECT_THAT(rights(User::MOUNT_SOURCE, 2), ElementsAre(false, true, true));
    EXPECT_THAT(rights(User::LISTENER, 2), ElementsAre(false, false, true));
    EXPECT_THAT(rights(User::STATISTICS, 2), ElementsAre(false, false, false));
    EXPECT_THAT(rights(User::ANONYMOUS, 2), ElementsAre(false, false, false));
    EXPECT_THAT(rights(User::MOUNT_MANAGER, 1), ElementsAre(false, false, false));
    EXPECT_THAT(rights(User::MOUNT_MANAGER, -1), ElementsAre(false, false, false));
}

TEST(User, RightsOfEveryMountHoldForEachAndForEvery) {
    const auto user = user_of_group(User::MOUNT_SOURCE);
    user->AddProperty(-1, "*", User::ALL);
    EXPECT_TRUE(user->IsMountSourceUser(7));
    EXPECT_TRUE(user->IsMountSourceUser(-1));
}

TEST(User, FirstMountIsTheLowestOfTheTable) {
    User user;
    EXPECT_EQ(user.GetFirstMount(), -1);
    user.AddProperty(5, "*", User::ALL);
    user.AddProperty(3, "*", User::ALL);
    EXPECT_EQ(user.GetFirstMount(), 3);
}

TEST(User, FirstMountOfEveryMountIsTheFirstByAddress) {
    User user;
    user.AddProperty(-1, "*", User::ALL);
    EXPECT_EQ(user.GetFirstMount(), -1);
    user.AddProperty(9, "*", User::ALL);
    EXPECT_EQ(user.GetFirstMount(), 9);
    AddSection("4", {{"Mount", "/b"}});
    AddSection("6", {{"Mount", "/a"}});
    MountList::Init();
    EXPECT_EQ(user.GetFirstMount(), 6);
    MountList::SignalStop();
    MountList::WaitForStop();
}

TEST(User, HandsOutGroupsFromItsOwnOn) {
    EXPECT_THAT(user_of_group(User::MOUNT_MANAGER)->GetAdministrativeGroups(),
                ElementsAre(User::MOUNT_MANAGER, User::MOUNT_SOURCE, User::LISTENER));
    EXPECT_THAT(user_of_group(User::LISTENER)->GetAdministrativeGroups(),
                ElementsAre(User::LISTENER));
    for (const auto group : {User::ANONYMOUS, User::BANNED, User::ADMINISTRATOR})
        EXPECT_THAT(user_of_group(group)->GetAdministrativeGroups(),
                    ElementsAre(User::ADMINISTRATOR, User::STATISTICS, User::MOUNT_MANAGER,
                                User::MOUNT_SOURCE, User::LISTENER));
}

TEST(User, IsReadWhileItIsEdited) {
    const SentRequest sent;
    User user("name", "first", User::NO_ENCRYPTION, true, "");
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            user.HasProperty(1, sent.request, false);
            user.Authenticate("second");
            user.Username();
            user.GetAllProperties(-1, false);
            user.IsMountSourceUser(1);
        }
    });
    for (int i = 0; i < 500; ++i) {
        user.AddProperty(1, "10.0.0." + std::to_string(i % 100), User::IP);
        user.SetPassword("second");
        user.SetGroup(User::LISTENER);
        if (i % 50 == 0) user.RemoveMount(1);
    }
    done = true;
    reader.join();
    EXPECT_TRUE(user.Authenticate("second"));
}
