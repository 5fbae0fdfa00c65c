#include "media/ICYWriter.h"

#include "media/HTTPReader.h"
#include "media/IcyBlock.h"
#include "support/ResponsePipe.h"

#include <gtest/gtest.h>
#include <random>

using namespace std::string_literals;

namespace {
SharedBytes packet(const std::string& text) {
    return std::make_shared<const std::vector<char>>(text.begin(), text.end());
}

std::shared_ptr<METADATA> record(const std::string& title, const std::string& url = "") {
    auto metadata = std::make_shared<METADATA>();
    metadata->title = title;
    metadata->url = url;
    return metadata;
}

std::string block(const std::string& title, const std::string& url = "") {
    const std::string words = icy_block::words(title, url);
    return icy_block::length_byte(words) + icy_block::rest(words);
}

// `count` bytes that differ, so that a lost or doubled one shows.
std::string audio(std::size_t count) {
    std::mt19937 random(7);
    std::string bytes;
    while (bytes.size() < count)
        bytes += static_cast<char>(random() & 0xFF);
    return bytes;
}

// A listener with blocks every `interval` bytes.
struct IcyListener {
    explicit IcyListener(unsigned interval, bool shoutcast = false, bool chunked = false)
        : writer(pipe.response, interval, shoutcast, chunked) {}

    unsigned long Write(const std::string& bytes) {
        return writer.Write(packet(bytes), 0, bytes.size());
    }

    ResponsePipe pipe;
    ICYWriter writer;
};
} // namespace

TEST(ICYWriter, FirstBlockIsAZeroByteWithoutMetadata) {
    IcyListener listener(4);
    EXPECT_EQ(listener.Write("abcd"), 5U);
    EXPECT_EQ(listener.pipe.Sent(), "abcd\0"s);
}

TEST(ICYWriter, FirstBlockHasTheMetadataThatCameWithTheBurst) {
    IcyListener listener(4);
    listener.writer.SetMetadata(record("t"));
    EXPECT_EQ(listener.Write("abcd"), 4 + block("t").size());
    EXPECT_EQ(listener.pipe.Sent(), "abcd" + block("t"));
}

TEST(ICYWriter, MetadataIsSentOnceAndThenZeroBytes) {
    IcyListener listener(2);
    listener.writer.SetMetadata(record("t", "u"));
    listener.Write("abcdef");
    EXPECT_EQ(listener.pipe.Sent(), "ab" + block("t", "u") + "cd\0ef\0"s);
}

TEST(ICYWriter, NewMetadataWaitsForTheNextInterval) {
    IcyListener listener(4);
    listener.Write("ab");
    listener.writer.SetMetadata(record("t"));
    listener.Write("cdef");
    EXPECT_EQ(listener.pipe.Sent(), "abcd" + block("t") + "ef");
}

TEST(ICYWriter, LatestOfTwoRecordsIsSent) {
    IcyListener listener(4);
    listener.writer.SetMetadata(record("old"));
    listener.writer.SetMetadata(record("new"));
    listener.Write("abcd");
    EXPECT_EQ(listener.pipe.Sent(), "abcd" + block("new"));
}

TEST(ICYWriter, NoRecordIsNoChange) {
    IcyListener listener(4);
    listener.writer.SetMetadata(record("t"));
    listener.writer.SetMetadata(nullptr);
    listener.Write("abcd");
    EXPECT_EQ(listener.pipe.Sent(), "abcd" + block("t"));
}

TEST(ICYWriter, RecordWithoutTitleAndAddressIsAnEmptyBlock) {
    IcyListener listener(4);
    auto empty = record("");
    empty->artist = "somebody";
    listener.writer.SetMetadata(empty);
    listener.Write("abcd");
    EXPECT_EQ(listener.pipe.Sent(), "abcd\0"s);
}

TEST(ICYWriter, AddressAloneIsSent) {
    IcyListener listener(4);
    listener.writer.SetMetadata(record("", "u"));
    listener.Write("abcd");
    EXPECT_EQ(listener.pipe.Sent(), "abcd" + block("", "u"));
}

TEST(ICYWriter, PacketThatEndsAtTheIntervalBringsTheBlockAtOnce) {
    IcyListener listener(4);
    EXPECT_EQ(listener.Write("ab"), 2U);
    EXPECT_EQ(listener.Write("cd"), 3U);
    EXPECT_EQ(listener.pipe.Sent(), "abcd\0"s);
}

TEST(ICYWriter, PacketOverSeveralIntervalsHasABlockAtEach) {
    IcyListener listener(3);
    EXPECT_EQ(listener.Write("abcdefgh"), 10U);
    EXPECT_EQ(listener.pipe.Sent(), "abc\0def\0gh"s);
}

TEST(ICYWriter, IntervalOfOneByte) {
    IcyListener listener(1);
    EXPECT_EQ(listener.Write("abc"), 6U);
    EXPECT_EQ(listener.pipe.Sent(), "a\0b\0c\0"s);
}

TEST(ICYWriter, BlocksStandAtExactPositionsHoweverTheStreamIsSplit) {
    const std::string stream = audio(20000);
    std::mt19937 random(11);
    for (const unsigned interval : {1U, 15U, 16U, 417U, 4096U, 8192U, 16000U}) {
        for (int round = 0; round < 5; ++round) {
            IcyListener listener(interval);
            std::string expected;
            unsigned long counted = 0;
            unsigned since = 0;
            std::string title;
            for (std::size_t position = 0; position < stream.size();) {
                if (random() % 3 == 0) {
                    title = "title " + std::to_string(position);
                    listener.writer.SetMetadata(record(title));
                }
                const std::string piece = stream.substr(position, 1 + random() % (500U << round));
                counted += listener.Write(piece);
                position += piece.size();
                for (const char byte : piece) {
                    expected += byte;
                    if (++since < interval) continue;
                    expected += title.empty() ? "\0"s : block(title);
                    title.clear();
                    since = 0;
                }
            }
            EXPECT_EQ(counted, expected.size());
            EXPECT_TRUE(listener.pipe.Sent() == expected) << interval << " round " << round;
        }
    }
}

TEST(ICYWriter, PositionsHoldWhileBytesWaitInTheResponse) {
    IcyListener listener(4);
    listener.pipe.response->Buffer("waiting");
    EXPECT_EQ(listener.Write("abcdef"), 7U);
    EXPECT_EQ(listener.pipe.Sent(), "waitingabcd\0ef"s);
}

TEST(ICYWriter, OffsetAndLengthChooseAPartOfThePacket) {
    IcyListener listener(3);
    EXPECT_EQ(listener.writer.Write(packet("0123456789"), 2, 5), 6U);
    EXPECT_EQ(listener.pipe.Sent(), "234\0"s + "56");
}

TEST(ICYWriter, WithoutIntervalAndChunksThePacketPassesUnchanged) {
    IcyListener listener(0);
    listener.writer.SetMetadata(record("t"));
    EXPECT_EQ(listener.Write("abcd"), 4U);
    EXPECT_EQ(listener.pipe.Sent(), "abcd");
}

TEST(ICYWriter, NothingToWriteIsZero) {
    IcyListener listener(4);
    EXPECT_EQ(listener.writer.Write(packet("abcd"), 4, 0), 0U);
    EXPECT_EQ(listener.pipe.Sent(), "");
}

TEST(ICYWriter, PacketIsHandedOnByReference) {
    IcyListener listener(0);
    const SharedBytes shared = packet(audio(417));
    listener.writer.Write(shared, 0, 417);
    EXPECT_EQ(shared.use_count(), 2);
    listener.pipe.Sent();
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(ICYWriter, ShoutcastServersGetNoInvalidAddress) {
    for (const std::string url : {"", "http://", "http://host/a:b", "host:0"}) {
        IcyListener listener(1, true);
        listener.writer.SetMetadata(record("t", url));
        listener.Write("a");
        EXPECT_EQ(listener.pipe.Sent(), "a" + block("t")) << url;
    }
}

TEST(ICYWriter, ShoutcastServersGetAValidAddress) {
    IcyListener listener(1, true);
    listener.writer.SetMetadata(record("t", "http://host/path"));
    listener.Write("a");
    EXPECT_EQ(listener.pipe.Sent(), "a" + block("t", "http://host/path"));
}

TEST(ICYWriter, OtherListenersGetAnyAddress) {
    IcyListener listener(1);
    listener.writer.SetMetadata(record("t", "http://"));
    listener.Write("a");
    EXPECT_EQ(listener.pipe.Sent(), "a" + block("t", "http://"));
}

TEST(ICYWriter, TitleGoesInTheSizeLineOfAChunkOnce) {
    IcyListener listener(0, false, true);
    listener.pipe.BeginChunks();
    listener.writer.SetMetadata(record("A B", "u"));
    EXPECT_EQ(listener.Write("abcd"), 4U);
    EXPECT_EQ(listener.Write("efghijklmnopqrst"), 16U);
    EXPECT_EQ(listener.pipe.Sent(), "4; StreamTitle='A+B';StreamUrl='u';\r\nabcd\r\n"
                                    "10\r\nefghijklmnopqrst\r\n");
}

TEST(ICYWriter, RecordWithoutWordsMakesNoComment) {
    IcyListener listener(0, false, true);
    listener.pipe.BeginChunks();
    listener.Write("abcd");
    EXPECT_EQ(listener.pipe.Sent(), "4\r\nabcd\r\n");
}

TEST(ICYWriter, CommentWaitsUntilTheResponseIsChunked) {
    IcyListener listener(0, false, true);
    listener.writer.SetMetadata(record("t"));
    listener.Write("abcd");
    EXPECT_EQ(listener.pipe.Sent(), "abcd");
    listener.pipe.BeginChunks();
    listener.Write("e");
    EXPECT_EQ(listener.pipe.Sent(), "1; StreamTitle='t';StreamUrl='';\r\ne\r\n");
}

TEST(ICYWriter, ChunkedListenerWithAnIntervalGetsBlocksAndNoComments) {
    IcyListener listener(4, false, true);
    listener.pipe.BeginChunks();
    listener.writer.SetMetadata(record("t"));
    EXPECT_EQ(listener.Write("abcd"), 4 + block("t").size());
    EXPECT_EQ(listener.pipe.Sent(),
              "4\r\nabcd\r\n1\r\n\x02\r\n20\r\n" + block("t").substr(1) + "\r\n")
        << "the length byte and the rest are a chunk each";
}

TEST(ICYWriter, EmptyBlockIsAChunkOfOneByte) {
    IcyListener listener(4);
    listener.pipe.BeginChunks();
    EXPECT_EQ(listener.Write("abcd"), 5U);
    EXPECT_EQ(listener.pipe.Sent(), "4\r\nabcd\r\n1\r\n\0\r\n"s);
}

TEST(ICYWriter, CommentsAreReadBackByARelay) {
    IcyListener listener(0, false, true);
    listener.pipe.BeginChunks();
    auto metadata = record("A - B ; c = 'd\xC3\xA9", "http://host/?a=b");
    metadata->extended = {{"ALBUM", "x;y='z"}, {"Vendor", "me"}};
    listener.writer.SetMetadata(metadata);
    listener.Write("abcd");

    LoopbackPair relay;
    relay.Send("\r\n" + listener.pipe.Sent() + "4\r\n");
    const auto request = std::make_shared<Request>(relay.server);
    request->SetHeader("Transfer-Encoding", "chunked");
    HTTPReader reader(request);
    char audio_bytes[4] = {};
    ASSERT_EQ(reader.Read(audio_bytes, 0, 4), 4);
    EXPECT_EQ(std::string(audio_bytes, 4), "abcd");
    const auto read = reader.GetMetaData();
    ASSERT_TRUE(read);
    EXPECT_EQ(read->title, metadata->title);
    EXPECT_EQ(read->url, metadata->url);
    EXPECT_EQ(read->extended,
              (std::map<std::string, std::string>{{"';ALBUM", "x;y='z"}, {"';Vendor", "me"}}));
}

TEST(ICYWriter, LongForeignTitleStillReachesARelay) {
    IcyListener listener(0, false, true);
    listener.pipe.BeginChunks();
    std::string title;
    for (int i = 0; i < 400; ++i)
        title += "\xC3\xA9";
    listener.writer.SetMetadata(record(title));
    listener.Write("abcd");

    LoopbackPair relay;
    relay.Send("\r\n" + listener.pipe.Sent() + "4\r\n");
    const auto request = std::make_shared<Request>(relay.server);
    request->SetHeader("Transfer-Encoding", "chunked");
    HTTPReader reader(request);
    char audio_bytes[4] = {};
    ASSERT_EQ(reader.Read(audio_bytes, 0, 4), 4);
    EXPECT_GT(reader.GetMetaData()->title.size(), 150U);
    EXPECT_TRUE(title.starts_with(reader.GetMetaData()->title));
}
