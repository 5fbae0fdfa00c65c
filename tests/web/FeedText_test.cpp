#include "web/FeedText.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {

TEST(FeedText, Utf8StaysAndLatin1IsConverted) {
    EXPECT_EQ(feed_text::to_utf8("caf\xC3\xA9 \xF0\x9F\x8E\xB5"), "caf\xC3\xA9 \xF0\x9F\x8E\xB5");
    EXPECT_EQ(feed_text::to_utf8("caf\xE9"), "caf\xC3\xA9");
}

TEST(FeedText, BrokenUtf8IsTakenForLatin1) {
    EXPECT_EQ(feed_text::to_utf8("\xC3"), "\xC3\x83");                           // cut short
    EXPECT_EQ(feed_text::to_utf8("\xC0\xAF"), "\xC3\x80\xC2\xAF");               // overlong
    EXPECT_EQ(feed_text::to_utf8("\xED\xA0\x80"), "\xC3\xAD\xC2\xA0\xC2\x80");   // a surrogate
    EXPECT_EQ(feed_text::to_utf8("\xC3\xA9 \xE9"), "\xC3\x83\xC2\xA9 \xC3\xA9"); // a mixture
}

TEST(FeedText, ControlBytesMakeUtf8LookLikeLatin1) {
    EXPECT_EQ(feed_text::to_utf8("\x01\xC3\xA9"), "\x01\xC3\x83\xC2\xA9");
    EXPECT_EQ(feed_text::to_utf8("\t\r\n\xC3\xA9"), "\t\r\n\xC3\xA9");
}

TEST(FeedText, NulHidesNothing) {
    EXPECT_EQ(feed_text::to_utf8("a\0\xE9"s), "a\0\xC3\xA9"s);
    EXPECT_EQ(feed_text::to_utf8("a\0\xC3\xA9"s), "a\0\xC3\x83\xC2\xA9"s);
}

TEST(FeedText, GoodKeysAreOnlyLowered) {
    EXPECT_EQ(feed_text::tag_key("Year"), "year");
    EXPECT_EQ(feed_text::tag_key("_x-1.b"), "_x-1.b");
}

TEST(FeedText, KeysLoseWhatStandsBeforeTheirFirstLetter) {
    EXPECT_EQ(feed_text::tag_key("';Year"), "year");
    EXPECT_EQ(feed_text::tag_key("2nd"), "nd");
    EXPECT_EQ(feed_text::tag_key(" :-.\x80\xBFKey 1"), "key 1");
    EXPECT_EQ(feed_text::tag_key("123"), "");
}

TEST(FeedText, KeysAreConverted) {
    EXPECT_EQ(feed_text::tag_key("gr\xF6\xDF"s + "e"), "gr\xC3\xB6\xC3\x9F"s + "e");
    EXPECT_EQ(feed_text::tag_key("\xC3\xA9t\xC3\xA9"), "\xC3\xA9t\xC3\xA9");
}

TEST(FeedText, NamesOfElements) {
    for (const char* name : {"year", "_", "a-1.b", "gr\xC3\xB6\xC3\x9F", "\xC3\xA9t\xC3\xA9",
                             "\xCE\xB1\xCE\xB2", "\xD0\xB6\xD1\x8F", "\xE5\xB9\xB4", "a\xC2\xB7"})
        EXPECT_TRUE(feed_text::is_xml_name(name)) << name;
}

// Whole words, with the signs that stand in the middle of them.
TEST(FeedText, WordsOfManyScriptsNameElements) {
    for (const char* word :
         {"n\u0103m", "ti\u1EBFng", "\u0388\u03C4\u03BF\u03C2", "\u0440\u0456\u043A",
          "\u0491\u0430\u0442\u0443\u043D\u043E\u043A", "\u057F\u0561\u0580\u056B",
          "\u05E9\u05E0\u05D4", "\u0633\u0646\u0629", "\u06A9\u06CC", "\u0935\u0930\u094D\u0937",
          "\u0E1B\u0E35", "\u0E40\u0E1E\u0E25\u0E07", "\u30AB\u30C6\u30B4\u30EA\u30FC",
          "\uC5F0\uB3C4"})
        EXPECT_TRUE(feed_text::is_xml_name(word)) << word;
}

// A sign alone begins no name.
TEST(FeedText, NoNameBeginsInTheMiddleOfAWord) {
    for (const char* sign : {"\u0301", "\u064B", "\u094D", "\u0E35", "\u30FC"}) {
        EXPECT_FALSE(feed_text::is_xml_name(sign + "a"s)) << sign;
        EXPECT_TRUE(feed_text::is_xml_name("a"s + sign)) << sign;
    }
}

TEST(FeedText, TextsThatNameNoElement) {
    for (const std::string& text : {""s,
                                    "1"s,
                                    "-a"s,
                                    "a b"s,
                                    "a<"s,
                                    "a>"s,
                                    "a&"s,
                                    "a/"s,
                                    "a="s,
                                    "a\""s,
                                    "a'"s,
                                    "a\0b"s,
                                    "a\n"s,
                                    "a\x7F"s,
                                    "x:y"s,
                                    ":"s,
                                    "\xC3\x97"s,
                                    "a\xC3\xB7"s,
                                    "\xC2\xAA"s,
                                    "a\xEF\xBF\xBE"s,
                                    "a\xF0\x9F\x8E\xB5"s,
                                    "\xC2\xB7"s + "a"})
        EXPECT_FALSE(feed_text::is_xml_name(text)) << text;
}

TEST(FeedText, EveryByteThatXmlCannotHoldBecomesABlank) {
    for (int byte = 0; byte < 0x20; ++byte) {
        const bool stays = byte == '\t' || byte == '\n' || byte == '\r';
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(feed_text::for_xml("a" + text + "b"), stays ? "a" + text + "b" : "a b") << byte;
    }
    EXPECT_EQ(feed_text::for_xml("<&\x7F\xC2\x80\xC3\xA9>"), "<&\x7F\xC2\x80\xC3\xA9>");
}

TEST(FeedText, CodesThatAreNoCharactersBecomeTheReplacementCharacter) {
    EXPECT_EQ(feed_text::for_xml("\xEF\xBF\xBE\xEF\xBF\xBE-\xEF\xBF\xBF"),
              "\xEF\xBF\xBD\xEF\xBF\xBD-\xEF\xBF\xBD");
    EXPECT_EQ(feed_text::for_xml("\xEF\xBF\xBC"), "\xEF\xBF\xBC");
}

TEST(FeedText, OfTheLineNoByteEndsIt) {
    EXPECT_EQ(feed_text::for_line("a\r\nb\0\x1F,\"<\xE9"s), "a  b  ,&quot;&lt;\xE9");
}

} // namespace
