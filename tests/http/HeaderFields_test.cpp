#include "http/HeaderFields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(HeaderFields, NamesAreFoundInAnyCase) {
    const HeaderFields fields({{"User-Agent", "VLC"}, {"Host", "a:8000"}});
    EXPECT_EQ(fields.Get("user-agent"), "VLC");
    EXPECT_EQ(fields.Get("HOST"), "a:8000");
    EXPECT_EQ(fields.Get("Hos"), "");
    EXPECT_EQ(fields.Get("Hosts"), "");
}

TEST(HeaderFields, KeysComeInAnOrderWithoutCase) {
    const HeaderFields fields({{"b", "1"}, {"A", "2"}, {"C", "3"}});
    EXPECT_THAT(fields.Keys(), ElementsAre("A", "b", "C"));
}

TEST(HeaderFields, EmptyHasNothing) {
    const HeaderFields fields;
    EXPECT_EQ(fields.Get("a"), "");
    EXPECT_THAT(fields.Keys(), IsEmpty());
}

TEST(HeaderFields, SetAddsAndReplacesAndKeepsTheFirstSpelling) {
    HeaderFields fields(HeaderFields::Map{{"One", "1"}});
    fields.Set("two", "2");
    fields.Set("ONE", "11");
    EXPECT_EQ(fields.Get("one"), "11");
    EXPECT_EQ(fields.Get("Two"), "2");
    EXPECT_THAT(fields.Keys(), ElementsAre("One", "two"));
}

TEST(HeaderFields, SetCutsControlBytes) {
    HeaderFields fields;
    fields.Set("a", "b\r\nc: d\x7f\xe9");
    EXPECT_EQ(fields.Get("a"), "bc: d\xe9");
    EXPECT_THAT(fields.Keys(), ElementsAre("a"));
}

TEST(HeaderFields, ValuesKeepColonsAndBytesOfAnyKind) {
    const std::string value("a:b\0\tc\r", 7);
    const HeaderFields fields({{"k", value}, {"l", "x"}});
    EXPECT_EQ(fields.Get("k"), value);
    EXPECT_EQ(fields.Get("l"), "x");
}

TEST(HeaderFields, AnEmptyNameIsAName) {
    const HeaderFields fields({{"", "v"}, {"a", "w"}});
    EXPECT_EQ(fields.Get(""), "v");
    EXPECT_EQ(fields.Get("a"), "w");
}
