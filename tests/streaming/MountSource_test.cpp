#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Clock.h"
#include "media/HTTPReader.h"
#include "media/ICYReader.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/Broadcaster.h"
#include "support/LogLines.h"
#include "support/Sections.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <optional>

namespace {
constexpr const char* PLAIN = "Content-Type: application/test\r\n";

// One frame of MPEG-1 Layer III at 128 kbit/s and 44100 Hz.
std::string mp3_frame() { return std::string("\xFF\xFB\x90\x00", 4) + std::string(413, 'm'); }

std::string mp3_frames(int count) {
    std::string all;
    for (int frame = 0; frame < count; ++frame)
        all += mp3_frame();
    return all;
}

struct MountSource : testing::Test {
    std::shared_ptr<Mount> mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));
    std::optional<Broadcaster> source;

    MountSource() { MountList::Add(mount); }
    ~MountSource() override { MountList::WaitForStop(); }

    static bool comes_true(const std::function<bool()>& condition) {
        return Broadcaster::comes_true(condition);
    }
    // A source that this mount takes.
    Broadcaster& connect(const std::string& fields) {
        source.emplace(fields);
        mount->SetRequest(source->request);
        EXPECT_TRUE(comes_true([this] { return mount->IsConnected(); }));
        return *source;
    }
    void leave() {
        source->Leave();
        EXPECT_TRUE(comes_true([this] { return !mount->IsConnected(); }));
    }
    bool has_packets(std::uint64_t count) {
        return comes_true([&] { return mount->GetPacketBuffer()->GetBufferCount() >= count; });
    }
    // All bytes that were cut into packets so far.
    std::string retained() const {
        std::string bytes;
        for (const auto& entry : mount->GetPacketBuffer()->GetBufferSnapShot())
            bytes.append(entry->data.begin(), entry->data.end());
        return bytes;
    }
    std::string at() const { return "127.0.0.1:" + std::to_string(source->request->Port()); }
};
} // namespace

TEST_F(MountSource, WhatTheSourceSaysOfItsStream) {
    Clock::Hold(7000);
    connect("Content-Type: audio/mpeg\r\nicy-name: Rock\r\nicy-genre: Loud\r\nicy-pub: 1\r\n"
            "icy-br: 128\r\nicy-url: http://rock\r\nice-description: All day\r\n"
            "ice-audio-info: channels=2\r\n");
    const MountDescription said = mount->GetMountDescription();
    EXPECT_EQ(said.id, 1);
    EXPECT_EQ(said.address, "/live");
    EXPECT_EQ(said.name, "Rock");
    EXPECT_EQ(said.genre, "Loud");
    EXPECT_TRUE(said.is_public);
    EXPECT_EQ(said.bitrate, "128");
    EXPECT_EQ(said.website, "http://rock");
    EXPECT_EQ(said.description, "All day");
    EXPECT_EQ(said.audio_info, "channels=2");
    EXPECT_EQ(said.content_type, "audio/mpeg");
    EXPECT_EQ(said.connect_time, 7000);
    EXPECT_TRUE(comes_true([this] { return mount->LastIP() == "127.0.0.1"; }));
    EXPECT_TRUE(mount->PublicRelays());
}

TEST_F(MountSource, IceHeadersServeWhereIcyOnesAreMissing) {
    connect("Content-Type: audio/mpeg\r\nice-name: Rock\r\nice-genre: Loud\r\nice-public: 1\r\n"
            "ice-bitrate: 64\r\nice-url: http://rock\r\nicy-description: All day\r\n");
    EXPECT_EQ(mount->Name(), "Rock");
    EXPECT_EQ(mount->Genre(), "Loud");
    EXPECT_TRUE(mount->Public());
    EXPECT_EQ(mount->Bitrate(), "64");
    EXPECT_EQ(mount->Website(), "http://rock");
    EXPECT_EQ(mount->Description(), "All day");
}

TEST_F(MountSource, TheFirstHeaderThatSaysSomethingWins) {
    connect("Content-Type: audio/mpeg\r\nicy-name: A\r\nice-name: B\r\nice-description: C\r\n"
            "icy-description: D\r\n");
    EXPECT_EQ(mount->Name(), "A");
    EXPECT_EQ(mount->Description(), "C");
}

TEST_F(MountSource, WhatTheNextSourceDoesNotSayIsForgotten) {
    connect("Content-Type: audio/mpeg\r\nicy-name: Rock\r\nicy-br: 128\r\nicy-pub: 1\r\n");
    leave();
    connect("Content-Type: audio/mpeg\r\n");
    EXPECT_EQ(mount->Name(), "Unknown");
    EXPECT_EQ(mount->Genre(), "Unknown");
    EXPECT_EQ(mount->Bitrate(), "");
    EXPECT_FALSE(mount->Public());
}

TEST_F(MountSource, RelaysAreListedForAPublicSourceUnlessTheMountForbidsIt) {
    EXPECT_FALSE(mount->PublicRelays());
    connect("Content-Type: audio/mpeg\r\nicy-pub: 1\r\n");
    EXPECT_TRUE(mount->PublicRelays());
    Set(mount->GetConfigNode(), "PublicRelays", "no");
    EXPECT_FALSE(mount->PublicRelays());
    Set(mount->GetConfigNode(), "PublicRelays", "");
    EXPECT_TRUE(mount->PublicRelays());
    Set(Defaults(), "PublicRelays", "0");
    EXPECT_FALSE(mount->PublicRelays());
    Set(Defaults(), "PublicRelays", "");
    Set(mount->GetConfigNode(), "Auth", "1");
    EXPECT_FALSE(mount->PublicRelays());
}

TEST_F(MountSource, ASourceComesAndGoes) {
    LogLines log;
    connect("Content-Type: audio/mpeg\r\n").Send(mp3_frames(40));
    EXPECT_TRUE(has_packets(10));
    EXPECT_EQ(MountList::TotalActiveMounts(), 1U);
    EXPECT_EQ(MountList::GetAllMounts(true).size(), 1U);
    leave();
    EXPECT_EQ(log.All(), (std::vector<std::string>{
                             "<127.0.0.1> Source Connected (A: " + at() + "/live) [T: Mpeg Object]",
                             "<127.0.0.1> Source Disconnected Gracefully (A: " + at() + "/live)"}));
    EXPECT_EQ(MountList::TotalActiveMounts(), 0U);
    EXPECT_EQ(mount->GetRequest(), nullptr);
    EXPECT_NE(mount->GetPacketBuffer(), nullptr);
    EXPECT_EQ(mount->ContentType(), "audio/mpeg");
}

TEST_F(MountSource, MpegFramesArePacketsByThemselves) {
    connect("Content-Type: audio/mpeg\r\n").Send(mp3_frames(40));
    ASSERT_TRUE(has_packets(19));
    for (const auto& entry : mount->GetPacketBuffer()->GetBufferSnapShot())
        EXPECT_EQ(std::string(entry->data.begin(), entry->data.end()), mp3_frame());
}

TEST_F(MountSource, AnUnknownTypeIsNamedInTheLog) {
    LogLines log;
    connect(PLAIN);
    EXPECT_TRUE(log.Wait("/live) [T: Generic Object (application/test)]"));
}

TEST_F(MountSource, ABrokenConnectionIsLoggedWithItsError) {
    LogLines log;
    connect(PLAIN).pair.ResetClient();
    EXPECT_TRUE(log.Wait("<127.0.0.1> Source Disconnected [Error: (104) Connection reset by peer] "
                         "(A: " +
                         at() + "/live)"));
}

// ---- The next source ----------------------------------------------------------------------------

TEST_F(MountSource, TheSameTypeContinuesBufferAndReader) {
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    const auto buffer = mount->GetPacketBuffer();
    leave();
    const std::uint64_t received = mount->BytesReceived();
    connect(PLAIN).Send(std::string(8192, 'b'));
    ASSERT_TRUE(has_packets(32));
    EXPECT_EQ(mount->GetPacketBuffer(), buffer);
    EXPECT_EQ(retained(), std::string(8000, 'a') + std::string(8000, 'b'));
    EXPECT_EQ(mount->BytesReceived(), received + 8192 + source->request->GetRawRequest().size());
}

TEST_F(MountSource, AnotherTypeGetsANewBuffer) {
    connect(PLAIN);
    const auto buffer = mount->GetPacketBuffer();
    leave();
    connect("Content-Type: audio/mpeg\r\n");
    EXPECT_NE(mount->GetPacketBuffer(), buffer);
    int index = 0;
    EXPECT_EQ(mount->GetNextPacketBuffer(index), mount->GetPacketBuffer());
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
}

TEST_F(MountSource, AChunkedSourceMayFollowAPlainOne) {
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    leave();
    const std::string chunk = "4000\r\n" + std::string(0x4000, 'b');
    connect(std::string(PLAIN) + "Transfer-Encoding: chunked\r\n").Send(chunk);
    ASSERT_TRUE(has_packets(32));
    EXPECT_EQ(retained().substr(0, 16000), std::string(8000, 'a') + std::string(8000, 'b'));
}

TEST_F(MountSource, APlainSourceMayFollowAChunkedOne) {
    connect(std::string(PLAIN) + "Transfer-Encoding: chunked\r\n")
        .Send("2100\r\n" + std::string(0x2100, 'a'));
    ASSERT_TRUE(has_packets(16));
    leave();
    connect(PLAIN).Send(std::string(8192, 'b'));
    ASSERT_TRUE(has_packets(32));
    EXPECT_EQ(retained(), std::string(8000, 'a') + std::string(8000, 'b'));
}

TEST_F(MountSource, ASourceWithMetadataBlocksMayFollowOneWithout) {
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    const auto buffer = mount->GetPacketBuffer();
    leave();
    const std::uint64_t received = mount->BytesReceived();
    connect(std::string(PLAIN) + "icy-metaint: 4096\r\n")
        .Send(std::string(4096, 'b') + '\0' + std::string(4096, 'b') + '\0');
    ASSERT_TRUE(has_packets(32));
    EXPECT_EQ(mount->GetPacketBuffer(), buffer);
    EXPECT_EQ(retained(), std::string(8000, 'a') + std::string(8000, 'b'));
    EXPECT_EQ(mount->BytesReceived(), received + 8194 + source->request->GetRawRequest().size());
}

TEST_F(MountSource, AKeptReaderTakesTheNextSourcesInterval) {
    connect(std::string(PLAIN) + "icy-metaint: 4096\r\n")
        .Send(std::string(4096, 'a') + '\0' + std::string(4096, 'a') + '\0');
    ASSERT_TRUE(has_packets(16));
    leave();
    connect(std::string(PLAIN) + "icy-metaint: 8192\r\n").Send(std::string(8192, 'b') + '\0');
    ASSERT_TRUE(has_packets(32));
    EXPECT_EQ(retained(), std::string(8000, 'a') + std::string(8000, 'b'));
}

TEST_F(MountSource, ATransferCodingWinsOverMetadataBlocks) {
    connect(std::string(PLAIN) + "icy-metaint: 4096\r\nTransfer-Encoding: chunked\r\n")
        .Send("2100\r\n" + std::string(0x2100, 'a'));
    ASSERT_TRUE(has_packets(16));
    EXPECT_EQ(retained(), std::string(8000, 'a'));
}

// ---- Being sent away ----------------------------------------------------------------------------

TEST_F(MountSource, AKickEndsASilentSourceAtOnceAndKeepsTheMount) {
    connect(PLAIN);
    mount->Kick();
    EXPECT_TRUE(comes_true([this] { return !mount->IsConnected(); }));
    EXPECT_TRUE(source->IsDropped());
    EXPECT_TRUE(mount->IsRunning());
    connect(PLAIN).Send(std::string(8192, 'a'));
    EXPECT_TRUE(has_packets(16));
    EXPECT_TRUE(mount->IsConnected());
}

TEST_F(MountSource, AKickOfAWaitingMountIsForgottenByItsNextSource) {
    mount->Kick();
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    source->Send(std::string(8192, 'b'));
    EXPECT_TRUE(has_packets(32));
}

TEST_F(MountSource, OfTwoKicksInARowNoneIsLeftForTheNextSource) {
    LogLines log;
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    mount->Kick();
    mount->Kick();
    EXPECT_TRUE(comes_true([this] { return !mount->IsConnected(); }));
    connect(PLAIN).Send(std::string(8192, 'b'));
    ASSERT_TRUE(has_packets(32));
    source->Send(std::string(8192, 'c'));
    EXPECT_TRUE(has_packets(48));
    EXPECT_TRUE(mount->IsConnected());
    log.All();
    EXPECT_EQ(log.Count("Source Disconnected"), 1) << "the one that was kicked";
}

// By itself it would be waited for half a minute.
TEST_F(MountSource, AStopEndsASilentSourceAtOnce) {
    connect(PLAIN);
    const auto begun = std::chrono::steady_clock::now();
    mount->WaitForStop();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(15));
    EXPECT_TRUE(source->IsDropped());
    EXPECT_FALSE(mount->IsConnected());
    EXPECT_EQ(MountList::TotalActiveMounts(), 0U);
}

TEST_F(MountSource, AStopLetsGoOfTheStream) {
    LogLines log;
    connect("Content-Type: audio/mpeg\r\n").Send(mp3_frames(40));
    ASSERT_TRUE(has_packets(10));
    mount->WaitForStop();
    EXPECT_EQ(mount->GetPacketBuffer(), nullptr);
    EXPECT_EQ(mount->ContentType(), "application/octet-stream");
    EXPECT_EQ(mount->BytesReceived(), 0U);
    EXPECT_TRUE(log.Wait("Closing Mount /live down"));
}

TEST_F(MountSource, DisablingEndsTheSource) {
    connect(PLAIN);
    Set(mount->GetConfigNode(), "Disabled", "1");
    EXPECT_TRUE(comes_true([this] { return !mount->IsRunning(); }));
    EXPECT_TRUE(source->IsDropped());
}

TEST_F(MountSource, RemovingARunningMountEndsItsSource) {
    connect(PLAIN);
    MountList::Remove(mount);
    EXPECT_TRUE(source->IsDropped());
    EXPECT_FALSE(mount->IsRunning());
}

TEST_F(MountSource, UltravoxIsRefusedAndTheMountTakesTheNextSource) {
    LogLines log;
    Broadcaster refused("Content-Type: misc/ultravox\r\n");
    mount->SetRequest(refused.request);
    const std::string port = std::to_string(refused.request->Port());
    EXPECT_TRUE(
        log.Wait("<127.0.0.1> Ultravox Underlay Not supported (A: 127.0.0.1:" + port + "/live)"));
    EXPECT_TRUE(refused.IsDropped());
    EXPECT_TRUE(comes_true([this] { return mount->GetRequest() == nullptr; }));
    EXPECT_FALSE(mount->IsConnected());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(log.Count("Ultravox"), 1);
    connect(PLAIN).Send(std::string(8192, 'a'));
    EXPECT_TRUE(has_packets(16));
}

// ---- Requests that wait -------------------------------------------------------------------------

TEST_F(MountSource, AMountWithRelayAddressesTakesNoSourceUntilTheyAreGone) {
    mount->AddRelayAddress("http://far/x");
    Broadcaster waiting(PLAIN);
    mount->SetRequest(waiting.request);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(mount->IsConnected());
    EXPECT_EQ(mount->GetRequest(), waiting.request);
    mount->RemoveRelayAddress("http://far/x");
    EXPECT_TRUE(comes_true([this] { return mount->IsConnected(); }));
}

TEST_F(MountSource, ARequestThatReplacesAWaitingOneClosesThatConnection) {
    mount->AddRelayAddress("http://far/x");
    auto first = std::make_unique<Broadcaster>(PLAIN);
    mount->SetRequest(std::exchange(first->request, nullptr));
    first->pair.server.reset();
    Broadcaster second(PLAIN);
    mount->SetRequest(second.request);
    EXPECT_TRUE(first->IsDropped());
    EXPECT_EQ(mount->GetRequest(), second.request);
}

TEST_F(MountSource, ASecondSourceIsClosedWhenTheFirstLeaves) {
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    auto second = std::make_unique<Broadcaster>(PLAIN);
    mount->SetRequest(std::exchange(second->request, nullptr));
    second->pair.server.reset();
    source->Send(std::string(8192, 'a'));
    EXPECT_TRUE(has_packets(32));
    leave();
    EXPECT_TRUE(second->IsDropped());
}

TEST_F(MountSource, AStopClosesARequestThatStillWaits) {
    mount->AddRelayAddress("http://far/x");
    Broadcaster waiting(PLAIN);
    mount->SetRequest(std::exchange(waiting.request, nullptr));
    waiting.pair.server.reset();
    mount->WaitForStop();
    EXPECT_TRUE(waiting.IsDropped());
}

TEST_F(MountSource, TheAccountOfTheSource) {
    const auto account = UserList::Add("src", "secret");
    account->SetGroup(User::MOUNT_SOURCE);
    account->AddProperty(1, "*", User::ALL);
    connect(std::string(PLAIN) + "Authorization: Basic c3JjOnNlY3JldA==\r\n"); // src:secret
    EXPECT_EQ(mount->GetSourceAccount(), account);
    EXPECT_EQ(MountList::GetActiveMountCredentialsByUsername("src", "secret"), mount);
    EXPECT_EQ(MountList::GetActiveMountCredentialsByUsername("src", ""), nullptr);
    EXPECT_EQ(MountList::GetActiveMountCredentialsByUsername("src", "wrong"), nullptr);
    leave();
    EXPECT_EQ(MountList::GetActiveMountCredentialsByUsername("src", "secret"), nullptr);
}

TEST_F(MountSource, ANameAloneIsNobody) {
    UserList::Add("src", "secret")->SetGroup(User::MOUNT_SOURCE);
    connect(std::string(PLAIN) + "Authorization: Basic c3JjOg==\r\n"); // src:
    EXPECT_EQ(mount->GetSourceAccount(), UserList::GetAnonymousUser());
    EXPECT_EQ(MountList::GetActiveMountCredentialsByUsername("stranger", "x"), nullptr);
}

// ---- Metadata -----------------------------------------------------------------------------------

TEST_F(MountSource, ATitleInTheStreamBecomesTheMountsRecord) {
    const std::string block = "StreamTitle='Artist - Song';";
    connect(std::string(PLAIN) + "icy-metaint: 8192\r\n")
        .Send(std::string(8192, 'a') + '\x02' + block + std::string(32 - block.size(), '\0'));
    EXPECT_TRUE(comes_true([this] { return mount->GetMetaData()->title == "Artist - Song"; }));
    EXPECT_TRUE(mount->GetSongHistory().empty());
}

TEST_F(MountSource, TheMountsRecordBeginsWithTheFirstPacketOfTheNextBuffer) {
    const auto record = std::make_shared<METADATA>();
    record->title = "Set by hand";
    mount->SetMetaData(record);
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    EXPECT_EQ(mount->GetPacketBuffer()->GetBufferSnapShot().front()->GetMetaData(), record);
}

TEST_F(MountSource, ATitleSetByHandReachesTheNextPacket) {
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    const auto record = std::make_shared<METADATA>();
    record->title = "Now";
    mount->SetMetaData(record);
    source->Send(std::string(8192, 'b'));
    ASSERT_TRUE(has_packets(32));
    const auto packets = mount->GetPacketBuffer()->GetBufferSnapShot();
    EXPECT_TRUE(std::any_of(packets.begin(), packets.end(),
                            [&](const auto& packet) { return packet->GetMetaData() == record; }));
}

// ---- Bitrate ------------------------------------------------------------------------------------

TEST_F(MountSource, TheBitrateIsThatOfTheReaderInBits) {
    EXPECT_EQ(mount->GetBitrate(true), 0U);
    Clock::Hold(1000);
    connect(PLAIN).Send(std::string(8192, 'a'));
    ASSERT_TRUE(has_packets(16));
    EXPECT_EQ(mount->GetBitrate(false), 8192U * 8);
    EXPECT_EQ(mount->GetBitrate(true), 8192U / 10 * 8);
    EXPECT_EQ(mount->GetMountStatistics().bitrate, 8192U * 8);
    EXPECT_EQ(MountList::TotalSourceBitrate(), 8192U / 10 * 8);
    EXPECT_EQ(MountList::TotalBytesReceived(), mount->BytesReceived());
    leave();
    EXPECT_EQ(MountList::TotalSourceBitrate(), 0U);
}
