#include "media/OggBuffer.h"

#include "core/Clock.h"
#include "support/Framed.h"
#include "support/LogLines.h"
#include "support/OggPages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ogg::page;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {
constexpr ogg::PageOptions BEGIN = {.flags = ogg::FIRST};
constexpr ogg::PageOptions CONTINUED = {.flags = ogg::CONTINUED};
const std::string VORBIS_BEGIN = page(BEGIN, ogg::VORBIS_HEAD);

std::string comments(const std::vector<std::string>& fields) {
    return page({}, ogg::vorbis_comments(fields));
}

// A page of `segments` full segments and one of `last` bytes.
std::string large_page(std::size_t segments, unsigned last, const ogg::PageOptions& options = {}) {
    std::vector<unsigned> lacing(segments, 255);
    lacing.push_back(last);
    return page(options, lacing, std::string(segments * 255 + last, 'L'));
}

std::shared_ptr<METADATA> metadata_of(const std::string& stream) {
    Framed<OggBuffer> framed(stream);
    framed.FillToTheEnd();
    return framed.Entries().back()->GetMetaData();
}

std::vector<std::uint64_t> groups(const Framed<OggBuffer>& framed, std::uint64_t first) {
    std::vector<std::uint64_t> ids;
    for (const auto& entry : framed.Entries())
        ids.push_back(entry->header_id == 0 ? 0 : entry->header_id - first);
    return ids;
}
} // namespace

TEST(OggBuffer, EachPageIsOnePacket) {
    const std::string music = page({}, "music");
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{27}, std::size_t{28}, std::size_t{29}, ByteReader::WHOLE}) {
        Framed<OggBuffer> framed(VORBIS_BEGIN + comments({}) + music, piece);
        EXPECT_EQ(framed.FillToTheEnd(), 1);
        EXPECT_THAT(framed.Packets(), ElementsAre(VORBIS_BEGIN, comments({}), music)) << piece;
    }
}

TEST(OggBuffer, GarbageBeforeAPageIsDropped) {
    Framed<OggBuffer> framed("garbage OggOggS\1" + VORBIS_BEGIN + "more" + comments({}));
    framed.FillToTheEnd();
    EXPECT_THAT(framed.Packets(), ElementsAre(VORBIS_BEGIN, comments({})));
}

TEST(OggBuffer, LargestPossiblePageFits) {
    const std::string largest =
        page({}, std::vector<unsigned>(255, 255), std::string(255 * 255, 'L'));
    ASSERT_EQ(largest.size(), OggPage::LONGEST);
    Framed<OggBuffer> framed(largest + page({}, "x"));
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_EQ(framed.Packets().back(), page({}, "x"));
    EXPECT_EQ(framed.Packets().front().size(), largest.size());
}

TEST(OggBuffer, PageWithoutSegmentsIsAPacket) {
    Framed<OggBuffer> framed(page({}, {}, "") + page({}, "x"));
    framed.FillToTheEnd();
    EXPECT_EQ(framed.Packets().size(), 2U);
}

TEST(OggBuffer, ReadBufferWithoutAPageIsAFailure) {
    Framed<OggBuffer> framed(std::string(OggPage::LONGEST, 'x'));
    EXPECT_EQ(framed.FillToTheEnd(), 2);
}

TEST(OggBuffer, FirstTwoPacketsOfAStreamAreItsHeaderGroup) {
    Clock::Hold(5000);
    Framed<OggBuffer> framed(VORBIS_BEGIN + comments({}) + page({}, "setup") + page({}, "music"));
    framed.FillToTheEnd();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 1, 0, 0));
}

TEST(OggBuffer, NewBeginningOfStreamBeginsANewGroup) {
    Clock::Hold(5000);
    const std::string chain = VORBIS_BEGIN + comments({}) + page({}, "music");
    Framed<OggBuffer> framed(chain + chain);
    framed.FillToTheEnd();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 1, 0, 2, 2, 0));
}

TEST(OggBuffer, SourceThatComesBackBeginsANewGroup) {
    Clock::Hold(5000);
    const std::string stream = VORBIS_BEGIN + comments({}) + page({}, "music");
    Framed<OggBuffer> framed(stream);
    framed.FillToTheEnd();
    framed.buffer->Resync();
    framed.source->Append(stream);
    framed.FillToTheEnd();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 1, 0, 2, 2, 0));
}

TEST(OggBuffer, SecondLogicalStreamBesideTheFirstOpensANewGroup) {
    Clock::Hold(5000);
    Framed<OggBuffer> framed(page(BEGIN, ogg::THEORA_HEAD) + VORBIS_BEGIN);
    framed.FillToTheEnd();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 2));
}

TEST(OggBuffer, StreamJoinedInItsMiddleTakesItsFirstPageForAHeader) {
    Clock::Hold(5000);
    Framed<OggBuffer> framed(page({.granule = 9}, "a") + page({}, "b") + page({}, "c"));
    framed.FillToTheEnd();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 1, 0));
}

TEST(OggBuffer, TitleAndArtistBecomeOneLine) {
    const auto record = metadata_of(VORBIS_BEGIN + comments({"ARTIST=Band", "TITLE=Song"}));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->title, "Band - Song");
    EXPECT_EQ(record->song, "Song");
    EXPECT_EQ(record->artist, "Band");
    EXPECT_EQ(record->codec, "Vorbis");
    EXPECT_EQ(record->extended, (std::map<std::string, std::string>{
                                    {"Vendor", "Maker"}, {"ARTIST", "Band"}, {"TITLE", "Song"}}));
}

TEST(OggBuffer, RawMetadataIsThePage) {
    const std::string bytes = comments({"TITLE=Song"});
    const auto record = metadata_of(VORBIS_BEGIN + bytes);
    EXPECT_EQ(std::string(record->raw.begin(), record->raw.end()), bytes);
}

TEST(OggBuffer, TitleAlone) {
    const auto record = metadata_of(VORBIS_BEGIN + comments({"TITLE=Song"}));
    EXPECT_EQ(record->title, "Song");
    EXPECT_EQ(record->song, "Song");
    EXPECT_EQ(record->artist, "");
}

TEST(OggBuffer, ArtistAloneIsTheTitle) {
    const auto record = metadata_of(VORBIS_BEGIN + comments({"ARTIST=Band"}));
    EXPECT_EQ(record->title, "Band");
    EXPECT_EQ(record->song, "");
}

TEST(OggBuffer, ArtistWithAnEmptyTitleHasNoDash) {
    const auto record = metadata_of(VORBIS_BEGIN + comments({"ARTIST=Band", "TITLE==x"}));
    EXPECT_EQ(record->title, "Band");
}

TEST(OggBuffer, TitleIsCutAtASecondEqualsSign) {
    EXPECT_EQ(metadata_of(VORBIS_BEGIN + comments({"TITLE=a=b"}))->title, "a");
}

TEST(OggBuffer, CommentsWithoutTitleStillAreARecordOfTheirOwn) {
    const std::string first = VORBIS_BEGIN + comments({"ALBUM=a"});
    const auto one = metadata_of(first);
    const auto other = metadata_of(first + VORBIS_BEGIN + comments({"ALBUM=bb"}));
    EXPECT_EQ(other->title, "");
    EXPECT_FALSE(same_metadata(*one, *other));
}

TEST(OggBuffer, OpusCommentsAreRead) {
    const auto record =
        metadata_of(page(BEGIN, ogg::OPUS_HEAD) + page({}, ogg::opus_comments({"TITLE=Song"})));
    EXPECT_EQ(record->title, "Song");
    EXPECT_EQ(record->codec, "Opus");
}

TEST(OggBuffer, TheoraStreamHasARecordWithoutComments) {
    LogLines lines;
    const auto record =
        metadata_of(page(BEGIN, ogg::THEORA_HEAD) + page({}, "\x81theora" + std::string(50, 'c')));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->codec, "Theora");
    EXPECT_TRUE(record->extended.empty());
    EXPECT_THAT(lines.All(), Contains("Ogg comment parser error: Invalid segment passed"));
}

TEST(OggBuffer, UnknownStreamGoesOnAllTheSame) {
    LogLines lines;
    Framed<OggBuffer> framed(page(BEGIN, "\x7f"
                                         "FLAC") +
                             page({}, "comments") + page({}, "music"));
    framed.FillToTheEnd();
    EXPECT_EQ(framed.Packets().size(), 3U);
    EXPECT_EQ(framed.Entries()[1]->GetMetaData()->codec, "");
    EXPECT_THAT(lines.All(), Contains("OGG Bitstream is Unknown or unsupported"));
}

TEST(OggBuffer, BeginningWithAGranulePositionIsNotExamined) {
    const std::string later = page({.flags = ogg::FIRST, .granule = 1}, ogg::OPUS_HEAD);
    EXPECT_EQ(metadata_of(VORBIS_BEGIN + later + comments({"TITLE=Song"}))->codec, "Vorbis");
}

TEST(OggBuffer, BeginningWithASequenceNumberIsNotExamined) {
    const std::string later = page({.flags = ogg::FIRST, .sequence = 1}, ogg::OPUS_HEAD);
    EXPECT_EQ(metadata_of(VORBIS_BEGIN + later + comments({"TITLE=Song"}))->codec, "Vorbis");
}

TEST(OggBuffer, CommentsOverTwoPagesComeWithTheSecond) {
    Clock::Hold(5000);
    const std::string packet =
        ogg::vorbis_comments({"TITLE=Song", "NOTE=" + std::string(300, 'n')});
    Framed<OggBuffer> framed(VORBIS_BEGIN + page({}, {255}, packet.substr(0, 255)) +
                             page(CONTINUED, packet.substr(255)) + page({}, "music"));
    framed.FillToTheEnd();
    const auto entries = framed.Entries();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 1, 1, 0));
    EXPECT_EQ(entries[1]->GetMetaData(), nullptr);
    ASSERT_TRUE(entries[2]->GetMetaData());
    EXPECT_EQ(entries[2]->GetMetaData()->title, "Song");
}

TEST(OggBuffer, PagesThatContinueTheThirdHeaderKeepTheTitle) {
    Clock::Hold(5000);
    LogLines lines;
    Framed<OggBuffer> framed(VORBIS_BEGIN + comments({"TITLE=Song"}) +
                             page(CONTINUED, std::string(300, 's')) + page({}, "music"));
    framed.FillToTheEnd();
    EXPECT_THAT(groups(framed, 5000), ElementsAre(1, 1, 1, 0));
    EXPECT_EQ(framed.Entries()[2]->GetMetaData(), nullptr);
    EXPECT_EQ(framed.buffer->GetMetaData()->title, "Song");
    EXPECT_THAT(lines.All(), Not(Contains(HasSubstr("Vendor"))));
}

TEST(OggBuffer, UnfinishedCommentsAreForgottenAtTheNextBeginning) {
    Framed<OggBuffer> framed(VORBIS_BEGIN + page({}, {255}, std::string(255, 'x')) + VORBIS_BEGIN +
                             comments({"TITLE=Song"}));
    framed.FillToTheEnd();
    EXPECT_EQ(framed.buffer->GetMetaData()->title, "Song");
}

TEST(OggBuffer, DamagedCommentsAreLoggedAndReadAsFarAsTheyGo) {
    LogLines lines;
    std::string packet = ogg::vorbis_comments({"ARTIST=Band", "TITLE=Song"});
    packet.pop_back();
    EXPECT_EQ(metadata_of(VORBIS_BEGIN + page({}, packet))->title, "Band");
    EXPECT_THAT(lines.All(), Contains("Comment 2 of 2 Invalid String length passed for comment "
                                      "at 39, need 10 bytes.  BufSz: 48"));
}

TEST(OggBuffer, CommentsWithoutEndAreGivenUpAndNoLongerRetained) {
    Clock::Hold(5000);
    LogLines lines;
    Framed<OggBuffer> framed(VORBIS_BEGIN);
    framed.source->Append(large_page(253, 0));
    for (int i = 0; i < 60; ++i)
        framed.source->Append(large_page(253, 0, CONTINUED));
    framed.source->Append(page(CONTINUED, "end"));
    framed.FillToTheEnd();
    EXPECT_LT(framed.buffer->GetBufferSize(), 2 * OggBuffer::MOST_HEADER_BYTES);
    EXPECT_EQ(framed.buffer->GetMetaData(), nullptr);
    EXPECT_LT(framed.buffer->GetPacketBufferSize(), 2 * OggBuffer::MOST_HEADER_BYTES);
    EXPECT_TRUE(lines.Wait("Warning: Unable to parse OGG comments."));
}

TEST(OggBuffer, TheoraRetainsMore) {
    Framed<OggBuffer> framed(page(BEGIN, ogg::THEORA_HEAD));
    EXPECT_EQ(framed.buffer->GetPacketBufferSize(), 65536U);
    framed.FillToTheEnd();
    EXPECT_EQ(framed.buffer->GetPacketBufferSize(), 1048576U);
}

TEST(OggBuffer, TheoraPagesThatWereReadAlreadyAreNotLost) {
    std::string stream = page(BEGIN, ogg::THEORA_HEAD);
    const std::string video = large_page(120, 1);
    for (int i = 0; i < 10; ++i)
        stream += video;
    Framed<OggBuffer> framed(stream);
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_EQ(framed.Packets().size(), 11U);
}

TEST(OggBuffer, TheoraPageAboveTheSmallerReadBufferEndsTheStream) {
    LogLines lines;
    Framed<OggBuffer> framed(page(BEGIN, ogg::THEORA_HEAD));
    framed.FillToTheEnd();
    framed.source->Append(large_page(200, 1));
    EXPECT_EQ(framed.FillToTheEnd(), 2);
    EXPECT_THAT(lines.All(),
                Contains("<> Ogg Packet exceeded end of buffer, compensation failed.  You "
                         "should restart this stream."));
}

TEST(OggBuffer, LargePageDoublesTheReadBufferWhenLittleIsRetained) {
    LogLines lines;
    Framed<OggBuffer> framed(page(BEGIN, ogg::THEORA_HEAD));
    framed.FillToTheEnd();
    framed.buffer->SetPacketBufferSize(0xfffff);
    const std::string large = large_page(200, 1);
    framed.source->Append(large);
    EXPECT_EQ(framed.FillToTheEnd(), 1);
    EXPECT_EQ(framed.Packets().back(), large);
    EXPECT_THAT(lines.All(), Contains("<> Ogg Packet exceeded end of buffer, will attempt to "
                                      "compensate."));
}

TEST(OggBuffer, PageWhoseLastSegmentAloneDoesNotFitIsNotCompensated) {
    LogLines lines;
    Framed<OggBuffer> framed(page(BEGIN, ogg::THEORA_HEAD));
    framed.FillToTheEnd();
    framed.buffer->SetPacketBufferSize(0xfffff);
    // 27 + 129 bytes of header and 127 full segments: 32541, then 254.
    framed.source->Append(large_page(127, 254) + page({}, "x"));
    EXPECT_EQ(framed.FillToTheEnd(), 2);
    EXPECT_THAT(lines.All(), Not(Contains(HasSubstr("Ogg Packet"))));
}
