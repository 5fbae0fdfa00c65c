#include "http/Request.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "net/Socket.h"
#include "support/LogLines.h"
#include "support/LoopbackPair.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A request that reads what the test's client sends.
struct Exchange {
    LoopbackPair pair;
    Request request{pair.server};

    // Sends and waits until all of it lies ready at the server.
    void send(const std::string& bytes) {
        pair.Send(bytes);
        std::vector<char> peeked(unread + bytes.size());
        unread += bytes.size();
        while (recv(pair.server_fd, peeked.data(), peeked.size(), MSG_PEEK | MSG_DONTWAIT) <
               static_cast<ssize_t>(peeked.size()))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    int read() {
        const std::uint64_t before = pair.server->BytesRead();
        const int result = request.ReadRequest();
        unread -= pair.server->BytesRead() - before;
        return result;
    }
    int answer_to(const std::string& bytes) {
        send(bytes);
        return read();
    }

    std::size_t unread = 0;
};

const std::string HEAD = "GET /live?a=b HTTP/1.1\r\nHost: radio:8000\r\nUser-Agent: test\r\n\r\n";

} // namespace

TEST(Request, WholeHeadIsReadInOneStep) {
    Exchange exchange;
    const Request& request = exchange.request;
    EXPECT_EQ(exchange.answer_to(HEAD), static_cast<int>(HEAD.size()));
    EXPECT_TRUE(request.Complete());
    EXPECT_TRUE(request.Valid());
    EXPECT_EQ(request.Method(), Request::METHOD_GET);
    EXPECT_EQ(request.MethodString(), "GET");
    EXPECT_EQ(request.Protocol(), Request::PROTOCOL_HTTP);
    EXPECT_EQ(request.Version(), 1.1F);
    EXPECT_EQ(request.Path(), "/live");
    EXPECT_EQ(request.Query(), "?a=b");
    EXPECT_EQ(request.GetQuery("a"), "b");
    EXPECT_EQ(request.FirstLine(), "GET /live?a=b HTTP/1.1\r");
    EXPECT_EQ(request.GetRawRequest(), HEAD);
    EXPECT_EQ(request.BytesIn(), HEAD.size());
    EXPECT_EQ(request.GetHeader("user-agent"), "test");
    EXPECT_EQ(request.GetIP(), "127.0.0.1");
    EXPECT_EQ(request.GetLocalIP(), "127.0.0.1");
    EXPECT_EQ(request.Status(), 0);
    EXPECT_EQ(request.GetErrorCode(), 0);
    EXPECT_EQ(request.Socket(), exchange.pair.server);
}

TEST(Request, HeadMayArriveSplitAnywhereAndTheStreamBehindItStays) {
    for (const std::string& head : {HEAD, std::string("SOURCE /a ICE/1.0\nX: y\n\n")}) {
        for (std::size_t at = 1; at < head.size(); ++at) {
            Exchange exchange;
            ASSERT_EQ(exchange.answer_to(head.substr(0, at)), IO_AGAIN) << at;
            ASSERT_FALSE(exchange.request.Complete());
            ASSERT_EQ(exchange.answer_to(head.substr(at) + "stream\r\n\r\n\n\n"),
                      static_cast<int>(head.size()))
                << at;
            ASSERT_EQ(exchange.request.GetRawRequest(), head);
            std::vector<char> rest(64);
            const int length = exchange.pair.server->Recv(rest.data(), 64, 0, 0);
            ASSERT_EQ(std::string(rest.data(), static_cast<std::size_t>(length)),
                      "stream\r\n\r\n\n\n");
        }
    }
}

TEST(Request, HeadMayArriveByteByByte) {
    Exchange exchange;
    for (std::size_t i = 0; i + 1 < HEAD.size(); ++i)
        ASSERT_EQ(exchange.answer_to(HEAD.substr(i, 1)), IO_AGAIN);
    EXPECT_EQ(exchange.answer_to(HEAD.substr(HEAD.size() - 1)), static_cast<int>(HEAD.size()));
    EXPECT_EQ(exchange.request.GetHeader("Host"), "radio:8000");
}

TEST(Request, NothingToReadYetIsTriedAgainLater) {
    Exchange exchange;
    EXPECT_EQ(exchange.read(), IO_AGAIN);
    EXPECT_EQ(exchange.request.FirstLine(), "");
}

TEST(Request, EndOfThePeerIsPassedOn) {
    Exchange exchange;
    exchange.answer_to("GET / HT");
    exchange.pair.CloseClient();
    while (exchange.pair.server->CanRecv() == 0) {
    }
    EXPECT_EQ(exchange.read(), IO_END);
    exchange.pair.server->Close();
    EXPECT_EQ(exchange.read(), IO_FAILED);
}

TEST(Request, LineWithoutASpaceIsAnIcyLoginAtOnce) {
    Exchange exchange;
    EXPECT_EQ(exchange.answer_to("user:password\r\n"), IO_AGAIN);
    EXPECT_EQ(exchange.request.Method(), Request::METHOD_ICY_LOGIN);
    EXPECT_EQ(exchange.request.MethodString(), "");
    EXPECT_EQ(exchange.request.FirstLine(), "user:password\r");
    EXPECT_FALSE(exchange.request.Complete());
}

TEST(Request, HeadOfAnIcySourceFollowsItsLogin) {
    Exchange exchange;
    exchange.answer_to("password\n");
    EXPECT_EQ(exchange.answer_to("icy-name:Radio\nicy-br:128\n\nmp3"), 36);
    EXPECT_TRUE(exchange.request.Complete());
    EXPECT_EQ(exchange.request.Method(), Request::METHOD_ICY_LOGIN);
    EXPECT_EQ(exchange.request.GetHeader("icy-name"), "Radio");
    EXPECT_EQ(exchange.request.GetHeader("ICY-BR"), "128");
    EXPECT_FALSE(exchange.request.Valid());
}

TEST(Request, FirstLineOfTwoWordsFailsAtOnce) {
    Exchange exchange;
    EXPECT_EQ(exchange.answer_to("pass word\r\n"), IO_FAILED);
    EXPECT_EQ(exchange.request.Method(), Request::METHOD_UNKNOWN);
    EXPECT_EQ(exchange.request.GetErrorCode(), 0);
}

TEST(Request, FirstLineOfOneWordAndASpaceIsKept) {
    Exchange exchange;
    EXPECT_EQ(exchange.answer_to("password \r\n"), IO_FAILED);
    EXPECT_EQ(exchange.request.BareLine(), "password");
}

TEST(Request, UnknownMethodAndUnknownProtocolFail) {
    EXPECT_EQ(Exchange().answer_to("PATCH / HTTP/1.0\r\n\r\n"), IO_FAILED);
    EXPECT_EQ(Exchange().answer_to("GET / RTSP/1.0\r\n\r\n"), IO_FAILED);
    EXPECT_EQ(Exchange().answer_to("GET ?a HTTP/1.0\r\n\r\n"), IO_FAILED);
    EXPECT_EQ(Exchange().answer_to("\nGET / HTTP/1.0\r\n\r\n"), IO_FAILED);
}

TEST(Request, ValidityByProtocolVersionAndHost) {
    const auto valid = [](const std::string& head) {
        Exchange exchange;
        exchange.answer_to(head + "\r\n");
        return exchange.request.Valid();
    };
    EXPECT_TRUE(valid("SOURCE /live ICE/1.0\r\n"));
    EXPECT_TRUE(valid("GET / HTTP/1.0\r\n"));
    EXPECT_FALSE(valid("GET / HTTP/1.1\r\n"));
    EXPECT_TRUE(valid("GET / HTTP/1.1\r\nHost: a\r\n"));
    EXPECT_TRUE(valid("GET / HTTP/2.0\r\nHost: a\r\n"));
    EXPECT_FALSE(valid("GET / HTTP/0.9\r\nHost: a\r\n"));
    EXPECT_FALSE(valid("GET / HTTP/\r\nHost: a\r\n"));
    EXPECT_FALSE(valid("GET / ICE/1.1\r\nHost: a\r\n"));
    EXPECT_FALSE(valid("GET / ICY/1.0\r\n"));
}

TEST(Request, KeepAliveNeedsVersionElevenAndNoClose) {
    const auto kept = [](const std::string& head) {
        Exchange exchange;
        exchange.answer_to(head + "\r\n");
        return exchange.request.KeepAlive();
    };
    EXPECT_TRUE(kept("GET / HTTP/1.1\r\n"));
    EXPECT_FALSE(kept("GET / HTTP/1.1\r\nConnection: Close\r\n"));
    EXPECT_TRUE(kept("GET / HTTP/1.1\r\nConnection: upgrade\r\n"));
    EXPECT_FALSE(kept("GET / HTTP/1.0\r\nConnection: Keep-Alive\r\n"));
}

TEST(Request, RepeatedHeaderHasItsValuesRunTogether) {
    Exchange exchange;
    exchange.answer_to("GET / HTTP/1.0\r\nA: b\r\na: c\r\n\r\n");
    EXPECT_EQ(exchange.request.GetHeader("A"), "bc");
}

TEST(Request, KeysComeInTheOrderOfTheirMaps) {
    Exchange exchange;
    exchange.answer_to("GET /?b=1&A=2&a=3 HTTP/1.0\r\nb: x\r\nA: y\r\nCookie: d=1; C=2\r\n\r\n");
    EXPECT_THAT(exchange.request.GetAllHeaderKeys(), ElementsAre("A", "b", "Cookie"));
    EXPECT_THAT(exchange.request.GetAllQueryKeys(), ElementsAre("A", "a", "b"));
    EXPECT_THAT(exchange.request.GetAllCookieKeys(), ElementsAre("C", "d"));
    EXPECT_THAT(exchange.request.GetAllFormFields(), IsEmpty());
    EXPECT_EQ(exchange.request.GetCookie("C"), "2");
    EXPECT_EQ(exchange.request.GetCookie("c"), "");
}

TEST(Request, HeadOf8191BytesPasses) {
    Exchange exchange;
    std::string head = "GET / HTTP/1.0\r\nA: ";
    head += std::string(8191 - 4 - head.size(), 'x') + "\r\n\r\n";
    EXPECT_EQ(exchange.answer_to(head), 8191);
    EXPECT_EQ(exchange.request.GetErrorCode(), 0);
}

TEST(Request, HeadThatDoesNotEndIsRefused) {
    LogLines log;
    Exchange exchange;
    EXPECT_EQ(exchange.answer_to("GET / HTTP/1.1\r\n" + std::string(9216, 'x')), IO_FAILED);
    EXPECT_EQ(exchange.request.GetErrorCode(), 507);
    EXPECT_FALSE(exchange.request.KeepAlive());
    EXPECT_EQ(exchange.request.BytesIn(), 0U); // so it is answered as an HTTP/1.0 request
    EXPECT_EQ(exchange.request.Version(), 1.0F);
    EXPECT_EQ(exchange.request.GetSessionUUID(), "");
    EXPECT_TRUE(log.Wait("<127.0.0.1> Recv Failed: Client Trying to send more than 9.00 KiB of "
                         "data in their request payload"));
}

TEST(Request, PeekedBytesThatFillTheLargestBufferAreRefused) {
    Exchange exchange;
    EXPECT_EQ(exchange.answer_to(std::string(8191, 'x')), IO_AGAIN);
    Exchange other;
    EXPECT_EQ(other.answer_to(std::string(8192, 'x')), IO_FAILED);
    EXPECT_EQ(other.request.GetErrorCode(), 507);
}

TEST(Request, HeadInSmallPiecesIsRefusedAtTheLimitToo) {
    Exchange exchange;
    int result = IO_AGAIN;
    int pieces = 0;
    for (; result == IO_AGAIN; ++pieces)
        result = exchange.answer_to(std::string(512, 'x'));
    EXPECT_EQ(result, IO_FAILED);
    EXPECT_EQ(pieces, 9216 / 512);
    EXPECT_EQ(exchange.request.GetErrorCode(), 507);
}

TEST(Request, LimitOfTheHeadIsASetting) {
    Config::Get("MaxRequestBufferSize", true)->SetValue(2048);
    EXPECT_EQ(Exchange().answer_to(std::string(1023, 'x')), IO_AGAIN);
    EXPECT_EQ(Exchange().answer_to(std::string(1024, 'x')), IO_FAILED);
}

TEST(Request, SilentReplyTimesOut) {
    LoopbackPair pair;
    Request request(pair.server);
    Clock::Hold(1000);
    std::jthread client([&pair] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        Clock::Advance(16);
        pair.Send("HTTP/1.0 200");
    });
    EXPECT_EQ(request.get_raw_header(true), IO_FAILED);
    EXPECT_EQ(request.Status(), 110);
    EXPECT_EQ(request.Message(), "Connection timed out");
}

TEST(Request, WaitingReadGoesOnUntilTheHeadEnds) {
    LoopbackPair pair;
    Request request(pair.server);
    std::jthread client([&pair] {
        for (const char c : HEAD) {
            pair.Send(std::string(1, c));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    EXPECT_EQ(request.get_raw_header(true), static_cast<int>(HEAD.size()));
    EXPECT_EQ(request.get_raw_header(true), static_cast<int>(HEAD.size()));
}

TEST(Request, ReplyIsReadFromItsStatusLineOn) {
    Exchange exchange;
    exchange.answer_to("HTTP/1.0 200 OK fine\r\nIcy-Name: Radio\r\nicy-br:64\r\n\r\n");
    exchange.request.parse_header(false);
    EXPECT_EQ(exchange.request.Protocol(), Request::PROTOCOL_HTTP);
    EXPECT_EQ(exchange.request.Status(), 200);
    EXPECT_EQ(exchange.request.Message(), "OK fine");
    EXPECT_THAT(exchange.request.GetAllHeaderKeys(), ElementsAre("icy-br", "Icy-Name"));
}

TEST(Request, ReplyMayBeginWithLinesThatSayNothing) {
    Exchange exchange;
    exchange.answer_to("nothing\r\nthree unknown words\r\nICY 200 OK\r\nA: b\r\n\r\n");
    exchange.request.parse_header(false);
    EXPECT_EQ(exchange.request.Protocol(), Request::PROTOCOL_ICY);
    EXPECT_EQ(exchange.request.Status(), 200);
    EXPECT_THAT(exchange.request.GetAllHeaderKeys(), ElementsAre("A"));
}

TEST(Request, ReplyWithoutAReasonIsNone) {
    Exchange exchange;
    exchange.answer_to("HTTP/1.1 200\r\nA: b\r\n\r\n");
    exchange.request.parse_header(false);
    EXPECT_EQ(exchange.request.Protocol(), Request::PROTOCOL_UNKNOWN);
    EXPECT_EQ(exchange.request.Status(), 0);
    EXPECT_THAT(exchange.request.GetAllHeaderKeys(), IsEmpty());
}

TEST(Request, HostAndPortOfAnAddressComeFirst) {
    Request request("http://relay.example:8010/live", Request::METHOD_GET, "", "127.0.0.2",
                    Request::PROTOCOL_HTTP, 1.0F);
    request.SetHeader("Host", "other:1");
    EXPECT_EQ(request.Host(), "relay.example");
    EXPECT_EQ(request.Port(), 8010);
    EXPECT_EQ(request.GetLocalIP(), "127.0.0.2");
    EXPECT_EQ(request.GetIP(), "");
    EXPECT_EQ(request.Method(), Request::METHOD_GET);
}

TEST(Request, HostIsTheHeaderUpToItsColonAndPortTheSockets) {
    Exchange exchange;
    exchange.answer_to(HEAD);
    EXPECT_EQ(exchange.request.Host(), "radio");
    EXPECT_EQ(std::to_string(exchange.request.Port()), exchange.pair.server->GetLocalInfo().port);
}

TEST(Request, WithoutASocketThePortIsThatOfTheHeader) {
    Request request(nullptr);
    EXPECT_EQ(request.Port(), 80);
    request.SetHeader("Host", "radio:8000");
    EXPECT_EQ(request.Port(), 8000);
    request.SetHeader("Host", "radio");
    EXPECT_EQ(request.Port(), 80);
}

TEST(Request, EmptySocketIsAllowed) {
    Request request(nullptr);
    EXPECT_EQ(request.GetIP(), "");
    EXPECT_EQ(request.GetLocalIP(), "");
    EXPECT_EQ(request.Host(), "");
    EXPECT_EQ(request.Status(), 0);
    EXPECT_EQ(request.GetBody(), "");
    EXPECT_EQ(request.ReadRequest(), IO_FAILED);
    EXPECT_EQ(request.ReadForm(), 0);
    EXPECT_FALSE(request.Valid());
    EXPECT_TRUE(request.FormComplete());
    EXPECT_FALSE(request.IsShoutcastSource());
}

TEST(Request, WithoutAnAcceptHeaderEverythingIsAcceptable) {
    Exchange exchange;
    exchange.answer_to("GET / HTTP/1.0\r\n\r\n");
    EXPECT_TRUE(exchange.request.Acceptable("video/x-flv"));
    Exchange choosy;
    choosy.answer_to("GET / HTTP/1.0\r\nAccept: audio/*\r\n\r\n");
    EXPECT_FALSE(choosy.request.Acceptable("video/x-flv"));
    EXPECT_TRUE(choosy.request.Acceptable("audio/mpeg"));
}

TEST(Request, PreferredProtocolOfAListener) {
    const auto preferred = [](const std::string& target, const std::string& fields) {
        Exchange exchange;
        exchange.answer_to("GET " + target + " HTTP/1.0\r\n" + fields + "\r\n");
        return exchange.request.GetPreferredProtocol();
    };
    EXPECT_EQ(preferred("/a", ""), Request::PROTOCOL_HTTP);
    EXPECT_EQ(preferred("/;", ""), Request::PROTOCOL_ICY);
    EXPECT_EQ(preferred("/;stream.mp3", ""), Request::PROTOCOL_ICY);
    EXPECT_EQ(preferred("/a", "Icy-MetaData: 1\r\n"), Request::PROTOCOL_ICY);
    EXPECT_EQ(preferred("/a", "Icy-MetaData: 0\r\n"), Request::PROTOCOL_HTTP);
    EXPECT_EQ(preferred("/a?http=1", "Icy-MetaData: 1\r\n"), Request::PROTOCOL_HTTP);
    EXPECT_EQ(preferred("/;?http=1", "Icy-MetaData: 1\r\n"), Request::PROTOCOL_ICY);
    EXPECT_EQ(preferred("/a?icy=1", ""), Request::PROTOCOL_ICY);
}

TEST(Request, PreferredProtocolOfAnInvalidRequestIsItsOwn) {
    Exchange exchange;
    exchange.answer_to("GET /; HTTP/1.1\r\n\r\n");
    EXPECT_EQ(exchange.request.GetPreferredProtocol(), Request::PROTOCOL_HTTP);
}

TEST(Request, SessionIsThatOfTheCookieOrANewOne) {
    Exchange first;
    first.answer_to("GET / HTTP/1.0\r\nCookie: __quill_sess=unknown\r\n\r\n");
    const std::string id = first.request.GetSessionUUID();
    EXPECT_FALSE(id.empty());
    EXPECT_NE(id, "unknown");
    first.request.SetSessionVar("key", "value");

    Exchange second;
    second.answer_to("GET / HTTP/1.0\r\nCookie: a=b; __quill_sess=" + id + "\r\n\r\n");
    EXPECT_EQ(second.request.GetSessionUUID(), id);
    EXPECT_EQ(second.request.GetSessionVar("key", "default"), "value");
    EXPECT_EQ(second.request.GetSessionVar("other", "default"), "");
}

TEST(Request, WithoutASessionTheDefaultIsGivenBack) {
    Request request(nullptr);
    request.SetSessionVar("key", "value");
    EXPECT_EQ(request.GetSessionVar("key", "default"), "default");
    EXPECT_EQ(request.GetSessionUUID(), "");
}

TEST(Request, HeadersMayBeReadWhileTheyAreSet) {
    Exchange exchange;
    std::atomic<bool> done{false};
    std::jthread page([&] {
        while (!done) {
            const std::string value = exchange.request.GetHeader("a");
            ASSERT_TRUE(value.empty() || value == std::string(100, value[0]));
            exchange.request.Path();
            exchange.request.GetAllHeaderKeys();
            exchange.request.GetSessionVar("a", "");
        }
    });
    for (std::size_t i = 0; i < HEAD.size(); ++i)
        exchange.answer_to(HEAD.substr(i, 1));
    for (char c = 'a'; c <= 'z'; ++c)
        exchange.request.SetHeader("a", std::string(100, c));
    done = true;
}

TEST(Request, SetHeaderCutsControlBytes) {
    Request request(nullptr);
    request.SetHeader("a", "b\r\nc");
    EXPECT_EQ(request.GetHeader("A"), "bc");
}

TEST(Request, BodyInOnePieceIsReadWhole) {
    Exchange exchange;
    exchange.answer_to("PUT / HTTP/1.0\r\nContent-Length: 5\r\n\r\n");
    exchange.pair.Send("12345678");
    EXPECT_EQ(exchange.request.GetBody(), "12345");
}

TEST(Request, LaterPiecesOfABodyGoBehindTheOneBefore) {
    Exchange exchange;
    exchange.answer_to("PUT / HTTP/1.0\r\nContent-Length: 10\r\n\r\n");
    const auto send_when_read = [&exchange](const std::string& piece, std::uint64_t read) {
        while (exchange.pair.server->BytesRead() < read)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        exchange.pair.Send(piece);
    };
    const std::uint64_t head = exchange.pair.server->BytesRead();
    std::jthread client([&] {
        send_when_read("12345", head);
        send_when_read("ab", head + 5);
        send_when_read("xyz", head + 7);
        while (exchange.pair.server->BytesRead() < head + 10)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        exchange.pair.CloseClient();
    });
    EXPECT_EQ(exchange.request.GetBody(), std::string("12xyzab\0\0\0", 10));
}

TEST(Request, BodyAboveTheLimitIsNotRead) {
    Config::Get("UploadLimit", true)->SetValue(4);
    Exchange exchange;
    exchange.answer_to("PUT / HTTP/1.0\r\nContent-Length: 5\r\n\r\n");
    exchange.pair.Send("12345");
    EXPECT_EQ(exchange.request.GetBody(), "");
}
