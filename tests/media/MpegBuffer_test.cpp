#include "media/MpegBuffer.h"

#include "support/Framed.h"
#include "support/Frames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

using frames::bytes;
using frames::mp3;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

namespace {
// A Layer III header at 8 kHz and 8 kbit/s (MPEG-2.5): 72 bytes.
std::string slow_frame() { return bytes({0xFF, 0xE3, 0x18, 0xC0}) + std::string(68, 's'); }

std::vector<char> vector_of(const std::string& text) { return {text.begin(), text.end()}; }
} // namespace

TEST(MpegBuffer, EachFrameIsOnePacket) {
    Framed<MpegBuffer> framed(mp3('1') + mp3('2', true) + mp3('3'));
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_THAT(framed.Packets(), ElementsAre(mp3('1'), mp3('2', true), mp3('3')));
}

TEST(MpegBuffer, FramesAreCutInWhateverPiecesTheyCome) {
    for (const std::size_t piece : {1U, 2U, 3U, 4U, 5U, 416U, 417U, 418U, 1000U}) {
        Framed<MpegBuffer> framed(mp3('1') + mp3('2', true) + mp3('3'), piece);
        EXPECT_EQ(framed.FillToTheEnd(), 1);
        EXPECT_THAT(framed.Packets(), ElementsAre(mp3('1'), mp3('2', true), mp3('3'))) << piece;
    }
}

TEST(MpegBuffer, PacketsAreOrdinaryOnes) {
    Framed<MpegBuffer> framed(mp3());
    framed.FillToTheEnd();
    ASSERT_EQ(framed.Entries().size(), 1U);
    EXPECT_EQ(framed.Entries()[0]->header_id, 0U);
    EXPECT_EQ(framed.Entries()[0]->size, 417U);
}

TEST(MpegBuffer, RetainsAsManyBytesAsItsClassSays) {
    EXPECT_EQ(Framed<MpegBuffer>("").buffer->GetPacketBufferSize(), 131072U);
}

TEST(MpegBuffer, GarbageBeforeAFrameIsDropped) {
    Framed<MpegBuffer> framed("garbage" + mp3('1') + std::string(500, 'x') + mp3('2'));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(mp3('1'), mp3('2')));
}

TEST(MpegBuffer, GarbageIsSkippedAsLongAsASyncIsInEachReadBuffer) {
    std::string stream;
    for (int i = 0; i < 20; ++i)
        stream += std::string(7700, 'x') + mp3();
    Framed<MpegBuffer> framed(stream);
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_EQ(framed.Packets().size(), 20U);
}

TEST(MpegBuffer, ReadBufferWithoutASyncIsAFailureWithoutAnError) {
    Framed<MpegBuffer> framed(std::string(8192, 'x') + mp3());
    EXPECT_EQ(framed.FillToTheEnd(), 2);
    EXPECT_EQ(framed.buffer->SocketError(), 0);
    EXPECT_THAT(framed.Packets(), IsEmpty());
}

TEST(MpegBuffer, FourBytesAreNotLookedAt) {
    Framed<MpegBuffer> framed(mp3().substr(0, 4));
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_THAT(framed.Packets(), IsEmpty());
}

// A padded free-format header makes a packet of one byte, which tells how much was looked at.
TEST(MpegBuffer, FiveBytesAreEnoughForAFrameThatShort) {
    const std::string padded_free_format = bytes({0xFF, 0xFB, 0x02, 0x00, 0x00});
    Framed<MpegBuffer> five(padded_free_format);
    five.FillToTheEnd();
    EXPECT_THAT(five.Packets(), ElementsAre("\xFF"s));
    Framed<MpegBuffer> four(padded_free_format.substr(0, 4));
    four.FillToTheEnd();
    EXPECT_THAT(four.Packets(), IsEmpty());
}

TEST(MpegBuffer, FreeFormatWithoutPaddingStopsTheStream) {
    Framed<MpegBuffer> framed(bytes({0xFF, 0xFB, 0x00, 0x00}) + std::string(8188, 'f') + mp3());
    EXPECT_EQ(framed.FillToTheEnd(), 2);
    EXPECT_THAT(framed.Packets(), IsEmpty());
}

TEST(MpegBuffer, HeaderWithBitrateIndex15IsNoFrame) {
    Framed<MpegBuffer> framed(bytes({0xFF, 0xFB, 0xF0}) + mp3('1'));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(mp3('1')));
}

TEST(MpegBuffer, ScanGoesOnFromTheNextByteAfterABadHeader) {
    // 0xFF 0xFF 0xFB ...: the first two look like a Layer I sync whose bitrate index is 15.
    Framed<MpegBuffer> framed(bytes({0xFF}) + mp3('1'));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(mp3('1')));
}

TEST(MpegBuffer, FrameThatIsNotWholeWaits) {
    Framed<MpegBuffer> framed(mp3('1') + mp3('2').substr(0, 416));
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_THAT(framed.Packets(), ElementsAre(mp3('1')));
}

TEST(MpegBuffer, Mpeg2Layer3At64And22050Is208Bytes) {
    const std::string plain = bytes({0xFF, 0xF3, 0x80, 0x00}) + std::string(204, 'p');
    const std::string padded = bytes({0xFF, 0xF3, 0x82, 0x00}) + std::string(205, 'q');
    Framed<MpegBuffer> framed(plain + padded + plain);
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(plain, padded, plain));
}

TEST(MpegBuffer, PaddedLayer1FrameIsCutOneByteLongerNotFour) {
    const std::string frame = bytes({0xFF, 0xFF, 0x42, 0x00}) + std::string(139 - 3, 'l');
    ASSERT_EQ(frame.size(), 48U * 128000 / 44100 + 1);
    Framed<MpegBuffer> framed(frame + "xxx" + mp3('1'));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(frame, mp3('1')));
}

TEST(MpegBuffer, FormatIsThatOfTheFirstFrame) {
    Framed<MpegBuffer> framed(mp3());
    EXPECT_EQ(framed.buffer->GetFrameTime(), 0.0);
    framed.FillToTheEnd();
    EXPECT_EQ(framed.buffer->GetAudioFrequency(), 44100);
    EXPECT_EQ(framed.buffer->GetNumAudioChannels(), 2);
    EXPECT_DOUBLE_EQ(framed.buffer->GetFrameTime(), 1000.0 / 44100 * 1152);
}

TEST(MpegBuffer, FormatIsNeverUpdated) {
    Framed<MpegBuffer> framed(slow_frame() + mp3() + mp3());
    framed.FillToTheEnd();
    ASSERT_EQ(framed.Packets().size(), 3U);
    EXPECT_EQ(framed.buffer->GetAudioFrequency(), 8000);
    EXPECT_EQ(framed.buffer->GetNumAudioChannels(), 1);
    EXPECT_DOUBLE_EQ(framed.buffer->GetFrameTime(), 72.0);
}

TEST(MpegBuffer, HeaderCanBeParsedAtAnyPosition) {
    const std::vector<char> stream = vector_of("xy" + mp3());
    EXPECT_EQ(MpegBuffer::ParseFrame(stream, 2).bitrate, 128);
    EXPECT_EQ(MpegBuffer::ParseFrame(stream, 2).sampling_rate, 44100);
}

TEST(MpegBuffer, HeaderPastTheEndThrows) {
    const std::vector<char> header = vector_of(mp3().substr(0, 4));
    EXPECT_NO_THROW(MpegBuffer::ParseFrame(header, 0));
    EXPECT_THROW(MpegBuffer::ParseFrame(header, 1), std::out_of_range);
    EXPECT_THROW(MpegBuffer::ParseFrame(header, 5), std::out_of_range);
    EXPECT_THROW(MpegBuffer::ParseFrame({}, 0), std::out_of_range);
}
