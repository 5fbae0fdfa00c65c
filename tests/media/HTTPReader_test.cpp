#include "media/HTTPReader.h"

#include "core/Clock.h"
#include "http/Request.h"
#include "support/LoopbackPair.h"
#include "support/ScriptedReceive.h"

#include <gtest/gtest.h>

namespace {

using Delivered = std::pair<int, std::string>;

std::shared_ptr<Request> request(const std::string& encoding,
                                 const std::shared_ptr<Socket>& socket = nullptr) {
    auto made = std::make_shared<Request>(socket);
    if (!encoding.empty()) made->SetHeader("Transfer-Encoding", encoding);
    return made;
}

class Reader : public ScriptedReceive<HTTPReader> {
public:
    explicit Reader(const std::string& encoding) : ScriptedReceive(request(encoding)) {}
};

} // namespace

TEST(HTTPReader, APlainBodyPassesAsItIs) {
    Reader reader("");
    reader.Segment("abc").Segment("defgh");
    EXPECT_EQ(reader.ReadOnce(6), Delivered(6, "abcdef"));
    EXPECT_EQ(reader.ReadOnce(2), Delivered(2, "gh"));
}

TEST(HTTPReader, ChunkedInAnyCaseAndNothingElseIsChunked) {
    Reader chunked("CHUNKED");
    chunked.Segment("2\r\nab\r\n1\r\n");
    EXPECT_EQ(chunked.ReadOnce(2), Delivered(2, "ab"));
    Reader other("gzip, chunked");
    other.Segment("2\r\nab");
    EXPECT_EQ(other.ReadOnce(5), Delivered(5, "2\r\nab"));
}

TEST(HTTPReader, ChunksAreJoined) {
    Reader reader("chunked");
    reader.Segment("3\r\nabc\r\n4\r\ndefg\r\n5\r\n");
    EXPECT_EQ(reader.ReadOnce(7), Delivered(7, "abcdefg"));
    EXPECT_EQ(reader.Rest(), "");
}

TEST(HTTPReader, AChunkMayLieAcrossReads) {
    Reader reader("chunked");
    reader.Segment("5\r\nabcde\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(2), Delivered(2, "ab"));
    EXPECT_EQ(reader.Rest(), "cde\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(3), Delivered(3, "cde"));
}

TEST(HTTPReader, EverythingMayComeByteByByte) {
    Reader reader("chunked");
    reader.Bytes("3;StreamTitle='x';\r\nabc\r\n4\r\ndefg\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(7), Delivered(7, "abcdefg"));
    EXPECT_EQ(reader.GetMetaData()->title, "x");
}

TEST(HTTPReader, SizeLineMayComeInSegmentsThatEndAnywhere) {
    Reader reader("chunked");
    reader.Segment("3").Segment("\r").Segment("\nabc\r").Segment("\n").Segment("2\r\n").Segment(
        "de");
    reader.Segment("\r\n").Segment("1\r\n");
    EXPECT_EQ(reader.ReadOnce(5), Delivered(5, "abcde"));
}

TEST(HTTPReader, ChunksOfOneByteTakeNoStack) {
    Reader reader("chunked");
    std::string bytes;
    for (int i = 0; i < 100000; ++i)
        bytes += "1\r\na\r\n";
    reader.Segment(bytes + "1\r\n");
    EXPECT_EQ(reader.ReadOnce(100000).first, 100000);
}

TEST(HTTPReader, AChunkOfSizeZeroIsACleanEnd) {
    Reader reader("chunked");
    reader.Segment("0\r\n\r\n");
    EXPECT_EQ(reader.ReadOnce(4).first, IO_END);
}

TEST(HTTPReader, TheLastChunkEndsTheReadThatItsAudioWasFor) {
    Reader reader("chunked");
    reader.Segment("3\r\nabc\r\n0\r\n\r\n");
    EXPECT_EQ(reader.ReadOnce(3).first, IO_END);
}

TEST(HTTPReader, ASizeThatIsNoNumberEndsTheBody) {
    Reader reader("chunked");
    reader.Segment("hello\r\n");
    EXPECT_EQ(reader.ReadOnce(4).first, IO_END);
}

TEST(HTTPReader, MetadataComesInTheSizeLine) {
    Reader reader("chunked");
    reader.Segment("3;StreamTitle='A%20B';StreamUrl='http%3A%2F%2Fx';\r\nabc\r\n2\r\nde\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(3).first, 3);
    const auto record = reader.GetMetaData();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->title, "A B");
    EXPECT_EQ(record->url, "http://x");
    EXPECT_EQ(reader.ReadOnce(2).first, 2);
    EXPECT_EQ(reader.GetMetaData(), record);
}

TEST(HTTPReader, AnExtensionOfAnotherKindChangesNothing) {
    Reader reader("chunked");
    reader.Segment("3;StreamTitle='A';\r\nabc\r\n2;signature=1\r\nde\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(5).first, 5);
    EXPECT_EQ(reader.GetMetaData()->title, "A");
}

TEST(HTTPReader, ASizeLineStaysBelow1024Bytes) {
    const std::string around = "3;StreamTitle='';\r\n";
    const std::string longest(1023 - around.size(), 'x');
    Reader within("chunked");
    within.Segment("3;StreamTitle='" + longest + "';\r\nabc\r\n1\r\n");
    EXPECT_EQ(within.ReadOnce(3).first, 3);
    EXPECT_EQ(within.GetMetaData()->title, longest);

    Reader above("chunked");
    above.Segment("3;StreamTitle='" + longest + "x';\r\nabc\r\n1\r\n");
    EXPECT_EQ(above.ReadOnce(3).first, IO_FAILED);

    Reader endless("chunked");
    endless.Segment(std::string(5000, '1'));
    EXPECT_EQ(endless.ReadOnce(3).first, IO_FAILED);
}

TEST(HTTPReader, BytesOfAFailedReadAreLost) {
    for (const int result : {IO_END, IO_FAILED, IO_AGAIN}) {
        Reader reader("chunked");
        reader.Segment("8\r\nabc").Result(result).Segment("defgh\r\n1\r\n");
        EXPECT_EQ(reader.ReadOnce(8).first, result);
        EXPECT_EQ(reader.ReadOnce(5), Delivered(5, "defgh"));
    }
}

TEST(HTTPReader, FailureInASizeLineIsTheResultOfTheRead) {
    for (const int result : {IO_END, IO_FAILED, IO_AGAIN}) {
        Reader reader("chunked");
        reader.Segment("8").Result(result);
        EXPECT_EQ(reader.ReadOnce(8).first, result);
    }
}

TEST(HTTPReader, ASizeLineMaySlowlyTakeMoreThanFifteenSeconds) {
    Clock::Hold(1000);
    Reader reader("chunked");
    for (const char* part : {"0", "0", "2", "\r"})
        reader.Segment(part).First([] { Clock::Advance(14); });
    reader.Segment("\nab\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(2), Delivered(2, "ab"));
}

TEST(HTTPReader, EveryByteCountsForTheRate) {
    Clock::Hold(1000);
    Reader reader("chunked");
    reader.Segment("3\r\nabc\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(3).first, 3);
    EXPECT_EQ(reader.GetBytesPerSecond(false), 11U);
}

TEST(HTTPReader, ResetForgetsTheChunkAndTheLine) {
    Reader reader("chunked");
    reader.Segment("8\r\nab");
    EXPECT_EQ(reader.ReadOnce(2).first, 2);
    reader.Reset();
    reader.Segment("2\r\ncd\r\n").Segment("3").Result(IO_AGAIN);
    EXPECT_EQ(reader.ReadOnce(2).first, IO_AGAIN);
    reader.Reset();
    reader.Segment("1\r\ne\r\n1\r\n");
    EXPECT_EQ(reader.ReadOnce(1), Delivered(1, "e"));
}

TEST(HTTPReader, ContinuesWithARequestThatIsFramedInAnotherWay) {
    const LoopbackPair first;
    const LoopbackPair second;
    first.Send("2\r\nab\r\n1\r\n");
    second.Send("4\r\n!");
    HTTPReader reader(request("chunked", first.server));
    std::string buffer(4, '\0');
    EXPECT_EQ(reader.Read(buffer.data(), 0, 2), 2);
    reader.Reset();
    reader.SetRequest(request("", second.server));
    EXPECT_EQ(reader.GetBytesRead(), 10U);
    EXPECT_EQ(reader.Read(buffer.data(), 0, 4), 4);
    EXPECT_EQ(buffer, "4\r\n!");
}

TEST(HTTPReader, NothingBehindTheAudioIsTakenFromTheSocket) {
    const LoopbackPair pair;
    pair.Send("2\r\nab\r\n3\r\ncde");
    HTTPReader reader(request("chunked", pair.server));
    std::string buffer(2, '\0');
    EXPECT_EQ(reader.Read(buffer.data(), 0, 2), 2);
    EXPECT_EQ(buffer, "ab");
    char rest[3] = {};
    EXPECT_EQ(pair.server->Recv(rest, 3, 0, 5), 3);
    EXPECT_EQ(std::string(rest, 3), "cde");
}
