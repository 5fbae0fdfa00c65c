// What a request is answered, to the byte, and how long it may take to arrive.

#include "core/Clock.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "web/WebPanel.h"

#include <gtest/gtest.h>

namespace {

using testing::Test;

// The fields that every HTTP answer begins with, at the moment at which these tests hold the clock.
const std::string SERVER =
    "Server: Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)\r\n"
    "Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
const std::string ICY_NOTICE =
    "icy-notice1:<BR>This stream requires a media player\r\n"
    "icy-notice2:Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)<BR>"
    "\r\n";
const std::string COOKIE = "Set-Cookie: __quill_sess=ID; path=/\r\n";

struct ReceiverRequest : Test {
    ReceiverRequest() { Clock::Hold(784111777); }
    ~ReceiverRequest() override { Clock::Release(); }
    std::vector<std::string> lines_for(const std::string& request) {
        LogLines log;
        Visitor(request).Slice();
        return log.All();
    }
};

// An answer's length field and body, as they follow the other fields of a 1.0 answer.
std::string with_page(const std::string& page) {
    return "Content-Length: " + std::to_string(page.size()) + "\r\n" + COOKIE + "\r\n" + page;
}

std::string page(int code, const std::string& title, const html::Markup& message) {
    return WebPanel(nullptr).BuildErrorPage(code, title, message);
}

TEST_F(ReceiverRequest, UnknownPathIsA404Page) {
    Visitor visitor;
    EXPECT_EQ(
        visitor.Ask("GET /nothing HTTP/1.0\r\n\r\n"),
        "HTTP/1.0 404 Not Found\r\n" + SERVER + "Connection: Close\r\nContent-Type: text/html\r\n" +
            with_page(page(404, "Page Not Found", "The requested resource could not be located")));
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(ReceiverRequest, UnknownPathAskedForWithIcyMetadataIsAnIcy404) {
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("GET /nothing HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n"),
              "ICY 404 Not Found\r\n" + ICY_NOTICE + "\r\n");
}

TEST_F(ReceiverRequest, UnknownPathIsLogged) {
    EXPECT_EQ(
        lines_for("GET /nothing HTTP/1.0\r\nUser-Agent: p\tlayer\r\n\r\n"),
        std::vector<std::string>{"<127.0.0.1> Invalid Resource Request (/nothing) {UA: p layer}"});
}

TEST_F(ReceiverRequest, DeleteIsA405WithTheMethodsThatAreServed) {
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("DELETE /live HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 405 Method Not Allowed\r\n" + SERVER +
                  "Connection: Close\r\nAllow: GET,HEAD,POST,PUT,OPTIONS,SOURCE\r\n" +
                  with_page(page(405, "",
                                 html::raw("An inappropriate method was requested.  See 'Allow' "
                                           "Header for more details."))));
}

TEST_F(ReceiverRequest, OtherMethodsAreLogged) {
    EXPECT_EQ(
        lines_for("TRACE /a HTTP/1.0\r\nUser-Agent: b\r\n\r\n"),
        std::vector<std::string>{"<127.0.0.1> Invalid Method Requested [TRACE] (/a) {UA: b}"});
}

TEST_F(ReceiverRequest, AnInvalidRequestGetsTheBareDocument) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("GET /a HTTP/1.1\r\n\r\n")
                    .starts_with("<!DOCTYPE HTML PUBLIC \"-//IETF//DTD HTML 2.0//EN\">"));
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(ReceiverRequest, AnInvalidRequestIsLoggedInDetail) {
    Log::SetLevel(Log::DETAIL);
    EXPECT_EQ(lines_for("GET /a HTTP/1.1\r\n\r\n"),
              std::vector<std::string>{"<127.0.0.1> Receiver invalid request."});
}

TEST_F(ReceiverRequest, AnUnknownMethodWithAWholeHeadGetsTheBareDocument) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("FETCH /a HTTP/1.0\r\n\r\n").starts_with("<!DOCTYPE HTML PUBLIC"));
}

TEST_F(ReceiverRequest, TwoWordsEndTheConnectionWithoutAnAnswer) {
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("pass word\r\n"), "");
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(ReceiverRequest, AHeadWithoutEndIsA507) {
    Visitor visitor;
    visitor.Say("GET /a HTTP/1.0\r\nX: " + std::string(9216, 'x'));
    visitor.Slice();
    EXPECT_EQ(visitor.Hear(), "HTTP/1.0 507 Insufficient Storage\r\n" + SERVER +
                                  "Connection: Close\r\n" +
                                  "Content-Length: " + std::to_string(page(507, "", "").size()) +
                                  "\r\n\r\n" + page(507, "", ""));
    EXPECT_EQ(visitor.receiver->Status(), 3);
}

TEST_F(ReceiverRequest, ABannedClientIsForbiddenEverything) {
    UserList::GetBanUser()->AddProperty(User::EVERY_MOUNT, "127.0.0.1", User::IP);
    LogLines log;
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("GET /nothing HTTP/1.1\r\nHost: a\r\n\r\n"),
              "HTTP/1.1 403 Forbidden\r\n" + SERVER +
                  "Connection: Keep-Alive\r\nContent-Type: text/plain\r\nContent-Length: 9\r\n" +
                  COOKIE + "\r\nForbidden");
    EXPECT_TRUE(visitor.IsClosed()) << "never kept, whatever the field says";
    EXPECT_EQ(log.All(), std::vector<std::string>{"<127.0.0.1> Banned user"});
}

TEST_F(ReceiverRequest, AMountWithoutSourceIsA503Page) {
    OnAir air("/live");
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("GET /live HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 503 Service Unavailable\r\n" + SERVER +
                  "Connection: Close\r\nContent-Type: text/html\r\n" +
                  with_page(page(509, "Mount has no source", "Mount source is unavailable.")));
}

TEST_F(ReceiverRequest, AMountWithoutSourceIsAnIcy401) {
    OnAir air("/live");
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("GET /live HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n"),
              "ICY 401 No Source\r\n" + ICY_NOTICE + "\r\n");
}

TEST_F(ReceiverRequest, AMountWithoutSourceIsLogged) {
    OnAir air("/live");
    EXPECT_EQ(lines_for("GET /live HTTP/1.0\r\nUser-Agent: b\r\n\r\n"),
              std::vector<std::string>{"<127.0.0.1> No Source (/live) {UA: b}"});
}

TEST_F(ReceiverRequest, ARefusedListenerIsA451Page) {
    OnAir air("/live", 1, {{"UserMax", "0"}});
    air.Connect();
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("GET /live HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 451 Unavailable For Legal Reasons\r\n" + SERVER +
                  "Connection: Close\r\nContent-Type: text/html\r\n" +
                  with_page(page(451, "Unavailable For Legal Reasons",
                                 "Access to this server has been terminated.")));
    EXPECT_EQ(visitor.receiver->GetMount(), nullptr);
}

TEST_F(ReceiverRequest, HeadOfAPageHasItsLengthAndNoBody) {
    Visitor visitor;
    const std::size_t length =
        page(404, "Page Not Found", "The requested resource could not be located").size();
    EXPECT_EQ(visitor.Ask("HEAD /nothing HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 404 Not Found\r\n" + SERVER +
                  "Connection: Close\r\nContent-Type: text/html\r\nContent-Length: " +
                  std::to_string(length) + "\r\n" + COOKIE + "\r\n");
}

TEST_F(ReceiverRequest, TheAccountIsThatOfBothNameAndPassword) {
    const auto user = make_account("src", "secret", User::MOUNT_SOURCE);
    Visitor right("GET /nothing HTTP/1.1\r\nHost: a\r\n" + basic("src:secret") + "\r\n");
    right.Slice();
    EXPECT_EQ(right.receiver->GetUserAccount(), user);
    Visitor nameless("GET /nothing HTTP/1.1\r\nHost: a\r\n" + basic("src") + "\r\n");
    nameless.Slice();
    EXPECT_EQ(nameless.receiver->GetUserAccount(), UserList::GetAnonymousUser());
}

TEST_F(ReceiverRequest, AReservedClientIsVip) {
    OnAir air("/live");
    air.Connect();
    UserList::GetReserveUser()->AddProperty(air.mount->GetID(), "127.0.0.1", User::IP);
    Visitor visitor("GET /live HTTP/1.0\r\n\r\n");
    visitor.Slice();
    EXPECT_TRUE(visitor.receiver->Vip());
}

// ---- Kept connections ---------------------------------------------------------------------------

const std::string ASK_11 = "GET /nothing HTTP/1.1\r\nHost: a\r\n\r\n";

TEST_F(ReceiverRequest, AnHttp11ConnectionIsKeptForTheNextRequest) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask(ASK_11).starts_with("HTTP/1.1 404 Not Found\r\n"));
    EXPECT_EQ(visitor.receiver->Status(), 0);
    EXPECT_TRUE(visitor.Ask(ASK_11).starts_with("HTTP/1.1 404 Not Found\r\n"));
}

TEST_F(ReceiverRequest, AnIcyAnswerEndsTheConnection) {
    Visitor visitor;
    visitor.Ask("GET /nothing HTTP/1.1\r\nHost: a\r\nIcy-MetaData: 1\r\n\r\n");
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(ReceiverRequest, ConnectionCloseEndsTheConnection) {
    Visitor visitor;
    visitor.Ask("GET /nothing HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(ReceiverRequest, ABareLineOnAKeptConnectionIsNoSourceOfTheMountAskedForBefore) {
    OnAir air("/live");
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("GET /live HTTP/1.1\r\nHost: a\r\n\r\n").starts_with("HTTP/1.1 503"));
    EXPECT_EQ(visitor.Ask("anything\r\n\r\n"), "bad password\r\n");
    EXPECT_EQ(air.mount->GetRequest(), nullptr);
}

TEST_F(ReceiverRequest, AnAnswerThatDoesNotLeaveAtOnceIsFinishedByLaterSlices) {
    Visitor visitor;
    visitor.Say(ASK_11);
    const std::uint64_t in_the_way = visitor.StopReading();
    visitor.Slice(3);
    EXPECT_EQ(visitor.receiver->Status(), 1) << "still answering";
    visitor.pair.Receive(in_the_way);
    visitor.Slice();
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.1 404 Not Found\r\n"));
    EXPECT_EQ(visitor.receiver->Status(), 0) << "kept";
}

TEST_F(ReceiverRequest, AnAnswerThatNobodyTakesEndsTheConnectionAfterFifteenSeconds) {
    Visitor visitor;
    visitor.Say(ASK_11);
    visitor.StopReading();
    visitor.Slice();
    Clock::Advance(15);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 1);
    Clock::Advance(1);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
}

TEST_F(ReceiverRequest, APeerThatEndsItsSideBeforeItReadsStillGetsTheAnswer) {
    Visitor visitor;
    visitor.Say(ASK_11);
    visitor.pair.EndSending();
    const std::uint64_t in_the_way = visitor.StopReading();
    visitor.Slice(2);
    visitor.pair.Receive(in_the_way);
    visitor.Slice();
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.1 404 Not Found\r\n"));
}

// ---- Time limits --------------------------------------------------------------------------------

TEST_F(ReceiverRequest, ASilentConnectionEndsAfterFifteenSeconds) {
    Visitor visitor;
    Clock::Advance(15);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 0);
    Clock::Advance(1);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_EQ(visitor.Hear(), "");
}

TEST_F(ReceiverRequest, AKeptConnectionIsGoodForItsFirstFifteenSecondsOnly) {
    Visitor visitor;
    visitor.Ask(ASK_11);
    Clock::Advance(16);
    visitor.Slice();
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(ReceiverRequest, ATricklingBodyIsA408AfterSixtySeconds) {
    Visitor visitor;
    visitor.Ask("POST /nothing HTTP/1.0\r\nContent-Length: 9\r\n"
                "Content-Type: application/x-www-form-urlencoded\r\n\r\na");
    for (const char* byte : {"b", "c", "d"}) {
        Clock::Advance(20);
        visitor.Ask(byte);
    }
    EXPECT_EQ(visitor.receiver->Status(), 0);
    Clock::Advance(1);
    EXPECT_TRUE(visitor.Ask("e").starts_with("HTTP/1.0 408 Request Timeout\r\n"));
    EXPECT_TRUE(visitor.IsClosed());
}

} // namespace
