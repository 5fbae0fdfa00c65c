// A listener about whom another server is asked: what it sees, slice by slice.

#include "core/Clock.h"
#include "support/CalledServer.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "support/ReceiverProbe.h"

#include <gtest/gtest.h>
#include <list>

namespace {

const std::string YES = "HTTP/1.0 200 OK\r\nicecast-auth-user: 1\r\n\r\n";
const std::string NO = "HTTP/1.0 200 OK\r\n\r\n";

struct ReceiverAdmission : testing::Test {
    CalledServer server;
    LogLines log;
    OnAir air{"/live", 1, {{"Auth", "1"}, {"NotifyListenerAdd", server.Address()}}};

    ReceiverAdmission() {
        Clock::Hold(1000);
        air.Connect();
        air.FeedAndDeliver();
    }
    ~ReceiverAdmission() override { Clock::Release(); }

    // How many lines hold this.
    int logged(const std::string& text) {
        log.All();
        return log.Count(text);
    }
    // A listener whose call the server has, unanswered.
    TakenCall knock(Visitor& visitor, const std::string& head = "GET /live HTTP/1.0\r\n\r\n") {
        visitor.Say(head);
        visitor.Slice();
        TakenCall call = server.Take();
        visitor.Slice(3);
        call.Receive();
        return call;
    }
    static void slices_until(Visitor& visitor, const std::function<bool()>& condition) {
        EXPECT_TRUE(comes_true([&] {
            visitor.Slice();
            return condition();
        }));
    }
};

TEST_F(ReceiverAdmission, WaitsWithoutAWordAndThenListens) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    visitor.Slice(20);
    EXPECT_EQ(visitor.Hear(), "");
    EXPECT_EQ(visitor.receiver->Status(), 1);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
    EXPECT_FALSE(server.IsCalled()); // nothing is asked twice
    call.Send(YES);
    slices_until(visitor, [&] { return air.mount->ReceiverSize() == 1; });
    visitor.Slice();
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_EQ(logged("Connection Opened"), 1);
}

TEST_F(ReceiverAdmission, IsPolledWhileItWaits) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    EXPECT_EQ(visitor.receiver->Poll(50), ThreadPool::LOW);
}

TEST_F(ReceiverAdmission, ARefusalIsA451) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    call.Send(NO);
    slices_until(visitor, [&] { return visitor.receiver->Status() == 3; });
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 451 "));
    EXPECT_TRUE(visitor.IsClosed());
    EXPECT_EQ(logged("Not Authorized [U: Anonymous] (A: 127.0.0.1:"), 1);
    EXPECT_EQ(logged("not registered"), 0);
}

TEST_F(ReceiverAdmission, AKeptConnectionIsGoodForAnotherRequestAfterARefusal) {
    Visitor visitor;
    const TakenCall call = knock(visitor, "GET /live HTTP/1.1\r\nHost: a\r\n\r\n");
    call.Send(NO);
    slices_until(visitor, [&] { return visitor.receiver->Status() == 0; });
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.1 451 "));
    visitor.Say("GET /nothing HTTP/1.1\r\nHost: a\r\n\r\n");
    visitor.Slice(2);
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.1 404 "));
}

TEST_F(ReceiverAdmission, HeadIsAskedAboutLikeAListenerAndLeavesAgain) {
    Visitor visitor;
    const TakenCall call = knock(visitor, "HEAD /live HTTP/1.0\r\n\r\n");
    call.Send(YES);
    slices_until(visitor, [&] { return visitor.receiver->Status() == 3; });
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

TEST_F(ReceiverAdmission, TheTimeLimitOfTheAnswerEndsTheListener) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    call.Send("HTTP/1.0 200 OK\r\nicecast-auth-user: 1\r\nicecast-auth-timelimit: 30\r\n\r\n");
    slices_until(visitor, [&] { return air.mount->ReceiverSize() == 1; });
    Clock::Advance(29);
    visitor.Slice(2);
    EXPECT_EQ(visitor.receiver->Status(), 1);
    Clock::Advance(1);
    visitor.Slice(2);
    EXPECT_EQ(visitor.receiver->Status(), 3);
}

TEST_F(ReceiverAdmission, ASilentServerIsWaitedForThirtySeconds) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    Clock::Advance(29);
    visitor.Slice(2);
    EXPECT_EQ(visitor.receiver->Status(), 1);
    Clock::Advance(1);
    visitor.Slice(2);
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 451 "));
}

TEST_F(ReceiverAdmission, AListenerThatLeavesMeanwhileIsTakenInFirst) {
    air.mount->GetConfigNode()
        ->GetChild("NotifyListenerRemove", true)
        ->SetValue(server.Address("/gone"));
    Visitor visitor;
    const TakenCall call = knock(visitor);
    visitor.pair.CloseClient();
    visitor.Slice(5);
    EXPECT_EQ(visitor.receiver->Status(), 1);
    call.Send(YES);
    slices_until(visitor, [&] { return visitor.receiver->Status() == 3; });
    EXPECT_EQ(logged("Connection Opened"), 1);
    EXPECT_EQ(logged("Connection Closed"), 1);
    EXPECT_TRUE(server.Take().Receive().starts_with("POST /gone "));
}

TEST_F(ReceiverAdmission, AKickEndsTheWait) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    visitor.receiver->Kick();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_TRUE(visitor.IsClosed());
    EXPECT_EQ(logged("Connection Opened"), 0);
    EXPECT_EQ(logged("not registered"), 0);
}

TEST_F(ReceiverAdmission, ASourceThatGoesMeanwhileIsWaitedForLikeAnyOther) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    air.Disconnect();
    call.Send(YES);
    slices_until(visitor, [&] { return air.mount->ReceiverSize() == 1; });
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 1);
}

TEST_F(ReceiverAdmission, AMountThatIsRemovedMeanwhileKeepsNobody) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    MountList::Remove(air.mount);
    call.Send(YES);
    slices_until(visitor, [&] { return visitor.receiver->Status() == 3; });
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(visitor.IsClosed());
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
    EXPECT_EQ(MountList::TotalReceivers(), 0U);
}

TEST_F(ReceiverAdmission, WhoIsAskedAboutStaysSoWhenNobodyIsToBeAskedAnyMore) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    air.mount->GetConfigNode()->GetChild("NotifyListenerAdd", true)->SetValue("");
    call.Send(NO);
    slices_until(visitor, [&] { return visitor.receiver->Status() == 3; });
    EXPECT_TRUE(visitor.Hear().starts_with("HTTP/1.0 451 "));
}

TEST_F(ReceiverAdmission, AMountThatOpensMeanwhileTakesAnyAnswer) {
    Visitor visitor;
    const TakenCall call = knock(visitor);
    air.mount->GetConfigNode()->GetChild("Auth", true)->SetValue("");
    call.Send(NO);
    slices_until(visitor, [&] { return air.mount->ReceiverSize() == 1; });
}

TEST_F(ReceiverAdmission, OfManyWhoWaitThoseWhoAreKickedGoAndTheOthersListen) {
    std::list<Visitor> kicked(15);
    std::list<Visitor> others(15);
    std::list<TakenCall> calls;
    for (auto* group : {&kicked, &others})
        for (Visitor& visitor : *group)
            calls.push_back(knock(visitor));
    for (Visitor& visitor : kicked)
        visitor.receiver->Kick();
    for (const TakenCall& call : calls)
        call.Send(YES);
    for (Visitor& visitor : kicked) {
        visitor.Slice();
        EXPECT_EQ(visitor.receiver->Status(), 3);
    }
    EXPECT_TRUE(comes_true([&] {
        for (Visitor& visitor : others)
            visitor.Slice();
        return air.mount->ReceiverSize() == 15;
    }));
    const int left = logged("Connection Closed"); // of the kicked, whose answer was in already
    EXPECT_EQ(logged("Connection Opened"), 15 + left);
    EXPECT_EQ(logged("not registered"), 0);
}

// ---- Fallbacks ----------------------------------------------------------------------------------

struct AdmissionToFallback : ReceiverAdmission {
    OnAir spare{"/spare", 2};
    Visitor visitor;

    AdmissionToFallback() {
        air.mount->GetConfigNode()->GetChild("Backup", true)->SetValue("/spare");
        spare.Connect("application/spare");
        spare.FeedAndDeliver('s');
    }
    // Lets the listener in, who may have a slice or two as one.
    std::string heard_after(const TakenCall& call) {
        call.Send(YES);
        slices_until(visitor, [&] { return air.mount->ReceiverSize() == 1; });
        visitor.Slice(2);
        EXPECT_EQ(visitor.receiver->GetMount(), air.mount);
        EXPECT_EQ(spare.mount->ReceiverSize(), 0U);
        return visitor.Hear();
    }
};

TEST_F(AdmissionToFallback, TheFallbackIsPlayedWhenTheAnswerIsIn) {
    air.Disconnect();
    const TakenCall call = knock(visitor);
    EXPECT_EQ(visitor.receiver->ActiveMount(), "");
    const std::string heard = heard_after(call);
    EXPECT_NE(heard.find("application/spare"), std::string::npos);
    EXPECT_TRUE(heard.ends_with(std::string(OnAir::PACKET, 's')));
    EXPECT_EQ(visitor.receiver->ActiveMount(), "/spare");
}

TEST_F(AdmissionToFallback, ASourceThatComesBackMeanwhileIsHeardFromTheHeadOn) {
    air.Disconnect();
    const TakenCall call = knock(visitor);
    air.Connect();
    air.FeedAndDeliver('b');
    const std::string heard = heard_after(call);
    EXPECT_NE(heard.find("application/test"), std::string::npos);
    EXPECT_EQ(heard.find("application/spare"), std::string::npos);
    EXPECT_TRUE(heard.ends_with(std::string(OnAir::PACKET, 'b')));
    EXPECT_EQ(visitor.receiver->ActiveMount(), "");
}

TEST_F(AdmissionToFallback, ASourceThatGoesMeanwhileGivesWayToTheFallbackFromTheHeadOn) {
    const TakenCall call = knock(visitor);
    air.Disconnect();
    const std::string heard = heard_after(call);
    EXPECT_NE(heard.find("application/spare"), std::string::npos);
    EXPECT_EQ(heard.find("application/test"), std::string::npos);
    EXPECT_TRUE(heard.ends_with(std::string(OnAir::PACKET, 's')));
    EXPECT_EQ(visitor.receiver->ActiveMount(), "/spare");
}

TEST_F(AdmissionToFallback, AFallbackThatGoesMeanwhileIsWaitedForLikeAnyOther) {
    air.Disconnect();
    const TakenCall call = knock(visitor);
    spare.Disconnect();
    heard_after(call);
    EXPECT_EQ(visitor.receiver->Status(), 1);
    EXPECT_EQ(visitor.receiver->ActiveMount(), "");
    spare.Connect("application/spare");
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->ActiveMount(), "/spare");
}

TEST_F(AdmissionToFallback, AKickLeavesNeitherOfTheTwoWithAListener) {
    air.Disconnect();
    const TakenCall call = knock(visitor);
    visitor.receiver->Kick();
    visitor.Slice();
    EXPECT_EQ(visitor.receiver->Status(), 3);
    EXPECT_EQ(logged("not registered"), 0);
}

// ---- Moves --------------------------------------------------------------------------------------

struct ReceiverMove : ReceiverAdmission {
    OnAir other{"/other", 2};
    Visitor visitor;

    ReceiverMove() {
        other.Connect();
        other.FeedAndDeliver('o');
        visitor.Say("GET /other HTTP/1.0\r\n\r\n");
        visitor.Slice(3);
        visitor.Hear();
    }
    // Moves to the mount that asks; the call, unanswered.
    TakenCall move() {
        visitor.receiver->SetMount(air.mount);
        TakenCall call = server.Take();
        visitor.Slice(3);
        call.Receive();
        return call;
    }
};

TEST_F(ReceiverMove, AMoveWaitsForTheAnswer) {
    const TakenCall call = move();
    EXPECT_EQ(visitor.receiver->GetMount(), air.mount);
    EXPECT_EQ(other.mount->ReceiverSize(), 0U);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
    EXPECT_EQ(visitor.Hear(), "");
    call.Send(YES);
    slices_until(visitor, [&] { return air.mount->ReceiverSize() == 1; });
    visitor.Slice(2);
    EXPECT_NE(visitor.Hear().find('a'), std::string::npos);
}

TEST_F(ReceiverMove, ARefusedMoveIsHeardAllTheSame) {
    const TakenCall call = move();
    call.Send(NO);
    slices_until(visitor, [&] { return logged("Not Authorized") == 1; });
    visitor.Slice(2);
    EXPECT_EQ(visitor.receiver->Status(), 1);
    EXPECT_NE(visitor.Hear().find('a'), std::string::npos);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

TEST_F(ReceiverMove, ASecondMoveIsIgnoredWhileTheFirstIsAskedAbout) {
    const TakenCall call = move();
    visitor.receiver->SetMount(other.mount);
    EXPECT_EQ(visitor.receiver->GetMount(), air.mount);
}

} // namespace
