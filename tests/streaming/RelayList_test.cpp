#include "streaming/RelayList.h"

#include <gtest/gtest.h>

TEST(RelayList, EmptyListHasNoAddressInTurn) {
    RelayList relays;
    EXPECT_TRUE(relays.empty());
    EXPECT_EQ(relays.Current(), "");
}

TEST(RelayList, AnAddressIsKeptOnce) {
    RelayList relays;
    relays.Add("http://a");
    relays.Add("http://a");
    relays.Remove("http://a");
    EXPECT_TRUE(relays.empty());
}

TEST(RelayList, AnEmptyAddressIsNotKept) {
    RelayList relays;
    relays.Add("");
    EXPECT_TRUE(relays.empty());
}

TEST(RelayList, TheTurnStaysWithItsAddressWhenAnotherGoes) {
    RelayList relays;
    relays.Add("http://a");
    relays.Add("http://b");
    relays.Remove("http://b");
    EXPECT_EQ(relays.Current(), "http://a");
}

TEST(RelayList, TheTurnGoesToTheFirstWhenItsAddressGoes) {
    RelayList relays;
    relays.Add("http://a");
    relays.Add("http://b");
    relays.Remove("http://a");
    EXPECT_EQ(relays.Current(), "http://b");
}

TEST(RelayList, AChangedAddressKeepsItsPlace) {
    RelayList relays;
    relays.Add("http://a");
    relays.Add("http://b");
    relays.Set("http://a", "http://c");
    EXPECT_EQ(relays.Current(), "http://c");
}

TEST(RelayList, AnAddressChangedIntoOneThatIsThereJustGoes) {
    RelayList relays;
    relays.Add("http://a");
    relays.Add("http://b");
    relays.Set("http://a", "http://b");
    EXPECT_EQ(relays.Current(), "http://b");
    relays.Remove("http://b");
    EXPECT_TRUE(relays.empty());
}

TEST(RelayList, AnAddressChangedIntoItselfStays) {
    RelayList relays;
    relays.Add("http://a");
    relays.Set("http://a", "http://a");
    EXPECT_EQ(relays.Current(), "http://a");
}

TEST(RelayList, ChangingAnUnknownAddressAddsTheNewOne) {
    RelayList relays;
    relays.Set("http://a", "http://b");
    EXPECT_EQ(relays.Current(), "http://b");
}

TEST(RelayList, RemovingAStrangerChangesNothing) {
    RelayList relays;
    relays.Add("http://a");
    relays.Remove("http://x");
    EXPECT_EQ(relays.Current(), "http://a");
}

TEST(RelayList, TheTurnGoesRoundAndStaysWithItsAddress) {
    RelayList relays;
    relays.Advance(); // nobody's turn
    relays.Add("http://a");
    relays.Add("http://b");
    relays.Advance();
    EXPECT_EQ(relays.Current(), "http://b");
    relays.Remove("http://a");
    EXPECT_EQ(relays.Current(), "http://b");
    relays.Advance();
    EXPECT_EQ(relays.Current(), "http://b");
    relays.Add("http://c");
    relays.Advance();
    EXPECT_EQ(relays.Current(), "http://c");
    relays.Advance();
    EXPECT_EQ(relays.Current(), "http://b");
}
