#include "core/OSTools.h"

#include <gtest/gtest.h>

TEST(TimeToString, AsAClock) {
    EXPECT_EQ(TimeToString(0, true), "0:00:00");
    EXPECT_EQ(TimeToString(59, true), "0:00:59");
    EXPECT_EQ(TimeToString(3909, true), "1:05:09");
    EXPECT_EQ(TimeToString(100 * 3600, true), "100:00:00");
}

TEST(TimeToString, InWords) {
    EXPECT_EQ(TimeToString(9, false), "9 secs");
    EXPECT_EQ(TimeToString(59, false), "59 secs");
    EXPECT_EQ(TimeToString(60, false), "1 mins 00 secs");
    EXPECT_EQ(TimeToString(309, false), "5 mins 09 secs");
    EXPECT_EQ(TimeToString(3599, false), "59 mins 59 secs");
    EXPECT_EQ(TimeToString(3600, false), "1h 00m 00s");
    EXPECT_EQ(TimeToString(3909, false), "1h 05m 09s");
    EXPECT_EQ(TimeToString(86399, false), "23h 59m 59s");
    EXPECT_EQ(TimeToString(86400, false), "1d 00h 00m 00s");
    EXPECT_EQ(TimeToString(2 * 86400 + 3909, false), "2d 01h 05m 09s");
}

TEST(DataSizeToString, BytesInStepsOf1024) {
    EXPECT_EQ(DataSizeToString(0, false), "0 B");
    EXPECT_EQ(DataSizeToString(512, false), "512 B");
    EXPECT_EQ(DataSizeToString(1023, false), "1023 B");
    EXPECT_EQ(DataSizeToString(1024, false), "1.00 KiB");
    EXPECT_EQ(DataSizeToString(1536, false), "1.50 KiB");
    EXPECT_EQ(DataSizeToString(1048575, false), "1024.00 KiB");
    EXPECT_EQ(DataSizeToString(2359296, false), "2.25 MiB");
    EXPECT_EQ(DataSizeToString(1ULL << 30, false), "1.00 GiB");
    EXPECT_EQ(DataSizeToString(1ULL << 40, false), "1.00 TiB");
    EXPECT_EQ(DataSizeToString(1ULL << 50, false), "1.00 PiB");
    EXPECT_EQ(DataSizeToString(1ULL << 60, false), "1.00 EiB");
    EXPECT_EQ(DataSizeToString(~0ULL, false), "16.00 EiB");
}

TEST(DataSizeToString, BitratesInStepsOf1000) {
    EXPECT_EQ(DataSizeToString(0, true), "0 bps");
    EXPECT_EQ(DataSizeToString(999, true), "999 bps");
    EXPECT_EQ(DataSizeToString(1000, true), "1.00 kbps");
    EXPECT_EQ(DataSizeToString(128000, true), "128.00 kbps");
    EXPECT_EQ(DataSizeToString(1411200, true), "1.41 Mbps");
    EXPECT_EQ(DataSizeToString(2500000000ULL, true), "2.50 Gbps");
    EXPECT_EQ(DataSizeToString(3000000000000ULL, true), "3.00 Tbps");
    EXPECT_EQ(DataSizeToString(~0ULL, true), "18.45 Ebps");
}

TEST(BuildTime, ReadsTheTextsOfACompiler) {
    const struct tm moment = ParseBuildTime("Jan 11 2016", "20:47:27");
    EXPECT_EQ(moment.tm_year, 116);
    EXPECT_EQ(moment.tm_mon, 0);
    EXPECT_EQ(moment.tm_mday, 11);
    EXPECT_EQ(moment.tm_hour, 20);
    EXPECT_EQ(moment.tm_min, 47);
    EXPECT_EQ(moment.tm_sec, 27);
}

TEST(BuildTime, DayOfOneDigitStandsBehindTwoBlanks) {
    EXPECT_EQ(ParseBuildTime("Dec  3 2026", "00:00:01").tm_mday, 3);
}

TEST(BuildTime, IsAMomentThatHasPassed) {
    struct tm moment = BuildTime();
    moment.tm_isdst = -1;
    EXPECT_GE(moment.tm_year, 125);
    EXPECT_LE(mktime(&moment), time(nullptr));
}
