#include "core/Clock.h"
#include "media/Metadata.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"
#include "support/Admit.h"
#include "support/LoopbackPair.h"
#include "support/Sections.h"

#include <gtest/gtest.h>
#include <list>

namespace {
constexpr time_t START = 1'000'000;

std::shared_ptr<METADATA> titled(const std::string& title) {
    const auto record = std::make_shared<METADATA>();
    record->title = title;
    return record;
}

struct MountStatisticsTest : testing::Test {
    MountStatisticsTest() { Clock::Hold(START); }

    std::shared_ptr<Mount> mount;
    std::list<LoopbackPair> pairs;

    void SetUp() override { mount = std::make_shared<Mount>("/live", 1, AddSection("1", {})); }
    std::shared_ptr<Receiver> join() {
        const auto receiver = std::make_shared<Receiver>(pairs.emplace_back().server);
        admit(*mount, receiver);
        return receiver;
    }
    void set_history(const std::string& length) {
        Set(mount->GetConfigNode(), "ShowLastSongs", length);
    }
    std::vector<std::string> history() const {
        std::vector<std::string> titles;
        for (const auto& [ended, record] : mount->GetSongHistory())
            titles.push_back(record->title);
        return titles;
    }
};
using Titles = std::vector<std::string>;
} // namespace

// ---- Songs --------------------------------------------------------------------------------------

TEST_F(MountStatisticsTest, WithoutARecordAnEmptyOneStandsIn) {
    ASSERT_NE(mount->GetMetaData(), nullptr);
    EXPECT_EQ(mount->GetMetaData()->title, "");
    EXPECT_NE(mount->GetMountStatistics().metadata, nullptr);
}

TEST_F(MountStatisticsTest, TheFirstSongEndsNone) {
    mount->SetMetaData(titled("one"));
    EXPECT_EQ(mount->GetMetaData()->title, "one");
    EXPECT_EQ(history(), Titles{});
}

TEST_F(MountStatisticsTest, AnEndedSongIsListedWithTheTimeOfItsEndNewestFirst) {
    mount->SetMetaData(titled("one"));
    Clock::Advance(100);
    mount->SetMetaData(titled("two"));
    Clock::Advance(100);
    mount->SetMetaData(titled("three"));
    EXPECT_EQ(history(), (Titles{"two", "one"}));
    EXPECT_EQ(mount->GetSongHistory().front().first, START + 200);
    EXPECT_EQ(mount->GetSongHistory().back().first, START + 100);
    EXPECT_EQ(mount->GetMountStatistics().song_history.size(), 2U);
}

TEST_F(MountStatisticsTest, TheSameRecordTwiceEndsNoSong) {
    mount->SetMetaData(titled("one"));
    mount->SetMetaData(titled("one"));
    EXPECT_EQ(history(), Titles{});
}

TEST_F(MountStatisticsTest, RecordsOfEqualTextsAndSizesAreTheSame) {
    const auto one = titled("one");
    one->extended["mood"] = "good";
    one->raw = {'a'};
    const auto other = titled("one");
    other->extended["tempo"] = "fast";
    other->raw = {'b'};
    mount->SetMetaData(one);
    mount->SetMetaData(other);
    EXPECT_EQ(mount->GetMetaData(), one);
    other->raw.push_back('c');
    mount->SetMetaData(other);
    EXPECT_EQ(mount->GetMetaData(), other);
}

TEST_F(MountStatisticsTest, TheHistoryHoldsAsManySongsAsIsSet) {
    set_history("2");
    for (const char* title : {"one", "two", "three", "four"})
        mount->SetMetaData(titled(title));
    EXPECT_EQ(history(), (Titles{"three", "two"}));
}

TEST_F(MountStatisticsTest, WithAHistoryOfZeroItStaysEmpty) {
    mount->SetMetaData(titled("one"));
    mount->SetMetaData(titled("two"));
    set_history("0");
    mount->SetMetaData(titled("three"));
    EXPECT_EQ(history(), Titles{});
    mount->SetMetaData(titled("four"));
    EXPECT_EQ(history(), Titles{});
}

// ---- Quarter hours ------------------------------------------------------------------------------

TEST_F(MountStatisticsTest, AListenerOfTheWholeQuarterCounts) {
    join();
    join();
    Clock::Advance(901);
    mount->do_stats_snap();
    EXPECT_EQ(mount->AvgQuarterHour(), 2U);
}

TEST_F(MountStatisticsTest, NothingIsCountedBeforeMoreThanAQuarterHasPassed) {
    join();
    Clock::Advance(900);
    mount->do_stats_snap();
    EXPECT_EQ(mount->AvgQuarterHour(), 0U);
}

TEST_F(MountStatisticsTest, OneWhoCameLaterCountsOnlyOnceExtended) {
    Clock::Advance(1);
    join();
    Clock::Advance(900);
    mount->do_stats_snap();
    EXPECT_EQ(mount->AvgQuarterHour(), 0U);
    mount->ExtendedReceiver();
    Clock::Advance(901);
    mount->do_stats_snap(); // (0 * 1 + 1 + 1) / 2
    EXPECT_EQ(mount->AvgQuarterHour(), 1U);
    EXPECT_EQ(mount->ExTuneIns(), 1U);
}

TEST_F(MountStatisticsTest, TheMeanRunsOverAllQuartersAndIsRoundedUp) {
    join();
    Clock::Advance(901);
    mount->do_stats_snap(); // 1
    Clock::Advance(901);
    mount->ExtendedReceiver();
    mount->do_stats_snap(); // (1 * 1 + 2) / 2 = 1.5
    EXPECT_EQ(mount->AvgQuarterHour(), 2U);
    EXPECT_EQ(mount->GetMountStatistics().avg_quarter_hour, 2U);
    Clock::Advance(901);
    mount->do_stats_snap(); // (1.5 * 2 + 1) / 3 = 1.33
    EXPECT_EQ(mount->AvgQuarterHour(), 2U);
}

// ---- Sessions -----------------------------------------------------------------------------------

TEST_F(MountStatisticsTest, ASessionOf59SecondsLeavesTheMeanAsItWas) {
    const auto listener = join();
    Clock::Advance(59);
    mount->UnregisterReceiver(listener);
    EXPECT_EQ(mount->AvgConnectTime(), 0U);
}

TEST_F(MountStatisticsTest, TheMeanOfSessionsRunsInWholeSeconds) {
    for (const time_t seconds : {60, 101, 59, 300}) {
        const auto listener = join();
        Clock::Advance(seconds);
        mount->UnregisterReceiver(listener);
    }
    // 60; (60 + 101) / 2 = 80; (2 * 80 + 300) / 3 = 153
    EXPECT_EQ(mount->AvgConnectTime(), 153U);
}

TEST_F(MountStatisticsTest, ResetForgetsTuneInsAndMeans) {
    const auto listener = join();
    mount->ExtendedReceiver();
    Clock::Advance(901);
    mount->do_stats_snap();
    mount->UnregisterReceiver(listener);
    mount->ResetStats();
    EXPECT_EQ(mount->TuneIns(), 0U);
    EXPECT_EQ(mount->ExTuneIns(), 0U);
    EXPECT_EQ(mount->AvgConnectTime(), 0U);
    EXPECT_EQ(mount->AvgQuarterHour(), 0U);
    EXPECT_EQ(mount->PeakReceivers(), 1U);
}

TEST_F(MountStatisticsTest, BytesSentAddUp) {
    mount->IncBytesSent(100);
    mount->IncBytesSent(23);
    EXPECT_EQ(mount->BytesSent(), 123U);
    EXPECT_EQ(mount->GetMountStatistics().bytes_sent, 123U);
}

TEST_F(MountStatisticsTest, TheSnapshotShowsLimitsAndListeners) {
    Set(mount->GetConfigNode(), "UserMax", "10");
    Set(mount->GetConfigNode(), "IPUserMax", "5");
    join();
    join();
    const MountStatistics figures = mount->GetMountStatistics();
    EXPECT_FALSE(figures.running);
    EXPECT_FALSE(figures.connected);
    EXPECT_EQ(figures.receivers, 2U);
    EXPECT_EQ(figures.unique_receivers, 1U);
    EXPECT_EQ(figures.peak_receivers, 2U);
    EXPECT_EQ(figures.max_receivers, 10);
    EXPECT_EQ(figures.ip_max_receivers, 5);
    EXPECT_EQ(figures.tune_ins, 2U);
    EXPECT_EQ(figures.bytes_received, 0U);
    EXPECT_EQ(figures.bitrate, 0U);
}

// ---- Fingerprint --------------------------------------------------------------------------------

TEST_F(MountStatisticsTest, FingerprintWithoutARecord) {
    EXPECT_EQ(mount->ToString(), "00Unnamed Streamapplication/octet-stream0");
}

TEST_F(MountStatisticsTest, FingerprintShowsNameTitleCodecAndListeners) {
    Set(mount->GetConfigNode(), "NameFormat", "<%s>");
    const auto record = titled("Song");
    record->codec = "Opus";
    mount->SetMetaData(record);
    join();
    mount->Start();
    EXPECT_EQ(mount->ToString(), "10<Unnamed Stream>Songapplication/octet-streamOpus1");
    mount->WaitForStop();
}
