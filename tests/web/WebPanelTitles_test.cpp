#include "media/Metadata.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

// Two mounts; the account "dj" feeds the first, "other" manages the second.
class Station {
public:
    Station() {
        make_account("dj", "secret", User::MOUNT_SOURCE, 1);
        make_account("other", "secret", User::MOUNT_MANAGER, 2);
        one.Connect("application/test", basic("dj:secret"));
    }
    OnAir one{"/one", 1};
    OnAir two{"/two", 2};

    std::string Title() const { return one.mount->GetMetaData()->title; }
    std::string Url() const { return one.mount->GetMetaData()->url; }
};

std::string answer_to(const std::string& path, const std::string& login = {}) {
    return PanelVisit(path, login.empty() ? "" : basic(login)).Ask();
}

const std::string BY_SOURCE = "/admin.cgi?mode=updinfo&pass=dj:secret&song=";
const std::string BY_LOGIN = "/admin/metadata?mode=updinfo&mount=/one&song=";

// ---- With the login of the source in the address ------------------------------------------------

TEST(TitleFromSource, IsTakenWithItsUrl) {
    const Station station;
    const std::string answer = answer_to(BY_SOURCE + "New%20Song&url=http%3A%2F%2Fx");
    EXPECT_EQ(station.Title(), "New Song");
    EXPECT_EQ(station.Url(), "http://x");
}

TEST(TitleFromSource, TheAnswerIsEmptyAndSaysSo) {
    const Station station;
    const std::string answer = answer_to(BY_SOURCE + "a");
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(holds(answer, "\r\nContent-Length: 0\r\n"));
    EXPECT_FALSE(holds(answer, "Content-Type"));
    EXPECT_TRUE(answer.ends_with("\r\n\r\n"));
}

TEST(TitleFromSource, IsTakenAtEveryAddressOfThePanel) {
    const Station station;
    for (const char* path : {"/admin", "/admin.cgi", "/admin/metadata", "/administrator"}) {
        answer_to(path + std::string("?pass=dj:secret&mode=updinfo&song=") + path);
        EXPECT_EQ(station.Title(), path);
    }
}

TEST(TitleFromSource, TheApostropheBecomesTheOneOfWindows) {
    const Station station;
    answer_to("/admin?pass=dj:secret&mode=updinfo&song=It's");
    EXPECT_EQ(station.Title(), "It\x92s");
    answer_to(BY_SOURCE + "%27%27&url=it's");
    EXPECT_EQ(station.Title(), "\x92\x92");
    EXPECT_EQ(station.Url(), "it's");
}

TEST(TitleFromSource, ControlBytesBecomeBlanks) {
    const Station station;
    answer_to(BY_SOURCE + "a%0Ab%0D%00c%1Fd%7Fe%C3%A9&url=u%0Av");
    EXPECT_EQ(station.Title(), "a b  c d\x7F"
                               "e\xC3\xA9");
    EXPECT_EQ(station.Url(), "u v");
}

TEST(TitleFromSource, AnEmptySongClearsTheTitle) {
    const Station station;
    answer_to(BY_SOURCE + "a");
    answer_to(BY_SOURCE);
    EXPECT_EQ(station.Title(), "");
}

TEST(TitleFromSource, WithWrongWordsTheRequestGoesOnToTheLogin) {
    const Station station;
    for (const char* query :
         {"pass=dj:wrong&mode=updinfo", "pass=dj:&mode=updinfo", "pass=:secret&mode=updinfo",
          "pass=:&mode=updinfo", "pass=dj&mode=updinfo", "pass=dj::secret&mode=updinfo",
          "pass=:dj:secret&mode=updinfo", "pass=dj:secret&mode=other", "pass=dj:secret",
          "pass=other:secret&mode=updinfo", "pass=nobody:secret&mode=updinfo"}) {
        EXPECT_TRUE(
            answer_to(std::string("/admin.cgi?song=x&") + query).starts_with("HTTP/1.0 401"))
            << query;
        EXPECT_EQ(station.Title(), "") << query;
    }
}

TEST(TitleFromSource, WithoutItsSourceNobodyTakesIt) {
    Station station;
    station.one.Disconnect();
    EXPECT_TRUE(answer_to(BY_SOURCE + "x").starts_with("HTTP/1.0 401"));
}

TEST(TitleFromSource, OfAMountThatTookANamelessSourceIsTakenFromNobody) {
    OnAir open("/open", 3);
    open.Connect();
    EXPECT_TRUE(answer_to("/admin.cgi?mode=updinfo&pass=a:b&song=x").starts_with("HTTP/1.0 401"));
    EXPECT_EQ(open.mount->GetMetaData()->title, "");
}

// ---- With a login of the panel ------------------------------------------------------------------

TEST(TitleFromManager, IsTakenAndConfirmed) {
    const Station station;
    const std::string answer = answer_to(BY_LOGIN + "It's%0Aon&url=u", "dj:secret");
    EXPECT_EQ(station.Title(), "It\x92s on");
    EXPECT_EQ(station.Url(), "u");
    const std::string body = "<?xml version=\"1.0\"?>\r\n<iceresponse><message>Metadata update "
                             "successful</message><return>1</return></iceresponse>";
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(holds(answer, "\r\nContent-Type: text/xml\r\nContent-Length: " +
                                  std::to_string(body.size()) + "\r\n"));
    EXPECT_TRUE(answer.ends_with("\r\n\r\n" + body));
}

TEST(TitleFromManager, ToAHeadOnlyTheHeadIsSent) {
    const Station station;
    PanelVisit visit(BY_LOGIN + "x", basic("dj:secret"), "HEAD");
    EXPECT_TRUE(visit.Ask().ends_with("\r\n\r\n"));
    EXPECT_EQ(station.Title(), "x");
}

TEST(TitleFromManager, OfAForeignMountIsMetWithSilence) {
    const Station station;
    for (const char* login : {"other:secret"}) {
        PanelVisit visit(BY_LOGIN + "x", basic(login));
        EXPECT_EQ(visit.Pass(), WebPanel::ANSWERED);
        EXPECT_EQ(visit.Hear(), "");
        EXPECT_EQ(visit.panel.GetResponse(), nullptr);
    }
    EXPECT_EQ(answer_to("/admin/metadata?mode=updinfo&song=x&mount=/none", "dj:secret"), "");
    EXPECT_EQ(station.Title(), "");
}

TEST(TitleFromManager, WithWrongWordsThePageOfThePanelIsShown) {
    const Station station;
    for (const char* query :
         {"mode=updinfo&mount=one", "mode=updinfo", "mount=/one", "mode=Updinfo&mount=/one"})
        EXPECT_TRUE(answer_to(std::string("/admin/metadata?song=x&") + query, "dj:secret")
                        .starts_with("HTTP/1.0 200 OK\r\n"))
            << query;
    EXPECT_EQ(station.Title(), "");
}

} // namespace
