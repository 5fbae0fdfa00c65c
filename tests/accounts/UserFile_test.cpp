#include "accounts/UserList.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/Sections.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

namespace {

const std::string EMPTY_FILE = R"(<userlist version="1.0">
    <banned>
        <username>Banned Users</username>
        <usergroup>Anonymous</usergroup>
        <properties/>
    </banned>
    <reserve>
        <username>Reserved Users</username>
        <usergroup>Anonymous</usergroup>
        <properties/>
    </reserve>
    <users/>
</userlist>
)";

void read_users(const std::string& users) {
    UserList::ReadText("<userlist version=\"1.0\"><users>" + users + "</users></userlist>");
}

std::vector<std::string> names() {
    std::vector<std::string> found;
    for (const auto& [name, user] : UserList::GetUserList(-1))
        found.push_back(name);
    return found;
}

// The only account, as it is in the list.
std::shared_ptr<User> only_user() {
    const auto users = UserList::GetUserList(-1);
    return users.size() == 1 ? users.begin()->second : nullptr;
}

User::Properties properties_of(const std::string& properties) {
    read_users("<user><username>joe</username><properties>" + properties + "</properties></user>");
    return only_user()->GetAllProperties(-1, false);
}

} // namespace

TEST(UserFile, ListWithoutAccountsIsWrittenInFull) { EXPECT_EQ(UserList::Text(), EMPTY_FILE); }

TEST(UserFile, AccountIsWrittenWithItsTableAndNothingEmpty) {
    read_users(
        R"(<user><username>joe</username><password encryption="Banned" salt="s&amp;t">a&lt;b</password>
        <usergroup>Mount Manager</usergroup></user>)");
    only_user()->AddProperty(-1, "*", User::ALL);
    only_user()->AddProperty(-1, "10.0.0.1", User::IP);
    only_user()->AddProperty(-2, "mpv \"x\"", User::USER_AGENT);
    EXPECT_THAT(UserList::Text(), HasSubstr(R"(    <users>
        <user>
            <username>joe</username>
            <password encryption="MD5" salt="s&amp;t">a&lt;b</password>
            <usergroup>Mount Manager</usergroup>
            <properties>
                <property mount="-2">
                    <filter type="User Agent">mpv "x"</filter>
                </property>
                <property mount="-1">
                    <filter type="All">*</filter>
                    <filter type="IP">10.0.0.1</filter>
                </property>
            </properties>
        </user>
    </users>
)"));
}

TEST(UserFile, AccountsComeInTheOrderOfTheirNames) {
    UserList::Add("b", "x");
    UserList::Add("a", "x");
    UserList::Add("B", "x");
    const std::string text = UserList::Text();
    EXPECT_LT(text.find("<username>B<"), text.find("<username>a<"));
    EXPECT_LT(text.find("<username>a<"), text.find("<username>b<"));
}

TEST(UserFile, WhatIsWrittenIsReadBack) {
    const TemporaryDirectory folder;
    UserList::Init(folder.Path("users.xml"));
    const auto joe = UserList::Add("joe \xc3\xa9", "p\"w'<&>");
    joe->SetGroup(User::MOUNT_SOURCE);
    joe->AddProperty(-1, "fe80::1", User::SUBNET);
    UserList::GetBanUser()->AddProperty(-1, "10.0.0.0/8", User::SUBNET);
    UserList::GetReserveUser()->AddProperty(-1, "x", User::USER_AGENT);
    UserList::Serialize();
    const std::string written = folder.Read("users.xml");

    UserList::Remove("joe \xc3\xa9");
    UserList::GetBanUser()->RemoveMount(-1);
    UserList::GetReserveUser()->RemoveMount(-1);
    EXPECT_EQ(UserList::Text(), EMPTY_FILE);
    UserList::Unserialize();
    EXPECT_EQ(UserList::Text(), written);
    EXPECT_EQ(only_user()->Password(), "p\"w'<&>");
    EXPECT_EQ(only_user()->GetGroup(), User::MOUNT_SOURCE);
}

TEST(UserFile, NothingIsWrittenBeforeInit) {
    const TemporaryDirectory folder;
    std::filesystem::current_path(folder.Path(""));
    UserList::Serialize();
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path("")));
    UserList::Init("users.xml");
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path("")));
    UserList::Serialize();
    EXPECT_EQ(folder.Read("users.xml"), EMPTY_FILE);
}

TEST(UserFile, NewFileIsForItsOwnerAloneAndAnOldOneKeepsItsMode) {
    const TemporaryDirectory folder;
    umask(0);
    const auto mode = [&] {
        struct stat found {};
        stat(folder.Path("users.xml").c_str(), &found);
        return found.st_mode & 07777;
    };
    UserList::Init(folder.Path("users.xml"));
    UserList::Serialize();
    EXPECT_EQ(mode(), 0600U);
    chmod(folder.Path("users.xml").c_str(), 0640);
    UserList::Serialize();
    EXPECT_EQ(mode(), 0640U);
}

TEST(UserFile, MissingFileChangesNothing) {
    UserList::Init("/nowhere/users.xml");
    UserList::Add("joe", "x");
    UserList::Unserialize();
    UserList::Serialize();
    EXPECT_THAT(names(), ElementsAre("joe"));
}

TEST(UserFile, OtherVersionIsNotReadAndReplacedByTheNextSave) {
    const TemporaryDirectory folder;
    folder.Write("users.xml",
                 "<userlist "
                 "version=\"2.0\"><users><user><username>joe</username></user></users></userlist>");
    UserList::Init(folder.Path("users.xml"));
    UserList::Unserialize();
    EXPECT_THAT(names(), IsEmpty());
    UserList::Serialize();
    EXPECT_EQ(folder.Read("users.xml"), EMPTY_FILE);
}

TEST(UserFile, WhatWasNotReadIsCopiedBeforeItIsReplaced) {
    const TemporaryDirectory folder;
    folder.Write("users.xml", "<userlist version=\"2.0\"/>");
    chmod(folder.Path("users.xml").c_str(), 0640);
    UserList::Init(folder.Path("users.xml"));
    UserList::Unserialize();
    EXPECT_FALSE(folder.Has("users.xml.unread"));
    UserList::Serialize();
    EXPECT_EQ(folder.Read("users.xml"), EMPTY_FILE);
    EXPECT_EQ(folder.Read("users.xml.unread"), "<userlist version=\"2.0\"/>");
    struct stat copy {};
    stat(folder.Path("users.xml.unread").c_str(), &copy);
    EXPECT_EQ(copy.st_mode & 07777, 0640U);
}

TEST(UserFile, TheFirstCopyIsNeverReplaced) {
    const TemporaryDirectory folder;
    folder.Write("users.xml", "second accident");
    folder.Write("users.xml.unread", "first accident");
    UserList::Init(folder.Path("users.xml"));
    UserList::Serialize();
    EXPECT_EQ(folder.Read("users.xml"), EMPTY_FILE);
    EXPECT_EQ(folder.Read("users.xml.unread"), "first accident");
}

TEST(UserFile, WhatWasReadOrWrittenHereIsNotCopied) {
    const TemporaryDirectory folder;
    UserList::Init(folder.Path("users.xml"));
    UserList::Serialize();
    UserList::Serialize();
    UserList::Unserialize();
    UserList::Serialize();
    EXPECT_FALSE(folder.Has("users.xml.unread"));
}

TEST(UserFile, WhatIsNoFileIsNotCopied) {
    const TemporaryDirectory folder;
    std::filesystem::create_symlink("/dev/null", folder.Path("users.xml"));
    UserList::Init(folder.Path("users.xml"));
    UserList::Unserialize();
    UserList::Serialize();
    EXPECT_FALSE(folder.Has("users.xml.unread"));
}

TEST(UserFile, BrokenOrForeignTextChangesNothing) {
    const std::string user = "<users><user><username>joe</username></user></users>";
    for (const std::string& text :
         {std::string(), "<userlist version=\"1.0\">" + user, "<userlist>" + user + "</userlist>",
          "<list version=\"1.0\">" + user + "</list>", std::string("plain"),
          std::string(1000, '<')}) {
        UserList::ReadText(text);
        EXPECT_THAT(names(), IsEmpty()) << text;
    }
}

TEST(UserFile, BansAreReadAlsoWithoutUsers) {
    UserList::ReadText(R"(<userlist version="1.0"><banned><properties><property mount="-1">
        <filter type="IP">10.0.0.1</filter></property></properties></banned></userlist>)");
    EXPECT_THAT(UserList::GetBanUser()->GetAllProperties(-1, true),
                ElementsAre(Pair(-1, ElementsAre(Pair("10.0.0.1", User::IP)))));
    EXPECT_EQ(UserList::GetBanUser()->Username(), "Banned Users");
}

TEST(UserFile, PseudoUsersKeepTheirGroup) {
    UserList::ReadText(
        R"(<userlist version="1.0"><banned><usergroup>Administrator</usergroup></banned>
        <reserve><usergroup>Banned</usergroup></reserve></userlist>)");
    EXPECT_EQ(UserList::GetBanUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::GetReserveUser()->GetGroup(), User::ANONYMOUS);
}

TEST(UserFile, AccountOfTheFileReplacesOneOfTheSameName) {
    UserList::Add("joe", "old")->SetGroup(User::ADMINISTRATOR);
    read_users("<user><username>joe</username><password>new</password></user>");
    EXPECT_EQ(only_user()->Password(), "new");
    EXPECT_EQ(only_user()->GetGroup(), User::ANONYMOUS);
}

TEST(UserFile, NamelessAndAnonymousAccountsAreDropped) {
    read_users("<user><username>Anonymous</username></user><user><username></username></"
               "user><user><username/></user>"
               "<user/>");
    EXPECT_THAT(names(), IsEmpty());
}

TEST(UserFile, AccountWithoutAPasswordHasAnEmptyOne) {
    for (const char* password :
         {"", "<password/>", "<password></password>", "<password encryption=\"None\"/>"}) {
        read_users("<user><username>joe</username>" + std::string(password) + "</user>");
        EXPECT_EQ(only_user()->Password(), "") << password;
    }
}

TEST(UserFile, EncryptionIsLookedUpAmongTheGroups) {
    const auto written = [](const std::string& attributes) {
        read_users("<user><username>joe</username><password " + attributes +
                   ">p</password></user>");
        const std::string text = UserList::Text();
        const auto start = text.find("<password");
        return text.substr(start, text.find('>', start) - start + 1);
    };
    EXPECT_EQ(written(R"(encryption="None" salt="s")"), R"(<password encryption="None">)");
    EXPECT_EQ(written(R"(encryption="MD5" salt="s")"), R"(<password encryption="None">)");
    EXPECT_EQ(written(R"(salt="s")"), R"(<password encryption="None">)");
    EXPECT_EQ(written(R"(encryption="Anonymous" salt="s")"),
              R"(<password encryption="None" salt="s">)");
    EXPECT_EQ(written(R"(encryption="Banned" salt="s")"),
              R"(<password encryption="MD5" salt="s">)");
    EXPECT_EQ(written(R"(encryption="Administrator")"), R"(<password encryption="SHA-512">)");
    EXPECT_EQ(written(R"(encryption="Statistics" salt="s")"), R"(<password encryption="None">)");
}

TEST(UserFile, NewPasswordEmptiesTheSaltAndKeepsTheEncryption) {
    read_users(
        R"(<user><username>joe</username><password encryption="Banned" salt="s">p</password></user>)");
    only_user()->SetPassword("q");
    EXPECT_THAT(UserList::Text(), HasSubstr(R"(<password encryption="MD5">q</password>)"));
}

TEST(UserFile, UnknownGroupIsAnonymous) {
    read_users("<user><username>joe</username><usergroup>King</usergroup></user>");
    EXPECT_EQ(only_user()->GetGroup(), User::ANONYMOUS);
    read_users("<user><username>joe</username><usergroup/></user>");
    EXPECT_EQ(only_user()->GetGroup(), User::ANONYMOUS);
}

TEST(UserFile, EveryGroupIsReadByItsName) {
    for (std::size_t i = 0; i < User::USER_GROUP_STRINGS.size(); ++i) {
        read_users("<user><username>joe</username><usergroup>" +
                   std::string(User::USER_GROUP_STRINGS[i]) + "</usergroup></user>");
        EXPECT_EQ(only_user()->GetGroup(), static_cast<User::UserGroup>(i));
    }
}

TEST(UserFile, GroupOutsideTheTableIsWrittenAsTheFirst) {
    UserList::Add("joe", "x")->SetGroup(static_cast<User::UserGroup>(12));
    EXPECT_THAT(UserList::Text(), Not(HasSubstr("12")));
}

TEST(UserFile, PropertyNeedsANumberOfAnExistingMount) {
    const std::string filter = "<filter type=\"All\">*</filter></property>";
    EXPECT_THAT(properties_of("<property>" + filter), IsEmpty());
    EXPECT_THAT(properties_of("<property mount=\"abc\">" + filter), IsEmpty());
    EXPECT_THAT(properties_of("<property mount=\"\">" + filter), IsEmpty());
    EXPECT_THAT(properties_of("<property mount=\"99\">" + filter), IsEmpty());
    EXPECT_THAT(properties_of("<property mount=\"4294967295\">" + filter), IsEmpty());
    EXPECT_THAT(properties_of("<property mount=\"-1\">" + filter),
                ElementsAre(Pair(-1, ElementsAre(Pair("*", User::ALL)))));
}

TEST(UserFile, PropertyOfAnExistingMountIsRead) {
    AddSection("7", {{"Mount", "/seven"}});
    MountList::Init();
    EXPECT_THAT(properties_of("<property mount=\"7\"><filter type=\"All\">*</filter></property>"),
                ElementsAre(Pair(7, ElementsAre(Pair("*", User::ALL)))));
    MountList::SignalStop();
    MountList::WaitForStop();
}

TEST(UserFile, FilterNeedsATypeAndAText) {
    EXPECT_THAT(
        properties_of(
            "<property mount=\"-1\"><filter>a</filter><filter type=\"IP\"></filter>"
            "<filter type=\"IP\"/><filter type=\"King\">b</filter>"
            "<filter type=\"IP\">c</filter><filter type=\"User Agent\">c</filter></property>"),
        ElementsAre(Pair(-1, ElementsAre(Pair("b", User::NONE), Pair("c", User::USER_AGENT)))));
}

TEST(UserFile, LaterTableOfAMountReplacesTheEarlier) {
    EXPECT_THAT(properties_of("<property mount=\"-1\"><filter type=\"IP\">a</filter></property>"
                              "<property mount=\"-1\"><filter type=\"IP\">b</filter></property>"),
                ElementsAre(Pair(-1, ElementsAre(Pair("b", User::IP)))));
}

TEST(UserFile, FiltersOfTheFileAreTakenAsTheyStand) {
    EXPECT_THAT(properties_of(
                    "<property mount=\"-1\"><filter type=\"Subnet\">10.1.2.3</filter></property>"),
                ElementsAre(Pair(-1, ElementsAre(Pair("10.1.2.3", User::SUBNET)))));
}
