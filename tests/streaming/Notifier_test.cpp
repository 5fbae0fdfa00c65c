#include "streaming/Notifier.h"

#include "core/Clock.h"
#include "http/Request.h"
#include "net/API.h"
#include "support/CalledServer.h"
#include "support/LogLines.h"
#include "support/Ports.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* ANSWER = "HTTP/1.0 200 OK\r\n\r\n";

void post(const CalledServer& server, int number, const std::string& lane = {}) {
    Notifier::Post(API::PrepareCall(server.Address(), "", "", "n=%d", number), lane);
}

TEST(Notifier, MakesTheCall) {
    const CalledServer server;
    post(server, 1);
    EXPECT_EQ(body_of(server.Take().Receive()), "n=1");
}

TEST(Notifier, CallsOfALaneKeepTheirOrder) {
    const CalledServer server;
    for (int number = 1; number <= 5; ++number)
        post(server, number, "/live");
    for (int number = 1; number <= 5; ++number) {
        const TakenCall call = server.Take();
        EXPECT_EQ(body_of(call.Receive()), "n=" + std::to_string(number));
        EXPECT_FALSE(server.IsCalled()); // not before the answer
        call.Send(ANSWER);
    }
}

TEST(Notifier, OtherLanesAndCallsWithoutOneDoNotWait) {
    const CalledServer slow;
    const CalledServer server;
    post(slow, 1, "/a");
    const TakenCall unanswered = slow.Take();
    post(slow, 2, "/a");
    post(server, 3, "/b");
    EXPECT_EQ(body_of(server.Take().Receive()), "n=3");
    post(server, 4);
    EXPECT_EQ(body_of(server.Take().Receive()), "n=4");
}

TEST(Notifier, AFailedCallMakesRoomForTheNextOfItsLane) {
    const CalledServer server;
    Notifier::Post(
        API::PrepareCall("http://127.0.0.1:" + std::to_string(Ports::Free()), "", "", "a=1"), "/a");
    post(server, 2, "/a");
    EXPECT_EQ(body_of(server.Take().Receive()), "n=2");
}

TEST(Notifier, WhatIsTooMuchIsDroppedWithALine) {
    LogLines log;
    const CalledServer silent;
    for (int number = 0; number <= 10001; ++number)
        post(silent, number, "/live"); // one is under way, as soon as the thread looks
    EXPECT_TRUE(log.Wait("Notification of 127.0.0.1 dropped, too many are waiting"));
}

TEST(Notifier, AtTheStopWhatIsToBeSaidIsSaid) {
    const CalledServer server;
    for (int number = 1; number <= 20; ++number)
        post(server, number);
    std::thread answering([&] {
        for (int number = 1; number <= 20; ++number) {
            const TakenCall call = server.Take();
            EXPECT_TRUE(body_of(call.Receive()).starts_with("n="));
            call.Send(ANSWER);
        }
    });
    Notifier::WaitForStop();
    answering.join();
}

TEST(Notifier, AtTheStopASilentServerIsLeftAfterTheSocketTimeout) {
    Clock::Hold(1000);
    const CalledServer server;
    post(server, 1);
    const TakenCall call = server.Take();
    std::thread time([] {
        usleep(100000);
        Clock::Advance(5);
    });
    Notifier::WaitForStop();
    time.join();
    Clock::Release();
}

TEST(Notifier, AfterTheStopNothingIsSaid) {
    const CalledServer server;
    Notifier::WaitForStop();
    post(server, 1);
    usleep(100000);
    EXPECT_FALSE(server.IsCalled());
}

} // namespace
