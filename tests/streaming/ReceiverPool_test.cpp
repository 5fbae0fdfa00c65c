// The pool side of a Receiver: when it is polled into a slice, and what keeps two slices apart.

#include "core/Clock.h"
#include "net/ArrivalWatch.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "support/ReceiverProbe.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr long long CYCLE = 50;

// A listener that plays `air` and has nothing left to send.
std::unique_ptr<Visitor> make_listener(OnAir& air) {
    auto visitor = std::make_unique<Visitor>("GET " + air.mount->Address() + " HTTP/1.0\r\n\r\n");
    visitor->Slice();
    air.Deliver();
    visitor->Slice();
    return visitor;
}

// A whole answer, which says how long it is.
std::string hear_answer(const LoopbackPair& pair) {
    std::string heard;
    while (!heard.ends_with("\r\n\r\n")) {
        const std::string more = pair.Receive(1);
        if (more.empty()) return heard;
        heard += more;
    }
    const std::string field = "Content-Length: ";
    return heard + pair.Receive(std::stoul(heard.substr(heard.find(field) + field.size())));
}

TEST(ReceiverPool, BusyFromTheStartUntilTheFirstSliceHasRun) {
    Visitor visitor;
    EXPECT_EQ(visitor.receiver->Poll(CYCLE), ThreadPool::NOTHING);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Poll(CYCLE), ThreadPool::LOW);
}

TEST(ReceiverPool, APollThatAsksForASliceIsNotRepeatedBeforeIt) {
    Visitor visitor;
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Poll(CYCLE), ThreadPool::LOW);
    EXPECT_EQ(visitor.receiver->Poll(CYCLE), ThreadPool::NOTHING);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Poll(CYCLE), ThreadPool::LOW);
}

// Nothing is registered here, so that no poll could do what the arrivals do.
TEST(ReceiverPool, RequestsAreReadWhenTheyArrive) {
    constexpr int REQUESTS = 300;
    const std::string request = "GET /nothing HTTP/1.1\r\nHost: here\r\n\r\n";
    Visitor visitor;
    ThreadPool::Start();
    std::atomic<bool> done{false};
    std::thread listening([&done] {
        while (!done) {
            ArrivalWatch::Deliver();
            std::this_thread::yield();
        }
    });
    visitor.Slice();
    int answered = 0;
    while (answered < REQUESTS) {
        visitor.pair.Send(request);
        const std::string answer = hear_answer(visitor.pair);
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 404")) << answer;
        if (answer.empty()) break;
        ++answered;
    }
    EXPECT_EQ(answered, REQUESTS);
    done = true;
    listening.join();
    ThreadPool::WaitForStop();
}

TEST(ReceiverPool, NobodyIsServedBeforeTheListIsOpen) {
    LoopbackPair pair;
    const auto receiver = std::make_shared<Receiver>(pair.server);
    pair.Send("GET /nothing HTTP/1.0\r\n\r\n");
    receiver->Process();
    EXPECT_EQ(receiver->Poll(CYCLE), ThreadPool::NOTHING);
    EXPECT_EQ(pair.ReceiveWaiting(), "");

    ReceiverList::Open();
    EXPECT_EQ(receiver->Poll(CYCLE), ThreadPool::LOW);
    receiver->Process();
    EXPECT_TRUE(pair.Receive(12).starts_with("HTTP/1.0 404"));
}

TEST(ReceiverPool, AnIdleListenerIsDueInTheFourthCycle) {
    OnAir air("/live");
    air.Connect();
    const auto listener = make_listener(air);
    for (int cycle = 1; cycle <= 3; ++cycle)
        EXPECT_EQ(listener->receiver->Poll(CYCLE), ThreadPool::NOTHING) << cycle;
    EXPECT_EQ(listener->receiver->Poll(CYCLE), ThreadPool::LOW);
}

TEST(ReceiverPool, ALongCycleCountsWithItsWholeLength) {
    OnAir air("/live");
    air.Connect();
    const auto listener = make_listener(air);
    EXPECT_EQ(listener->receiver->Poll(199), ThreadPool::NOTHING);
    EXPECT_EQ(listener->receiver->Poll(1), ThreadPool::LOW);
}

// A listener whose time is up has one more slice to come.
TEST(ReceiverPool, AnEndingListenerIsUrgentWhenThereIsSomethingToSendOrItIsLate) {
    Clock::Hold(1000);
    OnAir air("/live", 1, {{"ListenerTimer", "1"}});
    air.Connect();
    const auto make_ending = [&air] {
        auto listener = make_listener(air);
        Clock::Advance(60);
        listener->Slice();
        EXPECT_EQ(listener->receiver->Status(), 2);
        return listener;
    };
    EXPECT_EQ(make_ending()->receiver->Poll(199), ThreadPool::NOTHING);
    EXPECT_EQ(make_ending()->receiver->Poll(200), ThreadPool::LOW);
    EXPECT_EQ(make_ending()->receiver->Poll(700), ThreadPool::LOW);
    EXPECT_EQ(make_ending()->receiver->Poll(701), ThreadPool::NORMAL) << "more than 500 too late";
    const auto fed = make_ending();
    const auto kicked = make_ending();
    const auto left = make_ending();
    air.FeedAndDeliver();
    EXPECT_EQ(fed->receiver->Poll(200), ThreadPool::NORMAL);
    kicked->receiver->Kick();
    EXPECT_EQ(kicked->receiver->Poll(200), ThreadPool::LOW);
    ReceiverProbe{*left->receiver}.LosePackets();
    air.Disconnect();
    EXPECT_EQ(left->receiver->Poll(200), ThreadPool::NORMAL) << "its source has gone";
    Clock::Release();
}

TEST(ReceiverPool, KickEndsTheWait) {
    OnAir air("/live");
    air.Connect();
    const auto listener = make_listener(air);
    listener->receiver->Kick();
    EXPECT_EQ(listener->receiver->Poll(0), ThreadPool::LOW);
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

TEST(ReceiverPool, TheStopOfThePoolKicks) {
    Visitor visitor;
    visitor.receiver->SignalStop();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
}

TEST(ReceiverPool, DetachedOnceFinishedAndGivesTheLockBack) {
    Visitor visitor;
    visitor.Slice();
    EXPECT_FALSE(visitor.receiver->Detached());
    visitor.receiver->Kick();
    visitor.Slice();
    EXPECT_TRUE(visitor.receiver->Detached());
    EXPECT_TRUE(visitor.receiver->Detached());
}

TEST(ReceiverPool, AFinishedConnectionIsNotQueuedAgain) {
    Visitor visitor;
    visitor.receiver->Kick();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Poll(CYCLE), ThreadPool::NOTHING);
}

TEST(ReceiverPool, TimesAndTextsOfANewConnection) {
    Clock::Hold(1000);
    Visitor visitor;
    Clock::Advance(7);
    EXPECT_EQ(visitor.receiver->ConnectTime(), 1000);
    EXPECT_EQ(visitor.receiver->GetConnectTime(), 7.0);
    EXPECT_EQ(visitor.receiver->GetLastServiceTime(), 1000);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->GetLastServiceTime(), 1007);
    EXPECT_EQ(visitor.receiver->GetIP(), "127.0.0.1");
    EXPECT_EQ(visitor.receiver->GetHostname(), "127.0.0.1");
    EXPECT_EQ(visitor.receiver->GetInterfaceIP(), "127.0.0.1");
    EXPECT_EQ(visitor.receiver->GetMount(), nullptr);
    EXPECT_EQ(visitor.receiver->ActiveMount(), "");
    EXPECT_EQ(visitor.receiver->GetUserAccount(), UserList::GetAnonymousUser());
    EXPECT_EQ(visitor.receiver->LastError(), 0);
    EXPECT_EQ(visitor.receiver->BytesSent(), 0U);
    EXPECT_EQ(visitor.receiver->GetBitrate(false), 0U);
}

TEST(ReceiverPool, APeerThatHasGoneIsNoticedByTheNextSlice) {
    LogLines log;
    Visitor visitor;
    visitor.pair.CloseClient();
    comes_true([&] { return visitor.pair.server->CanRecv() != 0; });
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_EQ(log.All(),
              std::vector<std::string>{
                  "<127.0.0.1> Receiver disconnected during recv check with empty buffer"});
}

} // namespace
