#include "directory/YellowPage.h"

#include "directory/IcecastYP.h"
#include "directory/Publication.h"
#include "http/Request.h"
#include "support/Directory.h"

#include <stdexcept>

namespace {

const std::string ADDED = "HTTP/1.0 200 OK\r\nYPResponse: 1\r\nSID: 7\r\nTouchFreq: 300\r\n\r\n";
const std::string YES = "HTTP/1.0 200 OK\r\nYPResponse: 1\r\n\r\n";

// A kind that meets what nobody foresaw.
class BrokenPage final : public YellowPage {
public:
    using YellowPage::YellowPage;

private:
    const Words& words() const override {
        static constexpr Words NONE{};
        return NONE;
    }
    std::string log_head() const override { return {}; }
    std::shared_ptr<Request> make_request(Exchange) override {
        throw std::length_error("too\nlong");
    }
    bool answers_in_body() const override { return false; }
    Answer read_answer(const Request&) const override { return {}; }
    void added(const Answer&) override {}
    void touched(const Answer&) override {}
    void removed(const Answer&) override {}
};

struct YellowPageTest : DirectoryTest {
    YellowPageTest() : DirectoryTest({{"Public", "always"}}) {
        make_page<IcecastYP>(directory.Address());
    }
    void touch() {
        exchange(ADDED);
        exchange(YES);
    }
    // Whether it does nothing in slices of its own.
    bool rests() {
        for (int slice = 0; slice < 20; ++slice)
            page->Process();
        return !directory.IsCalled();
    }
};

TEST_F(YellowPageTest, BeginsUnlistedAndDue) {
    const auto fresh = std::make_shared<IcecastYP>(mount(), "http://yp.example/x");
    EXPECT_FALSE(fresh->Listed());
    EXPECT_EQ(fresh->LastTouchTime(), 0);
    EXPECT_EQ(fresh->Interval(), 300);
    EXPECT_EQ(fresh->Status(), "Initialized");
    EXPECT_EQ(fresh->Address(), "http://yp.example/x");
}

TEST_F(YellowPageTest, DoesNothingUntilItIsQueued) {
    const auto fresh = std::make_shared<IcecastYP>(mount(), directory.Address());
    EXPECT_EQ(fresh->Poll(50), ThreadPool::NOTHING);
}

TEST_F(YellowPageTest, IsDueAfterMoreThanTheInterval) {
    touch();
    Clock::Advance(300);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
}

TEST_F(YellowPageTest, IsDueWhenItWasNeverTouched) {
    exchange(ADDED);
    EXPECT_EQ(page->LastTouchTime(), 0);
    EXPECT_TRUE(is_due());
}

TEST_F(YellowPageTest, IsNotQueuedTwiceAndFreeAfterItsSlice) {
    exchange(ADDED);
    EXPECT_TRUE(is_due());
    EXPECT_FALSE(is_due());
    const TakenCall call = called();
    EXPECT_TRUE(is_due());
}

TEST_F(YellowPageTest, IsDueAtOnceWhenItIsToBeRemoved) {
    touch();
    EXPECT_FALSE(is_due());
    page->Poll(50);
    page->Remove(); // queues it
    EXPECT_FALSE(is_due());
    page->Process();
    EXPECT_TRUE(is_due());
}

TEST_F(YellowPageTest, IsDueAtOnceWhenThePoolStops) {
    touch();
    page->SignalStop();
    EXPECT_TRUE(is_due());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, AddThatIsUnderWayIsFinishedBeforeTheRemove) {
    TakenCall call = called();
    page->Remove();
    EXPECT_TRUE(rests());
    call.Send(ADDED);
    page->Process();
    EXPECT_TRUE(page->Listed());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(page->Listed());
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, UnlistedPageThatIsRemovedCallsNobody) {
    page->Remove();
    EXPECT_TRUE(rests());
    EXPECT_FALSE(page->Listed());
}

TEST_F(YellowPageTest, WithoutASourceTheListingIsRemovedAndNotRenewed) {
    touch();
    station.Disconnect();
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, RemoveThatTimesOutIsTriedAgainAndHoldsUpNoStop) {
    touch();
    EXPECT_TRUE(page->HoldsUpStop());
    page->Remove();
    EXPECT_TRUE(page->HoldsUpStop());
    exchange_without_answer();
    EXPECT_TRUE(page->Listed());
    EXPECT_FALSE(page->HoldsUpStop());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(page->Listed());
}

TEST_F(YellowPageTest, StoppingPoolWaitsForOneTimeoutOfASilentDirectory) {
    touch();
    page->SignalStop();
    const TakenCall call = called();
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    Clock::Advance(5);
    page->Process();
    EXPECT_NE(page->Status(), "Error: Connection Timed Out");
    Clock::Advance(1);
    page->Process();
    EXPECT_EQ(page->Status(), "Error: Connection Timed Out");
    EXPECT_TRUE(page->Listed());
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, StoppingPoolIsLeftAfterTheSecondRemoveThatTimesOut) {
    touch();
    page->Remove();
    exchange_without_answer();
    const TakenCall call = called();
    Clock::Advance(3);
    page->SignalStop();
    Clock::Advance(3);
    page->Process();
    EXPECT_TRUE(page->Listed());
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, StoppingPoolIsLeftAtOnceWhereTwoRemovesHaveTimedOut) {
    touch();
    page->Remove();
    exchange_without_answer();
    exchange_without_answer();
    page->SignalStop();
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, TouchThatTimesOutLeavesTheRemoveTheRestOfTheStop) {
    touch();
    Clock::Advance(301);
    const TakenCall unanswered = called();
    Clock::Advance(4);
    page->SignalStop();
    Clock::Advance(2);
    page->Process();
    const TakenCall call = called();
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    Clock::Advance(4);
    page->Process();
    EXPECT_TRUE(page->Listed());
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, AddThatTimesOutEndsTheStop) {
    const TakenCall call = called();
    page->SignalStop();
    EXPECT_TRUE(rests());
    Clock::Advance(6);
    page->Process();
    EXPECT_EQ(page->Status(), "Error: Connection Timed Out");
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, MountThatStopsBesideAnAddIsAddedBeforeItIsRemoved) {
    const auto publication = mount()->GetPublication();
    comes_true([&] { return publication->IsRunning(); });
    publication->AddAddress(directory.Address());
    page = publication->GetPublicationDetails().front().second;
    const TakenCall call = called();
    station.Disconnect();
    call.Send(ADDED);
    page->Process();
    EXPECT_TRUE(page->Listed());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_FALSE(page->Listed());
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, FailureThatNobodyForesawEndsThisListingAlone) {
    const long holders = mount().use_count();
    const auto broken = std::make_shared<BrokenPage>(nullptr, "http://yp.example/");
    broken->Start(mount());
    broken->Process();
    log.All();
    EXPECT_EQ(log.Count("Listing on http://yp.example/ ended by an error: too long"), 1);
    EXPECT_FALSE(broken->Listed());
    EXPECT_EQ(mount().use_count(), holders);
    broken->Process(); // has left, and tries nothing more
    log.All();
    EXPECT_EQ(log.Count("ended by an error"), 1);
    touch();
    EXPECT_TRUE(page->Listed());
}

TEST_F(YellowPageTest, StartOfOneThatLeavesListsItAnew) {
    touch();
    page->Remove();
    page->Start(mount());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_EQ(page->Status(), "Initialized");
    exchange(ADDED);
    EXPECT_TRUE(body_of(sent).starts_with("action=add&"));
    EXPECT_TRUE(page->Listed());
}

TEST_F(YellowPageTest, StartBehindARemoveThatTimesOutListsItAnewAllTheSame) {
    touch();
    page->Remove();
    const TakenCall call = called();
    page->Start(mount());
    Clock::Advance(6);
    page->Process();
    EXPECT_FALSE(page->Listed());
    exchange(ADDED);
    EXPECT_TRUE(body_of(sent).starts_with("action=add&"));
}

TEST_F(YellowPageTest, LaterRemoveRevokesTheStart) {
    touch();
    page->Remove();
    page->Start(mount());
    page->Remove();
    exchange(YES);
    EXPECT_TRUE(rests());
    EXPECT_FALSE(page->Listed());
}

TEST_F(YellowPageTest, NothingStartsWhileThePoolStops) {
    touch();
    page->SignalStop();
    page->Start(mount());
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=7");
    EXPECT_TRUE(rests());
}

TEST_F(YellowPageTest, ResetForgetsTheListingAndDropsAnExchange) {
    touch();
    TakenCall call = called();
    page->Reset();
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->LastTouchTime(), 0);
    EXPECT_EQ(page->Status(), "Initialized");
    EXPECT_EQ(page->Poll(50), ThreadPool::NOTHING); // counts as queued
    call.Send(YES);
    const TakenCall next = called();
    EXPECT_TRUE(body_of(sent).starts_with("action=add&"));
}

TEST_F(YellowPageTest, PageThatHasLeftHoldsTheMountNoMore) {
    touch();
    const long holders = mount().use_count();
    page->Remove();
    exchange(YES);
    EXPECT_EQ(mount().use_count(), holders - 1);
}

} // namespace
