#include "media/AdtsHeader.h"

#include <array>
#include <gtest/gtest.h>

namespace {
using Bytes = std::array<unsigned char, 7>;

AdtsHeader parse(const Bytes& bytes) { return parse_adts_header(bytes).value(); }

AdtsHeader with_length(unsigned length) {
    return parse({0xFF, 0xF1, 0x50, static_cast<unsigned char>(0x80 | length >> 11),
                  static_cast<unsigned char>(length >> 3 & 0xFF),
                  static_cast<unsigned char>(length << 5 & 0xE0), 0});
}

bool is_start(unsigned char b0, unsigned char b1) {
    const std::array<unsigned char, 2> bytes{b0, b1};
    return is_adts_frame_start(bytes);
}
} // namespace

TEST(AdtsHeader, SamplingRatesWithTheTablesOwnLastThree) {
    constexpr int RATES[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                             16000, 12000, 11025, 8000,  7350,  18,    18,    0};
    for (unsigned index = 0; index < 16; ++index) {
        const AdtsHeader header = parse({0xFF, 0xF1, static_cast<unsigned char>(index << 2)});
        EXPECT_EQ(header.sampling_index, index);
        EXPECT_EQ(header.sampling_rate, RATES[index]);
    }
}

TEST(AdtsHeader, FieldsComeFromTheirBits) {
    const AdtsHeader header = parse({0xFF, 0xFF, 0x51, 0x7C, 0x10, 0x60, 0xFC});
    EXPECT_TRUE(header.id);
    EXPECT_EQ(header.layer, 3U);
    EXPECT_TRUE(header.protection_absent);
    EXPECT_EQ(header.HeaderSize(), 7U);
    EXPECT_EQ(header.profile, 1U);
    EXPECT_EQ(header.sampling_rate, 44100);
    EXPECT_EQ(header.samples_per_frame, 1024);
    EXPECT_EQ(header.channels, 5U);
    EXPECT_TRUE(header.original);
    EXPECT_TRUE(header.home);
    EXPECT_TRUE(header.copyright_id_bit);
    EXPECT_TRUE(header.copyright_start);
    EXPECT_EQ(header.frame_length, 0x10 * 8 + 3);
}

TEST(AdtsHeader, FieldsAreUnsetWhenTheirBitsAre) {
    const AdtsHeader header = parse({0xFF, 0xF0, 0x50, 0x80, 0x10, 0x60, 0xFC});
    EXPECT_FALSE(header.id);
    EXPECT_EQ(header.layer, 0U);
    EXPECT_FALSE(header.protection_absent);
    EXPECT_EQ(header.HeaderSize(), 9U);
    EXPECT_FALSE(header.original);
    EXPECT_FALSE(header.home);
    EXPECT_FALSE(header.copyright_id_bit);
    EXPECT_FALSE(header.copyright_start);
}

TEST(AdtsHeader, ChannelConfigurationZeroCountsAsTwo) {
    EXPECT_EQ(parse({0xFF, 0xF1, 0x50, 0x00}).channels, 2U);
    for (unsigned channels = 1; channels < 8; ++channels)
        EXPECT_EQ(parse({0xFF, 0xF1, static_cast<unsigned char>(0x50 | channels >> 2),
                         static_cast<unsigned char>(channels << 6 & 0xC0)})
                      .channels,
                  channels);
}

TEST(AdtsHeader, LengthsBelow1024AreRight) {
    for (unsigned length = 0; length < 1024; ++length)
        EXPECT_EQ(with_length(length).frame_length, static_cast<int>(length));
}

TEST(AdtsHeader, LengthsWithBit10SetComeOutLowerBy2048) {
    for (unsigned length = 0; length < 8192; ++length)
        EXPECT_EQ(with_length(length).frame_length,
                  static_cast<int>(length) - ((length & 0x400) != 0 ? 2048 : 0));
}

TEST(AdtsHeader, NothingInLessThanSevenBytes) {
    constexpr Bytes BYTES{0xFF, 0xF1, 0x50, 0x80};
    EXPECT_TRUE(parse_adts_header(BYTES));
    EXPECT_FALSE(parse_adts_header(std::span(BYTES).first(6)));
}

TEST(AdtsHeader, FrameStartNeedsSyncAndLayerZero) {
    EXPECT_TRUE(is_start(0xFF, 0xF0));
    EXPECT_TRUE(is_start(0xFF, 0xF9));
    EXPECT_FALSE(is_start(0xFE, 0xF1));
    EXPECT_FALSE(is_start(0xFF, 0xE1));
    EXPECT_FALSE(is_start(0xFF, 0xF3));
    EXPECT_FALSE(is_start(0xFF, 0xF5));
}
