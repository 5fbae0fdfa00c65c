// A listener's slices: packets, moves between mounts, limits.

#include "core/Clock.h"
#include "http/Response.h"
#include "media/BufferEntry.h"
#include "media/MediaWriter.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "support/ReceiverProbe.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

constexpr std::size_t FEED = OnAir::PACKET * OnAir::PACKETS_PER_FEED;

// The body of what a listener heard: everything behind the first head.
std::string body(const std::string& heard) {
    const std::size_t end = heard.find("\r\n\r\n");
    return end == std::string::npos ? heard : heard.substr(end + 4);
}

struct Streaming : testing::Test {
    Streaming() { Clock::Hold(1000); }
    ~Streaming() override { Clock::Release(); }

    // A listener of this address, past its first slice.
    static std::unique_ptr<Visitor> listen(const std::string& address = "/live") {
        auto visitor = std::make_unique<Visitor>("GET " + address + " HTTP/1.0\r\n\r\n");
        visitor->Slice();
        return visitor;
    }
    // Advances and has a slice run.
    static void after(time_t seconds, Visitor& visitor) {
        Clock::Advance(seconds);
        visitor.Slice();
    }
};

// ---- Packets ------------------------------------------------------------------------------------

TEST_F(Streaming, ANewListenerHearsWhatIsRetainedAtOnce) {
    OnAir air("/live");
    air.Connect();
    air.FeedAndDeliver('a');
    const auto listener = listen();
    EXPECT_EQ(body(listener->Hear()), std::string(FEED, 'a'));
    EXPECT_EQ(listener->receiver->Status(), 1);
    EXPECT_EQ(air.mount->BytesSent(), FEED);
}

TEST_F(Streaming, PacketsFollowTheBurstInOrder) {
    OnAir air("/live");
    air.Connect();
    air.FeedAndDeliver('a');
    const auto listener = listen();
    air.FeedAndDeliver('b');
    air.FeedAndDeliver('c');
    listener->Slice();
    // The 192 bytes that the first feed left behind begin its packets.
    EXPECT_EQ(body(listener->Hear()), std::string(FEED, 'a') + std::string(192, 'a') +
                                          std::string(FEED, 'b') + std::string(FEED - 192, 'c'));
}

TEST_F(Streaming, AQueueThatRanEmptyWaitsFourCycles) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.FeedAndDeliver();
    listener->Slice();
    EXPECT_EQ(ReceiverProbe{*listener->receiver}.Wait(), 200);
}

TEST_F(Streaming, AFullSocketLeavesPacketsQueuedAndComesBackWithTheNextCycle) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.Deliver();
    listener->StopReading();
    for (int feed = 0; feed < 4; ++feed)
        air.FeedAndDeliver();
    listener->Slice();
    const ReceiverProbe probe{*listener->receiver};
    EXPECT_EQ(probe.GetResponse()->GetBytesBuffered(), 20500U) << "the first multiple above 20480";
    EXPECT_EQ(probe.QueuedPackets(), 4U * OnAir::PACKETS_PER_FEED - 41);
    EXPECT_EQ(probe.Wait(), 0);
    listener->Slice();
    EXPECT_EQ(probe.QueuedPackets(), 4U * OnAir::PACKETS_PER_FEED - 41) << "the socket comes first";
}

TEST_F(Streaming, MetadataReachesThePlayerAtItsInterval) {
    OnAir air("/live", 1, {{"MetaInterval", "1024"}});
    air.Connect();
    Visitor listener("GET /live HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n");
    listener.Slice();
    listener.Hear();
    const auto record = std::make_shared<METADATA>();
    record->title = "Song";
    air.mount->SetMetaData(record);
    air.Deliver();
    air.FeedAndDeliver();
    listener.Slice();
    const std::string heard = listener.Hear();
    EXPECT_EQ(heard.substr(0, 1024), std::string(1024, 'a'));
    EXPECT_EQ(heard.substr(1025, 19), "StreamTitle='Song';");
}

TEST_F(Streaming, EachTrackEndsALineOfTheListenerLog) {
    LogLines log;
    const std::string path = std::filesystem::temp_directory_path() /
                             ("quillwave-w3c-" + std::to_string(getpid()) + ".log");
    // A path with the digit 0 would be switched off.
    std::string name = path;
    for (char& c : name)
        if (c == '0') c = 'o';
    Log::SetFile("", name);
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.Deliver();
    for (const char* title : {"One", "Two", "Two", "Three"}) {
        const auto record = std::make_shared<METADATA>();
        record->title = title;
        air.mount->SetMetaData(record);
        air.FeedAndDeliver();
        Clock::Advance(10);
        listener->Slice();
    }
    const auto lines = [&name] {
        std::ifstream file(name);
        std::vector<std::string> found;
        for (std::string line; std::getline(file, line);)
            if (!line.starts_with("#")) found.push_back(line);
        return found;
    };
    EXPECT_TRUE(comes_true([&] { return lines().size() >= 3; }));
    EXPECT_EQ(lines().size(), 3U) << "the record that came twice is no new track";
    EXPECT_EQ(lines().at(0).find("One"), std::string::npos) << "kept: the first line has no title";
    EXPECT_NE(lines().at(1).find("One"), std::string::npos);
    EXPECT_NE(lines().at(2).find("Two"), std::string::npos);
    std::filesystem::remove(name);
}

TEST_F(Streaming, AfterTheIntroComesTheLiveStream) {
    const std::string path =
        std::filesystem::temp_directory_path() / ("quillwave-intro-" + std::to_string(getpid()));
    std::ofstream(path) << std::string(1500, 'i');
    OnAir air("/live", 1, {{"Intro", path}});
    air.Connect();
    const auto listener = listen();
    air.Deliver();
    air.FeedAndDeliver('a');
    listener->Slice();
    EXPECT_EQ(body(listener->Hear()), std::string(1000, 'i') + std::string(FEED, 'a'));
    std::filesystem::remove(path);
}

// ---- Without a source ---------------------------------------------------------------------------

TEST_F(Streaming, AListenerWaitsForTheSourceForTheClientTimeout) {
    OnAir air("/live");
    air.Connect();
    air.FeedAndDeliver();
    const auto listener = listen();
    air.Disconnect();
    after(30, *listener);
    EXPECT_EQ(listener->receiver->Status(), 1);
    after(1, *listener);
    EXPECT_EQ(listener->receiver->Status(), 2) << "one more slice for what was written";
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

TEST_F(Streaming, WithoutAClientTimeoutItWaitsForEver) {
    Config::Get("ClientTimeout", true)->SetValue("0");
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.Disconnect();
    after(100000, *listener);
    EXPECT_EQ(listener->receiver->Status(), 1);
}

TEST_F(Streaming, ASourceThatComesBackIsHeardAgain) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.FeedAndDeliver();
    listener->Slice();
    air.Disconnect();
    after(20, *listener);
    listener->Hear();
    air.Connect();
    air.FeedAndDeliver('b');
    listener->Slice();
    EXPECT_EQ(listener->Hear(), std::string(FEED, 'b'));
}

// ---- Fallback -----------------------------------------------------------------------------------

struct Fallback : Streaming {
    OnAir live{"/live", 1, {{"Backup", "/backup"}}};
    OnAir backup{"/backup", 2};
};

TEST_F(Fallback, AListenerOfASilentMountPlaysTheFallbackAndReturns) {
    backup.Connect();
    backup.FeedAndDeliver('b');
    const auto listener = listen();
    EXPECT_EQ(body(listener->Hear()), std::string(FEED, 'b'));
    EXPECT_EQ(live.mount->ReceiverSize(), 1U);
    EXPECT_EQ(backup.mount->ReceiverSize(), 0U);
    EXPECT_EQ(listener->receiver->ActiveMount(), "/backup");
    EXPECT_EQ(listener->receiver->GetMount(), live.mount);

    live.Connect();
    live.FeedAndDeliver('l');
    listener->Slice();
    EXPECT_EQ(listener->Hear(), std::string(FEED, 'l')) << "one burst";
    EXPECT_EQ(listener->receiver->ActiveMount(), "");
    listener->Slice();
    EXPECT_EQ(listener->Hear(), "") << "and no second one";
}

TEST_F(Fallback, AMountThatLosesItsSourceIsLeftForTheFallback) {
    live.Connect();
    backup.Connect();
    backup.FeedAndDeliver('b');
    const auto listener = listen();
    listener->Hear();
    live.Disconnect();
    listener->Slice();
    EXPECT_EQ(listener->Hear(), std::string(FEED, 'b'));
    EXPECT_EQ(backup.mount->BytesSent(), FEED);
}

TEST_F(Fallback, ASilentFallbackIsNotMovedTo) {
    live.Connect();
    const auto listener = listen();
    live.Disconnect();
    listener->Slice();
    EXPECT_EQ(listener->receiver->ActiveMount(), "");
    backup.Connect();
    listener->Slice();
    EXPECT_EQ(listener->receiver->ActiveMount(), "/backup") << "one that comes late is taken";
}

TEST_F(Fallback, TheListenerIsTakenOffTheMountAskedFor) {
    backup.Connect();
    const auto listener = listen();
    listener->receiver->Kick();
    listener->Slice();
    EXPECT_EQ(live.mount->ReceiverSize(), 0U);
}

TEST_F(Fallback, HeadThroughAFallbackIsTakenOffOnce) {
    LogLines log;
    backup.Connect();
    Visitor visitor("HEAD /live HTTP/1.0\r\n\r\n");
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_EQ(live.mount->ReceiverSize(), 0U);
    log.All();
    EXPECT_EQ(log.Count("that is not registered"), 0);
}

// ---- Moves --------------------------------------------------------------------------------------

TEST_F(Streaming, AMovedListenerHearsTheOtherMount) {
    OnAir one("/one", 1);
    OnAir two("/two", 2);
    one.Connect();
    two.Connect();
    two.FeedAndDeliver('2');
    const auto listener = listen("/one");
    listener->Hear();
    listener->receiver->SetMount(two.mount);
    EXPECT_EQ(one.mount->ReceiverSize(), 0U);
    EXPECT_EQ(two.mount->ReceiverSize(), 1U);
    EXPECT_EQ(listener->receiver->GetMount(), two.mount);
    two.Deliver();
    listener->Slice();
    EXPECT_EQ(listener->Hear(), std::string(FEED, '2')) << "one burst";
}

TEST_F(Streaming, AListenerOnItsFallbackIsMovedAwayFromTheMountAskedFor) {
    OnAir live("/live", 1, {{"Backup", "/backup"}});
    OnAir backup("/backup", 2);
    OnAir other("/other", 3);
    backup.Connect();
    other.Connect();
    const auto listener = listen();
    listener->receiver->SetMount(other.mount);
    EXPECT_EQ(live.mount->ReceiverSize(), 0U);
    live.Connect();
    listener->Slice();
    EXPECT_EQ(listener->receiver->GetMount(), other.mount) << "it does not jump back";
}

TEST_F(Streaming, AMoveToAnotherTypeIsIgnored) {
    LogLines log;
    OnAir one("/one", 1);
    OnAir two("/two", 2);
    one.Connect();
    two.Connect("application/other");
    const auto listener = listen("/one");
    listener->receiver->SetMount(two.mount);
    EXPECT_EQ(listener->receiver->GetMount(), one.mount);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Mount Move request ignored, invalid target mime type!"));
}

TEST_F(Streaming, AMoveToTheMountThatIsHeardIsIgnored) {
    LogLines log;
    OnAir one("/one", 1);
    one.Connect();
    const auto listener = listen("/one");
    one.Deliver();
    one.FeedAndDeliver();
    listener->receiver->SetMount(one.mount);
    listener->Slice();
    EXPECT_EQ(body(listener->Hear()), std::string(FEED, 'a')) << "no second burst";
    log.All();
    EXPECT_EQ(log.Count("Connection Closed"), 0);
}

TEST_F(Streaming, AMoveToASilentMountIsIgnored) {
    OnAir one("/one", 1);
    OnAir two("/two", 2);
    one.Connect();
    const auto listener = listen("/one");
    listener->receiver->SetMount(two.mount);
    EXPECT_EQ(listener->receiver->GetMount(), one.mount);
}

TEST_F(Streaming, AConnectionThatDoesNotListenIsNotMoved) {
    OnAir air("/live");
    air.Connect();
    Visitor visitor;
    visitor.receiver->SetMount(air.mount);
    EXPECT_EQ(visitor.receiver->GetMount(), nullptr);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

// ---- Limits -------------------------------------------------------------------------------------

struct Limits : Streaming {
    Limits() { Log::SetLevel(Log::DETAIL); }
    LogLines log;
};

TEST_F(Limits, AListenerOfFiveMinutesIsExtendedOnce) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    after(299, *listener);
    EXPECT_EQ(air.mount->ExTuneIns(), 0U);
    after(1, *listener);
    after(1, *listener);
    EXPECT_EQ(air.mount->ExTuneIns(), 1U);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver extended listener."));
}

TEST_F(Limits, TheListenerTimerIsInMinutes) {
    OnAir air("/live", 1, {{"ListenerTimer", "1"}});
    air.Connect();
    const auto listener = listen();
    after(59, *listener);
    EXPECT_EQ(listener->receiver->Status(), 1);
    after(1, *listener);
    EXPECT_EQ(listener->receiver->Status(), 2);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver disconnected due to listener timer."));
}

TEST_F(Limits, TheTimeLimitOfTheAdmissionIsInSeconds) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    ReceiverProbe{*listener->receiver}.SetTimeLimit(5);
    after(4, *listener);
    EXPECT_EQ(listener->receiver->Status(), 1);
    after(1, *listener);
    EXPECT_EQ(listener->receiver->Status(), 2);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver disconnected due to mount listener timer."));
}

TEST_F(Limits, AQueueOfMoreThanAMegabyteEndsTheListener) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.Deliver();
    listener->StopReading();
    const ReceiverProbe probe{*listener->receiver};
    std::uint64_t before = 0;
    for (int feed = 0; listener->receiver->Status() == 1 && feed < 200; ++feed) {
        before = probe.QueuedPackets();
        air.FeedAndDeliver();
        listener->Slice();
    }
    const std::uint64_t queued = probe.QueuedPackets();
    EXPECT_LE(before * OnAir::PACKET, 1028096U);
    EXPECT_GT(queued * OnAir::PACKET, 1028096U);
    EXPECT_EQ(listener->receiver->LastError(), 105);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver disconnected due to too large of a packet queue.  "
                         "Size: " +
                         std::to_string(queued * OnAir::PACKET) +
                         " Count: " + std::to_string(queued) + " Last Send: 0"));
}

// As much is retained as ever is of such a stream: more than a listener may have queued.
struct FullBurst : Limits {
    static constexpr std::uint64_t PACKETS = 1048576 / OnAir::PACKET;
    OnAir air{"/live"};

    FullBurst() {
        air.Connect();
        for (std::uint64_t fed = 0; fed < PACKETS; fed += OnAir::PACKETS_PER_FEED)
            air.FeedAndDeliver(static_cast<char>('a' + fed / OnAir::PACKETS_PER_FEED % 26));
    }
    std::string retained() const {
        std::string bytes;
        for (const auto& packet : air.mount->GetPacketBuffer()->GetBufferSnapShot())
            bytes.append(packet->data.begin(), packet->data.end());
        return bytes;
    }
};

TEST_F(FullBurst, AListenerThatReadsHasTakenEnoughBeforeItsQueueIsLookedAt) {
    const std::string burst = retained();
    ASSERT_EQ(burst.size(), PACKETS * OnAir::PACKET);
    Visitor listener("GET /live HTTP/1.0\r\n\r\n");
    listener.Slice();
    EXPECT_EQ(listener.receiver->Status(), 1);
    EXPECT_LE(ReceiverProbe{*listener.receiver}.QueuedPackets() * OnAir::PACKET, 1028096U);
    std::string heard;
    const auto hears_all = [&] {
        heard += listener.pair.ReceiveWaiting();
        listener.Slice();
        return body(heard) == burst;
    };
    EXPECT_TRUE(comes_true(hears_all)) << body(heard).size() << " bytes were heard";
    EXPECT_EQ(listener.receiver->Status(), 1);
    log.All();
    EXPECT_EQ(log.Count("Receiver disconnected"), 0);
}

TEST_F(FullBurst, AListenerWhoseSocketIsFullIsEndedByIt) {
    Visitor listener("GET /live HTTP/1.0\r\n\r\n");
    listener.StopReading();
    listener.Slice();
    EXPECT_EQ(listener.receiver->Status(), 2);
    EXPECT_EQ(listener.receiver->LastError(), 105);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver disconnected due to too large of a packet queue.  "
                         "Size: 1048500 Count: 2097 Last Send: 0"));
    listener.Slice();
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
    EXPECT_EQ(ReceiverProbe{*listener.receiver}.QueuedPackets(), 0U);
}

TEST_F(Limits, AListenerThatTakesNothingEndsAfterFifteenSeconds) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.Deliver();
    listener->StopReading();
    air.FeedAndDeliver();
    listener->Slice();
    after(15, *listener);
    EXPECT_EQ(listener->receiver->Status(), 1);
    after(1, *listener);
    EXPECT_EQ(listener->receiver->Status(), 2);
    EXPECT_EQ(listener->receiver->LastError(), 110);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver disconnected due to write error on send"));
}

struct FailingWriter : MediaWriter {
    using MediaWriter::MediaWriter;
    unsigned long Write(const SharedBytes&, unsigned long, unsigned long) override { return 0; }
};

TEST_F(Limits, AWriterThatTakesNothingEndsTheListener) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    air.Deliver();
    ReceiverProbe probe{*listener->receiver};
    probe.SetWriter(std::make_shared<FailingWriter>(probe.GetResponse()));
    air.FeedAndDeliver();
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 2);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver disconnected due error on media write."));
}

// Has so many bytes wait for each packet, and breaks the connection.
struct BreakingWriter : MediaWriter {
    BreakingWriter(std::shared_ptr<Response> to, std::shared_ptr<Socket> through, std::size_t count)
        : MediaWriter(std::move(to)), socket(std::move(through)), bytes(count) {}
    unsigned long Write(const SharedBytes&, unsigned long, unsigned long length) override {
        response->Buffer(std::string(bytes, 'x'));
        socket->Close();
        return length;
    }
    std::shared_ptr<Socket> socket;
    std::size_t bytes;
};

TEST_F(Limits, AWriteErrorEndsTheListenerWhereverItIsMet) {
    OnAir air("/live");
    air.Connect();
    struct {
        std::size_t bytes;
        const char* line;
    } const cases[] = {
        {20480 / OnAir::PACKETS_PER_FEED,
         "<127.0.0.1> Receiver disconnected due to write error. SB"},
        {20481, "<127.0.0.1> Receiver disconnected due to write error on send buffer"},
    };
    for (const auto& [bytes, line] : cases) {
        const auto listener = listen();
        air.Deliver();
        ReceiverProbe probe{*listener->receiver};
        probe.SetWriter(
            std::make_shared<BreakingWriter>(probe.GetResponse(), listener->pair.server, bytes));
        air.Feed();
        air.Deliver();
        listener->Slice();
        EXPECT_EQ(listener->receiver->Status(), 2);
        EXPECT_TRUE(log.Wait(line));
    }
}

struct ThrowingWriter : MediaWriter {
    using MediaWriter::MediaWriter;
    unsigned long Write(const SharedBytes&, unsigned long, unsigned long) override {
        throw std::out_of_range("no such frame");
    }
};

TEST_F(Limits, WhateverIsThrownEndsThisListenerOnly) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    const auto other = listen();
    air.Deliver();
    ReceiverProbe probe{*listener->receiver};
    probe.SetWriter(std::make_shared<ThrowingWriter>(probe.GetResponse()));
    air.FeedAndDeliver();
    listener->Slice(2);
    other->Slice();
    EXPECT_EQ(listener->receiver->Status(), 3);
    EXPECT_EQ(body(other->Hear()), std::string(FEED, 'a'));
    EXPECT_EQ(air.mount->ReceiverSize(), 1U);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Receiver ended by an error: no such frame"));
}

TEST_F(Limits, AnOrphanIsLoggedAndEnds) {
    OnAir air("/live");
    air.Connect();
    const auto listener = listen();
    ReceiverProbe{*listener->receiver}.LoseMount();
    listener->Slice();
    EXPECT_EQ(listener->receiver->Status(), 2);
    EXPECT_TRUE(log.Wait("Orphan instance of Reciever, this is certainly not intended. [I: " +
                         listener->receiver->GetUUID() + "]"));
    air.mount->UnregisterReceiver(listener->receiver);
    listener->Slice(); // leaves the buffer
}

} // namespace
