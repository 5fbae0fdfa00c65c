#include "media/OggComments.h"

#include "support/OggPages.h"

#include <gtest/gtest.h>

namespace {
using Fields = std::map<std::string, std::string>;

OggComments parse(const std::string& packet, CodecType codec = CodecType::VORBIS) {
    return parse_ogg_comments({{packet.begin(), packet.end()}}, codec);
}
} // namespace

TEST(OggComments, VorbisCommentsAreReadBehindSevenBytes) {
    const OggComments comments = parse(ogg::vorbis_comments({"TITLE=Song", "ARTIST=Band"}));
    EXPECT_EQ(comments.fields,
              (Fields{{"Vendor", "Maker"}, {"TITLE", "Song"}, {"ARTIST", "Band"}}));
    EXPECT_EQ(comments.fault, "");
}

TEST(OggComments, OpusCommentsAreReadBehindEightBytes) {
    const OggComments comments = parse(ogg::opus_comments({"TITLE=Song"}), CodecType::OPUS);
    EXPECT_EQ(comments.fields, (Fields{{"Vendor", "Maker"}, {"TITLE", "Song"}}));
    EXPECT_EQ(comments.fault, "");
}

TEST(OggComments, SegmentsAreJoined) {
    const std::string packet = ogg::vorbis_comments({"TITLE=Song"});
    std::vector<std::vector<char>> segments;
    for (const char byte : packet)
        segments.push_back({byte});
    EXPECT_EQ(parse_ogg_comments(segments, CodecType::VORBIS).fields.at("TITLE"), "Song");
}

TEST(OggComments, OtherCodecsHaveNone) {
    for (const CodecType codec : {CodecType::UNKNOWN, CodecType::THEORA}) {
        const OggComments comments = parse(ogg::vorbis_comments({"TITLE=Song"}), codec);
        EXPECT_TRUE(comments.fields.empty());
        EXPECT_EQ(comments.fault, "Ogg comment parser error: Invalid segment passed");
    }
}

TEST(OggComments, KeysAreCapitalised) {
    EXPECT_EQ(parse(ogg::vorbis_comments({"tiTle=Song"})).fields.at("TITLE"), "Song");
}

TEST(OggComments, LaterCommentOfTheSameKeyReplacesTheEarlier) {
    EXPECT_EQ(parse(ogg::vorbis_comments({"title=a", "TITLE=b"})).fields.at("TITLE"), "b");
}

TEST(OggComments, ValueEndsAtASecondEqualsSign) {
    EXPECT_EQ(parse(ogg::vorbis_comments({"TITLE=a=b"})).fields.at("TITLE"), "a");
    EXPECT_EQ(parse(ogg::vorbis_comments({"TITLE==b"})).fields.at("TITLE"), "");
}

TEST(OggComments, CommentWithoutAValueIsSkipped) {
    EXPECT_EQ(parse(ogg::vorbis_comments({"TITLE", "TITLE=", ""})).fields,
              (Fields{{"Vendor", "Maker"}}));
}

TEST(OggComments, VendorLongerThanTheHeaderIsAFault) {
    const std::string packet = "\x03vorbis" + ogg::number(5, 4) + "Make";
    EXPECT_EQ(parse(packet).fault, "Vendor Length too large: 5 bytes");
    EXPECT_TRUE(parse(packet).fields.empty());
    EXPECT_EQ(parse("\x03vorbis" + ogg::number(0xFFFFFFFF, 4)).fault,
              "Vendor Length too large: 4294967295 bytes");
}

TEST(OggComments, VendorThatJustFitsIsTaken) {
    EXPECT_EQ(parse("\x03vorbis" + ogg::number(5, 4) + "Maker").fields,
              (Fields{{"Vendor", "Maker"}}));
}

TEST(OggComments, OpusVendorOneByteTooLongIsCutAtTheEnd) {
    EXPECT_EQ(parse("OpusTags" + ogg::number(5, 4) + "Make", CodecType::OPUS).fields,
              (Fields{{"Vendor", "Make"}}));
}

TEST(OggComments, HeaderWithoutRoomForAVendorIsAFault) {
    EXPECT_EQ(parse("").fault, "Vendor Length too large: 0 bytes");
    EXPECT_EQ(parse("\x03vorbis").fault, "Vendor Length too large: 0 bytes");
}

TEST(OggComments, CommentPastTheEndIsAFaultAndThoseBeforeItStay) {
    std::string packet = ogg::vorbis_comments({"ARTIST=Band", "TITLE=Song"});
    packet.pop_back();
    const OggComments comments = parse(packet);
    EXPECT_EQ(comments.fields, (Fields{{"Vendor", "Maker"}, {"ARTIST", "Band"}}));
    EXPECT_EQ(comments.fault, "Comment 2 of 2 Invalid String length passed for comment at 39, need "
                              "10 bytes.  BufSz: 48");
}

TEST(OggComments, CountAboveWhatIsThereIsAFault) {
    const OggComments comments =
        parse("\x03vorbis" + ogg::number(0, 4) + ogg::number(0xFFFFFFFF, 4));
    EXPECT_EQ(comments.fields, (Fields{{"Vendor", ""}}));
    EXPECT_EQ(comments.fault, "Comment 1 of 4294967295 Invalid String length passed for comment at "
                              "15, need 4 bytes.  BufSz: 15");
}

TEST(OggComments, EveryCutOfAHeaderIsSurvived) {
    const std::string packet = ogg::opus_comments({"ARTIST=Band", "TITLE=Song"});
    for (std::size_t length = 0; length < packet.size(); ++length)
        EXPECT_FALSE(parse(packet.substr(0, length), CodecType::OPUS).fields.contains("TITLE"));
}
