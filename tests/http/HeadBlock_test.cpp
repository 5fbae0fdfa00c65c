#include "http/HeadBlock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(HeadBlock, EndIsFoundWhereverTheHeadIsSplit) {
    for (const std::string head : {"GET / HTTP/1.0\r\nA: b\r\n\r\n", "GET / HTTP/1.0\nA: b\n\n"})
        for (std::size_t at = 0; at < head.size(); ++at)
            EXPECT_EQ(head_end(head.substr(0, at), head.substr(at) + "stream\n\n\r\n\r\n"),
                      head.size() - at)
                << at;
}

TEST(HeadBlock, HeadWithoutAnEndGoesOn) {
    EXPECT_EQ(head_end("", "GET / HTTP/1.0\r\nA: b\r\n\r"), HEAD_GOES_ON);
    EXPECT_EQ(head_end("a\r\n", "b\r\n"), HEAD_GOES_ON);
    EXPECT_EQ(head_end("a\n\r\n", "b"), HEAD_GOES_ON);
    EXPECT_EQ(head_end("", ""), HEAD_GOES_ON);
}

TEST(HeadBlock, EarlierOfTheTwoEndsCounts) {
    EXPECT_EQ(head_end("", "a\n\nb\r\n\r\n"), 3U);
    EXPECT_EQ(head_end("", "a\r\n\r\nb\n\n"), 5U);
}

TEST(HeadBlock, FieldsAreCutAtTheFirstColonAndTrimmed) {
    EXPECT_THAT(parse_fields("Host : a:80 \t\r\nEmpty:\r\n\r\n"),
                ElementsAre(Pair("Empty", ""), Pair("Host", "a:80")));
}

TEST(HeadBlock, RepeatedFieldsAreRunTogether) {
    EXPECT_THAT(parse_fields("Content-Length: 5\r\ncontent-length: 5\r\n\r\n"),
                ElementsAre(Pair("Content-Length", "55")));
}

TEST(HeadBlock, LinesThatBeginWithABlankContinueTheValue) {
    EXPECT_THAT(parse_fields("A: b\r\n  c \r\n\td\r\nE: f\r\n\r\n"),
                ElementsAre(Pair("A", "b c d"), Pair("E", "f")));
}

TEST(HeadBlock, ContinuationWithoutAFieldBeforeIsAField) {
    EXPECT_THAT(parse_fields(" A: b\r\n\r\n"), ElementsAre(Pair(" A", "b")));
}

TEST(HeadBlock, LinesWithoutAColonAreIgnored) {
    EXPECT_THAT(parse_fields("nothing\r\nA: b\r\nnothing\r\n c\r\n\r\n"),
                ElementsAre(Pair("A", "b c")));
}

TEST(HeadBlock, FieldsEndAtTheEmptyLine) {
    EXPECT_THAT(parse_fields("A: b\r\n\r\nC: d\r\n"), ElementsAre(Pair("A", "b")));
    EXPECT_THAT(parse_fields("A: b\n\nC: d\n"), ElementsAre(Pair("A", "b")));
    EXPECT_THAT(parse_fields("\r\nC: d\r\n"), IsEmpty());
}

TEST(HeadBlock, TakeLineCutsAtTheLineFeed) {
    std::string_view text = "one\r\ntwo";
    EXPECT_EQ(take_line(text), "one\r");
    EXPECT_EQ(take_line(text), "two");
    EXPECT_EQ(take_line(text), "");
}
