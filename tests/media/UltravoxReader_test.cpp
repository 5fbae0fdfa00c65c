#include "media/UltravoxReader.h"

#include "support/LogLines.h"
#include "support/LoopbackPair.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned AUDIO = 0x7000;
constexpr unsigned METADATA_MESSAGE = 0x3902; // the upper four bits are not looked at

std::string header(unsigned type, unsigned length) {
    std::string bytes = "Z\x7f";
    for (const unsigned value : {type, length}) {
        bytes += static_cast<char>(value >> 8 & 0xFF);
        bytes += static_cast<char>(value & 0xFF);
    }
    return bytes;
}

std::string frame(unsigned type, const std::string& payload) {
    return header(type, static_cast<unsigned>(payload.size())) + payload + '\0';
}

std::string metadata(const std::string& text) {
    return frame(METADATA_MESSAGE, std::string(6, 'h') + text + '\0');
}

// What a reader tells the log of a source that sends these bytes, in one piece, and ends.
std::vector<std::string> lines_of(const std::string& stream) {
    LogLines log;
    LoopbackPair pair;
    pair.Send(stream);
    pair.CloseClient();
    UltravoxReader reader(pair.server);
    EXPECT_EQ(reader.Read(nullptr, 1, 2), -1);
    return log.All();
}

} // namespace

TEST(UltravoxReader, TellsTheLengthOfEachFrame) {
    EXPECT_THAT(lines_of(frame(AUDIO, "abc") + frame(AUDIO, std::string(300, 'x'))),
                ElementsAre("3", "300"));
}

TEST(UltravoxReader, TellsTheTextOfMetadata) {
    EXPECT_THAT(lines_of(metadata("Song")), ElementsAre("Song", "11"));
}

TEST(UltravoxReader, TheMessageTypeHasTwelveBits) {
    EXPECT_THAT(lines_of(frame(0xF902, "hhhhhhA")), ElementsAre("A", "7"));
    EXPECT_THAT(lines_of(frame(0x0802, "hhhhhhB")), ElementsAre("7"));
    EXPECT_THAT(lines_of(frame(0x0903, "hhhhhhC")), ElementsAre("7"));
}

TEST(UltravoxReader, TextWithoutItsEndStopsWhereTheBytesDo) {
    EXPECT_THAT(lines_of(header(METADATA_MESSAGE, 8) + "hhhhhhAB"), ElementsAre("AB", "8"));
    EXPECT_THAT(lines_of(header(METADATA_MESSAGE, 0)), ElementsAre("", "0"));
    EXPECT_THAT(lines_of(header(METADATA_MESSAGE, 0) + "e"), ElementsAre("", "0"));
}

TEST(UltravoxReader, ControlBytesOfATextDoNotReachTheLog) {
    for (const std::string& line : lines_of(metadata("a\r\nb")))
        EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos);
}

TEST(UltravoxReader, LooksForTheSyncAndTellsHowFarItWent) {
    EXPECT_THAT(lines_of("abcd" + frame(AUDIO, "xyz")), ElementsAre("Read Head moved: 4", "3"));
}

TEST(UltravoxReader, ASyncInTheLastFiveBytesIsNotSeen) {
    EXPECT_THAT(lines_of("aaaaZaaaa"), IsEmpty());
    EXPECT_THAT(lines_of("Z"), IsEmpty());
    EXPECT_THAT(lines_of("abcdefghij"), IsEmpty());
}

TEST(UltravoxReader, AFrameThatIsNotWholeWaits) {
    EXPECT_THAT(lines_of(frame(AUDIO, "abc") + header(AUDIO, 100) + "xyz"), ElementsAre("3"));
}

// Kept: of a frame that the next receive completes, the first part is overwritten.
TEST(UltravoxReader, EachReceiveBeginsAtTheStartOfTheBuffer) {
    LogLines log;
    LoopbackPair pair;
    UltravoxReader reader(pair.server);
    const std::string first = frame(AUDIO, "abc");
    pair.Send(first);
    std::thread reading([&] { EXPECT_EQ(reader.Read(nullptr, 0, 0), -1); });
    EXPECT_TRUE(log.Wait("] 3"));
    pair.Send(std::string(first.size(), 'a') + frame(AUDIO, "defgh") + std::string(20, 'a'));
    pair.CloseClient();
    reading.join();
    EXPECT_THAT(log.All(), ElementsAre("3", "5")) << "read on from the end of the first frame";
}

TEST(UltravoxReader, ALengthWithItsHighestBitIsNegative) {
    EXPECT_THAT(lines_of(frame(AUDIO, std::string(100, 'a')) + header(AUDIO, 0xFFFE) + "aaaa"),
                ElementsAre("100", "-2"));
    EXPECT_THAT(lines_of(header(AUDIO, 0xFFFE) + "aaaa"), IsEmpty())
        << "it points before the start";
}

TEST(UltravoxReader, AFrameThatLeadsBackDoesNotHoldItForEver) {
    const std::string back = header(AUDIO, 0x10000 - 117) + "aaaa";
    EXPECT_THAT(lines_of(frame(AUDIO, std::string(110, 'a')) + back), ElementsAre("110", "-117"));
    const std::string on_the_spot = header(AUDIO, 0x10000 - 7) + "aaaa";
    EXPECT_THAT(lines_of(frame(AUDIO, "abc") + on_the_spot), ElementsAre("3", "-7"));
}

TEST(UltravoxReader, MoreThanTheBufferHoldsIsReceivedToTheEnd) {
    const std::string stream = std::string(8190, 'a') + frame(AUDIO, "abc");
    // The second receive begins with the rest of the frame; behind that all is 'Z', lengths too.
    EXPECT_THAT(lines_of(stream + std::string(30000, 'Z')),
                ElementsAre("Read Head moved: 8", "23130"));
}

TEST(UltravoxReader, AClosedSocketIsTheEnd) {
    LoopbackPair pair;
    pair.server->Close();
    UltravoxReader reader(pair.server);
    EXPECT_EQ(reader.Read(nullptr, 0, 0), -1);
}

TEST(UltravoxReader, AsAMediaReaderItHasNoAudio) {
    LoopbackPair pair;
    pair.Send(frame(AUDIO, "abc"));
    UltravoxReader reader(pair.server);
    MediaReader& base = reader;
    char buffer[8] = {};
    EXPECT_EQ(base.Read(buffer, 0ULL, 8ULL), -1);
    EXPECT_EQ(pair.server->BytesRead(), 0U);
}

TEST(UltravoxReader, ResetLeavesItWhereItIs) {
    LogLines log;
    LoopbackPair pair;
    UltravoxReader reader(pair.server);
    reader.Reset();
    pair.Send(frame(AUDIO, "abc"));
    pair.CloseClient();
    reader.Read(nullptr, 0, 0);
    EXPECT_THAT(log.All(), ElementsAre("3"));
}

TEST(UltravoxReader, TitleAndAddressAreFixed) {
    EXPECT_EQ(UltravoxReader::Title(), "Ultravox Title");
    EXPECT_EQ(UltravoxReader::Url(), "https://quillwave.example");
}
