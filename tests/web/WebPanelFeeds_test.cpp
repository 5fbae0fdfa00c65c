#include "core/Clock.h"
#include "media/Metadata.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

namespace {

const std::string ADMIN = basic("root:secret");

std::string body_of(const std::string& answer) {
    const std::size_t end = answer.find("\r\n\r\n");
    return end == std::string::npos ? "(no head)" : answer.substr(end + 4);
}

std::string ask(const std::string& path, const std::string& fields = {}) {
    return body_of(PanelVisit(path, fields).Ask());
}

rapidjson::Document document(const std::string& path, const std::string& fields = {}) {
    rapidjson::Document json;
    json.Parse<rapidjson::kParseValidateEncodingFlag>(ask(path, fields).c_str());
    EXPECT_FALSE(json.HasParseError()) << path;
    return json;
}

// The addresses of a document's mounts; "none" for a document without the list.
std::string mounts_in(const rapidjson::Document& json) {
    if (!json.HasMember("sources")) return "none";
    std::string addresses;
    for (const auto& source : json["sources"].GetArray())
        addresses += std::string(addresses.empty() ? "" : " ") + source["mount"].GetString();
    return addresses;
}

void set_title(Mount& mount, const std::string& title) {
    auto metadata = std::make_shared<METADATA>();
    metadata->title = title;
    mount.SetMetaData(metadata);
}

// A listener that the mount has taken in.
std::unique_ptr<Visitor> listen(const std::string& address, const std::string& fields = {}) {
    auto listener = std::make_unique<Visitor>("GET " + address + " HTTP/1.0\r\n" + fields + "\r\n");
    listener->Slice();
    return listener;
}

struct StatusFeeds : testing::Test {
    StatusFeeds() { make_account("root", "secret", User::ADMINISTRATOR); }
};

// ---- The answers --------------------------------------------------------------------------------

TEST_F(StatusFeeds, AreSentWithTheirTypes) {
    const auto head = [](const std::string& path) { return PanelVisit(path).Ask(); };
    const std::string json = head("/status.json");
    EXPECT_TRUE(json.starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(holds(json, "\r\nContent-Type: application/json; charset=UTF-8\r\n"));
    EXPECT_TRUE(holds(json, "\r\nAccess-Control-Allow-Origin: *\r\n"));
    const std::string script = head("/status.json?callback=f");
    EXPECT_TRUE(holds(script, "\r\nContent-Type: application/javascript; charset=UTF-8\r\n"));
    EXPECT_TRUE(holds(script, "\r\nAccess-Control-Allow-Origin: *\r\n"));
    const std::string xml = head("/status.xml");
    EXPECT_TRUE(holds(xml, "\r\nContent-Type: text/xml; charset=UTF-8\r\n"));
    EXPECT_TRUE(holds(xml, "\r\nAccess-Control-Allow-Origin: *\r\n"));
    for (const char* path : {"/7", "/7.html", "/7?m=myscriptsucks", "/7?m=other"}) {
        const std::string line = head(path);
        EXPECT_TRUE(holds(line, "\r\nContent-Type: text/html; charset=UTF-8\r\n")) << path;
        EXPECT_FALSE(holds(line, "Access-Control")) << path;
    }
    EXPECT_TRUE(holds(head("/7?m=plain"), "\r\nContent-Type: text/plain; charset=UTF-8\r\n"));
}

TEST_F(StatusFeeds, AHeadHasTheLengthAndNoBody) {
    const std::string answer = PanelVisit("/status.json", "", "HEAD").Ask();
    EXPECT_EQ(body_of(answer), "");
    const std::string length = between(answer, "\r\nContent-Length: ", "\r\n");
    EXPECT_EQ(length, tostring(ask("/status.json").size()));
}

TEST_F(StatusFeeds, CallbackThatMayBeCalledWrapsTheDocument) {
    for (const std::string name : {"f", "_", "?x", "a$b", "a_1", "?"}) {
        const std::string body = ask("/status.json?callback=" + name);
        EXPECT_TRUE(body.starts_with(name + "({\"version\":")) << body;
        EXPECT_TRUE(body.ends_with("});")) << body;
    }
}

TEST_F(StatusFeeds, CallbackThatMayNotBeCalledIsIgnored) {
    for (const char* name : {"", "1a", "a-b", "$a", "a.b", "alert(1)", "a%0A", "%3Cscript%3E"}) {
        PanelVisit visit(std::string("/status.json?callback=") + name);
        const std::string answer = visit.Ask();
        EXPECT_TRUE(holds(answer, "application/json")) << name;
        EXPECT_TRUE(body_of(answer).starts_with("{")) << name;
        EXPECT_TRUE(body_of(answer).ends_with("}")) << name;
    }
}

TEST_F(StatusFeeds, XmlKnowsNoCallback) {
    EXPECT_TRUE(ask("/status.xml?callback=f").starts_with("<quillwave>"));
}

// ---- Which mounts, and what of them -------------------------------------------------------------

TEST_F(StatusFeeds, WithoutMountsThereIsNoList) {
    const auto json = document("/status.json");
    EXPECT_EQ(json["active_sources"].GetInt(), 0);
    EXPECT_EQ(mounts_in(json), "none");
    EXPECT_TRUE(holds(ask("/status.xml"), "<sources/>"));
}

TEST_F(StatusFeeds, PublicOnesShowWhatIsOnTheAirAndFree) {
    OnAir waiting("/a", 1);
    OnAir open("/b", 2);
    OnAir closed("/c", 3, {{"Auth", "yes"}});
    open.Connect();
    closed.Connect();
    for (const std::string& fields : {std::string(), ADMIN}) {
        const auto json = document("/status.json", fields);
        EXPECT_EQ(json["active_sources"].GetInt(), 1);
        EXPECT_EQ(mounts_in(json), "/b");
        EXPECT_FALSE(json["sources"][0].HasMember("bytes_recv"));
        EXPECT_FALSE(json["sources"][0].HasMember("peers"));
    }
}

TEST_F(StatusFeeds, ThoseForManagersShowAllTheirMounts) {
    OnAir waiting("/a", 1);
    OnAir closed("/c", 3, {{"Auth", "yes"}});
    closed.Connect();
    const auto all = document("/admin/status.json", ADMIN);
    EXPECT_EQ(all["active_sources"].GetInt(), 2);
    EXPECT_EQ(mounts_in(all), "/a /c");
    EXPECT_EQ(all["sources"][0]["status"].GetInt(), -1);
    EXPECT_EQ(all["sources"][1]["status"].GetInt(), 1);
    EXPECT_TRUE(all["sources"][1].HasMember("bytes_recv"));
    EXPECT_TRUE(holds(ask("/admin/status.xml", ADMIN), "<played/><peers/>"));

    make_account("one", "secret", User::MOUNT_MANAGER, 3);
    EXPECT_EQ(mounts_in(document("/admin/status.json", basic("one:secret"))), "/c");
}

TEST_F(StatusFeeds, AnAdministratorWithoutMountsGetsThePublicOne) {
    EXPECT_EQ(mounts_in(document("/admin/status.json", ADMIN)), "none");
}

TEST_F(StatusFeeds, AStoppedMountHasItsStatus) {
    OnAir air("/a");
    air.mount->WaitForStop();
    EXPECT_EQ(document("/admin/status.json", ADMIN)["sources"][0]["status"].GetInt(), 2);
}

TEST_F(StatusFeeds, SrcIsAnIdOrAnAddress) {
    OnAir first("/a", 1);
    OnAir second("/b", 12);
    first.Connect();
    second.Connect();
    for (const char* src : {"12", "/b", "12abc", "%2012"}) {
        const auto json = document(std::string("/status.json?src=") + src);
        EXPECT_EQ(mounts_in(json), "/b") << src;
        EXPECT_EQ(json["active_sources"].GetInt(), 2) << src;
    }
    EXPECT_EQ(mounts_in(document("/status.json?src=")), "/a /b");
    for (const char* src : {"2", "/", "/B", "/stream/1", "4294967297"})
        EXPECT_EQ(mounts_in(document(std::string("/status.json?src=") + src)), "") << src;
    EXPECT_TRUE(holds(ask("/status.xml?src=9"), "<sources/>"));
}

TEST_F(StatusFeeds, SrcThatIsNoNumberAsksForTheIdZeroToo) {
    OnAir air("/a", 0);
    air.Connect();
    EXPECT_EQ(mounts_in(document("/status.json?src=/other")), "/a");
}

TEST_F(StatusFeeds, OneMountAloneComesInFull) {
    OnAir first("/a", 1);
    OnAir second("/b", 2);
    second.Connect();
    set_title(*second.mount, "Old");
    set_title(*second.mount, "New");
    const auto listener = listen("/b");
    PanelVisit visit("/status.json");
    visit.panel.send_json_stats(second.mount);
    rapidjson::Document json;
    json.Parse(body_of(visit.Hear()).c_str());
    EXPECT_EQ(json["active_sources"].GetInt(), 2);
    EXPECT_EQ(mounts_in(json), "/b");
    EXPECT_EQ(json["sources"][0]["peers"].Size(), 1U);
    EXPECT_STREQ(json["sources"][0]["played"][0]["song_title"].GetString(), "Old");
    EXPECT_FALSE(json["sources"][0].HasMember("bytes_recv"));

    PanelVisit other("/status.xml");
    other.panel.send_xml_stats(first.mount);
    const std::string xml = body_of(other.Hear());
    EXPECT_TRUE(holds(xml, "<mount>/a</mount>"));
    EXPECT_FALSE(holds(xml, "<mount>/b</mount>"));
    EXPECT_TRUE(holds(xml, "<played/><peers/>"));
}

TEST_F(StatusFeeds, TellTheTotalsAndTheTimes) {
    Clock::Hold(1700000000);
    OnAir air("/live", 1, {{"UserMax", "9"}});
    air.Connect("application/test", "icy-br: 96\r\nice-audio-info: a=1\r\n");
    const auto one = listen("/live", "User-Agent: player/1\r\n" + basic("me:secret"));
    const auto two = listen("/live");
    Clock::Advance(5);
    const auto json = document("/admin/status.json", ADMIN);
    EXPECT_STREQ(json["version"].GetString(), "1.0.2 evergreen");
    EXPECT_EQ(json["total_nodes"].GetInt(), 2);
    EXPECT_EQ(json["total_unique_nodes"].GetInt(), 1);
    EXPECT_EQ(json["total_peak_nodes"].GetInt(), 2);
    EXPECT_EQ(json["startup_time"].GetInt64(), MountList::StartTime());
    EXPECT_EQ(json["system_time"].GetInt64(), 1700000005);
    const auto& source = json["sources"][0];
    EXPECT_EQ(source["nodes"].GetInt(), 2);
    EXPECT_EQ(source["max_nodes"].GetInt(), 9);
    EXPECT_EQ(source["tuneins"].GetInt(), 2);
    EXPECT_EQ(source["connect_time"].GetInt64(), 1700000000);
    EXPECT_STREQ(source["bitrate"].GetString(), "96");
    EXPECT_STREQ(source["audio_info"].GetString(), "a=1");
    EXPECT_STREQ(source["content_type"].GetString(), "application/test");
    Clock::Release();
}

TEST_F(StatusFeeds, TellWhoListens) {
    OnAir air("/live");
    air.Connect();
    const auto one = listen("/live", "User-Agent: player/1\r\n" + basic("me:secret"));
    const auto two = listen("/live", "User-Agent: caf\xE9\r\n");
    const auto json = document("/admin/status.json", ADMIN);
    const auto& peers = json["sources"][0]["peers"];
    ASSERT_EQ(peers.Size(), 2U);
    EXPECT_LT(std::string(peers[0]["id"].GetString()), peers[1]["id"].GetString());
    const bool first = one->receiver->GetUUID() == peers[0]["id"].GetString();
    const auto& mine = peers[first ? 0 : 1];
    EXPECT_EQ(mine["id"].GetString(), one->receiver->GetUUID());
    EXPECT_STREQ(mine["ip"].GetString(), "127.0.0.1");
    EXPECT_STREQ(mine["user"].GetString(), "me");
    EXPECT_STREQ(mine["user_agent"].GetString(), "player/1");
    EXPECT_EQ(mine["pconnect_time"].GetInt64(), one->receiver->ConnectTime());
    EXPECT_EQ(mine["lservice_time"].GetInt64(), one->receiver->GetLastServiceTime());
    EXPECT_EQ(mine["pbytes_sent"].GetUint64(), one->receiver->BytesSent());
    EXPECT_STREQ(peers[first ? 1 : 0]["user_agent"].GetString(), "caf\xC3\xA9");
}

TEST_F(StatusFeeds, ListTheSongsThatHaveEndedNewestFirst) {
    OnAir air("/live");
    air.Connect();
    for (const char* title : {"One", "Two", "Three"})
        set_title(*air.mount, title);
    const auto json = document("/admin/status.json", ADMIN);
    const auto& source = json["sources"][0];
    EXPECT_STREQ(source["meta_song"].GetString(), "Three");
    ASSERT_EQ(source["played"].Size(), 2U);
    EXPECT_STREQ(source["played"][0]["song_title"].GetString(), "Two");
    EXPECT_STREQ(source["played"][1]["song_title"].GetString(), "One");
}

// ---- The feed of one line -----------------------------------------------------------------------

const std::string META = "<meta http-equiv=\"Pragma\" content=\"no-cache\"></head><body>";

TEST_F(StatusFeeds, TheLineStandsInThreeForms) {
    OnAir air("/live", 1, {{"IsDefault", "yes"}, {"UserMax", "32"}});
    air.Connect("application/test", "icy-br: 128\r\n");
    set_title(*air.mount, "A, B & \"C\" \xE9");
    const auto one = listen("/live");
    const std::string line = "1,1,1,32,1,128,A, B &amp; &quot;C&quot; \xE9";
    EXPECT_EQ(ask("/7?m=plain"), line + "\r\n");
    EXPECT_EQ(ask("/7?m=myscriptsucks"), "<HTML>" + META + line + "<br /></body></html>");
    const std::string page = "<!DOCTYPE html><html><head>" + META + line + "<br /></body></html>";
    EXPECT_EQ(ask("/7.html"), page);
    EXPECT_EQ(ask("/7"), page);
    EXPECT_EQ(ask("/7?m=Plain"), page);
}

TEST_F(StatusFeeds, TheLineOfAMountWithoutSource) {
    OnAir air("/live", 4, {{"UserMax", "-1"}});
    EXPECT_EQ(ask("/7?m=plain&src=4"), "0,0,0,-1,0,0,\r\n");
    EXPECT_EQ(ask("/7?m=plain&src=/live"), "0,0,0,-1,0,0,\r\n");
}

TEST_F(StatusFeeds, WithoutAMountThatFitsThereIsNoLine) {
    OnAir air("/live", 4);
    EXPECT_EQ(ask("/7"), "<!DOCTYPE html><html><head>" + META + "</body></html>");
    EXPECT_EQ(ask("/7?m=myscriptsucks&src=5"), "<HTML>" + META + "</body></html>");
    EXPECT_EQ(ask("/7?m=plain"), "");
}

TEST_F(StatusFeeds, TheLineIsOfTheFirstMountThatFits) {
    OnAir first("/a", 1, {{"IsDefault", "yes"}});
    OnAir second("/b", 2);
    second.Connect("application/test", "icy-br: 64\r\n");
    EXPECT_EQ(ask("/7?m=plain&src=2").substr(0, 4), "0,1,");
    EXPECT_EQ(ask("/7?m=plain").substr(0, 4), "0,0,");
}

TEST_F(StatusFeeds, NoTitleEndsTheLine) {
    OnAir air("/live", 1, {{"IsDefault", "yes"}});
    air.Connect("application/test", "icy-br: <1>\r\n");
    set_title(*air.mount, std::string("a\r\nb\0c", 6));
    EXPECT_EQ(ask("/7?m=plain"), "0,1,0,-1,0,&lt;1&gt;,a  b c\r\n");
}

} // namespace
