#include "media/FlvTag.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(FlvTag, FileHeaderNamesWhatTheFileHolds) {
    EXPECT_EQ(flv::file_header(false, true), "FLV\x01\x04\0\0\0\x09\0\0\0\0"s);
    EXPECT_EQ(flv::file_header(true, true), "FLV\x01\x05\0\0\0\x09\0\0\0\0"s);
    EXPECT_EQ(flv::file_header(true, false), "FLV\x01\x05\0\0\0\x09\0\0\0\0"s);
    EXPECT_EQ(flv::file_header(false, false), "FLV\x01\x01\0\0\0\x09\0\0\0\0"s);
}

TEST(FlvTag, TagHasTypeSizeTimestampStreamDataAndItsOwnSize) {
    EXPECT_EQ(flv::create_tag(flv::FLVTagType::AUDIO, 0x010203, "a", "bc"),
              "\x08\0\0\x03\x01\x02\x03\0\0\0\0"s
              "abc"s
              "\0\0\0\x0e"s);
    EXPECT_EQ(flv::create_tag(flv::FLVTagType::SCRIPT_DATA, 0, "", ""),
              "\x12\0\0\0\0\0\0\0\0\0\0\0\0\0\x0b"s);
}

TEST(FlvTag, TimestampAbove24BitsPutsItsTopByteBehindTheOthers) {
    const std::string tag = flv::create_tag(flv::FLVTagType::AUDIO, 0xA1B2C3D4, "", "");
    EXPECT_EQ(tag.substr(4, 4), "\xB2\xC3\xD4\xA1");
}

TEST(FlvTag, DataSizeTakesThreeBytes) {
    const std::string tag =
        flv::create_tag(flv::FLVTagType::AUDIO, 0, "", std::string(0x012345, 'x'));
    EXPECT_EQ(tag.substr(1, 3), "\x01\x23\x45");
    EXPECT_EQ(tag.substr(tag.size() - 4), "\0\x01\x23\x50"s);
}

TEST(FlvTag, PreviousTagSizeIsTheLengthBeforeIt) {
    std::string bytes(300, 'x');
    flv::insert_prev_tag_size(bytes, false);
    EXPECT_EQ(bytes.substr(300), "\0\0\x01\x2c"s);
    flv::insert_prev_tag_size(bytes, true);
    EXPECT_EQ(bytes.substr(304), "\0\0\0\0"s);
}
