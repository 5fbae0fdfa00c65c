#include "http/AcceptList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::Pair;

TEST(AcceptList, TypesHaveTheirWeights) {
    EXPECT_THAT(
        parse_accept("audio/mpeg;q=0.5,audio/ogg,text/html;level=1"),
        ElementsAre(Pair("audio/mpeg", 0.5), Pair("audio/ogg", 1.0), Pair("text/html", 1.0)));
}

TEST(AcceptList, OnlyZeroAndOneBeginAWeight) {
    const AcceptList list = parse_accept("a;q=0,b;q=1,c;q=0.25,d;q=2,e;q=01,f;q=.5,g;q=,h;q=1.000");
    EXPECT_EQ(list.at("a"), 0.0);
    EXPECT_EQ(list.at("b"), 1.0);
    EXPECT_EQ(list.at("c"), 0.25);
    EXPECT_EQ(list.at("d"), 1.0);
    EXPECT_EQ(list.at("e"), 1.0);
    EXPECT_EQ(list.at("f"), 1.0);
    EXPECT_EQ(list.at("g"), 1.0);
    EXPECT_EQ(list.at("h"), 1.0);
}

TEST(AcceptList, ItemThatEndsWithItsSemicolonIsLeftOut) {
    EXPECT_THAT(parse_accept("a;,b"), ElementsAre(Pair("b", 1.0)));
}

TEST(AcceptList, BlanksStayInTheTypes) {
    const AcceptList list = parse_accept("text/html, */*");
    EXPECT_THAT(list, ElementsAre(Pair(" */*", 1.0), Pair("text/html", 1.0)));
    EXPECT_FALSE(accepts(list, "audio/mpeg"));
}

TEST(AcceptList, EmptyListAcceptsEverything) { EXPECT_TRUE(accepts({}, "video/x-flv")); }

TEST(AcceptList, TypeItselfDecidesBeforeTheWildcard) {
    EXPECT_TRUE(accepts(parse_accept("audio/mpeg"), "audio/mpeg"));
    EXPECT_FALSE(accepts(parse_accept("audio/mpeg;q=0,*/*"), "audio/mpeg"));
    EXPECT_TRUE(accepts(parse_accept("audio/mpeg;q=0,*/*"), "audio/ogg"));
    EXPECT_FALSE(accepts(parse_accept("audio/mpeg,*/*;q=0"), "audio/ogg"));
}

TEST(AcceptList, RangeOfTheMainTypeIsTheLastResort) {
    EXPECT_TRUE(accepts(parse_accept("audio/*"), "audio/mpeg"));
    EXPECT_TRUE(accepts(parse_accept("audio/mpeg;q=0,audio/*;q=0.1"), "audio/mpeg"));
    EXPECT_FALSE(accepts(parse_accept("audio/*;q=0"), "audio/mpeg"));
    EXPECT_FALSE(accepts(parse_accept("video/*"), "audio/mpeg"));
}
