#include "support/LogLines.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* BROWSER = "User-Agent: Mozilla/5.0\r\n";

int result_of(const std::string& path, const std::string& fields = {}) {
    return PanelVisit(path, fields).Pass();
}

std::string selected_tab(const std::string& page) {
    return between(page, "<li id=\"selected\">", "</li>");
}

// ---- Which paths are pages ----------------------------------------------------------------------

TEST(Routes, WhatIsNoPageGoesOn) {
    for (const char* path : {"/live", "/robots.txt2", "/statusxml", "/status.xmll", "/7/", "/71",
                             "/images/other.png", "/vie", "/view", "/abou", "/sbin/tunein.pls",
                             "/sbin/tunein?mnt=", "/index.htm", "//", "/Admin"})
        EXPECT_EQ(result_of(path), WebPanel::NOT_A_PAGE) << path;
}

TEST(Routes, PublicPathsArePages) {
    for (const char* path : {"/robots.txt",
                             "/crossdomain.xml",
                             "/index.html",
                             "/",
                             "/view/1",
                             "/view/1/",
                             "/about",
                             "/aboutanything",
                             "/admin",
                             "/admin.cgi",
                             "/administrator",
                             "/status.xml",
                             "/status.json",
                             "/7",
                             "/7.html",
                             "/favicon.ico",
                             "/images/logo.png",
                             "/images/quillwave.png",
                             "/images/play.png",
                             "/flash/quillwave.swf",
                             "/images/stop.png",

                             "/stylesheets/main.css"})
        EXPECT_EQ(result_of(path), WebPanel::ANSWERED) << path;
}

TEST(Routes, TheQueryTakesNoPartInThePath) {
    EXPECT_EQ(result_of("/index.html?x=/y"), WebPanel::ANSWERED);
    EXPECT_EQ(result_of("/live?/index.html"), WebPanel::NOT_A_PAGE);
}

TEST(Routes, TheMethodTakesNoPart) {
    for (const char* method : {"GET", "HEAD", "POST", "PUT", "OPTIONS", "SOURCE"})
        EXPECT_EQ(PanelVisit("/view/1", "Content-Length: 0\r\n", method).Pass(), WebPanel::ANSWERED)
            << method;
}

TEST(Routes, AMountAtTheRootIsForPlayersAndThePageForBrowsers) {
    const OnAir radio("/live", 1, {{"IsDefault", "yes"}});
    EXPECT_EQ(result_of("/"), WebPanel::NOT_A_PAGE);
    EXPECT_EQ(result_of("/", "User-Agent: Winamp\r\n"), WebPanel::NOT_A_PAGE);
    EXPECT_EQ(result_of("/", BROWSER), WebPanel::ANSWERED);
    EXPECT_EQ(result_of("/index.html"), WebPanel::ANSWERED);
}

// Such a mount lies at "/" for players that use "/;".
TEST(Routes, AMountAssignedToAPortIsHiddenByTheHomePage) {
    const OnAir radio("/live", 1, {{"Port", "8000"}});
    EXPECT_EQ(result_of("/"), WebPanel::ANSWERED);
}

TEST(Routes, TuneinOfAMountIsAPageAndOfNoneGoesOn) {
    const OnAir radio("/live");
    EXPECT_EQ(result_of("/sbin/tunein.m3u?mnt=/live"), WebPanel::ANSWERED);
    EXPECT_EQ(result_of("/sbin/tuneinanything?mnt=/live"), WebPanel::ANSWERED);
    EXPECT_EQ(result_of("/sbin/tunein?mnt=/none"), WebPanel::NOT_A_PAGE);
}

TEST(Routes, ShadowWhatMountsMayHave) {
    for (const char* path :
         {"/about", "/about.mp3", "/admin", "/admin.cgi", "/administrator", "/view/1", "/7",
          "/7.html", "/status.xml", "/index.html", "/favicon.ico", "/robots.txt"})
        EXPECT_TRUE(WebPanel::Shadows(path)) << path;
    for (const char* path : {"/", "/live", "/view", "/sbin/tunein", "/70", "/stream/1", "/Admin"})
        EXPECT_FALSE(WebPanel::Shadows(path)) << path;
}

TEST(Routes, AMountThatIsShadowedIsWarnedOf) {
    LogLines log;
    const OnAir hidden("/about\tme", 1);
    const OnAir open("/live", 2);
    log.All();
    EXPECT_EQ(log.Count("Warning: Mount /about me lies at an address of the web panel and cannot "
                        "be reached there."),
              1);
    EXPECT_EQ(log.Count("cannot be reached"), 1);
}

// ---- Public stream pages ------------------------------------------------------------------------

TEST(PublicStream, AnAddressWithoutASlashIsSentToTheOneWithIt) {
    PanelVisit visit("/view/5?a=b");
    const std::string answer = visit.Ask();
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 303 "));
    EXPECT_TRUE(holds(answer, "\r\nContent-Length: 0\r\nLocation: /view/5/\r\n"));
    EXPECT_TRUE(answer.ends_with("\r\n\r\n"));
}

TEST(PublicStream, TheLastWordChoosesTheTab) {
    const std::string stats = PanelVisit("/view/1/").Ask();
    EXPECT_EQ(selected_tab(stats), "Stats");
    EXPECT_TRUE(holds(stats, "<li><a href=\"played\">Played</a></li>"));
    const std::string played = PanelVisit("/view/1/played").Ask();
    EXPECT_EQ(selected_tab(played), "Played");
    EXPECT_TRUE(holds(played, "<li><a href=\"stats\">Stats</a></li>"));
    EXPECT_EQ(selected_tab(PanelVisit("/view/1/played/").Ask()), "Stats");
    EXPECT_EQ(selected_tab(PanelVisit("/view/1/other").Ask()), "Stats");
    EXPECT_TRUE(holds(stats, "<title>Quillwave Multimedia Server</title>"));
}

TEST(PublicStream, AnIdThatIsNoNumberIsRefusedAndGoesOnToTheMounts) {
    for (const char* path : {"/view/abc/", "/view//", "/view/1x/", "/view/-1-/"}) {
        PanelVisit visit(path);
        EXPECT_EQ(visit.Pass(), WebPanel::NOT_A_PAGE) << path;
        const std::string answer = visit.Hear();
        EXPECT_TRUE(answer.starts_with("HTTP/1.0 404 ")) << path;
        EXPECT_TRUE(holds(answer, "<title>Quillwave Multimedia Server - Stream ID Not Found"));
        EXPECT_TRUE(holds(answer, ">Stream ID Not Found</h2>"));
        EXPECT_TRUE(holds(answer, "This stream id is invalid."));
    }
}

TEST(PublicStream, AnIdOfNoStreamIsAPageThatSaysSo) {
    for (const char* path : {"/view/77/", "/view/-/", "/view/-5/", "/view/99999999999999999999/",
                             "/view/-99999999999999999999/"})
        EXPECT_EQ(PanelVisit(path).Status(), "200 OK") << path;
}

TEST(PublicStream, AStreamThatAsksForALoginIsForItsOwnListeners) {
    const OnAir radio("/live", 1, {{"Auth", "yes"}});
    const OnAir other("/other", 2, {});
    make_account("own", "secret", User::LISTENER, 1);
    make_account("every", "secret", User::LISTENER);
    make_account("foreign", "secret", User::LISTENER, 2);
    EXPECT_EQ(PanelVisit("/view/1/", basic("own:secret")).Status(), "200 OK");
    EXPECT_EQ(PanelVisit("/view/1/", basic("every:secret")).Status(), "200 OK");
    EXPECT_EQ(PanelVisit("/view/1/", basic("foreign:secret")).Status(), "401 Unauthorized");
    EXPECT_EQ(PanelVisit("/view/1/", basic("own:wrong")).Status(), "401 Unauthorized");
    EXPECT_EQ(PanelVisit("/view/2/").Status(), "200 OK");
    PanelVisit refused("/view/1/");
    EXPECT_EQ(refused.Pass(), WebPanel::NOT_A_PAGE);
    EXPECT_TRUE(holds(refused.Hear(), "WWW-Authenticate: Basic realm=\"Quillwave Server\"\r\n"));
}

} // namespace
