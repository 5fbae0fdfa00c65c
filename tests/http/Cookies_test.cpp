#include "http/Cookies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(Cookies, PairsAreTrimmed) {
    EXPECT_THAT(parse_cookies("a=1; b = 2 ;c=3"),
                ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "3")));
}

TEST(Cookies, ValueWithAnEqualsSignIsDropped) {
    EXPECT_THAT(parse_cookies("a=b=c; d=e"), ElementsAre(Pair("d", "e")));
}

TEST(Cookies, EmptyPartsDoNotCount) {
    EXPECT_THAT(parse_cookies("=a==b="), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(parse_cookies("a=;=b;c;;"), IsEmpty());
}
