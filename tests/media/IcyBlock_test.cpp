#include "media/IcyBlock.h"

#include "core/OSTools.h"
#include "media/Metadata.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {
// "<size>; <comment>" CR LF, for a chunk of 1 to 15 bytes.
std::size_t line_length(const std::string& comment) { return 1 + 2 + comment.size() + 2; }

// A whole block.
std::string block_of(const std::string& words) {
    return icy_block::length_byte(words) + icy_block::rest(words);
}
} // namespace

TEST(IcyBlock, WordsHoldTheValuesAsTheyAre) {
    EXPECT_EQ(icy_block::words("A 'b'", "http://x/"), "StreamTitle='A 'b'';StreamUrl='http://x/';");
}

TEST(IcyBlock, BlockIsLengthWordsAndPadding) {
    EXPECT_EQ(block_of("abc"), "\x01"s + "abc" + std::string(13, '\0'));
}

TEST(IcyBlock, AtLeastOneNulFollowsTheWords) {
    EXPECT_EQ(block_of(std::string(15, 'a')), "\x01"s + std::string(15, 'a') + "\0"s);
    EXPECT_EQ(block_of(std::string(16, 'a')),
              "\x02"s + std::string(16, 'a') + std::string(16, '\0'));
    EXPECT_EQ(block_of(""), "\x01"s + std::string(16, '\0'));
}

TEST(IcyBlock, LongestBlockThatItsLengthByteCanTell) {
    const std::string block = block_of(std::string(4079, 'a'));
    EXPECT_EQ(block.size(), 1U + 4080);
    EXPECT_EQ(block[0], '\xFF');
}

TEST(IcyBlock, LengthByteWrapsFrom4080BytesOnAndTheWholeBlockIsSent) {
    const std::string block = block_of(std::string(4080, 'a'));
    EXPECT_EQ(block.size(), 1U + 4096);
    EXPECT_EQ(block[0], '\0');
    EXPECT_EQ(block.substr(1, 4080), std::string(4080, 'a'));
}

TEST(IcyBlock, BlockSizeIsCutTo20Bits) {
    const std::string block = block_of(std::string(0x100000 + 20, 'a'));
    EXPECT_EQ(block, "\x02"s + std::string(32, 'a'));
}

TEST(ChunkComment, ValuesAreEncodedAsInAUrl) {
    METADATA metadata;
    metadata.title = "A & B";
    metadata.url = "http://x/";
    EXPECT_EQ(chunk_comment::encode(metadata, 10),
              "StreamTitle='A+%26+B';StreamUrl='http%3A%2F%2Fx%2F';");
}

TEST(ChunkComment, EachFurtherKeyHasAStrayQuoteInFront) {
    METADATA metadata;
    metadata.title = "t";
    metadata.extended = {{"B", "2 3"}, {"A", "1"}};
    EXPECT_EQ(chunk_comment::encode(metadata, 10),
              "StreamTitle='t';StreamUrl='';';A='1';';B='2+3';");
}

TEST(ChunkComment, LineBreaksCannotEndTheLine) {
    METADATA metadata;
    metadata.title = "a\r\nb";
    metadata.extended = {{"K\r\n", "v\n"}};
    const std::string comment = chunk_comment::encode(metadata, 10);
    EXPECT_EQ(comment.find('\n'), std::string::npos);
    EXPECT_EQ(comment.find('\r'), std::string::npos);
}

TEST(ChunkComment, FurtherEntriesThatMakeTheLineTooLongAreLeftOut) {
    METADATA metadata;
    metadata.title = "t";
    const std::size_t rest = line_length("StreamTitle='t';StreamUrl='';';K='';");
    metadata.extended = {{"K", std::string(chunk_comment::LONGEST_LINE - rest, 'v')}};
    EXPECT_EQ(line_length(chunk_comment::encode(metadata, 10)), chunk_comment::LONGEST_LINE);
    metadata.extended["K"] += 'v';
    EXPECT_EQ(chunk_comment::encode(metadata, 10), "StreamTitle='t';StreamUrl='';");
}

TEST(ChunkComment, DigitsOfTheSizeCount) {
    METADATA metadata;
    metadata.title = std::string(2000, 't');
    EXPECT_EQ(chunk_comment::encode(metadata, 15).size() - 1,
              chunk_comment::encode(metadata, 16).size());
    EXPECT_EQ(line_length(chunk_comment::encode(metadata, 15)), chunk_comment::LONGEST_LINE);
}

TEST(ChunkComment, LongTitleIsCutBetweenCharacters) {
    METADATA metadata;
    for (int i = 0; i < 330; ++i)
        metadata.title += "\xC3\xA9";
    metadata.url = "u";
    metadata.extended = {{"K", "v"}};
    const std::string comment = chunk_comment::encode(metadata, 10);
    EXPECT_LE(line_length(comment), chunk_comment::LONGEST_LINE);
    EXPECT_GT(line_length(comment), chunk_comment::LONGEST_LINE - 6);
    EXPECT_TRUE(comment.ends_with("%C3%A9';StreamUrl='u';")) << comment;
}

TEST(ChunkComment, AddressThatLeavesNoRoomIsLeftOutAndTheTitleStays) {
    METADATA metadata;
    metadata.title = "Song";
    metadata.url = std::string(1000, 'u');
    EXPECT_EQ(chunk_comment::encode(metadata, 10), "StreamTitle='Song';StreamUrl='';");
}
