#include "config/Config.h"
#include "core/Clock.h"
#include "http/Request.h"
#include "http/Response.h"
#include "net/Socket.h"
#include "support/LoopbackPair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr time_t MOMENT = 1700000000; // Tue, 14 Nov 2023 22:13:20 GMT
const std::string SERVER =
    "Server: Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)\r\n"
    "Date: Tue, 14 Nov 2023 22:13:20 GMT\r\n";

struct Answer {
    LoopbackPair pair;
    std::shared_ptr<Request> request = std::make_shared<Request>(pair.server);
    std::unique_ptr<Response> response;

    explicit Answer(const std::string& first_line, unsigned short status = 200,
                    const std::string& text = "") {
        Clock::Hold(MOMENT);
        pair.Send(first_line + "\r\nHost: x\r\n\r\n");
        while (request->ReadRequest() == IO_AGAIN) {
        }
        response = std::make_unique<Response>(request, status, text);
    }
    // All that the client sees.
    std::string sent(const std::string& body = "") {
        response->SendHeader(body);
        pair.server->Close();
        return pair.ReceiveAll();
    }
    std::string cookie() const {
        return "Set-Cookie: __quill_sess=" + request->GetSessionUUID() + "; path=/\r\n";
    }
};

} // namespace

TEST(ResponseHead, PageOverHttp10) {
    Answer answer("GET / HTTP/1.0");
    answer.response->SetHeader("Content-Type", "text/html");
    EXPECT_EQ(answer.sent("<p>"), "HTTP/1.0 200 OK\r\n" + SERVER +
                                      "Connection: Close\r\n"
                                      "Content-Type: text/html\r\n"
                                      "Content-Length: 3\r\n" +
                                      answer.cookie() + "\r\n<p>");
}

TEST(ResponseHead, PageOverHttp11HasALengthAndNoChunks) {
    Answer answer("GET / HTTP/1.1");
    EXPECT_EQ(answer.sent("<p>"), "HTTP/1.1 200 OK\r\n" + SERVER +
                                      "Connection: Keep-Alive\r\n"
                                      "Content-Length: 3\r\n" +
                                      answer.cookie() + "\r\n<p>");
    EXPECT_FALSE(answer.response->IsTransferChunkedEncoding());
}

TEST(ResponseHead, StreamOverHttp11IsChunked) {
    Answer answer("GET / HTTP/1.1\r\nConnection: close");
    EXPECT_EQ(answer.sent(), "HTTP/1.1 200 OK\r\n" + SERVER +
                                 "Connection: Close\r\n"
                                 "Transfer-Encoding: chunked\r\n" +
                                 answer.cookie() + "\r\n");
    EXPECT_TRUE(answer.response->IsTransferChunkedEncoding());
}

TEST(ResponseHead, StreamOverHttp10IsNotChunked) {
    Answer answer("GET / HTTP/1.0");
    EXPECT_EQ(answer.sent(),
              "HTTP/1.0 200 OK\r\n" + SERVER + "Connection: Close\r\n" + answer.cookie() + "\r\n");
    EXPECT_FALSE(answer.response->IsTransferChunkedEncoding());
}

TEST(ResponseHead, OwnContentLengthPreventsChunks) {
    Answer answer("GET / HTTP/1.1");
    answer.response->SetHeader("Content-Length", "0");
    EXPECT_THAT(answer.sent(), Not(HasSubstr("chunked")));
}

TEST(ResponseHead, IcyHeadHasNoServerNoDateAndNoBlanks) {
    Answer answer("GET / HTTP/1.1");
    answer.response->SetProtocol(Response::ICY, 1.0F);
    answer.response->SetHeader("icy-name", "Radio");
    answer.response->SetHeader("icy-br", "128");
    EXPECT_EQ(answer.sent(),
              "ICY 200 OK\r\n"
              "icy-notice1:<BR>This stream requires a media player\r\n"
              "icy-notice2:Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux "
              "64-bit)<BR>\r\n"
              "icy-name:Radio\r\n"
              "icy-br:128\r\n"
              "\r\n");
}

TEST(ResponseHead, IcyBodyHasNoLength) {
    Answer answer("GET / HTTP/1.1");
    answer.response->SetProtocol(Response::ICY, 1.0F);
    const std::string sent = answer.sent("body");
    EXPECT_THAT(sent, Not(HasSubstr("Content-Length")));
    EXPECT_TRUE(sent.ends_with("\r\n\r\nbody"));
}

TEST(ResponseHead, OwnStatusTextAndTheTables) {
    EXPECT_TRUE(Answer("GET / HTTP/1.0", 401, "No Source")
                    .sent()
                    .starts_with("HTTP/1.0 401 No Source\r\n"));
    EXPECT_TRUE(
        Answer("GET / HTTP/1.0", 507).sent().starts_with("HTTP/1.0 507 Insufficient Storage\r\n"));
    EXPECT_TRUE(Answer("GET / HTTP/1.0", 299, "Odd").sent().starts_with("HTTP/1.0 299 Odd\r\n"));
}

TEST(ResponseHead, CodeWithoutATextThrows) {
    Answer answer("GET / HTTP/1.0", 299);
    EXPECT_THROW(answer.response->SendHeader(""), std::out_of_range);
}

TEST(ResponseHead, BadRequestIsADocumentWithoutAHead) {
    const std::string begin =
        "<!DOCTYPE HTML PUBLIC \"-//IETF//DTD HTML 2.0//EN\"><html><head><title>400 Bad "
        "Request</title></head><body>\r\n<h1>Bad Request</h1>\r\n<p>Your browser sent a request "
        "that this server could not understand.<br /></p><hr>\r\n<address>Quillwave Multimedia "
        "server port ";
    EXPECT_EQ(Answer("GET / HTTP/1.1", 400).sent(),
              begin + "localhost8000</address>\r\n</body></html>");
    Config::Get("Hostname", true)->SetValue("radio");
    Config::Get("PortBase", true)->SetValue("9000");
    EXPECT_EQ(Answer("GET / HTTP/1.0", 400).sent(),
              begin + "radio9000</address>\r\n</body></html>");
}

TEST(ResponseHead, BadRequestOverIcyHasItsStatusLine) {
    Answer answer("GET / HTTP/1.0", 400);
    answer.response->SetProtocol(Response::ICY, 1.0F);
    EXPECT_TRUE(answer.sent().starts_with("ICY 400 Bad Request\r\nicy-notice1:"));
}

TEST(ResponseHead, LoginIsAskedForByBasicOverHttp10) {
    Answer answer("GET / HTTP/1.0", 401);
    answer.response->RequireAuthorization("Quillwave Server");
    EXPECT_EQ(answer.sent(), "HTTP/1.0 401 Unauthorized\r\n" + SERVER +
                                 "Connection: Close\r\n"
                                 "WWW-Authenticate: Basic realm=\"Quillwave Server\"\r\n" +
                                 answer.cookie() + "\r\n");
}

TEST(ResponseHead, LoginIsAskedForByDigestOverHttp11) {
    Answer answer("GET / HTTP/1.1", 401);
    answer.response->RequireAuthorization("Quillwave Server");
    const std::string sent = answer.sent();
    const std::size_t at = sent.find("WWW-Authenticate");
    EXPECT_THAT(sent.substr(at, sent.find("\r\n", at) - at),
                MatchesRegex("WWW-Authenticate: Digest realm=\"Quillwave Server\", "
                             "nonce=\"[A-Za-z0-9+/]+=*\", algorithm=MD5, qop=\"auth\""));
    EXPECT_THAT(sent, Not(HasSubstr("Basic")));
}

TEST(ResponseHead, IcyNeverAsksForALogin) {
    Answer answer("GET / HTTP/1.0", 401);
    answer.response->SetProtocol(Response::ICY, 1.0F);
    answer.response->RequireAuthorization("Quillwave Server");
    EXPECT_THAT(answer.sent(), Not(HasSubstr("WWW-Authenticate")));
}

TEST(ResponseHead, OptionsListsTheMethodsBehindTheOtherFields) {
    Answer answer("OPTIONS / HTTP/1.0");
    answer.response->SetHeader("X", "y");
    EXPECT_THAT(answer.sent(), HasSubstr("X: y\r\nAllow: GET,HEAD,POST,OPTIONS,PUT\r\n"));
}

TEST(ResponseHead, HeadKeepsTheLengthAndLeavesOutTheBody) {
    Answer answer("HEAD / HTTP/1.1", 404);
    const std::string sent = answer.sent("<p>");
    EXPECT_THAT(sent, HasSubstr("Content-Length: 3\r\n"));
    EXPECT_TRUE(sent.ends_with("\r\n\r\n"));
}

TEST(ResponseHead, InterimAnswerIsNotFramed) {
    Answer answer("PUT / HTTP/1.1", 100);
    answer.response->SendHeader("");
    EXPECT_FALSE(answer.response->IsTransferChunkedEncoding());
    EXPECT_EQ(answer.response->Flush(), IO_FAILED);
    answer.pair.server->Close();
    EXPECT_EQ(answer.pair.ReceiveAll(), "HTTP/1.1 100 Continue\r\n" + SERVER +
                                            "Connection: Keep-Alive\r\n" + answer.cookie() +
                                            "\r\n");
}

TEST(ResponseHead, NoCookieWhereNothingWasParsed) {
    Clock::Hold(MOMENT);
    LoopbackPair pair;
    const auto request = std::make_shared<Request>(pair.server);
    Response response(request, 507, "");
    response.SendHeader("");
    pair.server->Close();
    EXPECT_EQ(pair.ReceiveAll(),
              "HTTP/1.0 507 Insufficient Storage\r\n" + SERVER + "Connection: Close\r\n\r\n");
}

TEST(ResponseHead, FieldSetTwiceComesOutTwiceWithItsLastValue) {
    Answer answer("GET / HTTP/1.0");
    answer.response->SetHeader("A", "1");
    answer.response->SetHeader("B", "2");
    answer.response->SetHeader("A", "3");
    EXPECT_THAT(answer.sent(), HasSubstr("Close\r\nA: 3\r\nB: 2\r\nA: 3\r\nSet-Cookie"));
}

TEST(ResponseHead, RemovedFieldIsGone) {
    Answer answer("GET / HTTP/1.0");
    answer.response->RemoveHeader("A");
    answer.response->SetHeader("A", "1");
    answer.response->SetHeader("A", "2");
    answer.response->SetHeader("B", "3");
    answer.response->RemoveHeader("A");
    EXPECT_THAT(answer.sent(), HasSubstr("Close\r\nB: 3\r\nSet-Cookie"));
}

TEST(ResponseHead, DateCannotBeSet) {
    Answer answer("GET / HTTP/1.0");
    answer.response->SetHeader("Date", "today");
    EXPECT_THAT(answer.sent(), Not(HasSubstr("today")));
}

TEST(ResponseHead, ValueCannotBeginAnotherLine) {
    Answer answer("GET / HTTP/1.0", 302);
    answer.response->SetHeader("Location", "/a\r\nSet-Cookie: b=c\t\x7f/");
    EXPECT_THAT(answer.sent(), HasSubstr("Location: /aSet-Cookie: b=c/\r\n"));
}

TEST(ResponseHead, CookieWithEverything) {
    Answer answer("GET / HTTP/1.0");
    answer.response->AddCookie("a", "b", MOMENT, "/p", "radio",
                               Response::COOKIE_SECURE | Response::COOKIE_HTTP_ONLY);
    EXPECT_THAT(answer.sent(),
                HasSubstr("Set-Cookie: a=b; expires=Tue, 14-Nov-2023 22:13:20 GMT; path=/p; "
                          "domain=radio; Secure; HttpOnly\r\n"));
}

TEST(ResponseHead, CookieFlagsStandAlone) {
    Answer plain("GET / HTTP/1.0");
    plain.response->AddCookie("a", "b", 0, "", "", 0);
    EXPECT_THAT(plain.sent(), HasSubstr("Set-Cookie: a=b\r\n"));
    Answer secure("GET / HTTP/1.0");
    secure.response->AddCookie("a", "b", 0, "", "", 1);
    EXPECT_THAT(secure.sent(), HasSubstr("Set-Cookie: a=b; Secure\r\n"));
    Answer http_only("GET / HTTP/1.0");
    http_only.response->AddCookie("a", "b", 0, "", "", 2);
    EXPECT_THAT(http_only.sent(), HasSubstr("Set-Cookie: a=b; HttpOnly\r\n"));
}

TEST(ResponseHead, TwoCookiesAreTheLaterOneTwice) {
    Answer answer("GET / HTTP/1.0");
    answer.response->AddCookie("a", "1", 0, "", "", 0);
    answer.response->AddCookie("b", "2", 0, "", "", 0);
    EXPECT_THAT(answer.sent(), HasSubstr("Set-Cookie: b=2\r\nSet-Cookie: b=2\r\n"));
}

TEST(ResponseHead, SendHeaderGivesTheLengthSent) {
    Answer answer("GET / HTTP/1.0");
    const int length = answer.response->SendHeader("body");
    EXPECT_EQ(static_cast<std::uint64_t>(length), answer.response->BytesSent());
}
