#include "web/Assets.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace {

std::string text(const unsigned char* bytes, std::size_t length) {
    return asset_text(bytes, length);
}

std::uint32_t big_endian(const unsigned char* at) {
    return static_cast<std::uint32_t>(at[0]) << 24 | static_cast<std::uint32_t>(at[1]) << 16 |
           static_cast<std::uint32_t>(at[2]) << 8 | at[3];
}

// PNG begins with 8 bytes of signature; length and name of the chunk IHDR; then width, height, bits
// a sample, and the kind of samples, of which 6 is red, green, blue and alpha.
void expect_png(const unsigned char* bytes, std::uint32_t width, std::uint32_t height) {
    EXPECT_EQ(text(bytes, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(text(bytes + 12, 4), "IHDR");
    EXPECT_EQ(big_endian(bytes + 16), width);
    EXPECT_EQ(big_endian(bytes + 20), height);
    EXPECT_EQ(bytes[24], 8);
    EXPECT_EQ(bytes[25], 6);
}

TEST(Assets, HaveTheirLengths) {
    EXPECT_EQ(favicon_ico_len, 5430U);
    EXPECT_EQ(logo_png_len, 11936U);
    EXPECT_EQ(quillwave_png_len, 2039U);
    EXPECT_EQ(play_png_len, 2224U);
    EXPECT_EQ(stop_png_len, 2058U);
    EXPECT_EQ(quillwave_swf_len, 71810U);
}

TEST(Assets, ImagesHaveTheirSizes) {
    expect_png(logo_png, 96, 87);
    expect_png(quillwave_png, 126, 30);
    expect_png(play_png, 20, 20);
    expect_png(stop_png, 20, 20);
}

// An icon begins with zero, its kind and the count of images; each entry with width and height.
TEST(Assets, TheIconHasTwoImagesTheSmallOneFirst) {
    EXPECT_EQ(text(favicon_ico, 6), std::string("\0\0\1\0\2\0", 6));
    EXPECT_EQ(text(favicon_ico + 6, 2), "\x10\x10");
    EXPECT_EQ(text(favicon_ico + 22, 2), "\x20\x20");
}

// "CWS", version, length when unpacked.
TEST(Assets, TheMovieIsPackedAndAsksForItsPlayer) {
    EXPECT_EQ(text(quillwave_swf, 4), "CWS\x0c");
    const unsigned char* length = quillwave_swf + 4;
    EXPECT_EQ(length[0] | length[1] << 8 | length[2] << 16 | length[3] << 24, 153050);
}

TEST(Assets, TextsAreWhole) {
    const std::string css = text(main_css, main_css_len);
    EXPECT_TRUE(css.starts_with("/*"));
    EXPECT_TRUE(css.ends_with("}\n}\n"));
    // What stands inside a page must not end its script.
    EXPECT_EQ(text(player_js, player_js_len).find("</"), std::string::npos);
}

} // namespace
