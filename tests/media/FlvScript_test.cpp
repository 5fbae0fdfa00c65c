#include "media/FlvScript.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(FlvScript, DoubleIsEightBytesMostSignificantFirst) {
    EXPECT_EQ(flv::script_data_value(44100.0), "\0\x40\xe5\x88\x80\0\0\0\0"s);
    EXPECT_EQ(flv::script_data_value(-1.0), "\0\xbf\xf0\0\0\0\0\0\0"s);
}

TEST(FlvScript, BoolIsOneByte) {
    EXPECT_EQ(flv::script_data_value(true), "\x01\x01"s);
    EXPECT_EQ(flv::script_data_value(false), "\x01\0"s);
}

TEST(FlvScript, NoneIsItsTypeAlone) { EXPECT_EQ(flv::script_data_value(flv::None{}), "\x05"); }

TEST(FlvScript, ShortIsTwoBytes) {
    EXPECT_EQ(flv::script_data_value(short{0x1234}), "\x07\x12\x34");
    EXPECT_EQ(flv::script_data_value(short{-2}), "\x07\xff\xfe");
}

TEST(FlvScript, LongGivesNothing) { EXPECT_EQ(flv::script_data_value(5L), ""); }

TEST(FlvScript, TextHasALengthOfTwoBytes) {
    EXPECT_EQ(flv::script_data_value("title"s), "\x02\0\x05title"s);
    EXPECT_EQ(flv::script_data_value("title"), "\x02\0\x05title"s);
    EXPECT_EQ(flv::script_data_value(""s), "\x02\0\0"s);
}

TEST(FlvScript, TextWithTheFlagIsAMovieClip) {
    EXPECT_EQ(flv::script_data_value("title"s, true), "\x04\0\x05title"s);
}

TEST(FlvScript, BareStringIsLengthAndText) {
    EXPECT_EQ(flv::script_meta_tag("onMetaData"), "\0\x0aonMetaData"s);
}

TEST(FlvScript, LengthFrom128OnPassesThroughASignedByte) {
    const auto length_of = [](std::size_t size) {
        return flv::script_meta_tag(std::string(size, 'x')).substr(0, 2);
    };
    EXPECT_EQ(length_of(127), "\0\x7f"s);
    EXPECT_EQ(length_of(128), "\xff\x80");
    EXPECT_EQ(length_of(255), "\xff\xff");
    EXPECT_EQ(length_of(256), "\0\0"s);
    EXPECT_EQ(length_of(300), "\0\x2c"s);
    EXPECT_EQ(length_of(0x1F0), "\xff\xf0");
}

TEST(FlvScript, TextAbove65535BytesIsALongString) {
    EXPECT_EQ(flv::script_data_value(std::string(65535, 'x')).substr(0, 4), "\x02\xff\xffx");
    const std::string text = flv::script_data_value(std::string(65536 + 0x85, 'x'));
    EXPECT_EQ(text.substr(0, 6), "\x0c\xff\xff\xff\x85x");
    EXPECT_EQ(text.size(), 5U + 65536 + 0x85);
    EXPECT_EQ(flv::script_data_value(std::string(65536, 'x')).substr(0, 6), "\x0c\0\0\0\0x"s);
}

TEST(FlvScript, MapHasCountEntriesInKeyOrderAndEndMark) {
    EXPECT_EQ(flv::script_data_value(flv::ScriptMap{{"b", true}, {"a", "x"s}}), "\x08\0\0\0\x02"s
                                                                                "\0\x01"s
                                                                                "a\x02\0\x01x"s
                                                                                "\0\x01"s
                                                                                "b\x01\x01"s
                                                                                "\0\0\x09"s);
}

TEST(FlvScript, EmptyMapIsCountAndEndMark) {
    EXPECT_EQ(flv::script_data_value(flv::ScriptMap{}), "\x08\0\0\0\0\0\0\x09"s);
}

TEST(FlvScript, MapWithTheFlagHasNoEndMark) {
    EXPECT_EQ(flv::script_data_value(flv::ScriptMap{{"a", flv::None{}}}, true),
              "\x0a\0\0\0\x01\0\x01"s
              "a\x05"s);
}

TEST(FlvScript, CountOfAMapPassesThroughASignedByte) {
    flv::ScriptMap map;
    for (int i = 0; i < 130; ++i)
        map[std::to_string(i)] = 0.0;
    EXPECT_EQ(flv::script_data_value(map).substr(0, 5), "\x08\xff\xff\xff\x82");
}

TEST(FlvScript, EveryTypeMayStandInAMap) {
    const flv::ScriptMap map{{"a", 1.0}, {"b", short{1}}, {"c", 1L}, {"d", flv::None{}}};
    EXPECT_EQ(flv::script_data_value(map), "\x08\0\0\0\x04"s
                                           "\0\x01"s
                                           "a\0\x3f\xf0\0\0\0\0\0\0"s
                                           "\0\x01"s
                                           "b\x07\0\x01"s
                                           "\0\x01"s
                                           "c"s
                                           "\0\x01"s
                                           "d\x05"s
                                           "\0\0\x09"s);
}
