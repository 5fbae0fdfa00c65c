#include "media/IcyMetadata.h"

#include <gtest/gtest.h>

using icy_metadata::block_words;
using icy_metadata::parse_block;
using icy_metadata::parse_chunk_extension;

namespace {

std::vector<char> block(std::string words, std::size_t length) {
    words.resize(length, '\0');
    return {words.begin(), words.end()};
}

std::string text_of(const std::vector<char>& bytes) { return {bytes.begin(), bytes.end()}; }

} // namespace

TEST(IcyMetadata, WordsOfABlockEndAtTheFirstNul) {
    EXPECT_EQ(block_words(block("StreamTitle='x';", 32)), "StreamTitle='x';");
    EXPECT_EQ(block_words(block(std::string("Str\0eam", 7), 16)), "Str");
}

TEST(IcyMetadata, ABlockMayBeginWithASmallS) {
    EXPECT_EQ(block_words(block("streamtitle='x';", 32)), "streamtitle='x';");
}

TEST(IcyMetadata, WhatDoesNotBeginWithAnSIsNoBlock) {
    EXPECT_EQ(block_words(block("Title='x';", 16)), std::nullopt);
    EXPECT_EQ(block_words({}), std::nullopt);
}

TEST(IcyMetadata, ABlockWithoutANulIsNone) {
    EXPECT_EQ(block_words(block("StreamTitle='x';", 16)), std::nullopt);
}

TEST(IcyMetadata, TitleAndUrlAreKnownInAnyCase) {
    const auto record = parse_block("STREAMtitle='Song';streamurl='http://x.org';");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->title, "Song");
    EXPECT_EQ(record->url, "http://x.org");
    EXPECT_TRUE(record->extended.empty());
}

TEST(IcyMetadata, OtherKeysAreCarriedInTheCaseTheyCameIn) {
    const auto record = parse_block("StreamTitle='Song';Album%20Name='a+b%21';");
    ASSERT_TRUE(record);
    const std::map<std::string, std::string> expected{{"Album Name", "a b!"}};
    EXPECT_EQ(record->extended, expected);
}

TEST(IcyMetadata, TheRecordKeepsTheWordsAsReceived) {
    const std::string words = "StreamTitle='Song';StreamUrl='';";
    EXPECT_EQ(text_of(parse_block(words)->raw), words);
}

TEST(IcyMetadata, TheOpeningQuoteMayBeAnything) {
    EXPECT_EQ(parse_block("StreamTitle=\"Song';")->title, "Song");
}

TEST(IcyMetadata, AValueMayHoldQuotesAndEqualsSigns) {
    EXPECT_EQ(parse_block("StreamTitle='Don't = do';")->title, "Don't = do");
}

TEST(IcyMetadata, AValueEndsAtTheFirstQuoteWithSemicolonAndTheRestIsTheNextPair) {
    const auto record = parse_block("StreamTitle='a';b';StreamUrl='c';");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->title, "a");
    EXPECT_TRUE(record->url.empty());
    const std::map<std::string, std::string> expected{{"b';StreamUrl", "c"}};
    EXPECT_EQ(record->extended, expected);
}

TEST(IcyMetadata, AnUnfinishedPairEndsTheRecord) {
    const auto record = parse_block("StreamTitle='a';StreamUrl='b");
    EXPECT_EQ(record->title, "a");
    EXPECT_TRUE(record->url.empty());
    EXPECT_TRUE(parse_block("StreamTitle=';")->title.empty());
    EXPECT_TRUE(parse_block("StreamTitle;")->title.empty());
}

TEST(IcyMetadata, OldFormWithoutSemicolonNeedsItsWord) {
    EXPECT_EQ(parse_block("StreamTitle=''"), nullptr);
    EXPECT_EQ(parse_block("Stream"), nullptr);
}

// The title begins at byte 9 of 35, and 35 - 14 + 1 = 22 bytes belong to it.
TEST(IcyMetadata, OldFormCutsTheTitleByItsOwnReckoning) {
    const auto record = parse_block("S'Title='abcdefghijklmnopqrstuvwxyz");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->title, "abcdefghijklmnopqrstuv");
    EXPECT_TRUE(record->raw.empty());
}

TEST(IcyMetadata, OldFormTakesWhatThereIsOfAShortTitle) {
    EXPECT_EQ(parse_block("Stream'Title='0123456789")->title, "0123456789");
    EXPECT_EQ(parse_block("S'title='")->title, "");
}

// The second word stands at byte 18 of 27, and 27 - 14 - 18 wraps around.
TEST(IcyMetadata, OldFormWithASecondWordTakesAllThatFollows) {
    EXPECT_EQ(parse_block("S'title='abcdefgh title=\"y\"")->title, "abcdefgh title=\"y\"");
}

TEST(IcyMetadata, OldFormBeginsAtItsFirstWord) {
    EXPECT_EQ(parse_block("S title='abc'title='def")->title, "abc'title=");
}

TEST(IcyMetadata, AChunkExtensionNeedsAPair) {
    EXPECT_EQ(parse_chunk_extension(""), nullptr);
    EXPECT_EQ(parse_chunk_extension("name=value"), nullptr);
    EXPECT_EQ(parse_chunk_extension("name;"), nullptr);
    EXPECT_EQ(parse_chunk_extension("StreamTitle='a%3Db';")->title, "a=b");
}

TEST(IcyMetadata, FurtherKeysOfAChunkExtensionArriveWithTheSeparatorBeforeThem) {
    const auto record = parse_chunk_extension("StreamTitle='a';StreamUrl='b';';Genre='c+d';");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->url, "b");
    const std::map<std::string, std::string> expected{{"';Genre", "c d"}};
    EXPECT_EQ(record->extended, expected);
}
