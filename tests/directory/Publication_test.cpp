#include "directory/Publication.h"

#include "directory/IcecastYP.h"
#include "directory/ShoutcastYP.h"
#include "support/Directory.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string ADDED = "HTTP/1.0 200 OK\r\nYPResponse: 1\r\nSID: 7\r\nTouchFreq: 300\r\n\r\n";
const std::string YES = "HTTP/1.0 200 OK\r\nYPResponse: 1\r\n\r\n";

struct PublicationTest : DirectoryTest {
    PublicationTest() : DirectoryTest({{"Public", "never"}}) {}

    const std::shared_ptr<Publication> publication = std::make_shared<Publication>("/live");

    void start() {
        publication->SetMount(mount());
        publication->Start();
    }
    bool logged(const std::string& line) {
        const std::vector<std::string> all = log.All();
        return std::count(all.begin(), all.end(), line) == 1;
    }
    std::vector<std::string> addresses() const {
        std::vector<std::string> all;
        for (const auto& [address, entry] : publication->GetPublicationDetails())
            all.push_back(address);
        return all;
    }
    // Listed on the test's directory, with nothing under way.
    void start_listed() {
        publication->AddAddress(directory.Address());
        start();
        page = publication->GetPublicationDetails().front().second;
        exchange(ADDED);
        exchange(YES);
    }
};

TEST_F(PublicationTest, AddressStandsInItOnce) {
    publication->AddAddress("http://yp.example/");
    publication->AddAddress("http://yp.example/");
    EXPECT_TRUE(logged("</live> http://yp.example/ is already in the publication "
                       "list"));
    start();
    EXPECT_THAT(addresses(), ElementsAre("http://yp.example/"));
}

TEST_F(PublicationTest, AddressesOfOtherSchemesAndUnreadableOnesAreInvalid) {
    for (const char* bad :
         {"ftp://x", "https://x", "yp.example", "http://yp.example/x:1", "http://", ""})
        publication->AddAddress(bad);
    log.All();
    EXPECT_EQ(log.Count("</live> ftp://x is an invalid publication address"), 1);
    EXPECT_EQ(log.Count("</live> https://x is an invalid publication address"), 1);
    EXPECT_EQ(log.Count("</live> http://yp.example/x:1 is an invalid publication address"), 1);
    EXPECT_EQ(log.Count(" is an invalid publication address"), 6);
    start();
    EXPECT_THAT(addresses(), ElementsAre());
}

TEST_F(PublicationTest, PagesAreOfTheKindTheirHostAsksFor) {
    publication->AddAddress("http://yp.example/");
    publication->AddAddress(ShoutcastYP::DIRECTORY);
    start();
    const auto pages = publication->GetPublicationDetails();
    ASSERT_EQ(pages.size(), 2);
    EXPECT_NE(std::dynamic_pointer_cast<IcecastYP>(pages.front().second), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<ShoutcastYP>(pages.back().second), nullptr);
    EXPECT_EQ(pages.back().second->Address(), ShoutcastYP::DIRECTORY);
}

TEST_F(PublicationTest, ShowsNothingUnlessItRuns) {
    publication->AddAddress("http://yp.example/");
    EXPECT_THAT(addresses(), ElementsAre());
    start();
    EXPECT_THAT(addresses(), ElementsAre("http://yp.example/"));
    publication->WaitForStop();
    EXPECT_THAT(addresses(), ElementsAre());
}

TEST_F(PublicationTest, DoesNotStartWithoutAMount) {
    publication->Start();
    EXPECT_FALSE(publication->IsRunning());
    EXPECT_TRUE(logged("Error: Publication Thread has no Mount!"));
}

TEST_F(PublicationTest, DoesNotStartTwice) {
    start();
    publication->Start();
    EXPECT_TRUE(logged("</live> Publication Thread already started"));
}

TEST_F(PublicationTest, KeepsItsMountWhileItRuns) {
    start();
    publication->SetMount(nullptr);
    EXPECT_TRUE(publication->IsRunning());
    EXPECT_TRUE(logged("Error: Cannot change Publication Mount while its running"));
}

TEST_F(PublicationTest, AddressAddedWhileItRunsIsListedAtOnce) {
    start();
    publication->AddAddress(directory.Address());
    page = publication->GetPublicationDetails().front().second;
    exchange(ADDED);
    EXPECT_TRUE(page->Listed());
}

TEST_F(PublicationTest, PageOfAnAddressThatIsRemovedEndsItsListing) {
    start_listed();
    publication->RemoveAddress("http://other.example/");
    EXPECT_EQ(addresses().size(), 1);
    publication->RemoveAddress(directory.Address());
    EXPECT_THAT(addresses(), ElementsAre());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(page->Listed());
}

TEST_F(PublicationTest, StopWaitsUntilTheListingIsRemoved) {
    start_listed();
    std::atomic<bool> stopped{false};
    std::thread waiting([&] {
        publication->WaitForStop();
        stopped = true;
    });
    comes_true([&] { return !publication->IsRunning(); });
    const TakenCall call = called();
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(stopped);
    EXPECT_EQ(addresses().size(), 1);
    call.Send(YES);
    EXPECT_TRUE(comes_true([&] {
        page->Process();
        return stopped.load();
    }));
    waiting.join();
}

TEST_F(PublicationTest, StopDoesNotWaitForADirectoryThatKeepsSilent) {
    start_listed();
    std::thread waiting([&] { publication->WaitForStop(); });
    comes_true([&] { return !publication->IsRunning(); });
    const TakenCall call = called();
    Clock::Advance(6);
    page->Process();
    waiting.join();
    EXPECT_TRUE(page->Listed());
}

TEST_F(PublicationTest, StopDoesNotWaitForAPoolThatDoesNotWork) {
    start_listed();
    std::thread waiting([&] { publication->WaitForStop(); });
    comes_true([&] { return !publication->IsRunning(); });
    Clock::Advance(7);
    waiting.join();
    EXPECT_TRUE(page->Listed());
}

TEST_F(PublicationTest, StopIsNotWaitedForByWhoHasOtherThingsToDo) {
    start_listed();
    publication->WaitForStop([] { return true; });
    EXPECT_FALSE(publication->IsRunning());
    EXPECT_THAT(addresses(), ElementsAre());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(page->Listed());
}

TEST_F(PublicationTest, StartBehindAStopThatWasNotWaitedForListsAnewBehindTheRemove) {
    start_listed();
    publication->WaitForStop([] { return true; });
    start();
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    exchange(ADDED);
    EXPECT_THAT(body_of(sent), HasSubstr("action=add&"));
}

TEST_F(PublicationTest, StopGoesOnWhereASettingStartsMeanwhile) {
    start_listed();
    bool started = false;
    publication->WaitForStop([&] {
        if (!std::exchange(started, true)) start();
        return true;
    });
    EXPECT_FALSE(publication->IsRunning());
    exchange(YES);
    EXPECT_FALSE(page->Listed());
    page->Process();
    EXPECT_FALSE(directory.IsCalled());
}

TEST_F(PublicationTest, StopsAtOnceWithNothingListed) {
    publication->AddAddress(directory.Address());
    publication->WaitForStop();
    start();
    publication->WaitForStop();
    EXPECT_FALSE(publication->IsRunning());
}

TEST_F(PublicationTest, StartWhileItStillStopsListsAnewBehindTheRemove) {
    start_listed();
    publication->SignalStop();
    EXPECT_FALSE(publication->IsRunning());
    start();
    EXPECT_TRUE(publication->IsRunning());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    exchange(ADDED);
    EXPECT_THAT(body_of(sent), HasSubstr("action=add&"));
}

TEST_F(PublicationTest, LetsGoOfTheMountWhenItHasStopped) {
    const long holders = mount().use_count();
    start_listed();
    EXPECT_GT(mount().use_count(), holders);
    publication->SignalStop();
    exchange(YES);
    publication->WaitForStop();
    EXPECT_EQ(mount().use_count(), holders);
}

} // namespace
