#include "media/ICYReader.h"

#include "core/Clock.h"
#include "support/LogLines.h"
#include "support/LoopbackPair.h"
#include "support/ScriptedReceive.h"

#include <gtest/gtest.h>
#include <new>

namespace {

class Reader : public ScriptedReceive<ICYReader> {
public:
    explicit Reader(unsigned int interval) : ScriptedReceive(nullptr, interval) {}
};

using Delivered = std::pair<int, std::string>;

// A block as it comes over the wire.
std::string block(std::string words, std::size_t units) {
    words.resize(16 * units, '\0');
    return static_cast<char>(units) + words;
}

} // namespace

TEST(ICYReader, WithoutAnIntervalTheBytesPassAsTheyAre) {
    Reader reader(0);
    reader.Segment("abc").Segment("defgh");
    EXPECT_EQ(reader.ReadOnce(8), Delivered(8, "abcdefgh"));
    EXPECT_EQ(reader.GetMetaData(), nullptr);
    EXPECT_EQ(reader.MetaBytesRecieved(), 0U);
}

TEST(ICYReader, ABlockFollowsEveryInterval) {
    Reader reader(4);
    reader.Segment("abcd" + block("StreamTitle='one';", 2) + "efgh" + block("", 0) + "ij");
    EXPECT_EQ(reader.ReadOnce(10), Delivered(10, "abcdefghij"));
    ASSERT_TRUE(reader.GetMetaData());
    EXPECT_EQ(reader.GetMetaData()->title, "one");
    EXPECT_EQ(reader.MetaBytesRecieved(), 34U);
}

TEST(ICYReader, ABlockIsReadWithTheAudioThatEndsTheInterval) {
    Reader reader(4);
    reader.Segment("abcd" + block("StreamTitle='one';", 2));
    EXPECT_EQ(reader.ReadOnce(4).first, 4);
    EXPECT_EQ(reader.GetMetaData()->title, "one");
}

TEST(ICYReader, AnIntervalMayLieAcrossReads) {
    Reader reader(4);
    reader.Segment("abcd" + block("StreamTitle='one';", 2) + "efgh" + block("", 0));
    EXPECT_EQ(reader.ReadOnce(3), Delivered(3, "abc"));
    EXPECT_EQ(reader.GetMetaData(), nullptr);
    EXPECT_EQ(reader.ReadOnce(5), Delivered(5, "defgh"));
}

TEST(ICYReader, EverythingMayComeByteByByte) {
    Reader reader(2);
    reader.Bytes("ab" + block("StreamTitle='one';", 2) + "cd" + block("", 0));
    EXPECT_EQ(reader.ReadOnce(4), Delivered(4, "abcd"));
    EXPECT_EQ(reader.GetMetaData()->title, "one");
}

TEST(ICYReader, AnIntervalOfOneByteTakesNoStack) {
    Reader reader(1);
    std::string bytes;
    for (int i = 0; i < 200000; ++i)
        bytes += std::string("a\0", 2);
    reader.Segment(bytes);
    EXPECT_EQ(reader.ReadOnce(200000).first, 200000);
}

TEST(ICYReader, WritesAtTheOffset) {
    Reader reader(0);
    reader.Segment("xy");
    std::string buffer = "abcdef";
    EXPECT_EQ(reader.Read(buffer.data(), 3, 2), 2);
    EXPECT_EQ(buffer, "abcxyf");
}

TEST(ICYReader, NothingIsReadForNoLength) {
    Reader reader(4);
    reader.Segment("abcd");
    EXPECT_EQ(reader.ReadOnce(0).first, 0);
    EXPECT_EQ(reader.Rest(), "abcd");
}

TEST(ICYReader, AnEmptyBlockChangesNothing) {
    Reader reader(1);
    reader.Segment("a" + block("StreamTitle='one';", 2) + "b" + block("", 0));
    EXPECT_EQ(reader.ReadOnce(1).first, 1);
    const auto record = reader.GetMetaData();
    EXPECT_EQ(reader.ReadOnce(1).first, 1);
    EXPECT_EQ(reader.GetMetaData(), record);
}

TEST(ICYReader, TheLongestBlockIsTaken) {
    Reader reader(1);
    const std::string title(3000, 'x');
    reader.Segment("a" + block("StreamTitle='" + title + "';", 255));
    EXPECT_EQ(reader.ReadOnce(1).first, 1);
    EXPECT_EQ(reader.GetMetaData()->title, title);
    EXPECT_EQ(reader.MetaBytesRecieved(), 4081U);
}

TEST(ICYReader, BytesOfAFailedReadAreLost) {
    for (const int result : {IO_END, IO_FAILED, IO_AGAIN}) {
        Reader reader(0);
        reader.Segment("abc").Result(result).Segment("defg");
        EXPECT_EQ(reader.ReadOnce(4).first, result);
        EXPECT_EQ(reader.ReadOnce(4), Delivered(4, "defg"));
    }
}

TEST(ICYReader, BytesOfAFailedReadStillCountTowardsTheInterval) {
    Reader reader(4);
    reader.Segment("abc").Result(IO_AGAIN).Segment("d" + block("StreamTitle='one';", 2));
    EXPECT_EQ(reader.ReadOnce(4).first, IO_AGAIN);
    EXPECT_EQ(reader.ReadOnce(1), Delivered(1, "d"));
    EXPECT_EQ(reader.GetMetaData()->title, "one");
}

TEST(ICYReader, AfterResetThereAreNoBlocksUntilAnIntervalIsSet) {
    Reader reader(2);
    reader.Segment("a");
    EXPECT_EQ(reader.ReadOnce(1).first, 1);
    reader.Reset();
    EXPECT_EQ(reader.MetaInterval(), 0U);
    reader.Segment("bcdef");
    EXPECT_EQ(reader.ReadOnce(5), Delivered(5, "bcdef"));
    reader.Reset();
    reader.SetMetaInterval(2);
    reader.Segment("gh" + block("StreamTitle='one';", 2));
    EXPECT_EQ(reader.ReadOnce(2), Delivered(2, "gh"));
    EXPECT_EQ(reader.GetMetaData()->title, "one");
}

TEST(ICYReader, ABlockThatBeginsOtherwiseEndsTheRead) {
    Reader reader(1);
    reader.Segment("a" + block("Title='one';", 1) + "b");
    EXPECT_EQ(reader.ReadOnce(2).first, IO_FAILED);
    EXPECT_EQ(reader.MetaBytesRecieved(), 0U);
}

TEST(ICYReader, ABlockWithoutANulEndsTheRead) {
    Reader reader(1);
    reader.Segment("a" + block("StreamTitle='x';", 1));
    EXPECT_EQ(reader.ReadOnce(1).first, IO_FAILED);
}

TEST(ICYReader, ATitleWithoutSemicolonEndsTheRead) {
    Reader reader(1);
    reader.Segment("a" + block("StreamTitle=''", 1));
    EXPECT_EQ(reader.ReadOnce(1).first, IO_FAILED);
}

TEST(ICYReader, TheRecordBeforeEndsWhereABlockBegins) {
    Reader reader(1);
    reader.Segment("a" + block("StreamTitle='one';", 2) + "b" + "\2").Result(IO_END);
    EXPECT_EQ(reader.ReadOnce(2).first, IO_END);
    ASSERT_TRUE(reader.GetMetaData());
    EXPECT_TRUE(reader.GetMetaData()->title.empty());
}

TEST(ICYReader, ABlockThatCannotBeReadIsKeptAsReceived) {
    Reader reader(1);
    reader.Segment("a" + block("Nonsense", 1));
    EXPECT_EQ(reader.ReadOnce(1).first, IO_FAILED);
    EXPECT_EQ(reader.GetMetaData()->raw.size(), 16U);
}

TEST(ICYReader, FailureInABlockIsTheResultOfTheRead) {
    for (const int result : {IO_END, IO_FAILED, IO_AGAIN}) {
        Reader reader(1);
        reader.Segment("a\2Stream").Result(result);
        EXPECT_EQ(reader.ReadOnce(1).first, result);
    }
}

TEST(ICYReader, ABlockMayTakeThirtySecondsAndNoMore) {
    Clock::Hold(1000);
    const auto wait = [] { Clock::Advance(15); };
    Reader in_time(1);
    in_time.Segment("a\2Stream")
        .First(wait)
        .Segment("Title=")
        .First(wait)
        .Segment(std::string("'one';").append(14, '\0'));
    EXPECT_EQ(in_time.ReadOnce(1).first, 1);
    EXPECT_EQ(in_time.GetMetaData()->title, "one");

    Reader late(1);
    late.Segment("a\2Stream").First([] { Clock::Advance(31); }).Segment("Title=").Segment("'one';");
    EXPECT_EQ(late.ReadOnce(1).first, IO_FAILED);
}

TEST(ICYReader, EveryByteCountsForTheRate) {
    Clock::Hold(1000);
    Reader reader(4);
    reader.Segment("abcd" + block("StreamTitle='one';", 2));
    EXPECT_EQ(reader.ReadOnce(4).first, 4);
    EXPECT_EQ(reader.GetBytesPerSecond(false), 37U);
}

TEST(ICYReader, ABlockThatFailsIsLoggedWithThePeer) {
    LogLines lines;
    const LoopbackPair pair;
    pair.Send("a" + block("Nonsense", 1));
    ICYReader reader(pair.server, 1);
    char byte = 0;
    EXPECT_EQ(reader.Read(&byte, 0, 1), IO_FAILED);
    EXPECT_EQ(lines.All(), std::vector<std::string>{"<127.0.0.1> ACK Couldn't read meta packet!"});
}

TEST(ICYReader, WantOfMemoryIsLoggedAndEndsTheRead) {
    LogLines lines;
    Reader reader(1);
    reader.Segment("a\2").First([] { throw std::bad_alloc(); });
    EXPECT_EQ(reader.ReadOnce(1).first, IO_FAILED);
    EXPECT_EQ(lines.All(),
              (std::vector<std::string>{"Out of Memory: Unabled to allocate memory for meta data",
                                        "<> ACK Couldn't read meta packet!"}));
}
