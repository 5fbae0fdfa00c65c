#include "core/TransferRate.h"

#include "core/Clock.h"

#include <gtest/gtest.h>

TEST(TransferRate, NothingRememberedIsZero) { EXPECT_EQ(TransferRate().GetBytesPerSecond(false), 0U); }

TEST(TransferRate, BytesOfOneSecondAreThePlainSum) {
    Clock::Hold(1000);
    TransferRate rate;
    rate.Add(300);
    rate.Add(200);
    EXPECT_EQ(rate.GetBytesPerSecond(false), 500U);
}

TEST(TransferRate, AllIsDividedByTheSpanFromOldestToNewest) {
    Clock::Hold(1000);
    TransferRate rate;
    rate.Add(300);
    Clock::Advance(3);
    rate.Add(300);
    EXPECT_EQ(rate.GetBytesPerSecond(false), 200U);
}

TEST(TransferRate, RecentSkipsWhatIsOlderThanTenSeconds) {
    Clock::Hold(1000);
    TransferRate rate;
    rate.Add(5000);
    Clock::Advance(11);
    rate.Add(300);
    EXPECT_EQ(rate.GetBytesPerSecond(true), 30U);
}

TEST(TransferRate, RemembersAtMostElevenSeconds) {
    Clock::Hold(1000);
    TransferRate rate;
    for (int i = 0; i < 40; ++i) {
        rate.Add(1);
        Clock::Advance(1);
    }
    EXPECT_EQ(rate.Buckets(), 11U);
}

TEST(TransferRate, TheEleventhSecondGoesWithTheNextAddition) {
    Clock::Hold(1000);
    TransferRate rate;
    for (int i = 0; i < 11; ++i) {
        rate.Add(90);
        if (i < 10) Clock::Advance(1);
    }
    EXPECT_EQ(rate.GetBytesPerSecond(false), 99U);
    rate.Add(0);
    EXPECT_EQ(rate.Buckets(), 10U);
    EXPECT_EQ(rate.GetBytesPerSecond(false), 100U);
}
