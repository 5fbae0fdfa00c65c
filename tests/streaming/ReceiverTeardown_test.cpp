// The end of a connection, and what others read of it until then.

#include "core/Clock.h"
#include "http/Response.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "support/ReceiverProbe.h"

#include <gtest/gtest.h>

namespace {

struct Teardown : testing::Test {
    Teardown() { Clock::Hold(1000); }
    ~Teardown() override { Clock::Release(); }
    OnAir air{"/live"};
    static std::unique_ptr<Visitor> listen(const std::string& request) {
        auto visitor = std::make_unique<Visitor>(request);
        visitor->Slice();
        return visitor;
    }
};

const std::string PLAIN = "GET /live HTTP/1.0\r\n\r\n";

TEST_F(Teardown, TheDescriptorIsClosedWhoeverStillHoldsTheRequest) {
    air.Connect();
    const auto listener = listen(PLAIN);
    const std::shared_ptr<Request> held = listener->receiver->GetRequest();
    listener->receiver->Kick();
    listener->Slice();
    listener->Hear();
    EXPECT_TRUE(listener->IsClosed());
    EXPECT_FALSE(held->Socket()->IsValid());
}

TEST_F(Teardown, AKickedListenerIsOutOfTheListAndOffTheMount) {
    air.Connect();
    const auto listener = listen(PLAIN);
    ReceiverList::Add(listener->receiver);
    listener->receiver->Kick();
    listener->Slice();
    EXPECT_EQ(ReceiverList::Count(), 0);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
    EXPECT_EQ(listener->receiver->GetMount(), nullptr);
}

TEST_F(Teardown, AChunkedStreamEndsWithTheLastChunk) {
    air.Connect();
    const auto listener =
        listen("GET /live HTTP/1.1\r\nHost: a\r\nAccept-Encoding: chunked\r\n\r\n");
    listener->Hear();
    listener->receiver->Kick();
    listener->Slice();
    EXPECT_EQ(listener->Hear(), "0\r\n");
}

TEST_F(Teardown, OnAFullSocketItComesAgainUntilTheRestHasLeft) {
    LogLines log;
    air.Connect();
    const auto listener =
        listen("GET /live HTTP/1.1\r\nHost: a\r\nAccept-Encoding: chunked\r\n\r\n");
    listener->Hear();
    const std::uint64_t in_the_way = listener->StopReading();
    listener->receiver->Kick();
    listener->Slice(3);
    EXPECT_EQ(listener->receiver->Status(), 2);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U) << "it counts as gone at once";
    listener->pair.Receive(in_the_way);
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
    EXPECT_EQ(listener->Hear(), "0\r\n") << "the body is ended once";
    log.All();
    EXPECT_EQ(log.Count("Orphan"), 0);
    EXPECT_EQ(log.Count("not registered"), 0);
}

TEST_F(Teardown, AnAnswerLeavesWholeHoweverOftenTheSocketIsFull) {
    Visitor visitor("GET /nothing HTTP/1.0\r\n\r\n");
    const std::uint64_t in_the_way = visitor.StopReading();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 2);
    constexpr std::size_t LARGE = 600000;
    ReceiverProbe{*visitor.receiver}.GetResponse()->Buffer(std::string(LARGE, 'x'));
    visitor.pair.Receive(in_the_way);
    std::string heard;
    const auto ends = [&] {
        visitor.Slice();
        heard += visitor.Hear();
        return visitor.receiver->Status() == 3;
    };
    EXPECT_TRUE(comes_true(ends));
    heard += visitor.Hear();
    EXPECT_TRUE(heard.starts_with("HTTP/1.0 404 Not Found\r\n"));
    EXPECT_TRUE(heard.ends_with("</html>" + std::string(LARGE, 'x')));
}

TEST_F(Teardown, OfAKickedStreamGoesWhatTheSocketTakes) {
    air.Connect();
    const auto listener = listen(PLAIN);
    const std::uint64_t in_the_way = listener->StopReading();
    ReceiverProbe{*listener->receiver}.GetResponse()->Buffer(std::string(900000, 'x'));
    listener->receiver->Kick();
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 2);
    listener->pair.Receive(in_the_way);
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
}

TEST_F(Teardown, OnASocketThatStaysFullItEndsAfterFifteenSeconds) {
    air.Connect();
    const auto listener =
        listen("GET /live HTTP/1.1\r\nHost: a\r\nAccept-Encoding: chunked\r\n\r\n");
    listener->StopReading();
    listener->receiver->Kick();
    listener->Slice();
    Clock::Advance(16);
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
}

TEST_F(Teardown, APeerThatHasGoneCountsNoError) {
    air.Connect();
    const auto listener = listen(PLAIN);
    listener->pair.CloseClient();
    comes_true([&] { return listener->pair.server->CanRecv() != 0; });
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

TEST_F(Teardown, PacketsThatNobodyWillHearAreLetGo) {
    air.Connect();
    const auto listener = listen(PLAIN);
    air.Deliver();
    listener->StopReading();
    for (int feed = 0; feed < 4; ++feed)
        air.FeedAndDeliver();
    listener->Slice();
    EXPECT_GT(ReceiverProbe{*listener->receiver}.QueuedPackets(), 0U);
    listener->receiver->Kick();
    listener->Slice();
    EXPECT_EQ(ReceiverProbe{*listener->receiver}.QueuedPackets(), 0U);
}

TEST_F(Teardown, TheRecordOfAListener) {
    Config::Get("Hostname", true)->SetValue("radio.example");
    make_account("ear", "secret", User::LISTENER);
    air.Connect();
    air.FeedAndDeliver();
    const auto listener =
        listen("GET /live?a=b HTTP/1.0\r\nUser-Agent: player\r\n" + basic("ear:secret") + "\r\n");
    Clock::Advance(12);
    const Log::ReceiverStats stats = listener->receiver->GetLogStats();
    EXPECT_EQ(stats.s_ip, "127.0.0.1");
    EXPECT_EQ(stats.s_dns, "radio.example");
    EXPECT_EQ(stats.c_ip, "127.0.0.1");
    EXPECT_EQ(stats.c_dns, "127.0.0.1");
    EXPECT_EQ(stats.cs_username, "ear");
    EXPECT_EQ(stats.cs_method, "\x02") << "the number of GET, as one byte";
    EXPECT_EQ(stats.cs_uri_stem, "/live");
    EXPECT_EQ(stats.cs_uri_query, "?a=b");
    EXPECT_EQ(stats.connected, 12.0);
    EXPECT_EQ(stats.time_taken, 12.0);
    EXPECT_EQ(stats.sc_status, 200);
    EXPECT_EQ(stats.sc_bytes, listener->receiver->BytesSent());
    EXPECT_GT(stats.sc_bytes, 8000U);
    EXPECT_EQ(stats.cs_version, "HTTP/1.0");
    EXPECT_EQ(stats.cs_user_agent, "player");
    EXPECT_EQ(stats.x_metatitle, "");
}

} // namespace
