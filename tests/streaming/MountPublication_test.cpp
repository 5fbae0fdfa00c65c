// When a mount is listed on directories, and on which.

#include "directory/Publication.h"
#include "directory/YellowPage.h"
#include "support/Directory.h"
#include "support/Sections.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string ADDED = "HTTP/1.0 200 OK\r\nYPResponse: 1\r\nSID: 7\r\nTouchFreq: 300\r\n\r\n";
const std::string YES = "HTTP/1.0 200 OK\r\nYPResponse: 1\r\n\r\n";

struct MountPublication : DirectoryTest {
    explicit MountPublication(const std::string& state = "always")
        : DirectoryTest({{"Public", state}}) {}

    std::shared_ptr<ConfigNode> section() const { return mount()->GetConfigNode(); }
    bool is_published() const { return mount()->GetPublication()->IsRunning(); }
    std::vector<std::string> directories() const {
        std::vector<std::string> all;
        for (const auto& [address, entry] : mount()->GetPublication()->GetPublicationDetails())
            all.push_back(address);
        return all;
    }
    // Listed on the test's directory, with nothing under way.
    void list() {
        comes_true([this] { return is_published(); });
        Set(section(), "Directory", directory.Address());
        page = mount()->GetPublication()->GetPublicationDetails().front().second;
        exchange(ADDED);
        exchange(YES);
    }
    // Removed and added, in this order, with this in the new texts.
    void expect_listed_anew(const std::string& with) {
        exchange(YES);
        EXPECT_EQ(body_of(sent), "action=remove&sid=7");
        exchange(ADDED);
        EXPECT_THAT(body_of(sent), HasSubstr("action=add&"));
        EXPECT_THAT(body_of(sent), HasSubstr(with));
        exchange(YES);
    }
};
struct PublicBySource : MountPublication {
    PublicBySource() : MountPublication("Source") {}
};

TEST_F(MountPublication, RunsWhileASourceIsThere) {
    EXPECT_TRUE(comes_true([this] { return is_published(); }));
    station.Disconnect();
    EXPECT_FALSE(is_published());
    station.Connect();
    EXPECT_TRUE(comes_true([this] { return is_published(); }));
}

TEST_F(PublicBySource, NeedsTheSourcesWish) {
    EXPECT_FALSE(is_published());
    station.Disconnect();
    station.Connect("audio/mpeg", "icy-pub: 1\r\n");
    EXPECT_TRUE(comes_true([this] { return is_published(); }));
}

TEST_F(PublicBySource, FollowsTheSettingPublic) {
    Set(section(), "Public", "always");
    EXPECT_TRUE(is_published());
    Set(section(), "Public", "never");
    EXPECT_FALSE(is_published());
}

TEST_F(MountPublication, EndsWhenListenersHaveToLogIn) {
    Set(section(), "Auth", "yes");
    EXPECT_FALSE(is_published());
    Set(section(), "Auth", "no");
    EXPECT_TRUE(is_published());
}

TEST_F(MountPublication, DirectoriesOfDefaultComeFirst) {
    Set(Defaults(), "Directory", "http://shared.example/");
    const auto own = AddSection("2", {{"Directory", "http://own.example/"},
                                      {"Directory", "http://shared.example/"},
                                      {"Directory", "https://no.example/"}});
    const Mount other("/other", 2, own);
    other.GetPublication()->SetMount(mount());
    other.GetPublication()->Start();
    std::vector<std::string> all;
    for (const auto& [address, entry] : other.GetPublication()->GetPublicationDetails())
        all.push_back(address);
    EXPECT_THAT(all, ElementsAre("http://shared.example/", "http://own.example/"));
    log.All();
    EXPECT_EQ(log.Count("</other> http://shared.example/ is already in the publication list"), 1);
    EXPECT_EQ(log.Count("</other> https://no.example/ is an invalid publication address"), 1);
    other.GetPublication()->WaitForStop();
}

TEST_F(MountPublication, DirectoriesFollowTheSettings) {
    Set(section(), "Directory", "http://one.example/");
    EXPECT_THAT(directories(), ElementsAre("http://one.example/"));
    Set(section(), "Directory", "http://two.example/");
    EXPECT_THAT(directories(), ElementsAre("http://two.example/"));
    Set(Defaults(), "Directory", "http://shared.example/");
    EXPECT_THAT(directories(), ElementsAre("http://two.example/", "http://shared.example/"));
    Set(section(), "Directory", "");
    EXPECT_THAT(directories(), ElementsAre("http://shared.example/"));
}

TEST_F(MountPublication, DirectoryOfBothSectionsStaysUntilItHasLeftBoth) {
    Set(Defaults(), "Directory", "http://shared.example/");
    Set(section(), "Directory", "http://shared.example/");
    Set(section(), "Directory", "");
    EXPECT_THAT(directories(), ElementsAre("http://shared.example/"));
    Set(Defaults(), "Directory", "");
    EXPECT_THAT(directories(), ElementsAre());
}

TEST_F(MountPublication, DirectoryIsToldOfANewLimitAsOfANewStream) {
    list();
    Set(section(), "UserMax", "12");
    EXPECT_EQ(mount()->MaxReceivers(), 12);
    expect_listed_anew("action=add&");
    EXPECT_TRUE(is_published());
}

TEST_F(MountPublication, DirectoryIsToldOfANewNameOnce) {
    list();
    section()->AddChild(std::make_shared<ConfigNode>("NameFormat", ""));
    section()->GetChild("NameFormat", true)->SetValue("%s live");
    expect_listed_anew("&sn=A+%26+B+live&");
    EXPECT_FALSE(is_due());
}

TEST_F(MountPublication, SettingsChangeWithoutWaitingForADirectory) {
    list();
    Set(section(), "UserMax", "12");
    const TakenCall silent = called();
    Set(section(), "UserMax", "13");
    Set(section(), "NameFormat", "x");
    Set(section(), "Public", "never");
    Set(section(), "Public", "always");
    EXPECT_EQ(mount()->MaxReceivers(), 13);
    silent.Send(YES);
    page->Process();
    exchange(ADDED);
    EXPECT_THAT(body_of(sent), HasSubstr("action=add&sn=x&"));
}

TEST_F(MountPublication, SourceThatLeavesFreesTheMountBeforeItIsRemoved) {
    list();
    station.Disconnect();
    const TakenCall call = called();
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(mount()->IsConnected());
    EXPECT_TRUE(page->Listed());
    call.Send(YES);
    page->Process();
    EXPECT_FALSE(page->Listed());
}

TEST_F(MountPublication, NextSourceIsTakenWhileTheRemovalIsUnderWay) {
    list();
    station.Disconnect();
    const TakenCall call = called();
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    station.Connect("audio/mpeg", "icy-name: Next\r\n");
    EXPECT_TRUE(comes_true([this] { return is_published(); }));
    EXPECT_EQ(mount()->Name(), "Next");
    EXPECT_TRUE(page->Listed());
    call.Send(YES);
    page->Process();
    exchange(ADDED);
    EXPECT_THAT(body_of(sent), HasSubstr("action=add&sn=Next&"));
}

TEST_F(MountPublication, MountEndsWhileTheRemovalIsUnderWay) {
    list();
    station.Disconnect();
    const TakenCall call = called();
    mount()->WaitForStop();
    EXPECT_FALSE(mount()->IsRunning());
    EXPECT_TRUE(page->Listed());
    call.Send(YES);
    page->Process();
    EXPECT_FALSE(page->Listed());
}

} // namespace
