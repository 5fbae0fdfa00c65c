#include "media/PacketBuffer.h"

#include "core/Clock.h"
#include "support/ByteReader.h"
#include "support/LogLines.h"
#include "support/LoopbackPair.h"
#include "support/RecordingListener.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

using Entry = std::shared_ptr<BufferEntry>;

// A packet buffer whose inside a test may use.
class OpenBuffer : public PacketBuffer {
public:
    explicit OpenBuffer(std::uint64_t limit = GENERIC_SIZE_LIMIT)
        : OpenBuffer(std::make_shared<ByteReader>(""), limit) {}
    OpenBuffer(std::shared_ptr<MediaReader> source, std::uint64_t limit)
        : PacketBuffer(std::move(source), limit) {}

    using PacketBuffer::add;
    using PacketBuffer::advance_buffer;
    using PacketBuffer::read_buffer;
    using PacketBuffer::read_fill;
    using PacketBuffer::set_audio_format;

    Entry Add(std::size_t size, std::uint64_t header_id = 0,
              std::shared_ptr<METADATA> record = nullptr) {
        auto entry = std::make_shared<BufferEntry>(std::vector<char>(size), header_id, record);
        add(entry);
        return entry;
    }
};

// Gives one result for every read.
class ResultReader : public MediaReader {
public:
    explicit ResultReader(int every_result, std::shared_ptr<Socket> from = nullptr)
        : MediaReader(std::move(from)), result(every_result) {}
    int Read(char*, unsigned long long, unsigned long long) override { return result; }
    void Reset() override { ++resets; }

    int resets = 0;

private:
    int result;
};

// Delivers what it is asked for, and notes how much that was.
class AskedReader : public MediaReader {
public:
    int Read(char* buffer, unsigned long long offset, unsigned long long length) override {
        asked.push_back(length);
        std::fill_n(buffer + offset, length, 'x');
        return static_cast<int>(length);
    }

    std::vector<unsigned long long> asked;
};

// Fills whatever it is asked for, and lets some seconds pass before.
class SlowReader : public MediaReader {
public:
    int Read(char* buffer, unsigned long long offset, unsigned long long) override {
        Clock::Advance(29);
        std::fill_n(buffer + offset, 100, 'x');
        return 100;
    }
};

std::shared_ptr<METADATA> titled(const std::string& title) {
    auto record = std::make_shared<METADATA>();
    record->title = title;
    return record;
}

std::uint64_t bytes_of(const PacketBuffer& buffer) {
    std::uint64_t bytes = 0;
    for (const Entry& entry : buffer.GetBufferSnapShot())
        bytes += entry->size;
    return bytes;
}

void run(PacketBuffer& buffer) {
    ASSERT_EQ(buffer.Poll(50), ThreadPool::HIGH);
    buffer.Process();
}

} // namespace

// ---- Filling ------------------------------------------------------------------------------------

TEST(PacketBuffer, BeginsEmpty) {
    const OpenBuffer buffer;
    EXPECT_EQ(buffer.GetBufferSize(), 0U);
    EXPECT_EQ(buffer.GetBufferCount(), 0U);
    EXPECT_EQ(buffer.GetMetaData(), nullptr);
    EXPECT_EQ(buffer.SocketError(), 0);
    EXPECT_EQ(buffer.GetFrameTime(), 0.0);
    EXPECT_EQ(buffer.read_buffer.Length(), 8192U);
}

TEST(PacketBuffer, GenericPacketsHave500Bytes) {
    OpenBuffer buffer(std::make_shared<ByteReader>(std::string(1001, 'x')), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 0);
    EXPECT_EQ(buffer.GetBufferCount(), 1U);
    EXPECT_EQ(buffer.FillBuffer(), 0);
    EXPECT_EQ(buffer.FillBuffer(), 1);
    ASSERT_EQ(buffer.GetBufferSnapShot().size(), 2U);
    EXPECT_EQ(buffer.GetBufferSnapShot()[0]->data, std::vector<char>(500, 'x'));
    EXPECT_EQ(buffer.GetBufferSnapShot()[0]->header_id, 0U);
}

TEST(PacketBuffer, GenericPacketTakes501BytesToCome) {
    OpenBuffer buffer(std::make_shared<ByteReader>(std::string(500, 'x')), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 1);
    EXPECT_EQ(buffer.GetBufferCount(), 0U);
    EXPECT_EQ(buffer.read_fill(), 0U);
}

TEST(PacketBuffer, PacketsAreTheSameHoweverTheBytesCome) {
    std::string bytes;
    for (int i = 0; i < 20000; ++i)
        bytes += static_cast<char>(i % 251);
    for (const std::size_t piece : {1U, 7U, 500U, 8192U}) {
        OpenBuffer buffer(std::make_shared<ByteReader>(bytes, piece), 1 << 20);
        while (buffer.FillBuffer() == 0)
            continue;
        std::string joined;
        for (const Entry& entry : buffer.GetBufferSnapShot())
            joined.append(entry->data.begin(), entry->data.end());
        EXPECT_EQ(joined, bytes.substr(0, 19500));
    }
}

TEST(PacketBuffer, SilenceIsATimeOut) {
    OpenBuffer buffer(std::make_shared<ResultReader>(IO_AGAIN), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 2);
    EXPECT_EQ(buffer.SocketError(), ETIMEDOUT);
}

TEST(PacketBuffer, FailureCarriesTheErrorOfTheSocket) {
    const LoopbackPair pair;
    pair.server->SetLastError(ECONNRESET);
    OpenBuffer buffer(std::make_shared<ResultReader>(IO_FAILED, pair.server), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 2);
    EXPECT_EQ(buffer.SocketError(), ECONNRESET);
}

TEST(PacketBuffer, FailureWithoutASocketLeavesTheErrorAsItWas) {
    OpenBuffer buffer(std::make_shared<ResultReader>(IO_FAILED), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 2);
    EXPECT_EQ(buffer.SocketError(), 0);
}

TEST(PacketBuffer, EndOfTheSourceDropsWhatIsNotFramed) {
    auto source = std::make_shared<ByteReader>(std::string(300, 'x'));
    OpenBuffer buffer(source, 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 1);
    source->Append(std::string(300, 'y'));
    EXPECT_EQ(buffer.FillBuffer(), 1);
    EXPECT_EQ(buffer.GetBufferCount(), 0U);
}

namespace {
class Unframable : public OpenBuffer {
public:
    using OpenBuffer::OpenBuffer;

protected:
    bool read_packet() override { return false; }
};
} // namespace

TEST(PacketBuffer, AFullReadBufferWithoutAPacketFailsWithoutAnError) {
    Unframable buffer(std::make_shared<ByteReader>(std::string(10000, 'x')), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 2);
    EXPECT_EQ(buffer.SocketError(), 0);
    EXPECT_EQ(buffer.read_fill(), 0U);
}

TEST(PacketBuffer, AReadBufferThatHoldsMoreThanItsWantedLengthIsNotOverrun) {
    Unframable buffer(std::make_shared<ByteReader>(std::string(20000, 'x'), 8000), 1 << 20);
    buffer.read_buffer.Filled(8000);
    buffer.read_buffer.Resize(4000);
    EXPECT_EQ(buffer.FillBuffer(), 2);
}

TEST(PacketBuffer, AdvanceBufferTakesFromTheFrontWithinBounds) {
    OpenBuffer buffer;
    std::copy_n("abcde", 5, buffer.read_buffer.Memory());
    buffer.read_buffer.Filled(5);
    EXPECT_TRUE(buffer.advance_buffer(0).empty());
    EXPECT_TRUE(buffer.advance_buffer(6).empty());
    EXPECT_EQ(buffer.read_fill(), 5U);
    EXPECT_EQ(buffer.advance_buffer(2), (std::vector<char>{'a', 'b'}));
    EXPECT_EQ(buffer.read_fill(), 3U);
    EXPECT_EQ(buffer.read_buffer.Length(), 8192U);
}

TEST(PacketBuffer, APacketThatComesSlowlyIsWaitedFor) {
    Clock::Hold(1000);
    OpenBuffer buffer(std::make_shared<SlowReader>(), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 0);
    EXPECT_EQ(now(), 1000 + 6 * 29);
}

TEST(PacketBuffer, TheFirstReadOfASourceFillsTheBufferAndLaterOnesDoNotWaitForAsMuch) {
    auto source = std::make_shared<AskedReader>();
    OpenBuffer buffer(source, 1 << 20);
    for (int packet = 0; packet < 18; ++packet)
        ASSERT_EQ(buffer.FillBuffer(), 0);
    EXPECT_EQ(source->asked, (std::vector<unsigned long long>{8192, 1000}));
    buffer.Resync();
    ASSERT_EQ(buffer.FillBuffer(), 0);
    EXPECT_EQ(source->asked.back(), 8192U);
}

TEST(PacketBuffer, ResyncForgetsTheInputAndTheErrorAndKeepsThePackets) {
    auto source = std::make_shared<ResultReader>(IO_AGAIN);
    OpenBuffer buffer(source, 1 << 20);
    auto listener = std::make_shared<RecordingListener>();
    buffer.AddListener(listener, true);
    buffer.Add(10);
    EXPECT_EQ(buffer.FillBuffer(), 2);
    buffer.read_buffer.Filled(100);
    buffer.Resync();
    EXPECT_EQ(buffer.read_fill(), 0U);
    EXPECT_EQ(buffer.SocketError(), 0);
    EXPECT_EQ(source->resets, 1);
    EXPECT_EQ(buffer.GetBufferCount(), 1U);
    EXPECT_EQ(buffer.GetBufferSize(), 10U);
    buffer.Add(10);
    EXPECT_EQ(listener->Packets().size(), 2U);
}

TEST(PacketBuffer, ContinuesWithAnotherReader) {
    OpenBuffer buffer(std::make_shared<ByteReader>(""), 1 << 20);
    EXPECT_EQ(buffer.FillBuffer(), 1);
    buffer.SetReader(std::make_shared<ByteReader>(std::string(501, 'x')));
    EXPECT_EQ(buffer.FillBuffer(), 0);
}

TEST(PacketBuffer, TellsTheFormatOfTheStream) {
    OpenBuffer buffer;
    buffer.set_audio_format(44100, 2, 26.1);
    EXPECT_EQ(buffer.GetAudioFrequency(), 44100);
    EXPECT_EQ(buffer.GetNumAudioChannels(), 2);
    EXPECT_EQ(buffer.GetFrameTime(), 26.1);
}

// ---- Retaining ----------------------------------------------------------------------------------

TEST(PacketBuffer, TrimsTheOldestPacketsDownToTheLimit) {
    OpenBuffer buffer(1000);
    std::vector<Entry> added;
    for (int i = 0; i < 5; ++i)
        added.push_back(buffer.Add(300));
    EXPECT_EQ(buffer.GetBufferSnapShot(), std::vector<Entry>(added.begin() + 2, added.end()));
    EXPECT_EQ(buffer.GetBufferSize(), 900U);
    EXPECT_EQ(buffer.GetBufferCount(), 3U);
}

TEST(PacketBuffer, TrimsNothingWhenThePacketJustFits) {
    OpenBuffer buffer(1000);
    buffer.Add(600);
    buffer.Add(400);
    EXPECT_EQ(buffer.GetBufferCount(), 2U);
    buffer.Add(1);
    EXPECT_EQ(buffer.GetBufferCount(), 2U);
}

TEST(PacketBuffer, WithoutALimitNothingIsTrimmed) {
    OpenBuffer buffer(1000);
    buffer.SetPacketBufferSize(0);
    EXPECT_EQ(buffer.GetPacketBufferSize(), 0U);
    for (int i = 0; i < 50; ++i)
        buffer.Add(300);
    EXPECT_EQ(buffer.GetBufferCount(), 50U);
    EXPECT_EQ(buffer.GetBufferSize(), 15000U);
}

TEST(PacketBuffer, PacketAsLargeAsTheLimitTrimsNothing) {
    OpenBuffer buffer(1000);
    buffer.Add(300);
    buffer.Add(1000);
    EXPECT_EQ(buffer.GetBufferSize(), 1300U);
    EXPECT_EQ(buffer.GetPacketBufferSize(), 1000U);
    buffer.Add(100);
    EXPECT_EQ(buffer.GetBufferSize(), 100U);
}

TEST(PacketBuffer, PacketLargerThanTheLimitTrimsNothingAndTheLimitStays) {
    OpenBuffer buffer(1000);
    buffer.Add(300);
    buffer.Add(1001);
    EXPECT_EQ(buffer.GetBufferSize(), 1301U);
    EXPECT_EQ(buffer.GetPacketBufferSize(), 1000U);
    buffer.Add(300);
    EXPECT_EQ(buffer.GetBufferSize(), 300U);
}

TEST(PacketBuffer, HeaderPacketsOutliveTheOthers) {
    OpenBuffer buffer(1000);
    const Entry first = buffer.Add(50, 7);
    const Entry second = buffer.Add(50, 7);
    for (int i = 0; i < 20; ++i)
        buffer.Add(300);
    const auto kept = buffer.GetBufferSnapShot();
    ASSERT_EQ(kept.size(), 5U);
    EXPECT_EQ(kept[0], first);
    EXPECT_EQ(kept[1], second);
    EXPECT_EQ(buffer.GetBufferSize(), 1000U);
}

TEST(PacketBuffer, ANewerHeaderGroupDropsAllThatIsOlder) {
    OpenBuffer buffer(1000);
    buffer.Add(50, 7);
    buffer.Add(300);
    const Entry newer = buffer.Add(50, 8);
    const Entry ordinary = buffer.Add(500);
    const Entry last = buffer.Add(450);
    // 1350 do not fit: the packet of 300 goes, and the 850 + 450 left still do not, so the walk
    // comes to the newer group; the ordinary packet behind it goes as though nothing had been
    // freed.
    EXPECT_EQ(buffer.GetBufferSnapShot(), (std::vector<Entry>{newer, last}));
    EXPECT_EQ(buffer.GetBufferSize(), 500U);
    EXPECT_EQ(buffer.GetBufferCount(), 2U);
    EXPECT_EQ(ordinary.use_count(), 1);
}

TEST(PacketBuffer, BothHeaderGroupsStayWhileThereIsRoom) {
    OpenBuffer buffer(1000);
    buffer.Add(50, 7);
    buffer.Add(50, 8);
    EXPECT_EQ(buffer.GetBufferCount(), 2U);
}

TEST(PacketBuffer, TheLimitGrowsWhenOnlyHeadersAreLeft) {
    LogLines lines;
    OpenBuffer buffer(1000);
    buffer.Add(400, 7);
    buffer.Add(400, 7);
    buffer.Add(536);
    EXPECT_EQ(buffer.GetPacketBufferSize(), 1536U);
    EXPECT_EQ(buffer.GetBufferSize(), 1336U);
    EXPECT_EQ(lines.All(),
              std::vector<std::string>{
                  "Large Packet detected.  Increasing PacketBuffer Size Limit.1.50 KiB"});
}

TEST(PacketBuffer, TheLimitGrowsWhenTheWalkRunsOutBehindADroppedGroup) {
    OpenBuffer buffer(1000);
    buffer.Add(500, 7);
    const Entry newer = buffer.Add(100, 8);
    buffer.Add(100);
    const Entry last = buffer.Add(900);
    EXPECT_EQ(buffer.GetBufferSnapShot(), (std::vector<Entry>{newer, last}));
    EXPECT_EQ(buffer.GetBufferSize(), 1000U);
    EXPECT_EQ(buffer.GetPacketBufferSize(), 1900U);
}

TEST(PacketBuffer, SizeIsExactAfterEveryAdd) {
    OpenBuffer buffer(5000);
    for (unsigned i = 1; i < 400; ++i) {
        buffer.Add(i * 37 % 900 + 1, i % 50 < 2 ? i / 50 + 1 : 0);
        ASSERT_EQ(buffer.GetBufferSize(), bytes_of(buffer)) << i;
        ASSERT_EQ(buffer.GetBufferCount(), buffer.GetBufferSnapShot().size());
    }
}

// ---- Metadata -----------------------------------------------------------------------------------

TEST(PacketBuffer, PacketsOwnRecordBecomesTheLast) {
    OpenBuffer buffer;
    const auto record = titled("own");
    const Entry entry = buffer.Add(1, 0, record);
    EXPECT_EQ(entry->GetMetaData(), record);
    EXPECT_EQ(buffer.GetMetaData(), record);
}

TEST(PacketBuffer, TheReadersRecordGoesWithTheFirstPacketAfterIt) {
    auto source = std::make_shared<ByteReader>("");
    OpenBuffer buffer(source, 1 << 20);
    const auto record = titled("one");
    source->SetMetaData(record);
    EXPECT_EQ(buffer.Add(1)->GetMetaData(), record);
    EXPECT_EQ(buffer.GetMetaData(), record);
    EXPECT_EQ(buffer.Add(1)->GetMetaData(), nullptr);
    source->SetMetaData(titled("one"));
    EXPECT_EQ(buffer.Add(1)->GetMetaData(), nullptr);
    EXPECT_EQ(buffer.GetMetaData(), record);
    source->SetMetaData(titled("two"));
    EXPECT_EQ(buffer.Add(1)->GetMetaData()->title, "two");
}

TEST(PacketBuffer, ARecordThatDiffersOnlyInTheTextOfATagIsNoChange) {
    auto source = std::make_shared<ByteReader>("");
    OpenBuffer buffer(source, 1 << 20);
    auto first = titled("one");
    first->extended["Genre"] = "Jazz";
    source->SetMetaData(first);
    buffer.Add(1);
    auto second = titled("one");
    second->extended["Genre"] = "Blues";
    source->SetMetaData(second);
    EXPECT_EQ(buffer.Add(1)->GetMetaData(), nullptr);
}

TEST(PacketBuffer, ARecordSetFromOutsideGoesWithOnePacketAndIsNotTheLast) {
    OpenBuffer buffer;
    const auto record = titled("outside");
    buffer.SetMetaData(record);
    EXPECT_EQ(buffer.Add(1)->GetMetaData(), record);
    EXPECT_EQ(buffer.Add(1)->GetMetaData(), nullptr);
    EXPECT_EQ(buffer.GetMetaData(), nullptr);
}

TEST(PacketBuffer, ARecordSetFromOutsideWaitsWhileTheStreamBeginsItsOwn) {
    auto source = std::make_shared<ByteReader>("");
    OpenBuffer buffer(source, 1 << 20);
    source->SetMetaData(titled("stream"));
    buffer.SetMetaData(titled("outside"));
    EXPECT_EQ(buffer.Add(1, 0, titled("packet"))->GetMetaData()->title, "packet");
    EXPECT_EQ(buffer.Add(1)->GetMetaData()->title, "stream");
    EXPECT_EQ(buffer.Add(1)->GetMetaData()->title, "outside");
}

TEST(PacketBuffer, ATrimmedPacketLeavesItsRecordToTheNext) {
    OpenBuffer buffer(1000);
    const auto record = titled("one");
    buffer.Add(400, 0, record);
    const Entry next = buffer.Add(400);
    buffer.Add(400);
    EXPECT_EQ(buffer.GetBufferSnapShot().front(), next);
    EXPECT_EQ(next->GetMetaData(), record);
}

TEST(PacketBuffer, TheLastPacketThatIsTrimmedLeavesItsRecordToTheNewOne) {
    OpenBuffer buffer(1000);
    const auto record = titled("one");
    buffer.Add(900, 0, record);
    const Entry newest = buffer.Add(900);
    EXPECT_EQ(buffer.GetBufferSnapShot(), std::vector<Entry>{newest});
    EXPECT_EQ(newest->GetMetaData(), record);
    const auto own = titled("two");
    EXPECT_EQ(buffer.Add(900, 0, own)->GetMetaData(), own);
}

TEST(PacketBuffer, ATrimmedPacketsRecordGivesWayToTheNextOnes) {
    OpenBuffer buffer(1000);
    buffer.Add(400, 0, titled("one"));
    const auto record = titled("two");
    const Entry next = buffer.Add(400, 0, record);
    buffer.Add(400);
    EXPECT_EQ(next->GetMetaData(), record);
}

// ---- Delivery without the pool ------------------------------------------------------------------

TEST(PacketBuffer, BeforeTheStartPacketsAreDeliveredAtOnce) {
    OpenBuffer buffer;
    auto listener = std::make_shared<RecordingListener>();
    buffer.AddListener(listener, true);
    EXPECT_TRUE(listener->Packets().empty());
    const Entry entry = buffer.Add(1);
    EXPECT_EQ(listener->Packets(), std::vector<Entry>{entry});
    buffer.RemoveListener(listener);
    buffer.Add(1);
    EXPECT_EQ(listener->Packets().size(), 1U);
    EXPECT_EQ(listener.use_count(), 1);
}

TEST(PacketBuffer, BeforeTheStartABurstIsEverythingRetained) {
    OpenBuffer buffer(1000);
    for (int i = 0; i < 8; ++i)
        buffer.Add(300);
    auto with = std::make_shared<RecordingListener>();
    auto without = std::make_shared<RecordingListener>();
    buffer.AddListener(with, true);
    buffer.AddListener(without, false);
    EXPECT_EQ(with->Packets(), buffer.GetBufferSnapShot());
    EXPECT_TRUE(without->Packets().empty());
}

TEST(PacketBuffer, JoiningTwiceGivesASecondBurstAndEachPacketOnce) {
    OpenBuffer buffer;
    const Entry first = buffer.Add(1);
    auto listener = std::make_shared<RecordingListener>();
    buffer.AddListener(listener, true);
    buffer.AddListener(listener, true);
    const Entry second = buffer.Add(1);
    EXPECT_EQ(listener->Packets(), (std::vector<Entry>{first, first, second}));
}

TEST(PacketBuffer, AListenerMayLeaveWithinADeliveryOfTheCuttingThread) {
    struct Leaving : PacketBufferListener, std::enable_shared_from_this<Leaving> {
        PacketBuffer* buffer = nullptr;
        int packets = 0;
        void OnNewPacket(const Entry&) override {
            ++packets;
            buffer->RemoveListener(shared_from_this());
        }
    };
    OpenBuffer buffer;
    auto listener = std::make_shared<Leaving>();
    listener->buffer = &buffer;
    buffer.AddListener(listener, false);
    buffer.Add(1);
    buffer.Add(1);
    EXPECT_EQ(listener->packets, 1);
}

// ---- Delivery on the pool -----------------------------------------------------------------------

TEST(PacketBuffer, StartedPacketsWaitForProcess) {
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto listener = std::make_shared<RecordingListener>();
    buffer->AddListener(listener, true);
    const Entry first = buffer->Add(1);
    const Entry second = buffer->Add(1);
    EXPECT_TRUE(listener->Packets().empty());
    run(*buffer);
    EXPECT_EQ(listener->Packets(), (std::vector<Entry>{first, second}));
}

TEST(PacketBuffer, PollClaimsTheBufferUntilProcessEnds) {
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    EXPECT_EQ(buffer->Poll(50), 3);
    buffer->Add(1);
    EXPECT_EQ(buffer->Poll(50), 0);
    EXPECT_EQ(buffer->Poll(50), 3);
    buffer->Process();
    EXPECT_EQ(buffer->Poll(50), 3);
    buffer->RemoveListener(std::make_shared<RecordingListener>());
    EXPECT_EQ(buffer->Poll(50), 0);
}

TEST(PacketBuffer, JoinsAndLeavesComeBeforeThePacketsOfTheirRun) {
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto leaving = std::make_shared<RecordingListener>();
    buffer->AddListener(leaving, false);
    run(*buffer);
    const Entry packet = buffer->Add(1);
    auto joining = std::make_shared<RecordingListener>();
    buffer->AddListener(joining, false);
    buffer->RemoveListener(leaving);
    run(*buffer);
    EXPECT_EQ(joining->Packets(), std::vector<Entry>{packet});
    EXPECT_TRUE(leaving->Packets().empty());
    EXPECT_EQ(leaving.use_count(), 1);
}

TEST(PacketBuffer, ABurstIsWhatTheLastProcessSaw) {
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    const Entry old = buffer->Add(1);
    run(*buffer);
    const Entry fresh = buffer->Add(1);
    auto listener = std::make_shared<RecordingListener>();
    buffer->AddListener(listener, true);
    EXPECT_EQ(listener->Packets(), std::vector<Entry>{old});
    run(*buffer);
    EXPECT_EQ(listener->Packets(), (std::vector<Entry>{old, fresh}));
}

TEST(PacketBuffer, JoiningTwiceWhileStartedGivesEachPacketOnce) {
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto listener = std::make_shared<RecordingListener>();
    buffer->AddListener(listener, true);
    buffer->AddListener(listener, true);
    run(*buffer);
    buffer->Add(1);
    run(*buffer);
    EXPECT_EQ(listener->Packets().size(), 1U);
}

TEST(PacketBuffer, WhoJoinsDuringADeliveryMissesNothing) {
    // Joins another listener with a burst in the middle of a delivery.
    struct Inviting : RecordingListener {
        PacketBuffer* buffer = nullptr;
        std::shared_ptr<RecordingListener> guest;
        void OnNewPacket(const Entry& packet) override {
            RecordingListener::OnNewPacket(packet);
            if (buffer != nullptr) buffer->AddListener(guest, true);
            buffer = nullptr;
        }
    };
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto host = std::make_shared<Inviting>();
    host->guest = std::make_shared<RecordingListener>();
    buffer->AddListener(host, true);
    run(*buffer);
    host->buffer = buffer.get();
    buffer->Add(1);
    buffer->Add(1);
    run(*buffer);
    buffer->Add(1);
    run(*buffer);
    EXPECT_EQ(host->guest->Packets(), host->Packets());
}

TEST(PacketBuffer, AListenerMayStopTheBufferAndLeaveWithinADelivery) {
    struct Stopping : RecordingListener, std::enable_shared_from_this<Stopping> {
        PacketBuffer* buffer = nullptr;
        void OnNewPacket(const Entry& packet) override {
            RecordingListener::OnNewPacket(packet);
            buffer->SignalStop();
            buffer->RemoveListener(shared_from_this());
        }
    };
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto stopping = std::make_shared<Stopping>();
    auto behind = std::make_shared<RecordingListener>();
    stopping->buffer = buffer.get();
    buffer->AddListener(stopping, false);
    buffer->AddListener(behind, false);
    const Entry packet = buffer->Add(1);
    run(*buffer);
    EXPECT_EQ(stopping->Packets(), std::vector<Entry>{packet});
    EXPECT_EQ(behind->Packets(), std::vector<Entry>{packet});
    EXPECT_EQ(stopping.use_count(), 1);
    const Entry later = buffer->Add(1);
    EXPECT_EQ(behind->Packets(), (std::vector<Entry>{packet, later}));
    EXPECT_EQ(stopping->Packets().size(), 1U);
}

TEST(PacketBuffer, AFailingListenerDoesNotStopTheBuffer) {
    struct Failing : PacketBufferListener {
        void OnNewPacket(const Entry&) override { throw std::bad_alloc(); }
    };
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto failing = std::make_shared<Failing>();
    buffer->AddListener(failing, false);
    buffer->Add(1);
    run(*buffer);
    buffer->RemoveListener(failing);
    auto listener = std::make_shared<RecordingListener>();
    buffer->AddListener(listener, false);
    const Entry packet = buffer->Add(1);
    run(*buffer);
    EXPECT_EQ(listener->Packets(), std::vector<Entry>{packet});
}

TEST(PacketBuffer, AfterTheStopPacketsAreDeliveredAtOnceAgain) {
    auto buffer = std::make_shared<OpenBuffer>();
    buffer->Start();
    auto leaving = std::make_shared<RecordingListener>();
    auto staying = std::make_shared<RecordingListener>();
    buffer->AddListener(leaving, true);
    buffer->AddListener(staying, true);
    buffer->RemoveListener(leaving);
    buffer->SignalStop();
    EXPECT_EQ(leaving.use_count(), 1);
    const Entry packet = buffer->Add(1);
    EXPECT_EQ(staying->Packets(), std::vector<Entry>{packet});
    buffer->SignalStop();
}

TEST(PacketBuffer, PacketsAreFreedWithTheirLastHolder) {
    auto buffer = std::make_shared<OpenBuffer>(1000);
    buffer->Start();
    std::weak_ptr<BufferEntry> first = buffer->Add(600);
    run(*buffer);
    buffer->Add(600);
    EXPECT_FALSE(first.expired());
    run(*buffer);
    EXPECT_TRUE(first.expired());
}
