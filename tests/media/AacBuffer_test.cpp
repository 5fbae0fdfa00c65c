#include "media/AacBuffer.h"

#include "support/Framed.h"
#include "support/Frames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

using frames::adts;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

namespace {
std::vector<char> vector_of(const std::string& text) { return {text.begin(), text.end()}; }
} // namespace

TEST(AacBuffer, EachFrameIsOnePacketWithItsHeader) {
    Framed<AacBuffer> framed(adts(100, '1') + adts(371, '2') + adts(50, '3'));
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(100, '1'), adts(371, '2'), adts(50, '3')));
}

TEST(AacBuffer, FramesAreCutInWhateverPiecesTheyCome) {
    for (const std::size_t piece : {1U, 2U, 6U, 7U, 8U, 99U, 100U, 101U}) {
        Framed<AacBuffer> framed(adts(100, '1') + adts(371, '2') + adts(50, '3'), piece);
        EXPECT_EQ(framed.FillToTheEnd(), 1);
        EXPECT_THAT(framed.Packets(), ElementsAre(adts(100, '1'), adts(371, '2'), adts(50, '3')))
            << piece;
    }
}

TEST(AacBuffer, PacketsAreOrdinaryOnes) {
    Framed<AacBuffer> framed(adts(100));
    framed.FillToTheEnd();
    ASSERT_EQ(framed.Entries().size(), 1U);
    EXPECT_EQ(framed.Entries()[0]->header_id, 0U);
    EXPECT_EQ(framed.Entries()[0]->size, 100U);
}

TEST(AacBuffer, RetainsAsManyBytesAsItsClassSays) {
    EXPECT_EQ(Framed<AacBuffer>("").buffer->GetPacketBufferSize(), 131072U);
}

TEST(AacBuffer, GarbageBeforeAFrameIsDropped) {
    Framed<AacBuffer> framed("garbage" + adts(100, '1') + "more of it" + adts(101, '2'));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(100, '1'), adts(101, '2')));
}

TEST(AacBuffer, MpegAudioIsNoAac) {
    Framed<AacBuffer> framed(frames::mp3() + adts(100));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(100)));
}

TEST(AacBuffer, SevenBytesAreNotLookedAt) {
    Framed<AacBuffer> framed(adts(7));
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_THAT(framed.Packets(), IsEmpty());
}

TEST(AacBuffer, SyncWithLessThanAHeaderBehindItWaits) {
    Framed<AacBuffer> framed("garbage" + adts(100), 12);
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(100)));
}

TEST(AacBuffer, FrameShorterThanItsHeaderIsAPacketAllTheSame) {
    Framed<AacBuffer> framed(adts(3) + adts(100, '1') + "rest");
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(3).substr(0, 3), adts(100, '1')));
}

TEST(AacBuffer, LengthOf1024ComesOutNegativeAndStopsTheStream) {
    Framed<AacBuffer> framed(adts(1024) + adts(1024) + std::string(8192, 'x'));
    EXPECT_EQ(framed.FillToTheEnd(), 2);
    EXPECT_THAT(framed.Packets(), IsEmpty());
}

TEST(AacBuffer, LengthAbove2047WithBit10SetIsCutTooEarly) {
    Framed<AacBuffer> framed(adts(2048 + 1024 + 100, '1') + adts(100, '2'));
    framed.FillToTheEnd();
    // 3172 - 2048 bytes; the rest is garbage up to the next sync.
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(3172, '1').substr(0, 1124), adts(100, '2')));
}

TEST(AacBuffer, LengthOf2048To3071IsRight) {
    Framed<AacBuffer> framed(adts(2048, '1') + adts(3071, '2') + adts(100, '3'));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(adts(2048, '1'), adts(3071, '2'), adts(100, '3')));
}

TEST(AacBuffer, FormatIsThatOfTheFirstFrame) {
    Framed<AacBuffer> framed(adts(100, 'a', {.rate_index = 6, .channels = 1}) + adts(100));
    framed.FillToTheEnd();
    EXPECT_EQ(framed.Packets().size(), 2U);
    EXPECT_EQ(framed.buffer->GetAudioFrequency(), 24000);
    EXPECT_EQ(framed.buffer->GetNumAudioChannels(), 1);
    EXPECT_DOUBLE_EQ(framed.buffer->GetFrameTime(), 1000.0 / 24000 * 1024);
}

TEST(AacBuffer, ChannelConfigurationZeroCountsAsTwo) {
    Framed<AacBuffer> framed(adts(100, 'a', {.channels = 0}));
    framed.FillToTheEnd();
    EXPECT_EQ(framed.buffer->GetNumAudioChannels(), 2);
}

TEST(AacBuffer, FrameOfUnknownRateLeavesTheFormatOpen) {
    Framed<AacBuffer> framed(adts(100, 'a', {.rate_index = 15}));
    framed.FillToTheEnd();
    EXPECT_EQ(framed.Packets().size(), 1U);
    EXPECT_EQ(framed.buffer->GetFrameTime(), 0.0);
}

TEST(AacBuffer, HeaderCanBeParsedAtAnyPosition) {
    const AdtsHeader header = AacBuffer::ParseFrame(vector_of("xy" + adts(100)), 2);
    EXPECT_EQ(header.frame_length, 100);
    EXPECT_EQ(header.profile, 1U);
}

TEST(AacBuffer, HeaderPastTheEndThrows) {
    const std::vector<char> header = vector_of(adts(7));
    EXPECT_NO_THROW(AacBuffer::ParseFrame(header, 0));
    EXPECT_THROW(AacBuffer::ParseFrame(header, 1), std::out_of_range);
    EXPECT_THROW(AacBuffer::ParseFrame(header, 8), std::out_of_range);
}
