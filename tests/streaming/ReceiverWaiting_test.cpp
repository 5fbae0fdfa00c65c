// Pages that are answered later: when their Receiver gets a slice.

#include "media/Metadata.h"
#include "streaming/PublicState.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "support/ReceiverProbe.h"

#include <gtest/gtest.h>

namespace {

constexpr long long CYCLE = 50;
constexpr long long SIGN_OF_LIFE = 10000; // milliseconds between looks for the peer

void set_title(Mount& mount, const std::string& title) {
    auto metadata = std::make_shared<METADATA>();
    metadata->title = title;
    mount.SetMetaData(metadata);
}

struct WaitingPage : testing::Test {
    WaitingPage() { air.Connect(); }

    std::unique_ptr<Visitor> ask(const std::string& path, const std::string& fields = {}) {
        auto visitor =
            std::make_unique<Visitor>("GET " + path + " HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n");
        visitor->Slice();
        return visitor;
    }
    // Whether it wants no slice for so many cycles, in which looks at the mounts are taken.
    static bool is_quiet(Visitor& visitor, int cycles) {
        for (int cycle = 0; cycle < cycles; ++cycle) {
            if (visitor.receiver->Poll(CYCLE) != ThreadPool::NOTHING) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
        return true;
    }
    static bool wants_slice(Visitor& visitor) {
        return comes_true([&] { return visitor.receiver->Poll(0) == ThreadPool::LOW; });
    }

    OnAir air{"/live"};
};

TEST_F(WaitingPage, GetsNoSliceWhileNothingHappens) {
    const auto visitor = ask("/status.json?wfc=y");
    EXPECT_TRUE(is_quiet(*visitor, 30));
    EXPECT_EQ(visitor->Hear(), "");
    EXPECT_EQ(visitor->receiver->Status(), 1);
}

TEST_F(WaitingPage, LooksForItsPeerNowAndThen) {
    const auto visitor = ask("/status.json?wfc=y");
    EXPECT_EQ(visitor->receiver->Poll(SIGN_OF_LIFE - 1), ThreadPool::NOTHING);
    EXPECT_EQ(visitor->receiver->Poll(1), ThreadPool::LOW);
    visitor->Slice();
    EXPECT_EQ(visitor->receiver->Poll(SIGN_OF_LIFE - 1), ThreadPool::NOTHING);
    visitor->pair.CloseClient();
    ASSERT_TRUE(comes_true([&] { return visitor->pair.server->CanRecv() == 1; }));
    EXPECT_EQ(visitor->receiver->Poll(1), ThreadPool::LOW);
    visitor->Slice();
    EXPECT_EQ(visitor->receiver->Status(), 3);
}

TEST_F(WaitingPage, SeesTheEndOfAPeerThatSaidMoreThanItsRequest) {
    const auto visitor = ask("/status.json?wfc=y");
    visitor->Say("x");
    visitor->pair.CloseClient();
    ASSERT_TRUE(comes_true([&] { return visitor->pair.server->PeerHasClosed(); }));
    EXPECT_EQ(visitor->receiver->Poll(SIGN_OF_LIFE), ThreadPool::LOW);
    visitor->Slice();
    EXPECT_EQ(visitor->receiver->Status(), 3);
}

TEST_F(WaitingPage, IsAnsweredWithTheChange) {
    const auto visitor = ask("/status.json?wfc=y");
    set_title(*air.mount, "New");
    EXPECT_TRUE(wants_slice(*visitor));
    visitor->Slice();
    EXPECT_NE(visitor->Hear().find("\"meta_song\":\"New\""), std::string::npos);
    EXPECT_EQ(visitor->receiver->Status(), 0) << "the connection is kept";
    EXPECT_EQ(visitor->receiver->Poll(CYCLE), ThreadPool::LOW) << "and reads the next request";
}

// The look at the mounts that all share may be older than what a page begins with.
TEST_F(WaitingPage, IsAnsweredWhenTheStateReturnsToWhatTheLastLookFound) {
    set_title(*air.mount, "One");
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    public_state::Generation(); // finds "One", and looks no more for a while
    set_title(*air.mount, "Two");
    const auto visitor = ask("/status.json?wfc=y");
    visitor->receiver->Poll(0);
    visitor->Slice();
    set_title(*air.mount, "One");
    EXPECT_TRUE(wants_slice(*visitor));
    visitor->Slice();
    EXPECT_NE(visitor->Hear().find("\"meta_song\":\"One\""), std::string::npos);
}

TEST_F(WaitingPage, OfOneMountSleepsThroughTheChangesOfOthers) {
    OnAir other("/other", 2);
    other.Connect();
    const auto visitor = ask("/status.json?wfc=y&src=1");
    for (const char* title : {"One", "Two", "Three"}) {
        set_title(*other.mount, title);
        EXPECT_TRUE(is_quiet(*visitor, 15)) << title;
    }
    set_title(*air.mount, "Here");
    EXPECT_TRUE(wants_slice(*visitor));
}

TEST_F(WaitingPage, IsNotWrittenToTheLog) {
    LogLines log;
    const auto visitor = ask("/status.json?wfc=y");
    set_title(*air.mount, "New");
    EXPECT_TRUE(wants_slice(*visitor));
    visitor->Slice();
    const auto other = ask("/status.json");
    log.All();
    EXPECT_EQ(log.Count("WEB REQ: "), 1) << "the one that was answered at once";
}

TEST_F(WaitingPage, AKickEndsItAtOnce) {
    const auto visitor = ask("/status.json?wfc=y");
    visitor->receiver->Kick();
    EXPECT_EQ(visitor->receiver->Poll(0), ThreadPool::LOW);
    visitor->Slice();
    EXPECT_EQ(visitor->receiver->Status(), 3);
    EXPECT_TRUE(visitor->IsClosed());
}

TEST_F(WaitingPage, TheLogTailGetsASliceForALine) {
    LogLines log;
    make_account("root", "secret", User::ADMINISTRATOR);
    const auto visitor = ask("/admin/tail/log", basic("root:secret"));
    log.All();
    visitor->Slice();
    visitor->Hear();
    EXPECT_TRUE(is_quiet(*visitor, 30));
    LogWrite(2) << "a line" << std::endl;
    EXPECT_TRUE(wants_slice(*visitor));
    visitor->Slice();
    EXPECT_NE(visitor->Hear().find("] a line\r\n"), std::string::npos);
}

} // namespace
