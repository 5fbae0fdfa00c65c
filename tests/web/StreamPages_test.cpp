#include "core/Clock.h"
#include "media/Metadata.h"
#include "support/Page.h"
#include "support/PanelRequest.h"

#include <gtest/gtest.h>
#include <optional>

namespace {

constexpr time_t MOMENT = 1'000'000;
const std::string ADMIN = "root:secret";
const std::string MANAGER = "dj:secret";

using Texts = std::vector<std::string>;

std::shared_ptr<METADATA> titled(const std::string& title) {
    const auto record = std::make_shared<METADATA>();
    record->title = title;
    return record;
}

struct StreamPages : testing::Test {
    StreamPages() {
        Clock::Hold(MOMENT);
        make_account("root", "secret", User::ADMINISTRATOR);
    }

    // One page at a time.
    std::optional<PanelRequest> visit;
    std::unique_ptr<WebPanel> panel;

    template <typename... Asks> WebPanel& ask(const Asks&... asks) {
        visit.emplace(asks...);
        panel = std::make_unique<WebPanel>(visit->request);
        return *panel;
    }
    template <typename... Asks> std::string list(const Asks&... asks) {
        return ask(asks...).create_overall_stats().str();
    }
    // The values of a stream's page, by their labels, in the form for managers.
    std::string figure(const std::string& label, const std::string& query = {}) {
        const Page page(ask("/admin/stream/1/" + query, ADMIN).create_mount_stats(1, true).str());
        for (const auto* row : page.All("tr"))
            if (Page::Cells(row).front() == label) return Page::Cells(row).back();
        return "no such row";
    }
    static Texts labels(const html::Markup& stats) {
        const Page page(stats.str());
        Texts words;
        for (const auto* cell : page.With("class", "tableViewIndex"))
            words.push_back(Page::Text(cell));
        return words;
    }
    static Texts buttons(const std::string& markup) {
        Texts words;
        const Page page(markup);
        for (const auto* input : page.With("type", "submit"))
            words.push_back(Page::Value(input, "value"));
        return words;
    }
    std::string head() { return panel->get_page_header("").str(); }
    void make_manager_of(const std::vector<int>& ids) {
        const auto manager = UserList::Add("dj", "secret");
        manager->SetGroup(User::MOUNT_MANAGER);
        for (const int id : ids)
            manager->AddProperty(id, "*", User::ALL);
    }
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// ---- The list: who sees which -------------------------------------------------------------------

TEST_F(StreamPages, EverybodySeesTheStreamsOnTheAirThatAskForNoLogin) {
    OnAir live("/live", 1);
    OnAir hidden("/hidden", 2, {{"Auth", "yes"}});
    OnAir silent("/silent", 3);
    live.Connect();
    hidden.Connect();
    const Page page(list("/"));
    EXPECT_TRUE(page.IsWellFormed());
    EXPECT_TRUE(page.First("id", "internalStation1"));
    EXPECT_FALSE(page.First("id", "internalStation2"));
    EXPECT_FALSE(holds(page.Text(), "/silent"));
    EXPECT_TRUE(page.All("form").empty());
    EXPECT_TRUE(page.All("input").empty());
}

TEST_F(StreamPages, AnAdministratorSeesAllOfThem) {
    OnAir live("/live", 1);
    OnAir silent("/silent", 2);
    OnAir off("/off", 3, {{"Disabled", "yes"}});
    live.Connect();
    const Page page(list("/admin", ADMIN));
    EXPECT_TRUE(page.IsWellFormed());
    Texts first_cells;
    for (const auto* row : page.All("tr"))
        first_cells.push_back(Page::Cells(row).front());
    EXPECT_EQ(first_cells, (Texts{"Select all streamsName", "No streams are available.",
                                  "Select /live/live", "Inactive Mounts", "Select /silent/silent",
                                  "Disabled Mounts", "Select /off/off", ""}));
    EXPECT_EQ(page.With("class", "tableViewColDisabled").size(), 1U);
    EXPECT_EQ(Page::Value(page.All("form").front(), "method"), "post");
}

TEST_F(StreamPages, AnAdministratorIsOneOfThePublicOnTheHomePage) {
    OnAir silent("/silent", 1);
    const Page page(list("/", ADMIN));
    EXPECT_TRUE(page.All("form").empty());
    EXPECT_EQ(Page::Width(page.First("id", "tableViewNone")), 5);
}

TEST_F(StreamPages, AManagerSeesTheirOwn) {
    OnAir live("/live", 1);
    OnAir more("/more", 2);
    OnAir other("/other", 3);
    make_manager_of({1, 2});
    const Page page(list("/admin", MANAGER));
    EXPECT_TRUE(holds(page.Text(), "/live") && holds(page.Text(), "/more"));
    EXPECT_FALSE(holds(page.Text(), "/other"));
}

TEST_F(StreamPages, AManagerOfOneStreamSeesWhatEverybodySees) {
    OnAir live("/live", 1);
    make_manager_of({1});
    EXPECT_TRUE(Page(list("/admin", MANAGER)).All("form").empty());
}

// ---- The list: its forms ------------------------------------------------------------------------

TEST_F(StreamPages, TheButtonsOfAnAdministrator) {
    OnAir live("/live", 1);
    const std::string markup = list("/admin", ADMIN);
    EXPECT_EQ(buttons(markup), (Texts{"Kick", "Disable", "Enable", "Delete"}));
    const Page page(markup);
    const auto* add = page.First("value", "Add");
    EXPECT_EQ(Page::Value(add, "onclick"), "actionQuery()");
    EXPECT_TRUE(holds(head(), "name=\"addr\""));
    EXPECT_TRUE(holds(head(), "value=\"Create\""));
}

TEST_F(StreamPages, AManagerHasNoButtonsToAddOrDelete) {
    OnAir live("/live", 1);
    OnAir more("/more", 2);
    make_manager_of({1, 2});
    const std::string markup = list("/admin", MANAGER);
    EXPECT_EQ(buttons(markup), (Texts{"Kick", "Disable", "Enable"}));
    EXPECT_FALSE(holds(markup, "\"Add\""));
    EXPECT_EQ(Page(markup).With("id", "select_check").size(), 2U);
    EXPECT_FALSE(holds(head(), "addr"));
}

TEST_F(StreamPages, TheMasterCheckTicksTheRows) {
    OnAir live("/live", 1);
    EXPECT_TRUE(Page(list("/admin", ADMIN)).First("id", "master_select_check"));
    EXPECT_TRUE(holds(head(), "function toggleBox()"));
}

TEST_F(StreamPages, TheFirstMountIsMadeInARowOfItsOwn) {
    const Page page(list("/admin", ADMIN));
    const auto rows = page.All("tr");
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(Page::Value(rows[0], "style"), "display: none;");
    EXPECT_EQ(Page::Value(rows[1], "style"), "");
    EXPECT_EQ(Page::Width(rows[2]), 9);
    EXPECT_EQ(Page::Value(page.First("name", "addr"), "type"), "text");
    EXPECT_TRUE(page.First("value", "Create"));
    EXPECT_FALSE(page.First("id", "mount_actions"));
}

// ---- The list: its actions come before it is drawn ----------------------------------------------

TEST_F(StreamPages, AMountThatIsMadeStandsInTheList) {
    OnAir live("/live", 1);
    const std::string markup =
        list("/admin", ADMIN, PanelRequest::Form{{"action", "Create"}, {"addr", "new"}});
    EXPECT_TRUE(holds(Page(markup).Text(), "Select /new/new"));
    EXPECT_TRUE(panel->get_mount_by_address("/new"));
    MountList::GetMount("/new")->WaitForStop();
}

TEST_F(StreamPages, AMountThatIsDeletedDoesNot) {
    OnAir live("/live", 1);
    OnAir more("/more", 2);
    const std::string markup =
        list("/admin", ADMIN, PanelRequest::Form{{"action", "Delete"}, {"/live", "on"}});
    EXPECT_FALSE(holds(markup, "/live"));
    EXPECT_TRUE(holds(markup, "/more"));
}

TEST_F(StreamPages, TheLastMountLeavesAListToStartAgain) {
    OnAir live("/live", 1);
    const Page page(
        list("/admin", ADMIN, PanelRequest::Form{{"action", "Delete"}, {"/live", "on"}}));
    EXPECT_TRUE(page.First("name", "addr"));
    EXPECT_EQ(Page::Value(page.First("id", "tableViewNone"), "style"), "");
}

TEST_F(StreamPages, ADeleteByAManagerIsIgnoredAndTheRowStays) {
    OnAir live("/live", 1);
    OnAir more("/more", 2);
    make_manager_of({1, 2});
    const std::string markup =
        list("/admin", MANAGER, PanelRequest::Form{{"action", "Delete"}, {"/live", "on"}});
    EXPECT_TRUE(holds(markup, "Select /live"));
    EXPECT_TRUE(MountList::GetMount("/live"));
}

TEST_F(StreamPages, TheHomePageDoesNothing) {
    OnAir live("/live", 1);
    list("/", ADMIN, PanelRequest::Form{{"action", "Create"}, {"addr", "new"}});
    list("/", ADMIN, PanelRequest::Form{{"action", "Delete"}, {"/live", "on"}});
    EXPECT_EQ(MountList::GetAllMounts(false).size(), 1U);
    EXPECT_TRUE(MountList::GetMount("/live"));
}

TEST_F(StreamPages, AManagerOfOneStreamDoesNothingInTheList) {
    OnAir live("/live", 1);
    make_manager_of({1});
    list("/admin", MANAGER, PanelRequest::Form{{"action", "Disable"}, {"/live", "on"}});
    EXPECT_FALSE(live.mount->IsDisabled());
}

TEST_F(StreamPages, AMountThatIsRemovedMeanwhileKeepsItsRow) {
    OnAir live("/live", 1);
    OnAir more("/more", 2);
    ask("/admin", ADMIN);
    MountList::Remove(live.mount);
    const Page page(panel->create_overall_stats().str());
    EXPECT_TRUE(page.IsWellFormed());
    EXPECT_TRUE(holds(page.Text(), "Disabled MountsSelect /live/live"));
}

// ---- The list: its player and its script --------------------------------------------------------

TEST_F(StreamPages, TheHomePageHasThePlayerAndTheLiveScript) {
    list("/");
    EXPECT_TRUE(holds(head(), "/jquery/1.11.1/jquery.min.js"));
    EXPECT_TRUE(holds(head(), "var playerEnabled = true;"));
    EXPECT_TRUE(holds(head(), "/status.json?wfc=y"));
}

TEST_F(StreamPages, WithLpThereIsNoPlayerAndThePlayLinksStay) {
    OnAir live("/live", 1);
    live.Connect();
    const std::string markup = list("/?lp=y");
    EXPECT_TRUE(holds(head(), "var playerEnabled = false;"));
    EXPECT_TRUE(holds(markup, "/sbin/tunein.pls?mnt=%2Flive"));
}

TEST_F(StreamPages, TheAdministrationHasNoLiveScript) {
    OnAir live("/live", 1);
    list("/admin", ADMIN);
    EXPECT_FALSE(holds(head(), "jquery"));
    EXPECT_FALSE(holds(head(), "loadStats"));
}

// ---- The page of a stream -----------------------------------------------------------------------

TEST_F(StreamPages, AStreamThatDoesNotExist) {
    EXPECT_EQ(ask("/view/9/").create_mount_stats(9, false).str(), "Stream ID: 9 does not exist.");
    EXPECT_EQ(ask("/view/9/").create_mount_last_played(9).str(), "Stream ID: 9 does not exist.");
    EXPECT_EQ(ask("/view/9/").create_publication_list(9).str(), "Stream ID: 9 was not found.");
}

TEST_F(StreamPages, TheRowsForEverybody) {
    OnAir live("/live", 1);
    const html::Markup stats = ask("/view/1/").create_mount_stats(1, false);
    EXPECT_EQ(labels(stats), (Texts{"Stream Status:", "Name:", "Website:", "Genre:",
                                    "Content Type:", "Bitrate:", "Listeners:", "Now Playing:"}));
    const Page page(stats.str());
    EXPECT_TRUE(page.IsWellFormed());
    EXPECT_TRUE(page.All("form").empty());
    EXPECT_EQ(page.With("class", "tableViewCol").size(), 8U);
    EXPECT_EQ(Page::Value(page.All("table").front(), "class"), "tableView");
}

TEST_F(StreamPages, TheRowsForManagers) {
    OnAir live("/live", 1);
    const html::Markup stats = ask("/admin/stream/1/", ADMIN).create_mount_stats(1, true);
    EXPECT_EQ(labels(stats),
              (Texts{"Stream Status:", "Name:", "Website:", "Genre:", "Content Type:", "Bitrate:",
                     "Listeners:", "Tune-Ins:", "Average Listening Time (TSL):",
                     "Average Quarter Hour (AQH):", "Now Playing:"}));
    EXPECT_EQ(Page::Width(Page(stats.str()).All("tr").back()), 2);
}

TEST_F(StreamPages, TheStatusOfAStream) {
    OnAir live("/live", 1);
    EXPECT_EQ(figure("Stream Status:"), "live is offline");
    live.Connect("audio/mpeg", "icy-pub: 1\r\n");
    EXPECT_EQ(figure("Stream Status:"), "live is online and currently public");
    live.mount->SetPublicState(Mount::PublicState::NEVER);
    EXPECT_EQ(figure("Stream Status:"), "live is online and currently private");
}

TEST_F(StreamPages, WhatTheSourceSaid) {
    OnAir live("/live", 1, {{"UserMax", "10"}});
    live.Connect("application/ogg", "icy-name: Caf\xE9\r\nicy-genre: Rock\r\nicy-br: 128\r\n"
                                    "icy-url: example.org\r\n");
    live.mount->SetMetaData(titled("Song"));
    EXPECT_EQ(figure("Name:"), "Caf\xC3\xA9");
    EXPECT_EQ(figure("Genre:"), "Rock");
    EXPECT_EQ(figure("Content Type:"), "application/ogg");
    EXPECT_EQ(figure("Bitrate:"), "0 bps (128)");
    EXPECT_EQ(figure("Listeners:"), "0 of 10 (0 Unique)");
    EXPECT_EQ(figure("Tune-Ins:"), "0 (5 mins: 0)");
    EXPECT_EQ(figure("Average Listening Time (TSL):"), "0:00:00");
    EXPECT_EQ(figure("Average Quarter Hour (AQH):"), "0");
    EXPECT_EQ(figure("Now Playing:"), "Song");
}

TEST_F(StreamPages, WhatTheSourceDidNotSay) {
    OnAir live("/live", 1);
    live.Connect();
    EXPECT_EQ(figure("Bitrate:"), "0 bps");
    EXPECT_EQ(figure("Listeners:"), "0 (0 Unique)");
}

TEST_F(StreamPages, AWebsiteIsALinkOnlyWhereABrowserOpensIt) {
    const auto link_to = [this](const std::string& website) {
        OnAir live("/live", 1);
        live.Connect("audio/mpeg", "icy-url: " + website + "\r\n");
        const Page page(ask("/view/1/").create_mount_stats(1, false).str());
        MountList::Remove(live.mount);
        EXPECT_TRUE(holds(page.Text(), website)) << website;
        return page.All("a").empty() ? "" : Page::Value(page.All("a").front(), "href");
    };
    EXPECT_EQ(link_to("example.org"), "http://example.org");
    EXPECT_EQ(link_to("www.example.org/?a=1&b=\"2\""), "http://www.example.org/?a=1&b=\"2\"");
    for (const char* link : {"http://x/", "HTTPS://x/", "ftp://x/", "mailto://x", "rtsp://x/",
                             "rtmp://x/", "mms://x/"})
        EXPECT_EQ(link_to(link), link);
    for (const char* text :
         {"javascript://%0aalert(1)", "JavaScript://x", "data://text/html,x", "vbscript://x",
          "x://y", "://", "http:javascript://x", "x javascript://y"})
        EXPECT_EQ(link_to(text), "");
}

TEST_F(StreamPages, NothingThatASourceSaysBecomesMarkupOnItsPage) {
    const std::string bad = "</td><script>\"'&";
    OnAir live("/\"><script>", 1);
    live.Connect("<script>", "icy-name: " + bad + "\r\nicy-genre: " + bad + "\r\nicy-br: " + bad +
                                 "\r\nicy-url: " + bad + "\r\n");
    live.mount->SetMetaData(titled(bad));
    live.mount->SetMetaData(titled("next"));
    for (const bool admin : {false, true}) {
        const Page page(ask("/admin/stream/1/", ADMIN).create_mount_stats(1, admin).str());
        EXPECT_TRUE(page.IsWellFormed());
        EXPECT_TRUE(page.All("script").empty());
    }
    EXPECT_EQ(figure("Name:"), bad);
    const Page songs(panel->create_mount_last_played(1).str());
    EXPECT_TRUE(songs.IsWellFormed());
    EXPECT_TRUE(songs.All("script").empty());
}

// ---- The page of a stream: bytes ----------------------------------------------------------------

TEST_F(StreamPages, RawMetadataForWhoAsks) {
    OnAir live("/live", 1);
    EXPECT_EQ(figure("Raw Metadata:", "?rmd=y"), "no such row");
    const auto record = titled("Song");
    record->raw = {'\x01', '\xAB'};
    live.mount->SetMetaData(record);
    EXPECT_EQ(figure("Raw Metadata:", "?rmd=y"), "01 AB ");
    EXPECT_EQ(figure("Raw Metadata:", "?rmd=n"), "no such row");
    EXPECT_EQ(figure("Raw Metadata:"), "no such row");
    EXPECT_FALSE(holds(ask("/view/1/?rmd=y", ADMIN).create_mount_stats(1, false).str(), "01 AB"));
}

TEST_F(StreamPages, ThePacketsForWhoAsks) {
    OnAir live("/live", 1);
    live.Connect();
    EXPECT_EQ(figure("Packet Buffer Size:", "?rpb=y"), "no such row");
    const auto record = titled("Song");
    record->raw = {'\x01', '\xAB'};
    live.mount->SetMetaData(record);
    live.Feed('a');
    EXPECT_EQ(figure("Packet Buffer Size:", "?rpb=y"), "16 keys and 8000 bytes");
    const html::Markup stats = ask("/admin/stream/1/?rpb=y", ADMIN).create_mount_stats(1, true);
    const Texts words = labels(stats);
    ASSERT_EQ(words.size(), 11U + 1 + 1 + 16);
    EXPECT_EQ(words[12], "Raw Metadata:");
    EXPECT_EQ(words[13], "0 Raw PacketBuffer Sz 500:");
    std::string hex;
    for (int byte = 0; byte < 500; ++byte)
        hex += "61 ";
    EXPECT_EQ(figure("0 Raw PacketBuffer Sz 500:", "?rpb=y"), hex);
    EXPECT_EQ(figure("Packet Buffer Size:"), "no such row");
    EXPECT_EQ(labels(ask("/view/1/?rpb=y", ADMIN).create_mount_stats(1, false)).size(), 8U);
}

// ---- The page of a stream: its form -------------------------------------------------------------

TEST_F(StreamPages, TheButtonsFollowTheState) {
    OnAir live("/live", 1);
    const auto shown = [this] {
        return buttons(ask("/admin/stream/1/", ADMIN).create_mount_stats(1, true).str());
    };
    EXPECT_EQ(shown(), (Texts{"Disable", "Reset Stats"}));
    live.Connect();
    EXPECT_EQ(shown(), (Texts{"Kick", "Disable", "Reset Stats"}));
    live.mount->WaitForStop();
    EXPECT_EQ(shown(), (Texts{"Enable", "Reset Stats"}));
}

TEST_F(StreamPages, AnActionComesBeforeThePageIsDrawn) {
    OnAir live("/live", 1);
    live.mount->ExtendedReceiver();
    ask("/admin/stream/1/", ADMIN, PanelRequest::Form{{"action", "Reset Stats"}});
    EXPECT_TRUE(holds(panel->create_mount_stats(1, true).str(), "0 (5 mins: 0)"));
}

TEST_F(StreamPages, ThePublicPageDoesNothing) {
    OnAir live("/live", 1);
    ask("/view/1/", ADMIN, PanelRequest::Form{{"action", "Disable"}});
    panel->create_mount_stats(1, false);
    EXPECT_FALSE(live.mount->IsDisabled());
}

// ---- Songs --------------------------------------------------------------------------------------

TEST_F(StreamPages, NoSongsYet) {
    OnAir live("/live", 1);
    const Page page(ask("/view/1/played").create_mount_last_played(1).str());
    ASSERT_EQ(page.All("tr").size(), 1U);
    EXPECT_EQ(Page::Text(page.All("tr").front()), "There is currently no song history.");
}

TEST_F(StreamPages, TheSongsThatHaveEnded) {
    OnAir live("/live", 1);
    for (const char* title : {"one", "two", "three"}) {
        live.mount->SetMetaData(titled(title));
        Clock::Advance(65);
    }
    const Page page(ask("/view/1/played").create_mount_last_played(1).str());
    const auto rows = page.All("tr");
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(Page::Value(rows[0], "class"), "tableViewHead");
    EXPECT_EQ(Page::Cells(rows[0]), (Texts{"Last 2 tracks played on live"}));
    EXPECT_EQ(Page::Width(rows[0]), 2);
    EXPECT_EQ(Page::Cells(rows[1]), (Texts{"1 mins 05 secs ago", "two"}));
    EXPECT_EQ(Page::Cells(rows[2]), (Texts{"2 mins 10 secs ago", "one"}));
}

TEST_F(StreamPages, ASongThatEndsDuringThePassEndedNow) {
    OnAir live("/live", 1);
    live.mount->SetMetaData(titled("one"));
    ask("/view/1/played");
    Clock::Advance(1);
    live.mount->SetMetaData(titled("two"));
    const Page page(panel->create_mount_last_played(1).str());
    EXPECT_EQ(Page::Cells(page.All("tr").back()), (Texts{"0 secs ago", "one"}));
}

// Kept: the titles of the history go out as they came.
TEST_F(StreamPages, ATitleInLatin1StaysSoInTheHistory) {
    OnAir live("/live", 1);
    live.mount->SetMetaData(titled("Caf\xE9"));
    live.mount->SetMetaData(titled("next"));
    EXPECT_TRUE(holds(ask("/view/1/played").create_mount_last_played(1).str(), "Caf\xE9</td>"));
}

// ---- Directories --------------------------------------------------------------------------------

TEST_F(StreamPages, AStreamWithoutDirectories) {
    OnAir live("/live", 1);
    const Page page(ask("/admin/stream/1/publication", ADMIN).create_publication_list(1).str());
    EXPECT_EQ(Page::Text(page.All("tr").front()), "No directories are available.");
}

} // namespace
