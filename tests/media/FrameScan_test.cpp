#include "media/FrameScan.h"

#include "support/FillInput.h"

#include <gtest/gtest.h>
#include <string>

namespace {

// A frame begins with "F"; counts how often it is asked.
struct Search {
    int looks = 0;
    std::optional<std::size_t> In(InputBuffer& buffer) {
        return find_frame_start(buffer, [this](std::span<const char> bytes) {
            ++looks;
            return bytes.size() >= 5 && bytes[0] == 'F';
        });
    }
};

TEST(FrameScan, FindsTheFirstStartBeforeTheLastFourBytes) {
    InputBuffer buffer(32);
    Search search;
    fill(buffer, "..FFabc");
    EXPECT_EQ(search.In(buffer), 2U);
    buffer.Skip(3);
    EXPECT_EQ(search.In(buffer), std::nullopt) << "too little lies behind it";
    fill(buffer, "d");
    EXPECT_EQ(search.In(buffer), 0U);
    EXPECT_EQ(search.In(buffer), 0U) << "as long as it stays";
}

TEST(FrameScan, NoiseIsSearchedOnce) {
    InputBuffer buffer(4096);
    Search search;
    for (int piece = 0; piece < 1000; ++piece) {
        fill(buffer, "..");
        EXPECT_EQ(search.In(buffer), std::nullopt);
    }
    EXPECT_EQ(search.looks, 2000 - 4);
    fill(buffer, "F1234");
    EXPECT_EQ(search.In(buffer), 2000U);
}

TEST(FrameScan, WhatWasSearchedIsForgottenWhenTheBufferIsCleared) {
    InputBuffer buffer(32);
    Search search;
    fill(buffer, ".............");
    EXPECT_EQ(search.In(buffer), std::nullopt);
    buffer.Clear();
    fill(buffer, "F1234");
    EXPECT_EQ(search.In(buffer), 0U);
}

} // namespace
