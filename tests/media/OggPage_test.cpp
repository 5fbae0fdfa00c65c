#include "media/OggPage.h"

#include "support/OggPages.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {
using Segments = std::vector<std::vector<char>>;

std::string text(const std::vector<char>& bytes) { return {bytes.begin(), bytes.end()}; }

CodecType codec_of(const std::string& packet) {
    return detect_bitstream_type(ogg::page({.flags = ogg::FIRST}, packet));
}
} // namespace

TEST(OggPage, FieldsComeFromTheirOffsets) {
    const std::string bytes = ogg::page(
        {.flags = 3, .granule = 0x0102030405060708, .sequence = 0xA1B2C3D4}, {3, 4}, "abcdefg");
    const OggPage page = parse_ogg_page(bytes).value();
    EXPECT_TRUE(page.IsContinued());
    EXPECT_TRUE(page.IsBeginningOfStream());
    EXPECT_EQ(page.granule_position, 0x0102030405060708U);
    EXPECT_EQ(page.sequence_number, 0xA1B2C3D4U);
    EXPECT_EQ(page.segment_count, 2U);
    EXPECT_EQ(page.DataOffset(), 29U);
}

TEST(OggPage, FlagsAreIndependent) {
    EXPECT_TRUE(parse_ogg_page(ogg::page({.flags = 1}, "x"))->IsContinued());
    EXPECT_FALSE(parse_ogg_page(ogg::page({.flags = 1}, "x"))->IsBeginningOfStream());
    EXPECT_TRUE(parse_ogg_page(ogg::page({.flags = 2}, "x"))->IsBeginningOfStream());
    EXPECT_FALSE(parse_ogg_page(ogg::page({.flags = 4}, "x"))->IsContinued());
}

TEST(OggPage, NothingInLessThanAHeader) {
    EXPECT_FALSE(parse_ogg_page(ogg::page({}, "x").substr(0, 26)));
    EXPECT_TRUE(parse_ogg_page(ogg::page({}, "x").substr(0, 27)));
}

TEST(OggPage, StartIsThePatternAndVersionZero) {
    const auto is_start = [](const std::string& bytes) {
        return is_ogg_page_start(std::span<const char>(bytes).first<5>());
    };
    EXPECT_TRUE(is_start("OggS\0"s));
    EXPECT_FALSE(is_start("OggS\1"s));
    EXPECT_FALSE(is_start("Oggs\0"s));
}

TEST(OggPage, CodecsAreKnownByTheirFirstPacket) {
    EXPECT_EQ(codec_of(ogg::VORBIS_HEAD), CodecType::VORBIS);
    EXPECT_EQ(codec_of(ogg::OPUS_HEAD), CodecType::OPUS);
    EXPECT_EQ(codec_of(ogg::THEORA_HEAD), CodecType::THEORA);
    EXPECT_EQ(codec_of("\x7f"s + "FLAC"), CodecType::UNKNOWN);
    EXPECT_EQ(codec_of("OpusHea"), CodecType::UNKNOWN);
    EXPECT_EQ(codec_of(""), CodecType::UNKNOWN);
}

TEST(OggPage, CodecOfAPageWithoutSegmentsIsUnknown) {
    EXPECT_EQ(detect_bitstream_type(ogg::page({}, {}, "")), CodecType::UNKNOWN);
    EXPECT_EQ(detect_bitstream_type(ogg::page({}, {}, "OpusHead")), CodecType::UNKNOWN);
    EXPECT_EQ(detect_bitstream_type({}), CodecType::UNKNOWN);
}

TEST(OggPage, OnlyTheFirstSegmentTellsTheCodec) {
    EXPECT_EQ(detect_bitstream_type(ogg::page({}, {4, 4}, "OpusHead")), CodecType::UNKNOWN);
}

TEST(OggPage, CodecNames) {
    EXPECT_STREQ(codec_name(CodecType::VORBIS), "Vorbis");
    EXPECT_STREQ(codec_name(CodecType::OPUS), "Opus");
    EXPECT_STREQ(codec_name(CodecType::THEORA), "Theora");
    EXPECT_STREQ(codec_name(CodecType::UNKNOWN), "");
}

TEST(OggSegments, PacketOfOnePageIsGivenAtOnce) {
    OggSegments segments;
    Segments result;
    ASSERT_TRUE(segments.Retrieve(ogg::page({}, {255, 3}, std::string(255, 'a') + "bcd"), result));
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(text(result[0]), std::string(255, 'a'));
    EXPECT_EQ(text(result[1]), "bcd");
}

TEST(OggSegments, OnlyTheFirstPacketOfThePageIsTaken) {
    OggSegments segments;
    Segments result;
    ASSERT_TRUE(segments.Retrieve(ogg::page({}, {3, 4}, "abcdefg"), result));
    ASSERT_EQ(result.size(), 1U);
    EXPECT_EQ(text(result[0]), "abc");
}

TEST(OggSegments, PacketThatGoesOnIsGivenWithItsLastPage) {
    OggSegments segments;
    Segments result;
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, {255}, std::string(255, 'a')), result));
    EXPECT_TRUE(result.empty());
    ASSERT_TRUE(segments.Retrieve(ogg::page({.flags = ogg::CONTINUED}, "bc"), result));
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(text(result[1]), "bc");
}

TEST(OggSegments, LacingOfZeroDoesNotEndAPacket) {
    OggSegments segments;
    Segments result;
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, {255, 0}, std::string(255, 'a')), result));
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, {1}, "b"), result));
    EXPECT_EQ(result.size(), 3U);
}

TEST(OggSegments, PageWith255SegmentsIsAlwaysTakenToGoOn) {
    OggSegments segments;
    Segments result;
    std::vector<unsigned> lacing(255, 1);
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, lacing, std::string(255, 'a')), result));
    lacing.pop_back();
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, lacing, std::string(254, 'b')), result));
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(text(result[0]), "a");
    EXPECT_EQ(text(result[1]), "b");
}

TEST(OggSegments, PageThatIsNotWholeGivesNothing) {
    OggSegments segments;
    Segments result;
    EXPECT_FALSE(segments.Retrieve({}, result));
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, {3}, "abc").substr(0, 26), result));
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, {3}, ""), result)); // table only
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, {}, ""), result));
}

TEST(OggSegments, SegmentsBeyondThePagesEndAreLeftOut) {
    OggSegments segments;
    Segments result;
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, {200}, "abc"), result));
    EXPECT_TRUE(result.empty());
}

TEST(OggSegments, ClearForgetsTheBeginning) {
    OggSegments segments;
    Segments result;
    EXPECT_FALSE(segments.Retrieve(ogg::page({}, {255}, std::string(255, 'a')), result));
    segments.Clear();
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, "b"), result));
    EXPECT_EQ(result.size(), 1U);
}

TEST(OggSegments, PacketAboveTheLimitEndsWithoutSegments) {
    OggSegments segments;
    Segments result{{'x'}};
    const std::string full =
        ogg::page({}, std::vector<unsigned>(254, 255), std::string(254 * 255, 'a'));
    for (std::size_t sent = 0; sent <= OggSegments::MOST_BYTES; sent += full.size())
        EXPECT_FALSE(segments.Retrieve(full, result));
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, "end"), result));
    EXPECT_TRUE(result.empty());
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, "next"), result));
    EXPECT_EQ(result.size(), 1U);
}

TEST(OggSegments, EmptySegmentsWithoutEndReachTheLimitToo) {
    OggSegments segments;
    Segments result;
    const std::string empty = ogg::page({}, std::vector<unsigned>(254, 0), "x");
    for (std::size_t count = 0; count < OggSegments::MOST_BYTES / 24; count += 254)
        EXPECT_FALSE(segments.Retrieve(empty, result));
    EXPECT_TRUE(segments.Retrieve(ogg::page({}, "end"), result));
    EXPECT_TRUE(result.empty());
}
