#include "media/ChunkHeader.h"

#include <gtest/gtest.h>

TEST(ChunkHeader, LineEndsAtItsCrLf) {
    const auto line = find_chunk_line("1a;x\r\nrest");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->text_start, 0U);
    EXPECT_EQ(line->text_end, 4U);
    EXPECT_EQ(line->end, 6U);
}

TEST(ChunkHeader, CrLfOfTheChunkBeforeIsSkipped) {
    const auto line = find_chunk_line("\r\n1a\r\n");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->text_start, 2U);
    EXPECT_EQ(line->text_end, 4U);
    EXPECT_EQ(line->end, 6U);
}

TEST(ChunkHeader, IncompleteLineIsNone) {
    for (const char* bytes : {"", "\r", "\r\n", "1a", "1a\r", "\r\n1a\r", "1a\n"})
        EXPECT_FALSE(find_chunk_line(bytes)) << bytes;
}

TEST(ChunkHeader, SizeIsHexadecimal) {
    EXPECT_EQ(parse_chunk_header("1aF").size, 0x1afU);
    EXPECT_EQ(parse_chunk_header(" 10 ").size, 16U);
    EXPECT_EQ(parse_chunk_header("ffffffffffffffff").size, UINT64_MAX);
}

TEST(ChunkHeader, WhatIsNoSizeEndsTheBody) {
    for (const char* text : {"", "x", "-1", "0", "00000", "10000000000000000"})
        EXPECT_EQ(parse_chunk_header(text).size, 0U) << text;
}

TEST(ChunkHeader, ExtensionIsAllBehindTheFirstSemicolon) {
    const ChunkHeader header = parse_chunk_header("20 ; StreamTitle='a';StreamUrl='b'; ");
    EXPECT_EQ(header.size, 0x20U);
    EXPECT_EQ(header.extension, "StreamTitle='a';StreamUrl='b';");
}

TEST(ChunkHeader, ASemicolonWithNothingBehindIsNoExtension) {
    const ChunkHeader header = parse_chunk_header("20;");
    EXPECT_EQ(header.size, 0x20U);
    EXPECT_TRUE(header.extension.empty());
}
