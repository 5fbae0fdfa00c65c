#include "support/PanelVisit.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

// Two streams, and an account of each kind. Every password is "secret".
class Station {
public:
    Station() {
        make_account("root", "secret", User::ADMINISTRATOR);
        make_account("watcher", "secret", User::STATISTICS);
        make_account("first", "secret", User::MOUNT_MANAGER, 1);
        make_account("encoder", "secret", User::MOUNT_SOURCE, 2);
        make_account("both", "secret", User::MOUNT_MANAGER);
        make_account("hearer", "secret", User::LISTENER);
    }
    OnAir one{"/one", 1};
    OnAir two{"/two", 2};
};

std::string login_of(const std::string& name) { return basic(name + ":secret"); }

std::string page(const std::string& name, const std::string& path) {
    return PanelVisit(path, login_of(name)).Ask();
}

std::string status(const std::string& name, const std::string& path) {
    return PanelVisit(path, login_of(name)).Status();
}

// The tabs in their order: the shown one as its label, the others as "label address".
std::vector<std::string> tabs_of(const std::string& page) {
    const std::string list = between(page, "<div class=\"tabView\"><ul>", "</ul>");
    std::vector<std::string> tabs;
    for (std::size_t at = list.find("<li"); at != std::string::npos;
         at = list.find("<li", at + 1)) {
        const std::string tab = list.substr(at, list.find("</li>", at) - at);
        tabs.push_back(tab.starts_with("<li id=\"selected\">")
                           ? tab.substr(tab.find('>') + 1)
                           : between(tab, "\">", "</a>") + " " + between(tab, "href=\"", "\""));
    }
    return tabs;
}

std::string selected_tab(const std::string& page) {
    return between(page, "<li id=\"selected\">", "</li>");
}

std::string title_of(const std::string& page) { return between(page, "<title>", "</title>"); }

const std::string SERVER_TITLE = "Quillwave Multimedia Server";
const std::string PANEL_TITLE = SERVER_TITLE + " - Administration Panel";
const std::string OK = "200 OK";
const std::string REFUSED = "401 Unauthorized";
const std::string MISSING = "404 Not Found";

using Words = std::vector<std::string>;

// ---- Who gets in --------------------------------------------------------------------------------

TEST(AdminGate, StrangersAndThoseWhoManageNothingAreAskedForALogin) {
    const Station station;
    for (const char* path :
         {"/admin", "/admin/", "/admin.cgi", "/admin/users", "/admin/log", "/admin/tail/log",
          "/admin/status.xml", "/admin/status.json", "/admin/receiver/x", "/admin/stream/1/",
          "/admin/listeners", "/admin/configure", "/admin/metadata", "/administrator"}) {
        EXPECT_EQ(PanelVisit(path).Status(), REFUSED) << path;
        EXPECT_EQ(status("watcher", path), REFUSED) << path;
        EXPECT_EQ(status("hearer", path), REFUSED) << path;
        EXPECT_EQ(PanelVisit(path, basic("root:wrong")).Status(), REFUSED) << path;
        EXPECT_EQ(PanelVisit(path, basic("root:")).Status(), REFUSED) << path;
        EXPECT_EQ(PanelVisit(path, basic("root")).Status(), REFUSED) << path;
    }
}

TEST(AdminGate, TheRefusalAsksTheBrowserAndSaysWhatIsWanted) {
    const std::string answer = PanelVisit("/admin").Ask();
    EXPECT_TRUE(holds(answer, "\r\nWWW-Authenticate: Basic realm=\"Quillwave Server\"\r\n"));
    EXPECT_EQ(title_of(answer), SERVER_TITLE + " - Not Authenticated");
    EXPECT_TRUE(holds(answer, ">Not Authenticated</h2>"));
    EXPECT_TRUE(holds(answer, "You must autheticate to use the Administration panel."));
}

TEST(AdminGate, AnAdministratorGetsInWithoutAnyStream) {
    make_account("root", "secret", User::ADMINISTRATOR);
    EXPECT_EQ(status("root", "/admin"), OK);
}

TEST(AdminGate, AManagerWithoutAStreamDoesNot) {
    make_account("both", "secret", User::MOUNT_MANAGER);
    EXPECT_EQ(status("both", "/admin"), REFUSED);
}

TEST(AdminGate, ABannedAddressHasNoRights) {
    const Station station;
    UserList::GetBanUser()->AddProperty(User::EVERY_MOUNT, "127.0.0.1", User::IP);
    EXPECT_EQ(status("root", "/admin"), REFUSED);
}

// ---- The tabbed panel ---------------------------------------------------------------------------

TEST(Panel, AnAdministratorHasFourTabs) {
    const Station station;
    const std::string overview = page("root", "/admin");
    EXPECT_EQ(tabs_of(overview),
              (Words{"Streams", "Listeners /admin/listeners", "Settings /admin/configure",
                     "Mount Defaults /admin/configure_defaults"}));
    EXPECT_EQ(title_of(overview), PANEL_TITLE);
    EXPECT_EQ(tabs_of(page("root", "/admin/listeners")),
              (Words{"Streams /admin", "Listeners", "Settings /admin/configure",
                     "Mount Defaults /admin/configure_defaults"}));
    EXPECT_EQ(selected_tab(page("root", "/admin/configure")), "Settings");
    EXPECT_EQ(selected_tab(page("root", "/admin/configure_defaults")), "Mount Defaults");
}

TEST(Panel, AManagerOfSeveralStreamsHasTwo) {
    const Station station;
    EXPECT_EQ(tabs_of(page("both", "/admin/")), (Words{"Streams", "Listeners /admin/listeners"}));
    EXPECT_EQ(tabs_of(page("both", "/admin/index.html")),
              (Words{"Streams", "Listeners /admin/listeners"}));
    EXPECT_EQ(tabs_of(page("both", "/admin/listeners")), (Words{"Streams /admin", "Listeners"}));
}

TEST(Panel, AWrongPathIsRefusedAndThenAnsweredWithAnEmptyPage) {
    const Station station;
    for (const char* path : {"/administrator", "/admin/nothing", "/admin.cgi", "/admin/stream"}) {
        PanelVisit visit(path, login_of("root"));
        EXPECT_EQ(visit.Pass(), WebPanel::ANSWERED);
        const std::string answers = visit.Hear();
        EXPECT_TRUE(answers.starts_with("HTTP/1.0 404 Not Found\r\n")) << path;
        EXPECT_EQ(title_of(answers), SERVER_TITLE + " - Page Not Found");
        EXPECT_TRUE(holds(answers, ">Page Not Found</h2>"));
        EXPECT_TRUE(holds(answers, "The requested page does not exist."));
        const std::string second = answers.substr(answers.find("</html>") + 7);
        EXPECT_TRUE(second.starts_with("HTTP/1.0 200 OK\r\n")) << path;
        EXPECT_EQ(title_of(second), PANEL_TITLE);
        EXPECT_EQ(between(second, "<div id=\"displayArea\" style=\"overflow: auto;\">", "</div>"),
                  "");
        EXPECT_EQ(count_of(answers, "HTTP/1.0 "), 2);
    }
}

TEST(Panel, SettingsAreForAdministrators) {
    const Station station;
    for (const char* path : {"/admin/configure", "/admin/configure_defaults", "/admin/users",
                             "/admin/log", "/admin/tail/log"}) {
        const std::string answers = page("both", path);
        EXPECT_TRUE(answers.starts_with("HTTP/1.0 404 ")) << path;
        EXPECT_TRUE(holds(answers, "HTTP/1.0 200 OK\r\n")) << path;
    }
}

TEST(Panel, OnlyTheOverviewCarriesThePlayer) {
    const Station station;
    const auto carries_player = [](const std::string& path) {
        return holds(page("root", path), "function quillPlay(");
    };
    EXPECT_TRUE(carries_player("/admin"));
    EXPECT_TRUE(carries_player("/admin/"));
    EXPECT_FALSE(carries_player("/admin?lp=1"));
    EXPECT_FALSE(carries_player("/admin/configure"));
    EXPECT_FALSE(carries_player("/admin/listeners"));
}

// ---- Accounts and one receiver ------------------------------------------------------------------

TEST(PanelUsers, TheQueryChoosesTheList) {
    const Station station;
    EXPECT_EQ(tabs_of(page("root", "/admin/users")),
              (Words{"Users", "Bans ?m=b", "Reserves ?m=v"}));
    EXPECT_EQ(tabs_of(page("root", "/admin/users?m=b")),
              (Words{"Users ?m=u", "Bans", "Reserves ?m=v"}));
    EXPECT_EQ(tabs_of(page("root", "/admin/users?m=v")),
              (Words{"Users ?m=u", "Bans ?m=b", "Reserves"}));
    EXPECT_EQ(selected_tab(page("root", "/admin/users?m=x")), "Users");
    EXPECT_EQ(selected_tab(page("root", "/admin/users?m=u")), "Users");
    EXPECT_EQ(title_of(page("root", "/admin/users")), SERVER_TITLE);
}

TEST(PanelReceiver, TheIdStandsInTheHeadingEncoded) {
    const Station station;
    for (const char* name : {"root", "both", "first", "encoder"})
        EXPECT_TRUE(holds(page(name, "/admin/receiver/a/<b>"), "Receiver Stats for &lt;b&gt;</h2>"))
            << name;
    EXPECT_TRUE(holds(page("root", "/admin/receiver/"), "Receiver Stats for </h2>"));
}

// ---- Streams ------------------------------------------------------------------------------------

TEST(PanelStream, AnAddressWithoutASlashIsSentToTheOneWithIt) {
    const Station station;
    const std::string answer = page("root", "/admin/stream/1");
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 303 "));
    EXPECT_TRUE(holds(answer, "\r\nContent-Length: 0\r\nLocation: /admin/stream/1/\r\n"));
}

TEST(PanelStream, TheLastWordChoosesTheTab) {
    const Station station;
    const std::string stats = page("root", "/admin/stream/1/");
    EXPECT_EQ(tabs_of(stats), (Words{"Stats", "Listeners listeners", "Played played",
                                     "Publication Lists publication", "Configure configure",
                                     "Users users", "Bans bans", "Reserve reserve"}));
    EXPECT_EQ(title_of(stats), SERVER_TITLE);
    const std::vector<std::pair<std::string, std::string>> words = {
        {"stats", "Stats"},         {"listeners", "Listeners"},
        {"played", "Played"},       {"publication", "Publication Lists"},
        {"configure", "Configure"}, {"users", "Users"},
        {"bans", "Bans"},           {"reserve", "Reserve"},
        {"else", "Stats"},          {"played/", "Stats"},
        {"played/played", "Stats"}};
    for (const auto& [word, tab] : words)
        EXPECT_EQ(selected_tab(page("root", "/admin/stream/2/" + word)), tab) << word;
    EXPECT_EQ(tabs_of(page("root", "/admin/stream/1/bans")).front(), "Stats stats");
}

TEST(PanelStream, AnIdThatIsNoNumberIsInvalid) {
    const Station station;
    for (const char* id : {"x", "", "1x", "-1", "-99999999999999999999"}) {
        const std::string answer = page("root", std::string("/admin/stream/") + id + "/");
        EXPECT_TRUE(answer.starts_with("HTTP/1.0 404 ")) << id;
        EXPECT_EQ(title_of(answer), SERVER_TITLE + " - Stream ID Not Found");
        EXPECT_TRUE(holds(answer, ">Stream ID Not Found</h2>"));
        EXPECT_TRUE(holds(answer, "This stream id is invalid.")) << id;
        EXPECT_EQ(count_of(answer, "HTTP/1.0 "), 1);
    }
}

TEST(PanelStream, AStreamThatIsNotTheUsersDoesNotExist) {
    const Station station;
    const auto words = [](const std::string& id) {
        return "The Stream ID " + id + " does not exist</div>";
    };
    EXPECT_TRUE(holds(page("root", "/admin/stream/3/"), words("3")));
    EXPECT_TRUE(holds(page("root", "/admin/stream/-/"), words("0")));
    EXPECT_TRUE(holds(page("root", "/admin/stream/99999999999/"), words("2147483647")));
    const OnAir three("/three", 3);
    make_account("most", "secret", User::MOUNT_MANAGER, 1)->AddProperty(2, "*", User::ALL);
    EXPECT_TRUE(holds(page("most", "/admin/stream/3/"), words("3")));
    EXPECT_EQ(selected_tab(page("most", "/admin/stream/2/played")), "Played");
}

TEST(PanelStream, AManagerOfOneStreamFindsItEverywhere) {
    const Station station;
    EXPECT_TRUE(holds(page("first", "/admin"), "\r\nLocation: /admin/\r\n"));
    EXPECT_TRUE(holds(page("first", "/admin.cgi"), "\r\nLocation: /admin.cgi/\r\n"));
    const std::vector<std::pair<std::string, std::string>> paths = {
        {"/admin/", "Stats"},
        {"/admin/listeners", "Listeners"},
        {"/admin/users", "Users"},
        {"/admin/configure", "Configure"},
        {"/admin/log", "Stats"},
        {"/admin/tail/log", "Stats"},
        {"/admin/configure_defaults", "Stats"},
        {"/admin/stream/2/played", "Played"},
        {"/administrator/bans", "Bans"}};
    for (const auto& [path, tab] : paths)
        for (const char* name : {"first", "encoder"})
            EXPECT_EQ(selected_tab(page(name, path)), tab) << path << " " << name;
}

TEST(PanelStream, TheOnlyStreamOfTheServerIsMeantWhateverItsId) {
    const OnAir only("/only", 4);
    make_account("root", "secret", User::ADMINISTRATOR);
    EXPECT_EQ(selected_tab(page("root", "/admin/stream/7/played")), "Played");
    EXPECT_EQ(selected_tab(page("root", "/admin/stream/x/users")), "Users");
    EXPECT_EQ(selected_tab(page("root", "/admin/listeners")), "Listeners");
    EXPECT_EQ(tabs_of(page("root", "/admin/listeners")).size(), 4U);
}

TEST(PanelStream, AnAdministratorWithoutStreamsIsToldThatThereIsNone) {
    make_account("root", "secret", User::ADMINISTRATOR);
    EXPECT_TRUE(holds(page("root", "/admin/stream/1/"), "The Stream ID 1 does not exist"));
}

// ---- Feeds of the panel -------------------------------------------------------------------------

TEST(PanelFeeds, AreForEveryManager) {
    const Station station;
    for (const char* path : {"/admin/status.xml", "/admin/status.json"})
        for (const char* name : {"root", "both", "first"})
            EXPECT_EQ(PanelVisit(path, login_of(name)).Pass(), WebPanel::ANSWERED);
}

// ---- What the user may manage -------------------------------------------------------------------

TEST(PanelMounts, AreFoundByAddressAndByIdAmongTheUsersOwn) {
    const Station station;
    const PanelVisit visit("/admin", login_of("first"));
    EXPECT_EQ(visit.panel.get_mount_by_id(1), station.one.mount);
    EXPECT_EQ(visit.panel.get_mount_by_address("/one"), station.one.mount);
    EXPECT_EQ(visit.panel.get_mount_by_id(2), nullptr);
    EXPECT_EQ(visit.panel.get_mount_by_address("/two"), nullptr);
    EXPECT_EQ(visit.panel.get_mount_by_address("/one/"), nullptr);
    const PanelVisit stranger("/admin");
    EXPECT_EQ(stranger.panel.get_mount_by_id(1), nullptr);
}

TEST(PanelMounts, AnotherRequestBringsItsOwnUser) {
    const Station station;
    PanelVisit visit("/admin");
    const PanelVisit manager("/admin", login_of("both"));
    visit.panel.SetRequest(manager.request);
    EXPECT_EQ(visit.panel.get_mount_by_id(2), station.two.mount);
}

TEST(PanelMounts, NobodyManagesByTheBanListOrTheReserveList) {
    const Station station;
    UserList::GetReserveUser()->AddProperty(User::EVERY_MOUNT, "*", User::ALL);
    const PanelVisit reserved("/admin");
    EXPECT_EQ(reserved.panel.get_mount_by_id(1), nullptr);
    UserList::GetBanUser()->AddProperty(User::EVERY_MOUNT, "*", User::ALL);
    const PanelVisit banned("/admin");
    EXPECT_EQ(banned.panel.get_mount_by_id(1), nullptr);
}

} // namespace
