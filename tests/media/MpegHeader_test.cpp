#include "media/MpegHeader.h"

#include <array>
#include <gtest/gtest.h>

namespace {
using Bytes = std::array<unsigned char, 4>;

// A header of these fields; `layer` 1 to 3, `version` as on the wire.
Bytes header_bytes(unsigned version, unsigned layer, unsigned bitrate_index,
                   unsigned sampling_index) {
    return {0xFF, static_cast<unsigned char>(0xE1 | version << 3 | (4 - layer) << 1),
            static_cast<unsigned char>(bitrate_index << 4 | sampling_index << 2), 0};
}

MpegHeader parse(const Bytes& bytes) { return parse_mpeg_header(bytes).value(); }

bool is_start(unsigned char b0, unsigned char b1, unsigned char b2) {
    const std::array<unsigned char, 3> bytes{b0, b1, b2};
    return is_mpeg_frame_start(bytes);
}

struct BitrateRow {
    unsigned version, layer;
    std::array<int, 15> rates;
};
// ISO 11172-3, table of bit_rate_index, and ISO 13818-3, the same for lower sampling frequencies.
constexpr BitrateRow BITRATE_ROWS[] = {
    {3, 1, {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448}},
    {3, 2, {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384}},
    {3, 3, {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
    {2, 1, {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256}},
    {2, 2, {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
    {2, 3, {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
    {0, 1, {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256}},
    {0, 2, {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
    {0, 3, {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
};
} // namespace

TEST(MpegHeader, BitratesAreThoseOfTheStandards) {
    for (const BitrateRow& row : BITRATE_ROWS)
        for (unsigned index = 0; index < row.rates.size(); ++index)
            EXPECT_EQ(parse(header_bytes(row.version, row.layer, index, 0)).bitrate,
                      row.rates[index])
                << row.version << " layer " << row.layer << " index " << index;
}

TEST(MpegHeader, SamplingRatesAreThoseOfTheStandards) {
    constexpr int RATES[4][3] = {
        {11025, 12000, 8000}, {0, 0, 0}, {22050, 24000, 16000}, {44100, 48000, 32000}};
    for (unsigned version = 0; version < 4; ++version)
        for (unsigned index = 0; index < 3; ++index)
            EXPECT_EQ(parse(header_bytes(version, 3, 5, index)).sampling_rate,
                      RATES[version][index]);
}

TEST(MpegHeader, SamplesPerFrameAreThoseOfTheStandards) {
    constexpr int MPEG_1[] = {384, 1152, 1152};
    constexpr int MPEG_2[] = {384, 1152, 576};
    for (unsigned layer = 1; layer <= 3; ++layer) {
        EXPECT_EQ(parse(header_bytes(3, layer, 5, 0)).samples_per_frame, MPEG_1[layer - 1]);
        EXPECT_EQ(parse(header_bytes(2, layer, 5, 0)).samples_per_frame, MPEG_2[layer - 1]);
        EXPECT_EQ(parse(header_bytes(0, layer, 5, 0)).samples_per_frame, MPEG_2[layer - 1]);
    }
}

TEST(MpegHeader, FieldsComeFromTheirBits) {
    const MpegHeader header = parse({0xFF, 0xFB, 0x93, 0x6D});
    EXPECT_EQ(header.version, MpegHeader::MPEG_1);
    EXPECT_EQ(header.layer, 2U);
    EXPECT_FALSE(header.is_protected);
    EXPECT_EQ(header.bitrate_index, 9U);
    EXPECT_EQ(header.bitrate, 128);
    EXPECT_EQ(header.sampling_index, 0U);
    EXPECT_EQ(header.sampling_rate, 44100);
    EXPECT_TRUE(header.padding);
    EXPECT_TRUE(header.private_bit);
    EXPECT_EQ(header.channel_mode, 1U);
    EXPECT_TRUE(header.stereo);
    EXPECT_EQ(header.mode_extension, 2U);
    EXPECT_TRUE(header.copyright);
    EXPECT_TRUE(header.original);
    EXPECT_EQ(header.emphasis, 1U);
}

TEST(MpegHeader, FieldsAreUnsetWhenTheirBitsAre) {
    const MpegHeader header = parse({0xFF, 0xFA, 0x90, 0xC0});
    EXPECT_TRUE(header.is_protected);
    EXPECT_FALSE(header.padding);
    EXPECT_FALSE(header.private_bit);
    EXPECT_FALSE(header.stereo);
    EXPECT_FALSE(header.copyright);
    EXPECT_FALSE(header.original);
    EXPECT_EQ(header.emphasis, 0U);
}

TEST(MpegHeader, OnlyChannelMode3IsMono) {
    for (unsigned mode = 0; mode < 4; ++mode)
        EXPECT_EQ(parse({0xFF, 0xFB, 0x90, static_cast<unsigned char>(mode << 6)}).stereo,
                  mode != 3);
}

TEST(MpegHeader, Mpeg1Layer3At128And44100Is417Bytes) {
    EXPECT_EQ(parse({0xFF, 0xFB, 0x90, 0}).FrameLength(), 417U);
    EXPECT_EQ(parse({0xFF, 0xFB, 0x92, 0}).FrameLength(), 418U);
}

TEST(MpegHeader, Mpeg2Layer3At64And22050Is208BytesAndPadding) {
    EXPECT_EQ(parse({0xFF, 0xF3, 0x80, 0}).FrameLength(), 208U);
    EXPECT_EQ(parse({0xFF, 0xF3, 0x82, 0}).FrameLength(), 209U);
}

TEST(MpegHeader, PaddedLayer1FrameIsOneByteLongerNotFour) {
    const std::size_t plain = parse({0xFF, 0xFF, 0x40, 0}).FrameLength();
    EXPECT_EQ(plain, 48U * 128000 / 44100);
    EXPECT_EQ(parse({0xFF, 0xFF, 0x42, 0}).FrameLength(), plain + 1);
}

TEST(MpegHeader, FreeFormatHasNoLengthButItsPadding) {
    EXPECT_EQ(parse({0xFF, 0xFB, 0x00, 0}).FrameLength(), 0U);
    EXPECT_EQ(parse({0xFF, 0xFB, 0x02, 0}).FrameLength(), 1U);
}

TEST(MpegHeader, ReservedValuesAreZero) {
    EXPECT_EQ(parse({0xFF, 0xFB, 0xF0, 0}).bitrate, 0);
    EXPECT_EQ(parse({0xFF, 0xFB, 0x9C, 0}).sampling_rate, 0);
    EXPECT_EQ(parse({0xFF, 0xE9, 0x90, 0}).samples_per_frame, 0); // reserved version and layer
    EXPECT_EQ(parse({0xFF, 0xFF & 0xF9, 0xF0, 0}).bitrate, 0);
    EXPECT_EQ(parse({0xFF, 0xFB, 0x9E, 0}).FrameLength(), 0U);
}

TEST(MpegHeader, NothingInLessThanFourBytes) {
    constexpr Bytes BYTES{0xFF, 0xFB, 0x90, 0};
    EXPECT_FALSE(parse_mpeg_header(std::span(BYTES).first(3)));
    EXPECT_FALSE(parse_mpeg_header({}));
}

TEST(MpegHeader, FrameStartNeedsSyncKnownVersionLayerBitrateAndRate) {
    EXPECT_TRUE(is_start(0xFF, 0xFB, 0x90));
    EXPECT_TRUE(is_start(0xFF, 0xE3, 0x90)); // MPEG-2.5
    EXPECT_TRUE(is_start(0xFF, 0xFB, 0x00)); // free format
    EXPECT_FALSE(is_start(0xFE, 0xFB, 0x90));
    EXPECT_FALSE(is_start(0xFF, 0xDB, 0x90));
    EXPECT_FALSE(is_start(0xFF, 0xEB, 0x90)); // reserved version
    EXPECT_FALSE(is_start(0xFF, 0xF9, 0x90)); // reserved layer
    EXPECT_FALSE(is_start(0xFF, 0xFB, 0xF0)); // bitrate index 15
    EXPECT_FALSE(is_start(0xFF, 0xFB, 0x9C)); // sampling index 3
}
