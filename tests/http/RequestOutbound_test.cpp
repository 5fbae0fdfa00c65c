#include "config/Config.h"
#include "core/Clock.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "support/CalledServer.h"
#include "support/Ports.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace {

std::shared_ptr<Request> get(const std::string& address,
                             Request::RequestProtocol protocol = Request::PROTOCOL_HTTP) {
    return std::make_shared<Request>(address, Request::METHOD_GET, "", "", protocol, 1.0F);
}

std::shared_ptr<Request> post(const std::string& address, const std::string& body) {
    return std::make_shared<Request>(address, Request::METHOD_POST, body, "",
                                     Request::PROTOCOL_HTTP, 1.0F);
}

// Steps until something other than "again" comes, for some seconds at most.
template <typename Step> int until_other(Request& request, const Step& step) {
    int result = IO_AGAIN;
    for (int i = 0; i < 300 && result == IO_AGAIN; ++i)
        if ((result = step()) == IO_AGAIN) request.AwaitStep(20);
    return result;
}

int initiate(Request& request) {
    return until_other(request, [&] { return request.InitiateRequest(); });
}

// Until the request has been sent, with nothing answered.
TakenCall send_to(const CalledServer& server, Request& request) {
    for (int i = 0; i < 300 && !server.IsCalled(); ++i)
        if (request.ContinueRequest() == IO_AGAIN) request.AwaitStep(20);
    TakenCall call = server.Take();
    for (int i = 0; i < 10; ++i)
        request.ContinueRequest();
    call.Receive();
    return call;
}

// A whole exchange in steps, with this answer.
int exchange(Request& request, const CalledServer& server, const std::string& answer) {
    TakenCall call = send_to(server, request);
    call.Send(answer);
    return initiate(request);
}

class OutboundRequest : public testing::Test {
protected:
    void TearDown() override { Clock::Release(); }
    CalledServer server;
};

TEST_F(OutboundRequest, ReplyGivesStatusMessageAndFields) {
    const auto request = get(server.Address("/live"));
    EXPECT_EQ(exchange(*request, server, "HTTP/1.0 200 OK\r\nicy-name: One\r\n\r\n"), 1);
    EXPECT_EQ(request->Status(), 200);
    EXPECT_EQ(request->Message(), "OK");
    EXPECT_EQ(request->GetHeader("Icy-Name"), "One");
    EXPECT_EQ(request->Protocol(), Request::PROTOCOL_HTTP);
}

TEST_F(OutboundRequest, ReplyMayBeIcyAndItsMessageOfSeveralWords) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server, "ICY 401 Service Un available\n\n"), 1);
    EXPECT_EQ(request->Protocol(), Request::PROTOCOL_ICY);
    EXPECT_EQ(request->Status(), 401);
    EXPECT_EQ(request->Message(), "Service Un available");
}

TEST_F(OutboundRequest, WhatIsSentReachesTheServer) {
    const auto request = post(server.Address("/in"), "a=1");
    request->SetHeader("X-Field", "word");
    int result = IO_AGAIN;
    std::thread caller([&] { result = request->CompleteRequest() ? 1 : 0; });
    const TakenCall call = server.Take();
    EXPECT_EQ(call.Receive(),
              "POST /in HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
                  "\r\nContent-Length: 3\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                  "X-Field: word\r\n\r\na=1");
    call.Send("HTTP/1.0 204 No Content\r\n\r\n");
    caller.join();
    EXPECT_EQ(result, 1);
}

TEST_F(OutboundRequest, ABodyIsNotSentWithGet) {
    const auto request = std::make_shared<Request>(server.Address("/a"), Request::METHOD_GET, "a=1",
                                                   "", Request::PROTOCOL_HTTP, 1.1F);
    std::thread caller([&] { request->CompleteRequest(); });
    TakenCall call = server.Take();
    EXPECT_EQ(call.Receive(),
              "GET /a HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) + "\r\n\r\n");
    call.Close();
    caller.join();
}

TEST_F(OutboundRequest, WhatTheSocketDoesNotTakeAtOnceIsKept) {
    const std::string body(8 << 20, 'x');
    const auto request = post(server.Address(), body);
    std::thread caller([&] { request->CompleteRequest(); });
    const TakenCall call = server.Take();
    EXPECT_EQ(body_of(call.Receive()).size(), body.size());
    call.Send("HTTP/1.0 200 OK\r\n\r\n");
    caller.join();
    EXPECT_EQ(request->Status(), 200);
}

TEST_F(OutboundRequest, StepsAreAgainUntilTheReplyIsWhole) {
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    EXPECT_EQ(request->InitiateRequest(), IO_AGAIN);
    call.Send("HTTP/1.0 200 OK\r\n");
    usleep(20000);
    EXPECT_EQ(request->InitiateRequest(), IO_AGAIN);
    call.Send("\r\n");
    EXPECT_EQ(initiate(*request), 1);
    EXPECT_EQ(request->InitiateRequest(), 1);
    EXPECT_EQ(request->Status(), 200);
}

TEST_F(OutboundRequest, SentRequestKnowsBothAddresses) {
    const auto request = get(server.Address());
    EXPECT_EQ(request->GetIP(), "");
    const TakenCall call = send_to(server, *request);
    EXPECT_EQ(request->GetIP(), "127.0.0.1");
    EXPECT_EQ(request->GetLocalIP(), "127.0.0.1");
    EXPECT_EQ(request->Host(), "127.0.0.1");
    EXPECT_EQ(request->Port(), server.Port());
}

TEST_F(OutboundRequest, CallsFromTheAddressItIsGiven) {
    const auto request = std::make_shared<Request>(server.Address(), Request::METHOD_GET, "",
                                                   "127.0.0.9", Request::PROTOCOL_HTTP, 1.0F);
    const TakenCall call = send_to(server, *request);
    EXPECT_EQ(request->Socket()->GetLocalIP(), "127.0.0.9");
}

TEST_F(OutboundRequest, NamesAreLookedUpAside) {
    const auto request = get("http://localhost:" + std::to_string(server.Port()) + "/");
    const TakenCall call = send_to(server, *request);
    EXPECT_TRUE(call.Came());
}

TEST_F(OutboundRequest, ReplyInSingleBytes) {
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    for (const char byte : std::string("HTTP/1.1 403 No\r\nA: b\r\n\r\n")) {
        ASSERT_EQ(request->InitiateRequest(), IO_AGAIN);
        call.Send(std::string(1, byte));
        request->AwaitStep(2000);
    }
    EXPECT_EQ(initiate(*request), 1);
    EXPECT_EQ(request->Status(), 403);
    EXPECT_EQ(request->GetHeader("A"), "b");
}

TEST_F(OutboundRequest, NeverTakesAByteBehindTheHead) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server, "HTTP/1.0 200 OK\r\n\r\nstream"), 1);
    char bytes[16];
    ASSERT_EQ(request->Socket()->Recv(bytes, sizeof bytes, 0, 2), 6);
    EXPECT_EQ(std::string(bytes, 6), "stream");
}

TEST_F(OutboundRequest, InterimReplyIsNotTheReply) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server,
                       "HTTP/1.1 100 Continue\r\nA: 1\r\n\r\nHTTP/1.1 103 Early Hints\r\n\r\n"
                       "HTTP/1.1 200 OK\r\nB: 2\r\n\r\n"),
              1);
    EXPECT_EQ(request->Status(), 200);
    EXPECT_EQ(request->Message(), "OK");
    EXPECT_EQ(request->GetHeader("A"), "");
    EXPECT_EQ(request->GetHeader("B"), "2");
}

TEST_F(OutboundRequest, FieldsOfAnInterimReplyAreNotKeptWhenNoneFollows) {
    const auto request = get(server.Address());
    {
        const TakenCall call = send_to(server, *request);
        call.Send("HTTP/1.1 100 Continue\r\nA: 1\r\n\r\n");
    }
    EXPECT_LT(initiate(*request), 1);
    EXPECT_EQ(request->GetHeader("A"), "");
}

TEST_F(OutboundRequest, RedirectIsAReplyLikeAnyOther) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server, "HTTP/1.1 302 Found\r\nLocation: /b\r\n\r\n"), 1);
    EXPECT_EQ(request->Status(), 302);
    EXPECT_FALSE(server.IsCalled());
}

TEST_F(OutboundRequest, GarbageIsAReplyWithoutAStatus) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server, "what is this\r\nand: that\r\n\r\n"), 1);
    EXPECT_EQ(request->Status(), 0);
    EXPECT_EQ(request->Protocol(), Request::PROTOCOL_UNKNOWN);
    EXPECT_EQ(request->InitiateRequest(), IO_FAILED);
}

TEST_F(OutboundRequest, StatusLineWithoutAReasonIsNone) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server, "HTTP/1.1 200\r\n\r\n"), 1);
    EXPECT_EQ(request->Status(), 0);
}

TEST_F(OutboundRequest, EndBeforeTheReplyIsOne) {
    const auto request = get(server.Address());
    TakenCall call = send_to(server, *request);
    call.Close();
    EXPECT_EQ(initiate(*request), IO_END);
    EXPECT_EQ(request->ContinueRequest(), IO_FAILED);
    EXPECT_FALSE(request->Socket()->IsValid());
}

TEST_F(OutboundRequest, HugeHeadFails) {
    const auto request = get(server.Address());
    EXPECT_EQ(exchange(*request, server, "HTTP/1.0 200 OK\r\nA: " + std::string(20000, 'x')),
              IO_FAILED);
}

TEST_F(OutboundRequest, ClosedPortFailsAtTheFirstOrSecondStep) {
    const auto request = get("http://127.0.0.1:" + std::to_string(Ports::Free()) + "/");
    int result = request->InitiateRequest();
    if (result == IO_AGAIN) {
        request->AwaitStep(2000);
        result = request->InitiateRequest();
    }
    EXPECT_EQ(result, IO_FAILED);
    EXPECT_EQ(request->InitiateRequest(), IO_FAILED);
}

TEST_F(OutboundRequest, UnknownProtocolOrAddressFailsAtOnce) {
    EXPECT_EQ(get(server.Address(), Request::PROTOCOL_UNKNOWN)->InitiateRequest(), IO_FAILED);
    EXPECT_EQ(get("http://host/a:b")->InitiateRequest(), IO_FAILED);
    EXPECT_EQ(get("http://")->InitiateRequest(), IO_FAILED);
    EXPECT_EQ(get("http://127.0.0.1:0/")->InitiateRequest(), IO_FAILED);
    EXPECT_FALSE(server.IsCalled());
}

TEST_F(OutboundRequest, InboundRequestCannotBeInitiated) {
    EXPECT_EQ(Request(std::shared_ptr<Socket>()).InitiateRequest(), IO_FAILED);
}

TEST_F(OutboundRequest, CompleteGivesTheSocketOfTheReply) {
    const auto request = get(server.Address());
    std::shared_ptr<Socket> socket;
    std::thread caller([&] { socket = request->CompleteRequest(); });
    const TakenCall call = server.Take();
    call.Receive();
    call.Send("HTTP/1.0 200 OK\r\n\r\n");
    caller.join();
    ASSERT_NE(socket, nullptr);
    EXPECT_EQ(socket, request->Socket());
    EXPECT_TRUE(socket->IsValid());
}

TEST_F(OutboundRequest, CompleteGivesNothingWithoutAReply) {
    EXPECT_EQ(get("http://127.0.0.1:" + std::to_string(Ports::Free()) + "/")->CompleteRequest(),
              nullptr);
    EXPECT_EQ(get(server.Address(), Request::PROTOCOL_UNKNOWN)->CompleteRequest(), nullptr);
    const auto ended = get(server.Address());
    std::thread hangs_up([&] { server.Take().Receive(); });
    EXPECT_EQ(ended->CompleteRequest(), nullptr);
    hangs_up.join();
}

// ---- Limits -------------------------------------------------------------------------------------

TEST_F(OutboundRequest, SilentServerIsGivenUpAfterThirtySeconds) {
    Clock::Hold(1000);
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    Clock::Advance(29);
    EXPECT_EQ(request->ContinueRequest(), IO_AGAIN);
    Clock::Advance(1);
    EXPECT_EQ(request->ContinueRequest(), IO_FAILED);
    EXPECT_EQ(request->Status(), ETIMEDOUT);
    EXPECT_EQ(request->Message(), "Connection timed out");
    EXPECT_FALSE(request->Socket()->IsValid());
}

TEST_F(OutboundRequest, ReplyAfterALongThoughtCounts) {
    Clock::Hold(1000);
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    Clock::Advance(25);
    call.Send("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_EQ(until_other(*request, [&] { return request->ContinueRequest(); }), 1);
}

TEST_F(OutboundRequest, ReplyInPiecesIsGivenUpAfterFifteenSeconds) {
    Clock::Hold(1000);
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    Clock::Advance(15);
    call.Send("HTTP/1.0 ");
    request->AwaitStep(2000);
    EXPECT_EQ(request->ContinueRequest(), IO_AGAIN);
    Clock::Advance(1);
    call.Send("200 ");
    request->AwaitStep(2000);
    EXPECT_EQ(request->ContinueRequest(), IO_FAILED);
    EXPECT_EQ(request->Status(), ETIMEDOUT);
}

TEST_F(OutboundRequest, InterimRepliesWithoutEndAreGivenUpAfterFifteenSeconds) {
    Clock::Hold(1000);
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    for (int second = 0; second <= 15; ++second) {
        call.Send("HTTP/1.1 102 Still Thinking\r\n\r\n");
        request->AwaitStep(2000);
        ASSERT_EQ(request->ContinueRequest(), IO_AGAIN) << second;
        Clock::Advance(1);
    }
    call.Send("HTTP/1.1 102 Still Thinking\r\n\r\n");
    request->AwaitStep(2000);
    EXPECT_EQ(request->ContinueRequest(), IO_FAILED);
    EXPECT_EQ(request->Status(), ETIMEDOUT);
}

TEST_F(OutboundRequest, SilenceCountsFromTheLastByte) {
    Clock::Hold(1000);
    const auto request = get(server.Address());
    const TakenCall call = send_to(server, *request);
    Clock::Advance(10);
    call.Send("HTTP/1.0 ");
    request->AwaitStep(2000);
    EXPECT_EQ(request->ContinueRequest(), IO_AGAIN);
    Clock::Advance(29);
    EXPECT_EQ(request->ContinueRequest(), IO_AGAIN);
    Clock::Advance(1);
    EXPECT_EQ(request->ContinueRequest(), IO_FAILED);
}

TEST_F(OutboundRequest, ConnectingMayTakeTheSocketTimeout) {
    Clock::Hold(1000);
    Config::Get("SocketTimeout", true)->SetValue(7);
    // A full backlog answers nobody.
    const CalledServer busy(0);
    Socket first(AF_INET, SOCK_STREAM, 0);
    Socket second(AF_INET, SOCK_STREAM, 0);
    first.Connect("127.0.0.1", busy.Port(), "", 0, true);
    second.Connect("127.0.0.1", busy.Port(), "", 0, true);
    const auto request = get(busy.Address());
    ASSERT_EQ(request->ContinueRequest(), IO_AGAIN);
    Clock::Advance(6);
    EXPECT_EQ(request->ContinueRequest(), IO_AGAIN);
    Clock::Advance(1);
    EXPECT_EQ(request->ContinueRequest(), IO_FAILED);
    EXPECT_EQ(request->Status(), 0);
}

// ---- Bodies of replies --------------------------------------------------------------------------

TEST_F(OutboundRequest, BodyOfToldLengthIsReadInSteps) {
    const auto request = get(server.Address());
    TakenCall call = send_to(server, *request);
    call.Send("HTTP/1.0 200 OK\r\nContent-Length: 6\r\n\r\nabc");
    ASSERT_EQ(initiate(*request), 1);
    EXPECT_EQ(request->ReadReplyBody(), IO_AGAIN);
    call.Send("defghi");
    request->AwaitStep(2000);
    EXPECT_EQ(request->ReadReplyBody(), 1);
    EXPECT_EQ(std::string(request->PostData().begin(), request->PostData().end()), "abcdef");
}

TEST_F(OutboundRequest, BodyThatStopsShortFails) {
    const auto request = get(server.Address());
    TakenCall call = send_to(server, *request);
    call.Send("HTTP/1.0 200 OK\r\nContent-Length: 6\r\n\r\nabc");
    ASSERT_EQ(initiate(*request), 1);
    call.Close();
    EXPECT_EQ(until_other(*request, [&] { return request->ReadReplyBody(); }), IO_FAILED);
}

TEST_F(OutboundRequest, NoLengthMeansNoBodyAndTooMuchIsRefused) {
    const auto without = get(server.Address());
    EXPECT_EQ(exchange(*without, server, "HTTP/1.0 200 OK\r\n\r\nabc"), 1);
    EXPECT_EQ(without->ReadReplyBody(), 1);
    EXPECT_TRUE(without->PostData().empty());
    const auto huge = get(server.Address());
    EXPECT_EQ(exchange(*huge, server, "HTTP/1.0 200 OK\r\nContent-Length: 9999999999\r\n\r\n"), 1);
    EXPECT_EQ(huge->ReadReplyBody(), IO_FAILED);
}

} // namespace
