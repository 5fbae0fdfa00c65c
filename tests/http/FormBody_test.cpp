#include "http/FormBody.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(FormBody, PiecesWithoutEqualsAreDropped) {
    EXPECT_THAT(parse_form("a=1&b=2&c"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(FormBody, NameWithoutAValueIsStoredEmpty) {
    EXPECT_THAT(parse_form("a="), ElementsAre(Pair("a", "")));
}

TEST(FormBody, SecondEqualsSignDropsThePiece) {
    EXPECT_THAT(parse_form("a=b=c"), IsEmpty());
    EXPECT_THAT(parse_form("a===&b=1"), ElementsAre(Pair("b", "1")));
}

TEST(FormBody, LastEmptyPartDoesNotCount) {
    EXPECT_THAT(parse_form("a=b=&c=="), ElementsAre(Pair("a", "b"), Pair("c", "")));
}

TEST(FormBody, NamesAndValuesAreDecoded) {
    EXPECT_THAT(parse_form("a+b=%3Cx%3E&%61=1+2"),
                ElementsAre(Pair("a", "1 2"), Pair("a b", "<x>")));
}

TEST(FormBody, LastValueOfARepeatedNameCounts) {
    EXPECT_THAT(parse_form("a=1&a=2"), ElementsAre(Pair("a", "2")));
}

TEST(FormBody, FewerThanTwoBytesAreSkipped) {
    EXPECT_THAT(parse_form("="), IsEmpty());
    EXPECT_THAT(parse_form(""), IsEmpty());
    EXPECT_THAT(parse_form("=v"), ElementsAre(Pair("", "v")));
}

TEST(FormBody, PiecesBeyondTheMostAreDropped) {
    std::string body;
    for (std::size_t i = 0; i <= MOST_FORM_PIECES; ++i)
        body += std::to_string(i) + "=&";
    const auto fields = parse_form(body);
    EXPECT_EQ(fields.size(), MOST_FORM_PIECES);
    EXPECT_FALSE(fields.contains(std::to_string(MOST_FORM_PIECES)));
}
