#include "media/Metadata.h"

#include <gtest/gtest.h>

TEST(Metadata, EachOfTheSixTextsMakesADifference) {
    const METADATA empty;
    for (std::string METADATA::*text : {&METADATA::title, &METADATA::song, &METADATA::artist,
                                        &METADATA::url, &METADATA::extra_text, &METADATA::codec}) {
        METADATA other;
        other.*text = "x";
        EXPECT_FALSE(same_metadata(empty, other));
        EXPECT_FALSE(same_metadata(other, empty));
    }
}

TEST(Metadata, OnlyTheSizesOfMapAndBytesAreCompared) {
    METADATA a;
    a.extended["Genre"] = "Jazz";
    a.raw = {'1', '2'};
    METADATA b;
    b.extended["Album"] = "Blue";
    b.raw = {'3', '4'};
    EXPECT_TRUE(same_metadata(a, b));

    b.extended["Genre"] = "Jazz";
    EXPECT_FALSE(same_metadata(a, b));
    b.extended.erase("Genre");
    b.raw.push_back('5');
    EXPECT_FALSE(same_metadata(a, b));
}

TEST(Metadata, TheCounterMakesNoDifference) {
    METADATA a;
    a.tune_ins = 3;
    EXPECT_TRUE(same_metadata(a, METADATA()));
}
