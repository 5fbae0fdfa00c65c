#include "web/PublicationTable.h"

#include "support/Page.h"

#include <gtest/gtest.h>

namespace {

constexpr time_t MOMENT = 1'000'000;

using Texts = std::vector<std::string>;

Texts second_row(const PublicationDetails& directory) {
    const Page page(publication_table({directory}, MOMENT).str());
    return Page::Cells(page.All("tr").at(1));
}

TEST(PublicationTable, WithoutDirectoriesThereIsOneRow) {
    const Page page(publication_table({}, MOMENT).str());
    ASSERT_EQ(page.All("tr").size(), 1U);
    EXPECT_EQ(Page::Text(page.All("tr").front()), "No directories are available.");
    EXPECT_EQ(Page::Width(page.All("tr").front()), 3);
}

TEST(PublicationTable, TheHeadNamesTheColumns) {
    const Page page(publication_table({{}}, MOMENT).str());
    EXPECT_EQ(Page::Value(page.All("tr").front(), "class"), "tableViewHead");
    EXPECT_EQ(Page::Cells(page.All("tr").front()),
              (Texts{"Address", "Listed", "Last Touch Attempt", "Touch Interval", "Messages"}));
    EXPECT_EQ(Page::Value(page.All("table").front(), "class"), "tableView");
}

TEST(PublicationTable, ARowForEachDirectoryInTheirOrder) {
    const Page page(
        publication_table({{.address = "http://a/"}, {.address = "http://b/"}}, MOMENT).str());
    ASSERT_EQ(page.All("tr").size(), 3U);
    EXPECT_EQ(Page::Cells(page.All("tr").at(1))[0], "http://a/");
    EXPECT_EQ(Page::Cells(page.All("tr").at(2))[0], "http://b/");
}

TEST(PublicationTable, WhatIsKnownOfADirectory) {
    EXPECT_EQ(second_row({.address = "http://a/",
                          .listed = true,
                          .last_touch = MOMENT - 61,
                          .interval = 600,
                          .status = "Added"}),
              (Texts{"http://a/", "Yes", "1 mins 01 secs", "10 mins 00 secs", "Added"}));
    EXPECT_EQ(second_row({.last_touch = MOMENT})[1], "No");
}

TEST(PublicationTable, TimesBelowZeroAreNone) {
    const Texts cells = second_row({.last_touch = MOMENT + 1, .interval = -5});
    EXPECT_EQ(cells[2], "0 secs");
    EXPECT_EQ(cells[3], "0 secs");
}

// Kept: a directory that was never asked was asked in 1970.
TEST(PublicationTable, NeverTouchedCountsFromTheEpoch) {
    EXPECT_EQ(second_row({})[2], "11d 13h 46m 40s");
}

TEST(PublicationTable, NothingThatADirectorySaysBecomesMarkup) {
    const std::string bad = "</td><script>\"'&";
    const Page page(publication_table({{.address = bad, .status = bad}}, MOMENT).str());
    EXPECT_TRUE(page.IsWellFormed());
    EXPECT_TRUE(page.All("script").empty());
    EXPECT_EQ(Page::Cells(page.All("tr").at(1))[4], bad);
}

} // namespace
