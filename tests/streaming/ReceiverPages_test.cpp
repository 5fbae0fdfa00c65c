// Pages of the panel, as their connection meets them.

#include "support/LogLines.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

const std::string LOGIN = basic("root:secret");
const std::string PAIR = "GET /admin/nothing HTTP/1.1\r\nHost: h\r\n" + LOGIN + "\r\n";
const std::string REDIRECT = "GET /view/1 HTTP/1.1\r\nHost: h\r\n\r\n";

struct Pages : testing::Test {
    Pages() { make_account("root", "secret", User::ADMINISTRATOR); }
};

TEST_F(Pages, OneAfterTheOtherOnAKeptConnection) {
    Visitor visitor;
    for (int time = 0; time < 3; ++time) {
        const std::string answer = visitor.Ask(REDIRECT);
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 303 See Other\r\n"));
        EXPECT_TRUE(holds(answer, "\r\nConnection: Keep-Alive\r\n"));
        EXPECT_EQ(visitor.receiver->Status(), 0);
    }
    EXPECT_FALSE(visitor.IsClosed());
}

TEST_F(Pages, EndTheConnectionThatIsNotKept) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("GET /view/1 HTTP/1.0\r\n\r\n").starts_with("HTTP/1.0 303 "));
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(Pages, APairOfAnswersEndsTheConnection) {
    Visitor visitor;
    const std::string answers = visitor.Ask(PAIR);
    EXPECT_EQ(count_of(answers, "HTTP/1.1 404 Not Found\r\n"), 1);
    EXPECT_EQ(count_of(answers, "HTTP/1.1 200 OK\r\n"), 1);
    EXPECT_EQ(count_of(answers, "\r\nConnection: Close\r\n"), 2);
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(Pages, ARefusedStreamPageIsFollowedByTheMountsAnswer) {
    Visitor visitor;
    const std::string answers = visitor.Ask("GET /view/abc/ HTTP/1.1\r\nHost: h\r\n\r\n");
    const std::size_t second = answers.find("</html>") + 7;
    EXPECT_TRUE(holds(answers.substr(0, second), "This stream id is invalid."));
    EXPECT_TRUE(answers.substr(second).starts_with("HTTP/1.1 404 Not Found\r\n"));
    EXPECT_TRUE(holds(answers.substr(second), "The requested resource could not be located"));
    EXPECT_EQ(count_of(answers, "\r\nConnection: Close\r\n"), 2);
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(Pages, ARefusedStreamPageIsFollowedByTheStreamAtItsAddress) {
    OnAir radio("/view/abc/");
    radio.Connect();
    Visitor visitor;
    const std::string answers = visitor.Ask("GET /view/abc/ HTTP/1.0\r\n\r\n");
    EXPECT_TRUE(answers.starts_with("HTTP/1.0 404 Not Found\r\n"));
    EXPECT_TRUE(holds(answers, "</html>HTTP/1.0 200 OK\r\n"));
    EXPECT_EQ(visitor.receiver->Status(), 1);
}

TEST_F(Pages, SilenceIsAnAnswerToo) {
    const std::string update =
        "GET /admin/metadata?mode=updinfo&mount=/none&song=x HTTP/1.1\r\nHost: h\r\n" + LOGIN +
        "\r\n";
    Visitor visitor;
    EXPECT_EQ(visitor.Ask(update), "");
    EXPECT_TRUE(visitor.Ask(REDIRECT).starts_with("HTTP/1.1 303 "));
}

TEST_F(Pages, AreLogged) {
    LogLines log;
    Visitor visitor("GET /view/1?a=b HTTP/1.0\r\nUser-Agent: p\tlayer\r\nReferer: /r\r\n\r\n");
    const std::string uuid = visitor.receiver->GetUUID();
    const std::string port = std::to_string(visitor.receiver->GetRequest()->Port());
    visitor.Slice();
    EXPECT_EQ(log.All().front(), "<127.0.0.1> WEB REQ: 127.0.0.1:" + port +
                                     "/view/1 {UA: p layer} |R: /r| [I: " + uuid + "]");
}

TEST_F(Pages, AreNotLoggedWhenTheSettingSaysSo) {
    Config::Get("WebLog", true)->SetValue("no");
    LogLines log;
    Visitor("GET /view/1 HTTP/1.0\r\n\r\n").Slice();
    log.All();
    EXPECT_EQ(log.Count("WEB REQ"), 0);
}

TEST_F(Pages, TheLogTailIsFollowedSliceBySlice) {
    LogLines log;
    Visitor visitor;
    const std::string answer =
        visitor.Ask("GET /admin/tail/log HTTP/1.1\r\nHost: h\r\n" + LOGIN + "\r\n");
    EXPECT_TRUE(holds(answer, "\r\nTransfer-Encoding: chunked\r\n"));
    EXPECT_EQ(visitor.receiver->Status(), 1);
    LogWrite(2) << "a later line" << std::endl;
    std::string heard;
    EXPECT_TRUE(comes_true([&] {
        visitor.Slice();
        heard += visitor.Hear();
        return holds(heard, "a later line\r\n\r\n");
    }));
    EXPECT_EQ(visitor.receiver->Status(), 1);
    EXPECT_EQ(log.Count("WEB REQ"), 0);
}

TEST_F(Pages, TheLogTailEndsWithItsClient) {
    LogLines log;
    Visitor visitor;
    visitor.Ask("GET /admin/tail/log HTTP/1.1\r\nHost: h\r\n" + LOGIN + "\r\n");
    visitor.pair.CloseClient();
    EXPECT_TRUE(comes_true([&] {
        visitor.Slice();
        return visitor.receiver->Status() == 3;
    }));
}

// Nothing else tells the client that a log is at its end.
TEST_F(Pages, TheLogTailThatIsEndedTakesTheConnectionWithIt) {
    LogLines log;
    Visitor visitor;
    visitor.Ask("GET /admin/tail/log HTTP/1.1\r\nHost: h\r\n" + LOGIN + "\r\n");
    UserList::Remove("root");
    LogWrite(2) << "not for everybody" << std::endl;
    log.All();
    visitor.Slice();
    EXPECT_FALSE(holds(visitor.Hear(), "not for everybody"));
    EXPECT_TRUE(visitor.IsClosed());
}

// The answer to a client that does not read: it must not be cut through by another.
TEST_F(Pages, AFirstAnswerThatIsStuckIsTheOnlyOne) {
    for (const std::string& request :
         {PAIR, std::string("GET /view/abc/ HTTP/1.1\r\nHost: h\r\n\r\n")}) {
        Visitor visitor(request);
        const std::uint64_t filling = visitor.StopReading();
        visitor.Slice();
        std::string heard;
        comes_true([&] {
            heard += visitor.Hear();
            visitor.Slice(visitor.receiver->Status() != 3);
            return heard.size() > filling && visitor.IsClosed();
        });
        heard.erase(0, filling);
        EXPECT_TRUE(heard.starts_with("HTTP/1.1 404 ")) << request;
        EXPECT_TRUE(heard.ends_with("</html>")) << request;
        EXPECT_EQ(count_of(heard, "HTTP/1.1 "), 1) << request;
    }
}

} // namespace
