// How a source introduces itself, over ICY and over HTTP, and how it leaves the Receiver.

#include "core/Clock.h"
#include "support/LogLines.h"
#include "support/OnAir.h"

#include <gtest/gtest.h>

namespace {

// ---- ICY ----------------------------------------------------------------------------------------

struct IcySource : testing::Test {
    OnAir air{"/live"};
    std::shared_ptr<User> account = make_account("src", "secret", User::MOUNT_SOURCE, 1);

    // The refused login's own log line, after the greeting.
    std::string refusal_of(const std::string& line) {
        LogLines log;
        Visitor visitor;
        EXPECT_EQ(visitor.Ask(line + "\r\n"), "bad password\r\n");
        EXPECT_TRUE(visitor.IsClosed());
        const std::vector<std::string> lines = log.All();
        EXPECT_EQ(lines.at(0), "<127.0.0.1> Incoming ICY Source");
        return lines.at(1);
    }
};

TEST_F(IcySource, ABarePasswordLacksAUsername) {
    EXPECT_EQ(refusal_of("secret"), "<127.0.0.1> ICY Source lacks a username.");
}

TEST_F(IcySource, UnknownUser) {
    EXPECT_EQ(refusal_of("nobody:secret"), "<127.0.0.1> ICY Source unknown user nobody");
}

TEST_F(IcySource, WrongPassword) {
    EXPECT_EQ(refusal_of("src:wrong"), "<127.0.0.1> ICY Source bad password for user src");
}

TEST_F(IcySource, MissingPartsAreNoLogin) {
    EXPECT_EQ(refusal_of("src:"), "<127.0.0.1> ICY Source bad password for user src");
    EXPECT_EQ(refusal_of(":"), "<127.0.0.1> ICY Source unknown user ");
    EXPECT_EQ(refusal_of(":secret"), "<127.0.0.1> ICY Source unknown user ");
}

TEST_F(IcySource, AnAccountWithoutASourcesRights) {
    make_account("ear", "secret", User::LISTENER, 1);
    EXPECT_EQ(refusal_of("ear:secret"), "<127.0.0.1> ICY Source user ear is not a Source user");
}

TEST_F(IcySource, AnAccountWithoutAnyMount) {
    UserList::Add("lost", "secret")->SetGroup(User::ADMINISTRATOR);
    EXPECT_EQ(refusal_of("lost:secret"), "<127.0.0.1> ICY Source user lost is not a Source user");
}

TEST_F(IcySource, AMountOfAnotherAddress) {
    OnAir elsewhere("/elsewhere", 2, {{"IP", "192.0.2.1"}});
    make_account("far", "secret", User::MOUNT_SOURCE, 2);
    EXPECT_EQ(refusal_of("far:secret"), "<127.0.0.1> ICY Source user far connected to wrong IP");
}

TEST_F(IcySource, ControlBytesOfAUserNameDoNotReachTheLog) {
    EXPECT_EQ(refusal_of("a\tb:c"), "<127.0.0.1> ICY Source unknown user a b");
}

TEST_F(IcySource, ALoginIsAcceptedBeforeTheFieldsCome) {
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("src:secret\r\n"), "OK2\r\nicy-caps:11\r\n\r\n");
    EXPECT_EQ(visitor.receiver->Status(), 0);
    EXPECT_EQ(visitor.receiver->GetMount(), air.mount);
    EXPECT_EQ(air.mount->GetRequest(), nullptr);
}

TEST_F(IcySource, WithItsFieldsItIsTheMounts) {
    Visitor visitor;
    visitor.Ask("src:secret\r\n");
    visitor.Ask("icy-name:Rock\r\nContent-Type: application/test\r\n\r\n");
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(comes_true([&] { return air.mount->IsConnected(); }));
    EXPECT_EQ(air.mount->Name(), "Rock");
    EXPECT_EQ(air.mount->GetSourceAccount(), account);
}

TEST_F(IcySource, LoginAndFieldsMayComeInOnePacketWithBareLineFeeds) {
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("src:secret\nicy-name:Rock\n\n"), "OK2\r\nicy-caps:11\r\n\r\n");
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(comes_true([&] { return air.mount->IsConnected(); }));
}

TEST_F(IcySource, APokeIsAnsweredLikeABadPassword) {
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("!POKE\nicy-name:Rock\n\n"), "bad password\r\n");
}

TEST_F(IcySource, AfterTheHandOverItLeavesTheListByTheLineOfAFinishedConnection) {
    Visitor visitor;
    ReceiverList::Add(visitor.receiver);
    visitor.Ask("src:secret\r\n");
    visitor.Ask("\r\n");
    EXPECT_EQ(ReceiverList::Count(), 1);
    LogLines log;
    visitor.Slice();
    EXPECT_TRUE(log.Wait("Somethings wrong here"));
    EXPECT_EQ(ReceiverList::Count(), 0);
}

TEST_F(IcySource, TheSocketIsNotReadAgainAfterTheHandOver) {
    Visitor visitor;
    visitor.Ask("src:secret\r\n");
    visitor.Ask("\r\n");
    visitor.receiver->Kick();
    visitor.Slice();
    EXPECT_TRUE(comes_true([&] { return air.mount->IsConnected(); }));
    EXPECT_EQ(recv(visitor.pair.client, nullptr, 0, MSG_DONTWAIT), -1) << "still open";
}

TEST_F(IcySource, NoTimeLimitIsLookedAtOnceItIsHandedOver) {
    Clock::Hold(1000);
    Visitor visitor;
    visitor.Ask("src:secret\r\n");
    Clock::Advance(61);
    visitor.Say("\r\n");
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(comes_true([&] { return air.mount->IsConnected(); }));
    EXPECT_EQ(visitor.Hear(), "") << "no answer to a source that streams";
    EXPECT_FALSE(visitor.IsClosed());
    Clock::Release();
}

TEST_F(IcySource, FieldsWithoutEndEndIt) {
    Log::SetLevel(Log::DETAIL);
    LogLines log;
    Visitor visitor;
    visitor.Ask("src:secret\r\n");
    visitor.Ask("icy-name:" + std::string(9216, 'x'));
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_EQ(air.mount->GetRequest(), nullptr);
    EXPECT_TRUE(log.Wait("<127.0.0.1> ICY Source disconnected by error"));
}

TEST_F(IcySource, ASourceThatKeepsSilentAfterItsLoginEndsAfterFifteenSeconds) {
    Clock::Hold(1000);
    Visitor visitor;
    visitor.Ask("src:secret\r\n");
    Clock::Advance(16);
    visitor.Slice();
    EXPECT_TRUE(visitor.IsClosed());
    EXPECT_EQ(visitor.receiver->Status(), 3);
    Clock::Release();
}

TEST_F(IcySource, ABannedAddressMayStillSend) {
    UserList::GetBanUser()->AddProperty(User::EVERY_MOUNT, "127.0.0.1", User::IP);
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("src:secret\r\n"), "OK2\r\nicy-caps:11\r\n\r\n");
}

// ---- HTTP ---------------------------------------------------------------------------------------

struct HttpSource : testing::Test {
    OnAir air{"/live"};
    std::shared_ptr<User> account = make_account("src", "secret", User::MOUNT_SOURCE, 1);
    const std::string login = basic("src:secret");
    const std::string type = "Content-Type: application/test\r\n";
    bool is_taken() {
        return comes_true([&] { return air.mount->IsConnected(); });
    }
};

TEST_F(HttpSource, SourceIsTakenWith200) {
    LogLines log;
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("SOURCE /live HTTP/1.0\r\n" + login + type + "\r\n")
                    .starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(is_taken());
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_EQ(log.All().at(0), "<127.0.0.1> Incoming HTTP Source");
    EXPECT_EQ(log.Count("<127.0.0.1> Source Falling back to ICE protocol"), 1);
    EXPECT_EQ(log.Count("Somethings wrong here"), 0);
}

TEST_F(HttpSource, SourceOfTheOldProtocolIsTaken) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("SOURCE /live ICE/1.0\r\n" + login + type + "\r\n")
                    .starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(is_taken());
}

TEST_F(HttpSource, PutWithALengthIsAnswered100WithoutABody) {
    Clock::Hold(784111777);
    Visitor visitor;
    EXPECT_EQ(visitor.Ask("PUT /live HTTP/1.1\r\nHost: a\r\nContent-Length: 99999\r\n" + login +
                          type + "\r\n"),
              "HTTP/1.1 100 Continue\r\n"
              "Server: Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)"
              "\r\nDate: Sun, 06 Nov 1994 08:49:37 GMT\r\nConnection: Keep-Alive\r\n"
              "Set-Cookie: __quill_sess=ID; path=/\r\n\r\n");
    EXPECT_TRUE(is_taken());
    Clock::Release();
}

TEST_F(HttpSource, PutInChunksIsAnswered100) {
    Visitor visitor;
    EXPECT_TRUE(visitor
                    .Ask("PUT /live HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n" + login +
                         type + "\r\n")
                    .starts_with("HTTP/1.1 100 Continue\r\n"));
}

TEST_F(HttpSource, PutWithNeitherIsTakenWithAWarning) {
    LogLines log;
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("PUT /live HTTP/1.0\r\n" + login + type + "\r\n")
                    .starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(is_taken());
    EXPECT_TRUE(log.Wait("Warning: Source connected requesting PUT method but failed to supply a "
                         "Content-Length or Transfer-Encoding header.  A lazy programmer has "
                         "forced us to fall back to legacy Icecast SOURCE method.  Do not contact "
                         "us about this warning, contact the maintainer of your source "
                         "application."));
}

TEST_F(HttpSource, EachStepIsLoggedInDetail) {
    Log::SetLevel(Log::DETAIL);
    make_account("ear", "secret", User::LISTENER, 1);
    LogLines log;
    Visitor refused;
    refused.Ask("PUT /live HTTP/1.0\r\n" + basic("ear:secret") + "\r\n");
    Visitor taken;
    taken.Ask("PUT /live HTTP/1.0\r\nContent-Length: 9\r\n" + login + type + "\r\n");
    std::vector<std::string> expected = {"Receiver media found.",
                                         "Incoming HTTP Source",
                                         "Receiver source authentication failure.",
                                         "Receiver media found.",
                                         "Incoming HTTP Source",
                                         "Receiver source authenticated.",
                                         "Receiver source correctly defined a 1.1 PUT request."};
    for (std::string& line : expected)
        line.insert(0, "<127.0.0.1> ");
    std::vector<std::string> lines = log.All();
    ASSERT_GE(lines.size(), expected.size());
    lines.resize(expected.size());
    EXPECT_EQ(lines, expected);
}

TEST_F(HttpSource, AnAccountWithoutRightsGets401AndNoChallenge) {
    make_account("ear", "secret", User::LISTENER, 1);
    Visitor visitor;
    const std::string answer =
        visitor.Ask("SOURCE /live HTTP/1.0\r\n" + basic("ear:secret") + "\r\n");
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 401 Unauthorized\r\n"));
    EXPECT_EQ(answer.find("WWW-Authenticate"), std::string::npos);
    EXPECT_EQ(air.mount->GetRequest(), nullptr);
    EXPECT_EQ(visitor.receiver->GetMount(), nullptr);
    EXPECT_TRUE(visitor.IsClosed());
}

TEST_F(HttpSource, AStrangerIsAListener) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("SOURCE /live HTTP/1.0\r\n\r\n").starts_with("HTTP/1.0 503"));
}

TEST_F(HttpSource, ANameWithoutAPasswordIsAStranger) {
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("SOURCE /live HTTP/1.0\r\n" + basic("src") + "\r\n")
                    .starts_with("HTTP/1.0 503"));
}

TEST_F(HttpSource, OnAConnectedMountItIsAListener) {
    air.Connect();
    Visitor visitor;
    visitor.Ask("SOURCE /live HTTP/1.0\r\n" + login + type + "\r\n");
    EXPECT_EQ(visitor.receiver->Status(), 1);
    EXPECT_EQ(air.mount->ReceiverSize(), 1U);
}

TEST_F(HttpSource, ItLeavesTheListAtOnce) {
    Visitor visitor;
    ReceiverList::Add(visitor.receiver);
    visitor.Ask("SOURCE /live HTTP/1.0\r\n" + login + type + "\r\n");
    EXPECT_EQ(ReceiverList::Count(), 0);
}

TEST_F(HttpSource, OneThatIsKickedBeforeTheAnswerHasLeftIsNotHandedOver) {
    LogLines log;
    Visitor visitor;
    visitor.Say("SOURCE /live HTTP/1.0\r\n" + login + type + "\r\n");
    const std::uint64_t in_the_way = visitor.StopReading();
    visitor.Slice();
    visitor.receiver->Kick();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 2);
    EXPECT_EQ(visitor.receiver->GetMount(), nullptr);
    visitor.pair.Receive(in_the_way);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(visitor.IsClosed());
    EXPECT_EQ(air.mount->GetRequest(), nullptr);
    log.All();
    EXPECT_EQ(log.Count("not registered"), 0);
}

TEST_F(HttpSource, ItIsHandedOverOnlyWhenTheAnswerHasLeft) {
    Visitor visitor;
    visitor.Say("SOURCE /live HTTP/1.0\r\n" + login + type + "\r\n");
    const std::uint64_t in_the_way = visitor.StopReading();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 1);
    EXPECT_EQ(air.mount->GetRequest(), nullptr);
    visitor.pair.Receive(in_the_way);
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(is_taken());
}

} // namespace
