#include "media/InputBuffer.h"

#include "support/FillInput.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string text_of(const InputBuffer& buffer) {
    return {buffer.Data().begin(), buffer.Data().end()};
}

std::string text_of(const std::vector<char>& bytes) { return {bytes.begin(), bytes.end()}; }

} // namespace

TEST(InputBuffer, TakesTheOldestBytesAndKeepsTheRest) {
    InputBuffer buffer(8);
    fill(buffer, "abcdef");
    EXPECT_EQ(text_of(buffer.Take(2)), "ab");
    EXPECT_EQ(text_of(buffer), "cdef");
    EXPECT_EQ(buffer.Fill(), 4U);
    EXPECT_EQ(text_of(buffer.Take(4)), "cdef");
    EXPECT_EQ(buffer.Fill(), 0U);
}

TEST(InputBuffer, TakesNothingForZeroOrForMoreThanItHolds) {
    InputBuffer buffer(8);
    fill(buffer, "abc");
    EXPECT_TRUE(buffer.Take(0).empty());
    EXPECT_TRUE(buffer.Take(4).empty());
    EXPECT_EQ(text_of(buffer), "abc");
}

TEST(InputBuffer, SkipsLikeTake) {
    InputBuffer buffer(8);
    fill(buffer, "abc");
    buffer.Skip(4);
    EXPECT_EQ(text_of(buffer), "abc");
    buffer.Skip(1);
    EXPECT_EQ(text_of(buffer), "bc");
}

TEST(InputBuffer, WhatIsTakenMakesRoomBehindTheRest) {
    InputBuffer buffer(4);
    fill(buffer, "abcd");
    EXPECT_TRUE(buffer.Full());
    buffer.Skip(3);
    EXPECT_FALSE(buffer.Full());
    fill(buffer, "efg");
    EXPECT_EQ(text_of(buffer), "defg");
    EXPECT_TRUE(buffer.Full());
}

TEST(InputBuffer, ClearLeavesZeroes) {
    InputBuffer buffer(4);
    fill(buffer, "abcd");
    buffer.Clear();
    EXPECT_EQ(buffer.Fill(), 0U);
    EXPECT_EQ(std::string(buffer.Memory(), 4), std::string(4, '\0'));
}

TEST(InputBuffer, GrowsAtOnceAndKeepsWhatItHolds) {
    InputBuffer buffer(4);
    fill(buffer, "abcd");
    buffer.Skip(1);
    buffer.Resize(8);
    EXPECT_EQ(buffer.Length(), 8U);
    fill(buffer, "efghi");
    EXPECT_EQ(text_of(buffer), "bcdefghi");
}

TEST(InputBuffer, ShrinksOnlyWhenWhatItHoldsFits) {
    InputBuffer buffer(8);
    fill(buffer, "abcdefgh");
    buffer.Resize(4);
    EXPECT_EQ(buffer.Length(), 8U);
    buffer.Skip(3);
    EXPECT_EQ(buffer.Length(), 8U);
    fill(buffer, "ij");
    EXPECT_EQ(text_of(buffer), "defghij");
    buffer.Skip(3);
    EXPECT_EQ(buffer.Length(), 4U);
    EXPECT_EQ(text_of(buffer), "ghij");
    EXPECT_TRUE(buffer.Full());
}

TEST(InputBuffer, ClearShrinksToo) {
    InputBuffer buffer(8);
    fill(buffer, "abcdefgh");
    buffer.Resize(4);
    buffer.Clear();
    EXPECT_EQ(buffer.Length(), 4U);
}
