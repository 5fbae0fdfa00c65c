#include "core/OSTools.h"

#include <gtest/gtest.h>
#include <iomanip>
#include <limits>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace std::string_literals;

namespace {
std::string every_byte() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

std::string base64(const std::string& text) { return Base64Encode(text.data(), text.size()); }
} // namespace

TEST(UrlDecode, PlusIsABlankAndEscapesAreBytes) {
    EXPECT_EQ(UrlDecode("a+b%2Fc%c3%A9"), "a b/c\xC3\xA9");
    EXPECT_EQ(UrlDecode("%00"), "\0"s);
}

TEST(UrlDecode, PercentWithoutTwoDigitsStays) {
    EXPECT_EQ(UrlDecode("%zz"), "%zz");
    EXPECT_EQ(UrlDecode("100%"), "100%");
    EXPECT_EQ(UrlDecode("%4"), "%4");
    EXPECT_EQ(UrlDecode("%4g"), "%4g");
    EXPECT_EQ(UrlDecode("%%41"), "%A");
}

TEST(UrlEncode, SlashStaysWhenItIsToBeKept) {
    EXPECT_EQ(UrlEncode("a b/c", true), "a+b/c");
    EXPECT_EQ(UrlEncode("a b/c", false), "a+b%2Fc");
}

TEST(UrlEncode, OnlyTheNamedCharactersStay) {
    const std::string stays =
        "!'()*-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    for (const char byte : every_byte()) {
        const std::string encoded = UrlEncode(std::string(1, byte), false);
        if (byte == ' ')
            EXPECT_EQ(encoded, "+");
        else if (stays.find(byte) != std::string::npos)
            EXPECT_EQ(encoded, std::string(1, byte));
        else
            EXPECT_EQ(encoded, "%" + charToHex(byte));
    }
}

TEST(UrlEncode, ComesBackWhole) {
    EXPECT_EQ(UrlDecode(UrlEncode(every_byte(), false)), every_byte());
    EXPECT_EQ(UrlDecode(UrlEncode(every_byte(), true)), every_byte());
}

TEST(Hex, DigitsBothWays) {
    EXPECT_EQ(charToHex('\xAF'), "AF");
    EXPECT_EQ(charToHex('\x07'), "07");
    EXPECT_EQ(hexToChar('a', 'F'), '\xAF');
    for (const char byte : every_byte()) {
        const std::string digits = charToHex(byte);
        EXPECT_EQ(hexToChar(digits[0], digits[1]), byte);
    }
}

TEST(Hex, BytesAreThreeCharactersEach) {
    std::string out = "old";
    bytes_to_hex("\x01\xFE", 2, out);
    EXPECT_EQ(out, "01 FE ");
    bytes_to_hex(std::vector<char>{'A'}, out);
    EXPECT_EQ(out, "41 ");
    bytes_to_hex("", 0, out);
    EXPECT_EQ(out, "");
}

TEST(Hex, BufhexPrintsTheSame) {
    testing::internal::CaptureStdout();
    bufhex("\x01\xFE", 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "01 FE ");
}

TEST(Base64, KnownTexts) {
    EXPECT_EQ(base64(""), "");
    EXPECT_EQ(base64("f"), "Zg==");
    EXPECT_EQ(base64("fo"), "Zm8=");
    EXPECT_EQ(base64("foo"), "Zm9v");
    EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64("\xFB\xFF"), "+/8=");
}

TEST(Base64, ComesBackWhole) {
    std::string text;
    for (const char byte : every_byte()) {
        text += byte;
        EXPECT_EQ(Base64Decode(base64(text)), text);
    }
}

TEST(Base64, DecoderEndsAtTheFirstForeignByte) {
    EXPECT_EQ(Base64Decode("Zm9v=YmFy"), "foo");
    EXPECT_EQ(Base64Decode("Zm9v YmFy"), "foo");
    EXPECT_EQ(Base64Decode("Zm9v-"), "foo");
    EXPECT_EQ(Base64Decode("Zm8"), "fo");
    EXPECT_EQ(Base64Decode("Z"), "");
    EXPECT_EQ(Base64Decode("\0Zm9v"s), "");
}

// The test suite of RFC 1321, appendix A.5.
TEST(Md5, DigestsOfTheStandard) {
    EXPECT_EQ(GenerateMD5Hash(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(GenerateMD5Hash("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(GenerateMD5Hash("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(GenerateMD5Hash("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(GenerateMD5Hash("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(GenerateMD5Hash("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(GenerateMD5Hash("1234567890123456789012345678901234567890"
                              "1234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, LengthsAroundTheEndOfABlock) {
    EXPECT_EQ(GenerateMD5Hash(std::string(55, 'a')), "ef1772b6dff9a122358552954ad0df65");
    EXPECT_EQ(GenerateMD5Hash(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218");
    EXPECT_EQ(GenerateMD5Hash(std::string(64, 'a')), "014842d480b571495a4a0363793f7367");
}

namespace {
template <typename T> T draw(std::mt19937_64& generator, T low, T high) {
    return std::uniform_int_distribution<T>(low, high)(generator);
}
template <typename T> T draw_any(std::mt19937_64& generator) {
    return draw(generator, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
}
std::string hex(std::uint64_t value, int width) {
    std::ostringstream text;
    text << std::hex << std::setfill('0') << std::setw(width) << value;
    return text.str();
}
} // namespace

TEST(GenerateUuid, SixDrawsInTheirOrder) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937_64 generator(seed);
        std::mt19937_64 same(seed);
        const auto a = static_cast<std::uint32_t>(draw_any<std::int32_t>(same));
        const auto b = static_cast<std::uint64_t>(draw_any<std::int64_t>(same));
        const int c = draw(same, 16383, 32768);
        const auto d = static_cast<std::uint32_t>(draw_any<std::int32_t>(same));
        const auto e = static_cast<std::uint32_t>(draw_any<std::int32_t>(same));
        const auto f = static_cast<std::uint64_t>(draw_any<std::int64_t>(same));
        EXPECT_EQ(GenerateUuid(generator),
                  hex(f, 0) + "-" + hex(e, 2) + "-" + hex((d & 0xFFF) | 0x4000, 2) + "-" +
                      hex(static_cast<std::uint64_t>(c), 2) + "-" + hex(b, 2) + hex(a, 2));
        EXPECT_EQ(generator, same);
    }
}

TEST(GenerateUuid, FiveGroupsWithTheMarkOfVersionFour) {
    const std::regex form(
        "[0-9a-f]{1,16}-[0-9a-f]{2,8}-4[0-9a-f]{3}-[3-8][0-9a-f]{3}-[0-9a-f]{4,24}");
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE(std::regex_match(GenerateUuid(), form));
}

TEST(GenerateUuid, ThreadsNeverShareOne) {
    constexpr std::size_t EACH = 5000;
    std::vector<std::vector<std::string>> drawn(4);
    std::vector<std::thread> threads;
    for (auto& own : drawn) {
        threads.emplace_back([&own] {
            while (own.size() < EACH)
                own.push_back(GenerateUuid());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::string> all;
    for (const auto& own : drawn)
        all.insert(own.begin(), own.end());
    EXPECT_EQ(all.size(), drawn.size() * EACH);
}
