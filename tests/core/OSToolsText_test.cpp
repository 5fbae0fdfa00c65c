#include "core/OSTools.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {
using Pieces = std::vector<std::string>;

template <std::string& (*change)(std::string&, const std::string&)>
std::string after(std::string text, const std::string& chars = WHITE_SPACE) {
    return change(text, chars);
}
} // namespace

TEST(Trim, TakesWhiteSpaceOffItsEnd) {
    EXPECT_EQ(after<ltrim>(" \t\f\v\r\n a b "), "a b ");
    EXPECT_EQ(after<rtrim>(" a b \t\f\v\r\n"), " a b");
    EXPECT_EQ(after<trim>(" \t a b \r\n"), "a b");
}

TEST(Trim, TakesAnyBytesItIsGiven) { EXPECT_EQ(after<trim>("\"a b\"", "\""), "a b"); }

TEST(Trim, TextOfSuchBytesAloneStaysOnTheLeftAndGoesOnTheRight) {
    EXPECT_EQ(after<ltrim>("  "), "  ");
    EXPECT_EQ(after<rtrim>("  "), "");
    EXPECT_EQ(after<trim>("  "), "");
}

TEST(Trim, ChangesTheTextInPlaceAndReturnsIt) {
    std::string text = " a ";
    EXPECT_EQ(&trim(text), &text);
    EXPECT_EQ(text, "a");
}

TEST(LetterCase, OnlyAsciiLettersChange) {
    std::string text = "Live-9\xC4[`";
    EXPECT_EQ(tolower(text), "live-9\xC4[`");
    EXPECT_EQ(toupper(text), "LIVE-9\xC4[`");
}

TEST(Split, EmptyPiecesCountInTheMiddleButNotAtTheEnd) {
    Pieces out;
    split("a::b", ':', out, 0);
    EXPECT_THAT(out, ElementsAre("a", "", "b"));
    EXPECT_THAT(split("a:", ':', 0), ElementsAre("a"));
    EXPECT_THAT(split(":a", ':', 0), ElementsAre("", "a"));
    EXPECT_THAT(split(":", ':', 0), ElementsAre(""));
    EXPECT_THAT(split("", ':', 0), IsEmpty());
}

TEST(Split, AppendsToWhatIsThere) {
    Pieces out = {"first"};
    split("a b", ' ', out, 0);
    EXPECT_THAT(out, ElementsAre("first", "a", "b"));
}

TEST(Split, BehindTheLimitComesTheRestOfTheLine) {
    EXPECT_THAT(split("a:b:c", ':', 1), ElementsAre("a", "b:c"));
    EXPECT_THAT(split("a:b:c:d", ':', 2), ElementsAre("a", "b", "c:d"));
    EXPECT_THAT(split("a:b", ':', 5), ElementsAre("a", "b"));
    EXPECT_THAT(split("a:b:c\nd:e", ':', 1), ElementsAre("a", "b:c", "d:e"));
}

TEST(ToString, IntegersOfAllSizes) {
    EXPECT_EQ(tostring(-5), "-5");
    EXPECT_EQ(tostring(std::uint16_t{65535}), "65535");
    EXPECT_EQ(tostring(~0ULL), "18446744073709551615");
}

TEST(IsNumber, DigitsWithAMinusInFrontOnly) {
    EXPECT_FALSE(is_number(""));
    EXPECT_TRUE(is_number("0123456789"));
    EXPECT_TRUE(is_number("-5"));
    EXPECT_FALSE(is_number("5-"));
    EXPECT_FALSE(is_number("--5"));
    EXPECT_FALSE(is_number("5.0"));
    EXPECT_FALSE(is_number("+5"));
}

TEST(IsNumber, MinusAloneCountsAsANumber) { EXPECT_TRUE(is_number("-")); }

TEST(IsJsMethod, LettersUnderscoreOrQuestionMarkLead) {
    EXPECT_TRUE(is_js_method("?cb"));
    EXPECT_TRUE(is_js_method("_cb"));
    EXPECT_TRUE(is_js_method("Cb_9$"));
    EXPECT_TRUE(is_js_method("?"));
    EXPECT_FALSE(is_js_method("$cb"));
    EXPECT_FALSE(is_js_method("9cb"));
    EXPECT_FALSE(is_js_method(""));
}

TEST(IsJsMethod, NothingElseFollows) {
    EXPECT_FALSE(is_js_method("a.b"));
    EXPECT_FALSE(is_js_method("a?"));
    EXPECT_FALSE(is_js_method("alert(1)"));
    EXPECT_FALSE(is_js_method("a\xE9"));
}

TEST(IsAscii, NoHighBitWithinTheLength) {
    EXPECT_TRUE(is_ASCII("abc\x7F", 4));
    EXPECT_FALSE(is_ASCII("ab\x80", 3));
    EXPECT_TRUE(is_ASCII("ab\x80", 2));
    EXPECT_TRUE(is_ASCII("", 0));
}

TEST(IsUtf8, SingleBytesAreTextAndThreeControls) {
    EXPECT_TRUE(is_utf8(""));
    EXPECT_TRUE(is_utf8("a b~\t\r\n"));
    EXPECT_FALSE(is_utf8("a\x7F"));
    for (char control = 1; control < 0x20; ++control) {
        const char text[] = {control, '\0'};
        const bool allowed = control == '\t' || control == '\r' || control == '\n';
        EXPECT_EQ(is_utf8(text), allowed) << int{control};
    }
}

TEST(IsUtf8, NullIsNot) { EXPECT_FALSE(is_utf8(nullptr)); }

struct Utf8Case {
    const char* text;
    bool well_formed;
};
class IsUtf8Sequences : public testing::TestWithParam<Utf8Case> {};
TEST_P(IsUtf8Sequences, FollowTheTable) {
    EXPECT_EQ(is_utf8(GetParam().text), GetParam().well_formed);
}
INSTANTIATE_TEST_SUITE_P(
    EdgesOfTheTable, IsUtf8Sequences,
    testing::Values(Utf8Case{"\xC1\xBF", false}, Utf8Case{"\xC2\x80", true},
                    Utf8Case{"\xDF\xBF", true}, Utf8Case{"\xDF\xC0", false},
                    Utf8Case{"\xC2", false}, Utf8Case{"\x80", false},
                    Utf8Case{"\xE0\x9F\xBF", false}, Utf8Case{"\xE0\xA0\x80", true},
                    Utf8Case{"\xEC\xBF\xBF", true}, Utf8Case{"\xED\x9F\xBF", true},
                    Utf8Case{"\xED\xA0\x80", false}, Utf8Case{"\xEE\x80\x80", true},
                    Utf8Case{"\xEF\xBF\xBF", true}, Utf8Case{"\xE1\x80", false},
                    Utf8Case{"\xF0\x8F\xBF\xBF", false}, Utf8Case{"\xF0\x90\x80\x80", true},
                    Utf8Case{"\xF3\xBF\xBF\xBF", true}, Utf8Case{"\xF4\x8F\xBF\xBF", true},
                    Utf8Case{"\xF4\x90\x80\x80", false}, Utf8Case{"\xF5\x80\x80\x80", false},
                    Utf8Case{"\xF1\x80\x80", false}));

TEST(Latin1ToUtf8, HighBytesBecomeTwo) {
    EXPECT_EQ(latin1_to_utf8("\xE9", false), "\xC3\xA9");
    EXPECT_EQ(latin1_to_utf8("\x80", false), "\xC2\x80");
    EXPECT_EQ(latin1_to_utf8("\xBF", false), "\xC2\xBF");
    EXPECT_EQ(latin1_to_utf8("\xC0", false), "\xC3\x80");
    EXPECT_EQ(latin1_to_utf8("\xFF", false), "\xC3\xBF");
    EXPECT_EQ(latin1_to_utf8("abc", false), "abc");
}

TEST(Latin1ToUtf8, ChecksFirstWhenAsked) {
    EXPECT_EQ(latin1_to_utf8("\xC3\xA9", true), "\xC3\xA9");
    EXPECT_EQ(latin1_to_utf8("\xC3\xA9", false), "\xC3\x83\xC2\xA9");
    EXPECT_EQ(latin1_to_utf8("\xE9t\xE9", true), "\xC3\xA9t\xC3\xA9");
}

TEST(Utf8Substr, CountsCharacters) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
    EXPECT_EQ(utf8_substr(text, 0, 2), "a\xC3\xA9");
    EXPECT_EQ(utf8_substr(text, 2, 2), "\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8_substr(text, 4, 1), "z");
    EXPECT_EQ(utf8_substr(text, 1, 99), text.substr(1));
}

TEST(Utf8Substr, EmptyForNoLengthNoTextOrAStartBehindTheEnd) {
    EXPECT_EQ(utf8_substr("abc", 1, 0), "");
    EXPECT_EQ(utf8_substr("", 0, 5), "");
    EXPECT_EQ(utf8_substr("abc", 3, 1), "");
    EXPECT_EQ(utf8_substr("abc", 9, 1), "");
}

TEST(Utf8Substr, StrayContinuationByteGivesNothing) {
    EXPECT_EQ(utf8_substr("a\x80z", 0, 3), "");
    EXPECT_EQ(utf8_substr("\xF8z", 0, 2), "");
}

TEST(Utf8Substr, LeadByteSpansItsBytesUnchecked) {
    EXPECT_EQ(utf8_substr("\xC3zx", 1, 1), "x");
    EXPECT_EQ(utf8_substr("a\xE2", 1, 1), "\xE2");
}

TEST(Elips, TextOfTheSizeIsCutToo) {
    EXPECT_EQ(elips("abc", 3), "abc...");
    EXPECT_EQ(elips("abc", 4), "abc");
    EXPECT_EQ(elips("abcdef", 3), "abc...");
}

TEST(Elips, WhatIsLeftIsTrimmed) { EXPECT_EQ(elips(" a bcd", 3), "a..."); }

TEST(Welips, CountsCharacters) {
    EXPECT_EQ(welips("\xC3\xA9\xC3\xA9", 3), "\xC3\xA9\xC3\xA9");
    EXPECT_EQ(welips("\xC3\xA9\xC3\xA9", 2), "\xC3\xA9\xC3\xA9...");
    EXPECT_EQ(welips("\xC3\xA9 \xC3\xA9", 2), "\xC3\xA9...");
    EXPECT_EQ(welips("ab", 0), "...");
}

TEST(HtmlEncode, FiveCharactersBecomeEntities) {
    EXPECT_EQ(html_encode("\"&'<>"), "&quot;&amp;&apos;&lt;&gt;");
    EXPECT_EQ(html_encode("a/b;\n\xE9"), "a/b;\n\xE9");
}

TEST(UrlFixer, AddressesWithASchemeStay) {
    EXPECT_EQ(UrlFixer("rtmp://x"), "rtmp://x");
    EXPECT_EQ(UrlFixer("x.org"), "http://x.org");
    EXPECT_EQ(UrlFixer(""), "http://");
}
