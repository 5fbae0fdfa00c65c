#include "http/Response.h"

#include "core/Clock.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "support/LoopbackPair.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

// A response to a request that was read from a loopback pair. What the head sends is taken away.
struct Answer {
    LoopbackPair pair;
    std::shared_ptr<Request> request = std::make_shared<Request>(pair.server);
    std::unique_ptr<Response> response;

    explicit Answer(const std::string& first_line = "GET / HTTP/1.0", unsigned short status = 200) {
        pair.Send(first_line + "\r\nHost: x\r\n\r\n");
        while (request->ReadRequest() == IO_AGAIN) {
        }
        response = std::make_unique<Response>(request, status, "");
    }
    void send_head() {
        response->SendHeader("");
        std::string head;
        while (head.find("\r\n\r\n") == std::string::npos)
            head += pair.Receive(1);
    }
};

// Chunked, with the head sent.
struct ChunkedAnswer : Answer {
    explicit ChunkedAnswer(const std::string& method = "GET") : Answer(method + " / HTTP/1.1") {
        send_head();
    }
};

SharedBytes bytes(const std::string& text) {
    return std::make_shared<const std::vector<char>>(text.begin(), text.end());
}

std::vector<char> vector_of(const std::string& text) { return {text.begin(), text.end()}; }

constexpr long MEBIBYTE = 1048576;

} // namespace

TEST(Response, SendGivesTheLengthOfWhatTheSocketTook) {
    Answer answer;
    const std::vector<char> data = vector_of("abcdef");
    EXPECT_EQ(answer.response->Send(&data, 4, 0), 4);
    EXPECT_EQ(answer.response->Send("xyz"), 3);
    EXPECT_EQ(answer.response->GetBytesBuffered(), 0U);
    EXPECT_EQ(answer.pair.Receive(7), "abcdxyz");
    EXPECT_EQ(answer.response->BytesSent(), 7U);
    EXPECT_EQ(answer.response->LastError(), 0);
}

TEST(Response, SendQueuesBehindWhatWaits) {
    Answer answer;
    answer.response->Buffer("first ");
    const std::vector<char> data = vector_of("second");
    EXPECT_EQ(answer.response->Send(&data, 6, 0), 6);
    EXPECT_EQ(answer.pair.Receive(12), "first second");
}

TEST(Response, SendKeepsWhatTheSocketDoesNotTake) {
    Answer answer;
    const std::uint64_t filled = answer.pair.FillTowardsClient();
    EXPECT_EQ(answer.response->Send("abc"), 3);
    EXPECT_EQ(answer.response->Send("def"), 3);
    EXPECT_EQ(answer.response->GetBytesBuffered(), 6U);
    EXPECT_EQ(answer.response->SendBuffer(), IO_AGAIN);
    EXPECT_EQ(answer.response->GetBytesBuffered(), 6U);
    EXPECT_FALSE(answer.response->Failed());
    answer.pair.Receive(filled);
    while (answer.response->SendBuffer() == IO_AGAIN) {
    }
    EXPECT_EQ(answer.pair.Receive(6), "abcdef");
}

TEST(Response, SendThatWouldWaitIsNoFailureButLeavesItsErrno) {
    Answer answer;
    const std::uint64_t filled = answer.pair.FillTowardsClient();
    EXPECT_EQ(answer.response->Send("abc"), 3);
    EXPECT_EQ(answer.response->LastError(), EAGAIN);
    EXPECT_FALSE(answer.response->Failed());
    answer.pair.Receive(filled);
    while (answer.response->SendBuffer() == IO_AGAIN) {
    }
    EXPECT_EQ(answer.response->LastError(), EAGAIN); // until something else goes wrong
}

TEST(Response, EmptySendIsNoFailure) {
    Answer answer;
    const std::vector<char> nothing;
    EXPECT_EQ(answer.response->Send(&nothing, 0, 0), 0);
    EXPECT_EQ(answer.response->Send(""), 0);
    EXPECT_FALSE(answer.response->Failed());
}

TEST(Response, LargeSendIsTakenInPartsAndArrivesWhole) {
    Answer answer;
    std::string data;
    for (int i = 0; data.size() < 900000; ++i)
        data += std::to_string(i) + ",";
    answer.pair.FillTowardsClient();
    answer.pair.ReceiveWaiting();
    EXPECT_EQ(answer.response->Send(data), static_cast<int>(data.size()));
    std::string received;
    while (answer.response->SendBuffer() != 1)
        received += answer.pair.ReceiveWaiting();
    received += answer.pair.Receive(data.size());
    EXPECT_EQ(received.substr(received.size() - data.size()), data);
}

TEST(Response, SendBufferGivesOneWhenNothingWaits) {
    Answer answer;
    EXPECT_EQ(answer.response->SendBuffer(), 1);
}

TEST(Response, SendBufferGivesTheCountSent) {
    Answer answer;
    answer.response->Buffer("abcde");
    EXPECT_EQ(answer.response->SendBuffer(), 5);
    EXPECT_EQ(answer.response->GetBytesBuffered(), 0U);
}

TEST(Response, ManySegmentsLeaveInOrder) {
    Answer answer;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = std::to_string(i) + ";";
        answer.response->Buffer(bytes("x" + text + "y"), 1, text.size());
        expected += text;
    }
    EXPECT_EQ(answer.response->SendBuffer(), static_cast<int>(expected.size()));
    EXPECT_EQ(answer.pair.Receive(expected.size()), expected);
}

TEST(Response, BufferGivesWhatWaits) {
    Answer answer;
    EXPECT_EQ(answer.response->Buffer(bytes("0123456789"), 3, 4), 4);
    EXPECT_EQ(answer.response->Buffer("abc"), 7);
    EXPECT_EQ(answer.response->Buffer(nullptr, 0, 0), 7);
    answer.response->SendBuffer();
    EXPECT_EQ(answer.pair.Receive(7), "3456abc");
}

TEST(Response, BufferedPacketsAreNotCopied) {
    Answer answer;
    const SharedBytes packet = bytes("packet");
    answer.response->Buffer(packet, 0, 6);
    EXPECT_EQ(packet.use_count(), 2);
    answer.response->SendBuffer();
    EXPECT_EQ(packet.use_count(), 1);
}

TEST(Response, ChunksHaveTheirSizeInFront) {
    ChunkedAnswer answer;
    ASSERT_TRUE(answer.response->IsTransferChunkedEncoding());
    EXPECT_EQ(answer.response->Buffer(bytes(std::string(26, 'x')), 0, 26), 4 + 26 + 2);
    EXPECT_EQ(answer.response->Buffer("abc"), 32 + 3 + 3 + 2);
    answer.response->SendBuffer();
    EXPECT_EQ(answer.pair.Receive(40), "1a\r\n" + std::string(26, 'x') + "\r\n3\r\nabc\r\n");
}

TEST(Response, WithoutDataAChunkIsItsSizeLine) {
    ChunkedAnswer answer;
    EXPECT_EQ(answer.response->Buffer(nullptr, 0, 0), 3);
    EXPECT_EQ(answer.response->Buffer(bytes("abc"), 0, 0), 6);
    EXPECT_EQ(answer.response->Buffer(nullptr, 0, 16), 10);
    EXPECT_EQ(answer.response->Buffer(""), 13);
    answer.response->SendBuffer();
    EXPECT_EQ(answer.pair.Receive(13), "0\r\n0\r\n10\r\n0\r\n");
}

TEST(Response, CommentStandsInTheNextChunkOnly) {
    ChunkedAnswer answer;
    answer.response->SetTransferEncodingComment("title=a");
    answer.response->Buffer("x");
    answer.response->Buffer("y");
    answer.response->SendBuffer();
    EXPECT_EQ(answer.pair.Receive(21), "1; title=a\r\nx\r\n1\r\ny\r\n");
}

TEST(Response, CommentWithALineFeedOrWithoutChunksIsIgnored) {
    ChunkedAnswer chunked;
    chunked.response->SetTransferEncodingComment("a\nb");
    EXPECT_EQ(chunked.response->Buffer("x"), 6);
    Answer plain;
    plain.response->SetTransferEncodingComment("a");
    EXPECT_EQ(plain.response->Buffer("x"), 1);
}

TEST(Response, DisconnectEndsChunksWithoutAnEmptyLineAndEveryTime) {
    ChunkedAnswer answer;
    answer.response->Disconnect();
    EXPECT_EQ(answer.response->GetBytesBuffered(), 3U);
    answer.response->Disconnect();
    EXPECT_EQ(answer.response->GetBytesBuffered(), 6U);
    EXPECT_TRUE(answer.response->IsTransferChunkedEncoding());
    answer.response->SendBuffer();
    EXPECT_EQ(answer.pair.Receive(6), "0\r\n0\r\n");
}

TEST(Response, DisconnectDoesNothingWithoutChunksAndForHeadsAlone) {
    Answer plain;
    plain.response->Disconnect();
    EXPECT_EQ(plain.response->GetBytesBuffered(), 0U);
    for (const char* method : {"HEAD", "OPTIONS"}) {
        ChunkedAnswer answer(method);
        EXPECT_TRUE(answer.response->IsTransferChunkedEncoding());
        answer.response->Disconnect();
        EXPECT_EQ(answer.response->GetBytesBuffered(), 0U) << method;
        EXPECT_EQ(answer.response->Flush(), IO_FAILED);
        EXPECT_FALSE(answer.response->Failed());
    }
}

TEST(Response, FlushGivesTheCountSent) {
    Answer answer;
    answer.response->Buffer("abc");
    EXPECT_EQ(answer.response->Flush(), 3);
}

TEST(Response, FlushOfNothingIsMinusOneButNoFailure) {
    Answer answer;
    EXPECT_EQ(answer.response->Flush(), IO_FAILED);
    EXPECT_FALSE(answer.response->Failed());
    EXPECT_EQ(answer.response->LastError(), 0);
}

TEST(Response, FlushEndsTheChunkedBody) {
    ChunkedAnswer answer;
    answer.response->Buffer("x");
    EXPECT_EQ(answer.response->Flush(), 9);
    EXPECT_EQ(answer.pair.Receive(9), "1\r\nx\r\n0\r\n");
}

TEST(Response, FlushNeverWaitsAndEndsTheBodyOnceHoweverOftenItIsCalled) {
    ChunkedAnswer answer;
    answer.response->Buffer("x");
    const std::uint64_t filled = answer.pair.FillTowardsClient();
    EXPECT_EQ(answer.response->Flush(), IO_AGAIN);
    EXPECT_EQ(answer.response->Flush(), IO_AGAIN);
    EXPECT_EQ(answer.response->GetBytesBuffered(), 9U);
    answer.pair.Receive(filled);
    int result = IO_AGAIN;
    while (result == IO_AGAIN)
        result = answer.response->Flush();
    EXPECT_EQ(result, 9);
    EXPECT_EQ(answer.pair.Receive(9), "1\r\nx\r\n0\r\n");
    EXPECT_EQ(answer.response->Flush(), 3); // a new flush ends the body again
}

TEST(Response, FlushGivesUpAfterFifteenSecondsWithoutASend) {
    Clock::Hold(1000);
    Answer answer;
    answer.response->Buffer("x");
    answer.pair.FillTowardsClient();
    Clock::Advance(15);
    EXPECT_EQ(answer.response->Flush(), IO_AGAIN);
    Clock::Advance(1);
    EXPECT_EQ(answer.response->Flush(), IO_FAILED);
    EXPECT_EQ(answer.response->LastError(), 110);
    EXPECT_TRUE(answer.response->Failed());
    EXPECT_EQ(answer.response->GetBytesBuffered(), 0U);
}

TEST(Response, SendGivesUpAfterFifteenSecondsWithoutASend) {
    Clock::Hold(1000);
    Answer answer;
    answer.pair.FillTowardsClient();
    Clock::Advance(15);
    EXPECT_EQ(answer.response->Send("abc"), 3);
    Clock::Advance(1);
    EXPECT_EQ(answer.response->SendBuffer(), IO_FAILED);
    EXPECT_EQ(answer.response->LastError(), 110);
    EXPECT_EQ(answer.response->SendBuffer(), 1); // nothing is left
}

TEST(Response, FifteenSecondsCountFromTheLastSend) {
    Clock::Hold(1000);
    Answer answer;
    Clock::Advance(10);
    answer.response->Send("abc");
    answer.pair.FillTowardsClient();
    answer.response->Buffer("x");
    Clock::Advance(15);
    EXPECT_EQ(answer.response->SendBuffer(), IO_AGAIN);
}

TEST(Response, MoreThanAMebibyteWaitingIsDropped) {
    Answer answer;
    answer.pair.FillTowardsClient();
    EXPECT_EQ(answer.response->Send(std::string(MEBIBYTE, 'x')), MEBIBYTE);
    EXPECT_EQ(answer.response->SendBuffer(), IO_AGAIN);
    EXPECT_EQ(answer.response->Send("x"), IO_FAILED);
    EXPECT_EQ(answer.response->LastError(), 105);
    EXPECT_TRUE(answer.response->Failed());
    EXPECT_EQ(answer.response->GetBytesBuffered(), 0U);
}

TEST(Response, DocumentLargerThanMayWaitArrivesWhole) {
    Answer answer;
    std::string body;
    for (int i = 0; body.size() < 3 * MEBIBYTE; ++i)
        body += std::to_string(i) + ",";
    answer.pair.FillTowardsClient();
    answer.pair.ReceiveWaiting();
    EXPECT_GT(answer.response->SendHeader(body), static_cast<int>(body.size()));
    std::string received;
    while (answer.response->Flush() == IO_AGAIN) {
        EXPECT_LT(answer.response->GetBytesBuffered(), MEBIBYTE);
        received += answer.pair.ReceiveWaiting();
    }
    EXPECT_FALSE(answer.response->Failed());
    answer.pair.server->Close();
    received += answer.pair.ReceiveAll();
    EXPECT_EQ(received.substr(received.find("\r\n\r\n") + 4), body);
}

TEST(Response, DocumentOfThatLengthHasNoBodyForAHead) {
    Answer answer("HEAD / HTTP/1.0");
    answer.response->SendHeader(std::string(3 * MEBIBYTE, 'x'));
    EXPECT_EQ(answer.response->Flush(), IO_FAILED); // nothing waits
    const std::string received = answer.pair.ReceiveWaiting();
    EXPECT_NE(received.find("Content-Length: 3145728\r\n"), std::string::npos);
    EXPECT_TRUE(received.ends_with("\r\n\r\n"));
}

TEST(Response, DocumentIsDroppedWithTheQueueAfterFifteenSecondsWithoutASend) {
    Clock::Hold(1000);
    Answer answer;
    answer.pair.FillTowardsClient();
    answer.response->SendHeader(std::string(3 * MEBIBYTE, 'x'));
    Clock::Advance(16);
    EXPECT_EQ(answer.response->Flush(), IO_FAILED);
    EXPECT_EQ(answer.response->LastError(), 110);
    EXPECT_EQ(answer.response->SendBuffer(), 1);
    EXPECT_EQ(answer.response->GetBytesBuffered(), 0U);
}

TEST(Response, RestOfAPartlyTakenSendCountsToo) {
    Answer answer;
    EXPECT_EQ(answer.response->Send(std::string(16 * MEBIBYTE, 'x')), IO_FAILED);
    EXPECT_EQ(answer.response->LastError(), 105);
}

TEST(Response, HardErrorIsToldByItsNumber) {
    Answer answer;
    answer.pair.ResetClient();
    int result = 0;
    while (result >= 0)
        result = answer.response->Send("abc");
    EXPECT_EQ(result, IO_FAILED);
    const int error = answer.response->LastError();
    EXPECT_TRUE(error == ECONNRESET || error == EPIPE) << error;
    EXPECT_TRUE(answer.response->Failed());
    answer.response->SetLastError(7);
    EXPECT_EQ(answer.response->LastError(), 7);
}

TEST(Response, BytesPerSecondInOneSecondIsThePlainSum) {
    Clock::Hold(1000);
    Answer answer;
    EXPECT_EQ(answer.response->GetBytesPerSecond(false), 0U);
    answer.response->Send("abc");
    answer.response->Send("defg");
    EXPECT_EQ(answer.response->GetBytesPerSecond(false), 7U);
    Clock::Advance(7);
    answer.response->Send(std::string(7, 'x'));
    EXPECT_EQ(answer.response->GetBytesPerSecond(false), 2U);
}

TEST(Response, VersionOfTheLogIsNeverEleven) {
    Answer answer("GET / HTTP/1.1");
    EXPECT_EQ(answer.response->Version(), "HTTP/1.0");
    answer.response->SetProtocol(Response::HTTP, 1.1F);
    EXPECT_EQ(answer.response->Version(), "HTTP/1.0");
    answer.response->SetProtocol(Response::ICY, 1.0F);
    EXPECT_EQ(answer.response->Version(), "ICY");
}
