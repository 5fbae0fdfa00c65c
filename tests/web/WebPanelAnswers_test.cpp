#include "http/Response.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

const std::string NOT_KEPT = "Cache-Control: no-store, no-cache, must-revalidate\r\n"
                             "Pragma: no-cache\r\n"
                             "Expires: Mon, 25 Jan 2002 10:11:57 GMT\r\n";

// The fields of an answer of the panel's own, up to the session's cookie.
std::string own_fields(const std::string& answer) {
    return between(answer, "Connection: Close\r\n", "Set-Cookie: ");
}

TEST(Document, TheFieldsStandInTheirOrder) {
    PanelVisit visit("/");
    visit.panel.send_final("body", "text/plain", 200, false);
    const std::string answer = visit.Hear();
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_EQ(own_fields(answer), "Content-Type: text/plain\r\nContent-Length: 4\r\n" + NOT_KEPT);
    EXPECT_TRUE(answer.ends_with("; path=/\r\n\r\nbody"));
}

TEST(Document, OtherSitesMayReadItWhenTold) {
    PanelVisit visit("/");
    visit.panel.send_final("", "a/b", 200, true);
    EXPECT_EQ(own_fields(visit.Hear()), "Content-Type: a/b\r\nContent-Length: 0\r\n" + NOT_KEPT +
                                            "Access-Control-Allow-Origin: *\r\n");
}

TEST(Document, MayHoldAnyByte) {
    PanelVisit visit("/");
    const std::string body("\0\xff\r\n\0", 5);
    visit.panel.send_final(body, "a/b", 200, false);
    EXPECT_TRUE(visit.Hear().ends_with("\r\n\r\n" + body));
}

TEST(Document, ToAHeadTheLengthOfTheBodyIsToldAndNoBodySent) {
    PanelVisit visit("/", "", "HEAD");
    visit.panel.send_final("body", "text/plain", 200, false);
    const std::string answer = visit.Hear();
    EXPECT_TRUE(holds(answer, "\r\nContent-Length: 4\r\n"));
    EXPECT_TRUE(answer.ends_with("; path=/\r\n\r\n"));
}

TEST(Document, ARefusalAsksForALogin) {
    PanelVisit visit("/");
    visit.panel.send_final("", "a/b", 401, false);
    EXPECT_TRUE(holds(visit.Hear(), "Connection: Close\r\n"
                                    "WWW-Authenticate: Basic realm=\"Quillwave Server\"\r\n"
                                    "Content-Type: a/b\r\n"));
}

TEST(Page, IsFrameContentAndFrame) {
    PanelVisit visit("/");
    visit.panel.page_wrap(html::raw("<p>content</p>"), "Title", 404);
    const std::string answer = visit.Hear();
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 404 Not Found\r\n"));
    EXPECT_TRUE(holds(answer, "\r\nContent-Type: text/html; charset=UTF-8\r\n"));
    EXPECT_TRUE(holds(answer, "<title>Quillwave Multimedia Server - Title</title>"));
    EXPECT_TRUE(holds(answer, "overflow: auto;\"><p>content</p></div><div class=\"push\">"));
    EXPECT_FALSE(holds(answer, "Access-Control-Allow-Origin"));
}

TEST(Redirect, HasNoBody) {
    PanelVisit visit("/");
    visit.panel.send_redirect("/there/");
    const std::string answer = visit.Hear();
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 303 See Other\r\n"));
    EXPECT_EQ(own_fields(answer), "Content-Length: 0\r\nLocation: /there/\r\n");
    EXPECT_TRUE(answer.ends_with("\r\n\r\n"));
}

TEST(Redirect, ControlBytesOfTheAddressAreCut) {
    PanelVisit visit("/");
    visit.panel.send_redirect("/a\rX: y\n/");
    EXPECT_TRUE(holds(visit.Hear(), "Location: /aX: y/\r\n"));
}

TEST(Redirect, NoPageFollowsIt) {
    PanelVisit visit("/");
    visit.panel.send_redirect("/there/");
    visit.panel.page_wrap("content", "Title", 200);
    EXPECT_EQ(count_of(visit.Hear(), "HTTP/1.0 "), 1);
}

TEST(Page, IsNotSentIntoAnAnswerThatIsStillLeaving) {
    PanelVisit visit("/");
    visit.pair.FillTowardsClient();
    visit.panel.page_wrap("first", "Title", 404);
    const auto leaving = visit.panel.GetResponse();
    ASSERT_GT(leaving->GetBytesBuffered(), 0U);
    visit.panel.page_wrap("second", "Title", 200);
    EXPECT_EQ(visit.panel.GetResponse(), leaving);
}

} // namespace
