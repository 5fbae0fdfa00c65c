#include "net/RouteLookup.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

const Route* waited_for(const RouteLookup& lookup) {
    for (int i = 0; i < 100 && lookup.Found() == nullptr; ++i)
        lookup.Wait(100);
    return lookup.Found();
}

TEST(RouteLookup, NumbersAreKnownAtOnce) {
    const auto lookup = RouteLookup::Start({.host = "127.0.0.1", .port = 8000});
    ASSERT_NE(lookup->Found(), nullptr);
    EXPECT_EQ(lookup->Found()->target->ai_family, AF_INET);
    EXPECT_EQ(lookup->Found()->source, nullptr);
}

TEST(RouteLookup, NumericLocalAddressIsKnownAtOnceToo) {
    const auto lookup = RouteLookup::Start(
        {.host = "127.0.0.1", .port = 8000, .from = LocalAddresses::For("127.0.0.2")});
    ASSERT_NE(lookup->Found(), nullptr);
    EXPECT_NE(lookup->Found()->source, nullptr);
}

TEST(RouteLookup, NameIsFoundInTheEnd) {
    const auto lookup = RouteLookup::Start({.host = "localhost", .port = 8000});
    const Route* route = waited_for(*lookup);
    ASSERT_NE(route, nullptr);
    EXPECT_NE(route->target, nullptr);
}

TEST(RouteLookup, NameOfALocalAddressIsFoundInTheEnd) {
    const auto lookup = RouteLookup::Start(
        {.host = "127.0.0.1", .port = 8000, .from = LocalAddresses::For("localhost")});
    const Route* route = waited_for(*lookup);
    ASSERT_NE(route, nullptr);
    EXPECT_NE(route->source, nullptr);
}

TEST(RouteLookup, WhatIsNoNameHasNoTarget) {
    const auto lookup = RouteLookup::Start({.host = "no name", .port = 8000});
    const Route* route = waited_for(*lookup);
    ASSERT_NE(route, nullptr);
    EXPECT_EQ(route->target, nullptr);
}

TEST(RouteLookup, ManyNamesAtOnceAreAllAnswered) {
    std::vector<std::shared_ptr<RouteLookup>> lookups;
    for (unsigned short port = 1; port <= 100; ++port)
        lookups.push_back(RouteLookup::Start({.host = "localhost", .port = port}));
    for (const auto& lookup : lookups)
        EXPECT_NE(waited_for(*lookup), nullptr);
}

} // namespace
