#include "core/OSTools.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

std::string body_of(const std::string& answer) {
    const std::size_t end = answer.find("\r\n\r\n");
    return end == std::string::npos ? "" : answer.substr(end + 4);
}

bool has_type(const std::string& answer, const std::string& type) {
    return holds(answer, "\r\nContent-Type: " + type + "\r\n");
}

// Gives a setting a value for the length of a test.
class Setting {
public:
    Setting(const std::string& key, const std::string& value) : name(key) {
        Config::Get(name, true)->SetValue(value);
    }
    ~Setting() { Config::Get(name, true)->SetValue(std::string()); }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

private:
    std::string name;
};

// ---- Pages --------------------------------------------------------------------------------------

TEST(HomePage, IsABoxOfStreams) {
    const std::string page = PanelVisit("/index.html").Ask();
    EXPECT_TRUE(holds(page, "<title>Quillwave Multimedia Server</title>"));
    EXPECT_TRUE(holds(page, "<div class=\"messageBox\"><h2"));
    EXPECT_TRUE(holds(page, ">Quillwave Streams</h2>"));
}

TEST(AboutPage, TellsAuthorsVersionAndDay) {
    const std::string page = PanelVisit("/about").Ask();
    const struct tm built = BuildTime();
    char day[64];
    ASSERT_GT(std::strftime(day, sizeof day, "%B %d, %Y", &built), 0U);
    EXPECT_TRUE(holds(page, "<title>Quillwave Multimedia Server</title>"));
    EXPECT_TRUE(holds(page, ">About Quillwave</h2><div class=\"valueDisplay\">Written by"));
    EXPECT_TRUE(holds(page, "<br />Quillwave Multimedia Server version 1.0.2 evergreen (Linux "
                            "64-bit)<br />Compiled on " +
                                std::string(day) + "</div>"));
}

// ---- Crawlers and movies ------------------------------------------------------------------------

TEST(Robots, StayAwayFromStreams) {
    OnAir open("/robots open");
    OnAir closed("/robots closed", 2, {{"Auth", "yes"}});
    const OnAir idle("/robots idle", 3);
    open.Connect();
    closed.Connect();
    const std::string answer = PanelVisit("/robots.txt").Ask();
    EXPECT_TRUE(has_type(answer, "text/plain"));
    EXPECT_EQ(body_of(answer), "User-agent: *\r\nDisallow: /stream*\r\nDisallow: /robots open\r\n");
    open.Disconnect();
    closed.Disconnect();
    EXPECT_EQ(body_of(PanelVisit("/robots.txt").Ask()), "User-agent: *\r\nDisallow: /stream*\r\n");
}

TEST(Crossdomain, LetsMoviesOfAnySiteIn) {
    const std::string answer = PanelVisit("/crossdomain.xml").Ask();
    EXPECT_TRUE(has_type(answer, "text/xml"));
    EXPECT_EQ(body_of(answer), "<?xml version=\"1.0\"?>\r\n"
                               "<!DOCTYPE cross-domain-policy SYSTEM "
                               "\"http://www.adobe.com/xml/dtds/cross-domain-policy.dtd\">\r\n"
                               "<cross-domain-policy>\r\n"
                               "\t<allow-access-from domain=\"*\"/>\r\n"
                               "</cross-domain-policy>\r\n");
}

// ---- Playlists ----------------------------------------------------------------------------------

const std::string HOST = "Host: radio.example:8000\r\n";

std::string playlist(const std::string& path, const std::string& fields = HOST) {
    return PanelVisit(path, fields).Ask();
}

TEST(Tunein, NamesTheStream) {
    const OnAir radio("/tunein", 1, {{"Name", "Night & Day"}});
    const std::string answer = playlist("/sbin/tunein?mnt=/tunein");
    EXPECT_TRUE(has_type(answer, "audio/mpegurl"));
    EXPECT_EQ(body_of(answer), "#EXTM3U\r\n#EXTINF:-1," + radio.mount->Name() +
                                   "\r\nhttp://radio.example:8000/tunein\r\n");
}

TEST(Tunein, HasOneFormWhateverTheEnding) {
    const OnAir radio("/tunein");
    const std::string plain = body_of(playlist("/sbin/tunein?mnt=/tunein"));
    for (const char* ending : {".pls", ".m3u", ".", ".xpls", "pls", ".pls/pls"}) {
        const std::string answer = playlist("/sbin/tunein" + std::string(ending) + "?mnt=/tunein");
        EXPECT_TRUE(has_type(answer, "audio/mpegurl")) << ending;
        EXPECT_EQ(body_of(answer), plain) << ending;
    }
}

std::string address_in(const std::string& playlist_text) {
    return between(playlist_text, "\r\nhttp://", "\r\n");
}

TEST(Tunein, EncodesTheAddressButItsSlashes) {
    const OnAir radio("/tune in/a&b");
    EXPECT_EQ(address_in(playlist("/sbin/tunein?mnt=%2Ftune%20in%2Fa%26b")),
              "radio.example:8000" + UrlEncode("/tune in/a&b", true));
}

TEST(Tunein, WithoutAHostNamesTheServersOwn) {
    const OnAir radio("/tunein");
    EXPECT_EQ(address_in(playlist("/sbin/tunein?mnt=/tunein", "")), "localhost:8000/tunein");
    const Setting hostname("Hostname", "own.example");
    {
        const Setting port("PortBase", "9000");
        EXPECT_EQ(address_in(playlist("/sbin/tunein?mnt=/tunein", "")), "own.example:9000/tunein");
    }
    const Setting port("PortBase", "80");
    EXPECT_EQ(address_in(playlist("/sbin/tunein?mnt=/tunein", "")), "own.example/tunein");
    EXPECT_EQ(address_in(playlist("/sbin/tunein?mnt=/tunein", "Host: h:80\r\n")), "h:80/tunein");
}

TEST(Tunein, NeedsAMount) {
    EXPECT_EQ(PanelVisit("/sbin/tunein").Pass(), WebPanel::NOT_A_PAGE);
    EXPECT_EQ(PanelVisit("/sbin/tunein?mnt=").Pass(), WebPanel::NOT_A_PAGE);
    EXPECT_EQ(PanelVisit("/sbin/tunein?mnt=/nowhere").Pass(), WebPanel::NOT_A_PAGE);
}

// ---- Files --------------------------------------------------------------------------------------

TEST(Files, AreSentWithTheirTypes) {
    const std::pair<const char*, const char*> files[] = {
        {"/favicon.ico", "image/vnd.microsoft.icon"},
        {"/images/logo.png", "image/png"},
        {"/images/quillwave.png", "image/png"},
        {"/images/play.png", "image/png"},
        {"/images/stop.png", "image/png"},
        {"/flash/quillwave.swf", "application/x-shockwave-flash"},
        {"/stylesheets/main.css", "text/css"}};
    for (const auto& [path, type] : files) {
        const std::string answer = PanelVisit(path, {}, "HEAD").Ask();
        EXPECT_TRUE(answer.starts_with("HTTP/1.0 200 OK\r\n")) << path;
        EXPECT_TRUE(has_type(answer, type)) << path;
        EXPECT_TRUE(holds(answer, "\r\nCache-Control: no-store, no-cache, must-revalidate\r\n"
                                  "Pragma: no-cache\r\n"
                                  "Expires: Mon, 25 Jan 2002 10:11:57 GMT\r\n"))
            << path;
        EXPECT_FALSE(holds(answer, "Access-Control-Allow-Origin")) << path;
    }
}

} // namespace
