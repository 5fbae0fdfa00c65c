#include "media/Metadata.h"
#include "streaming/PublicState.h"
#include "support/LogLines.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

constexpr auto WAITS = WebPanel::IN_PROGRESS;
constexpr auto ANSWERS = WebPanel::ANSWERED;

void set_title(Mount& mount, const std::string& title) {
    auto metadata = std::make_shared<METADATA>();
    metadata->title = title;
    mount.SetMetaData(metadata);
}

// The next look comes a little later.
bool gets_news(const WebPanel& panel) {
    return comes_true([&] { return panel.HasNews(); });
}

// Whether several looks at the mounts bring nothing.
bool stays_quiet(const WebPanel& panel) {
    for (int look = 0; look < 100; ++look) {
        if (panel.HasNews()) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// ---- The passes of a long poll ------------------------------------------------------------------

TEST(LongPoll, WithoutTheWordTheAnswerComesAtOnce) {
    EXPECT_EQ(PanelVisit("/status.json").Pass(), ANSWERS);
    EXPECT_EQ(PanelVisit("/status.json?wfc=").Pass(), ANSWERS);
    EXPECT_EQ(PanelVisit("/status.xml?wfc=").Pass(), ANSWERS);
}

TEST(LongPoll, WaitsForTheNextChangeEachTime) {
    OnAir air("/live");
    air.Connect();
    for (const std::string path :
         {"/status.xml?wfc=y", "/status.xml?wfc=1", "/status.json?wfc=y", "/status.json?wfc=0"}) {
        PanelVisit visit(path);
        EXPECT_EQ(visit.Pass(), WAITS);
        EXPECT_EQ(visit.Pass(), WAITS);
        EXPECT_EQ(visit.Hear(), "");
        set_title(*air.mount, "Before " + path);
        EXPECT_EQ(visit.Pass(), ANSWERS);
        EXPECT_TRUE(holds(visit.Hear(), "Before " + path));
    }
}

TEST(LongPoll, OnlyTheTwoPublicDocumentsWait) {
    make_account("root", "secret", User::ADMINISTRATOR);
    EXPECT_EQ(PanelVisit("/7?wfc=y").Pass(), ANSWERS);
    EXPECT_EQ(PanelVisit("/admin/status.json?wfc=y", basic("root:secret")).Pass(), ANSWERS);
    EXPECT_EQ(PanelVisit("/admin/status.xml?wfc=y", basic("root:secret")).Pass(), ANSWERS);
}

TEST(LongPoll, AHeadWaitsToo) {
    OnAir air("/live");
    PanelVisit visit("/status.json?wfc=y", "", "HEAD");
    EXPECT_EQ(visit.Pass(), WAITS);
    air.Connect();
    EXPECT_EQ(visit.Pass(), ANSWERS);
    EXPECT_TRUE(visit.Hear().ends_with("\r\n\r\n"));
}

TEST(LongPoll, AnswersWhenAMountComesAndWhenItGoes) {
    OnAir air("/live");
    PanelVisit first("/status.json?wfc=y");
    EXPECT_EQ(first.Pass(), WAITS);
    air.Connect();
    EXPECT_EQ(first.Pass(), ANSWERS);

    PanelVisit second("/status.json?wfc=y");
    EXPECT_EQ(second.Pass(), WAITS);
    air.Disconnect();
    EXPECT_EQ(second.Pass(), ANSWERS);
}

TEST(LongPoll, AnswersWhenTheNumberOfListenersChanges) {
    OnAir air("/live");
    air.Connect();
    PanelVisit visit("/status.json?wfc=y");
    EXPECT_EQ(visit.Pass(), WAITS);
    Visitor listener("GET /live HTTP/1.0\r\n\r\n");
    listener.Slice();
    EXPECT_EQ(visit.Pass(), ANSWERS);
    EXPECT_TRUE(holds(visit.Hear(), "\"nodes\":1,"));
}

TEST(LongPoll, AnswersWhenTheNameChanges) {
    OnAir air("/live");
    air.Connect();
    PanelVisit visit("/status.json?wfc=y");
    EXPECT_EQ(visit.Pass(), WAITS);
    air.mount->SetName("New");
    EXPECT_EQ(visit.Pass(), ANSWERS);
    EXPECT_EQ(visit.Pass(), WAITS);
    air.mount->SetNameFormat("%s!");
    EXPECT_EQ(visit.Pass(), ANSWERS);
}

TEST(LongPoll, WhatIsNotShownIsNoChange) {
    OnAir shown("/a", 1);
    OnAir waiting("/b", 2);
    OnAir closed("/c", 3, {{"Auth", "yes"}});
    shown.Connect();
    closed.Connect();
    PanelVisit visit("/status.json?wfc=y");
    EXPECT_EQ(visit.Pass(), WAITS);
    set_title(*waiting.mount, "Unheard");
    set_title(*closed.mount, "For few");
    EXPECT_EQ(visit.Pass(), WAITS);
    shown.mount->IncBytesSent(1000);
    EXPECT_EQ(visit.Pass(), WAITS);
}

TEST(LongPoll, AStateThatHasComeBackIsNoChange) {
    OnAir air("/live");
    air.Connect();
    set_title(*air.mount, "One");
    PanelVisit visit("/status.json?wfc=y");
    EXPECT_EQ(visit.Pass(), WAITS);
    set_title(*air.mount, "Two");
    set_title(*air.mount, "One");
    EXPECT_EQ(visit.Pass(), WAITS);
}

TEST(LongPoll, SrcNarrowsTheWatchAndTheDocument) {
    OnAir first("/a", 1);
    OnAir second("/b", 2);
    first.Connect();
    second.Connect();
    for (const char* src : {"1", "/a"}) {
        PanelVisit visit(std::string("/status.json?wfc=y&src=") + src);
        EXPECT_EQ(visit.Pass(), WAITS);
        set_title(*second.mount, std::string("Elsewhere ") + src);
        EXPECT_EQ(visit.Pass(), WAITS);
        set_title(*first.mount, std::string("Here ") + src);
        EXPECT_EQ(visit.Pass(), ANSWERS);
        const std::string answer = visit.Hear();
        EXPECT_TRUE(holds(answer, "\"mount\":\"/a\""));
        EXPECT_FALSE(holds(answer, "\"mount\":\"/b\""));
    }
}

TEST(LongPoll, SrcMayWatchAMountThatIsNotShown) {
    OnAir closed("/c", 3, {{"Auth", "yes"}});
    closed.Connect();
    PanelVisit visit("/status.json?wfc=y&src=3");
    EXPECT_EQ(visit.Pass(), WAITS);
    set_title(*closed.mount, "For few");
    EXPECT_EQ(visit.Pass(), ANSWERS);
    EXPECT_FALSE(holds(visit.Hear(), "For few"));
}

TEST(LongPoll, SrcMayWatchByAnyAddressAndThenFindsNothing) {
    OnAir air("/live", 5, {{"IsDefault", "yes"}});
    air.Connect();
    for (const char* src : {"/", "/stream/5"}) {
        PanelVisit visit(std::string("/status.json?wfc=y&src=") + src);
        EXPECT_EQ(visit.Pass(), WAITS);
        set_title(*air.mount, std::string("New ") + src);
        EXPECT_EQ(visit.Pass(), ANSWERS);
        EXPECT_TRUE(holds(visit.Hear(), "\"sources\":[]"));
    }
}

TEST(LongPoll, SrcOfNoMountWatchesAll) {
    OnAir air("/live", 5);
    air.Connect();
    for (const char* src : {"9", "/none", "none"}) {
        PanelVisit visit(std::string("/status.json?wfc=y&src=") + src);
        EXPECT_EQ(visit.Pass(), WAITS);
        set_title(*air.mount, std::string("New ") + src);
        EXPECT_EQ(visit.Pass(), ANSWERS) << src;
    }
}

TEST(LongPoll, AWatchedMountThatIsRemovedIsAChange) {
    OnAir air("/live", 5);
    air.Connect();
    PanelVisit visit("/status.json?wfc=y&src=5");
    EXPECT_EQ(visit.Pass(), WAITS);
    MountList::Remove(air.mount);
    EXPECT_TRUE(gets_news(visit.panel));
    EXPECT_EQ(visit.Pass(), ANSWERS);
}

// ---- What makes a waiting answer worth a pass ---------------------------------------------------

TEST(HasNews, OfALongPollOnceItsStateHasChanged) {
    OnAir air("/live");
    air.Connect();
    PanelVisit visit("/status.json?wfc=y");
    visit.Pass();
    EXPECT_TRUE(stays_quiet(visit.panel));
    set_title(*air.mount, "New");
    EXPECT_TRUE(gets_news(visit.panel));
    EXPECT_EQ(visit.Pass(), ANSWERS);
}

TEST(HasNews, NotOfOtherMountsOrFigures) {
    OnAir first("/a", 1);
    OnAir second("/b", 2);
    OnAir closed("/c", 3, {{"Auth", "yes"}});
    first.Connect();
    second.Connect();
    closed.Connect();
    PanelVisit all("/status.json?wfc=y");
    PanelVisit one("/status.json?wfc=y&src=1");
    all.Pass();
    one.Pass();
    set_title(*closed.mount, "For few");
    EXPECT_TRUE(stays_quiet(all.panel));
    EXPECT_TRUE(stays_quiet(one.panel));
    set_title(*second.mount, "Elsewhere");
    EXPECT_TRUE(gets_news(all.panel));
    EXPECT_TRUE(stays_quiet(one.panel));
}

// The look that all share may be older than the state that a poll begins with.
TEST(HasNews, OfAStateThatReturnsToWhatTheLastLookFound) {
    OnAir air("/live");
    air.Connect();
    set_title(*air.mount, "One");
    public_state::Generation();
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    public_state::Generation(); // has seen "One" and is good for a while
    set_title(*air.mount, "Two");
    PanelVisit visit("/status.json?wfc=y");
    visit.Pass();
    set_title(*air.mount, "One");
    EXPECT_TRUE(gets_news(visit.panel));
    EXPECT_EQ(visit.Pass(), ANSWERS);
}

TEST(HasNews, OfAStoppedMountThatIsRemovedNothing) {
    OnAir air("/live", 5);
    air.mount->WaitForStop();
    PanelVisit visit("/status.json?wfc=y&src=5");
    visit.Pass();
    MountList::Remove(air.mount);
    EXPECT_TRUE(stays_quiet(visit.panel));
    EXPECT_EQ(visit.Pass(), WAITS);
}

TEST(HasNews, ComeWithAnotherNumber) {
    OnAir air("/live");
    air.Connect();
    PanelVisit visit("/status.json?wfc=y");
    visit.Pass();
    EXPECT_TRUE(comes_true([&] { return !visit.panel.HasNews(); }));
    const WebPanel::NewsNumber number = visit.panel.GetNewsNumber();
    const std::uint64_t before = number();
    EXPECT_TRUE(stays_quiet(visit.panel));
    EXPECT_EQ(number(), before);
    set_title(*air.mount, "New");
    EXPECT_TRUE(gets_news(visit.panel));
    EXPECT_NE(number(), before);
}

TEST(HasNews, OfOtherAnswersMayComeWithoutANumber) {
    PanelVisit visit("/index.html");
    EXPECT_TRUE(visit.panel.HasNews());
    EXPECT_EQ(visit.panel.GetNewsNumber(), nullptr);
}

TEST(HasNews, OfTheLogTailWhenALineIsWritten) {
    LogLines log;
    make_account("root", "secret", User::ADMINISTRATOR);
    PanelVisit visit("/admin/tail/log", basic("root:secret"));
    visit.Pass();
    log.All();
    visit.Pass();
    EXPECT_FALSE(visit.panel.HasNews());
    const std::uint64_t before = visit.panel.GetNewsNumber()();
    LogWrite(2) << "a line" << std::endl;
    EXPECT_TRUE(gets_news(visit.panel));
    EXPECT_TRUE(comes_true([&] { return visit.panel.GetNewsNumber()() == before + 1; }));
    visit.Pass();
    EXPECT_FALSE(visit.panel.HasNews());
}

TEST(HasNews, OfTheLogTailWhileItsClientIsBehind) {
    LogLines log;
    make_account("root", "secret", User::ADMINISTRATOR);
    PanelVisit visit("/admin/tail/log", basic("root:secret"));
    visit.Pass();
    visit.pair.FillTowardsClient();
    LogWrite(2) << "a line" << std::endl;
    log.All();
    visit.Pass();
    EXPECT_TRUE(visit.panel.HasNews());
}

} // namespace
