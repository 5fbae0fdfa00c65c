#include "net/NameLookupThread.h"

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "net/SocketTools.h"
#include "support/LogLines.h"
#include "support/OnAir.h"
#include "support/ReceiverProbe.h"

#include <future>
#include <gtest/gtest.h>

namespace {

const std::string ADDRESS = "127.0.0.1";
constexpr const char* STARTED = "Name Lookup Thread started.";
constexpr const char* STOPPED = "Name Lookup Thread stopped.";

std::shared_ptr<ConfigNode> setting() { return Config::Get("NameLookups", true); }

struct NameLookup : testing::Test {
    NameLookup() : name(GetIPHostname(ADDRESS)) {}
    ~NameLookup() override { NameLookupThread::WaitForStop(); }

    void SetUp() override { ASSERT_NE(name, ADDRESS) << "this machine has no name for itself"; }
    static bool gets_its_name(const Visitor& visitor, const std::string& name) {
        return comes_true([&] { return visitor.receiver->GetHostname() == name; });
    }

    LogLines log;
    std::string name; // behind ADDRESS
};

} // namespace

TEST_F(NameLookup, AListenerIsKnownByItsAddressFirst) {
    EXPECT_EQ(Visitor().receiver->GetHostname(), ADDRESS);
}

TEST_F(NameLookup, ANameTakesThePlaceOfTheAddress) {
    const Visitor visitor;
    visitor.receiver->ResolveHostname();
    EXPECT_EQ(visitor.receiver->GetHostname(), name);
    EXPECT_EQ(visitor.receiver->GetIP(), ADDRESS);
    EXPECT_EQ(visitor.receiver->GetLogStats().c_dns, name);
}

TEST_F(NameLookup, ANameThatIsKnownIsNotLookedUpAgain) {
    const Visitor visitor;
    ReceiverProbe{*visitor.receiver}.SetHostname("known.example");
    visitor.receiver->ResolveHostname();
    EXPECT_EQ(visitor.receiver->GetHostname(), "known.example");
}

TEST_F(NameLookup, WithTheSettingOffNothingStartsAndNobodyWaits) {
    setting()->SetValue(false);
    NameLookupThread::Init();
    Visitor visitor;
    NameLookupThread::AddReceiver(visitor.receiver);
    EXPECT_EQ(visitor.receiver.use_count(), 1);
    NameLookupThread::WaitForStop();
    EXPECT_EQ(visitor.receiver->GetHostname(), ADDRESS);
    EXPECT_EQ(log.Count("Name Lookup"), 0);
}

TEST_F(NameLookup, TheSettingIsMadeWithoutAValueSoThatALaterLineIsHeard) {
    NameLookupThread::Init();
    ASSERT_TRUE(Config::GetRoot()->ChildExists("NameLookups"));
    EXPECT_EQ(Config::Get("NameLookups", false)->GetValue("none"), "none");
    Config::Get("NameLookups", false)->SetValue("1");
    EXPECT_TRUE(log.Wait(STARTED));
}

TEST_F(NameLookup, WithTheSettingOnListenersGetTheirNames) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    const Visitor first;
    const Visitor second;
    NameLookupThread::AddReceiver(first.receiver);
    NameLookupThread::AddReceiver(second.receiver);
    EXPECT_TRUE(gets_its_name(first, name));
    EXPECT_TRUE(gets_its_name(second, name));
    EXPECT_TRUE(log.Wait(STARTED));
}

TEST_F(NameLookup, ItBeginsOnce) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    NameLookupThread::Init();
    NameLookupThread::Start();
    NameLookupThread::WaitForStop();
    log.All();
    EXPECT_EQ(log.Count(STARTED), 1);
    EXPECT_EQ(log.Count(STOPPED), 1);
}

TEST_F(NameLookup, CanBeSwitchedOnWhenItWasOff) {
    NameLookupThread::Init();
    setting()->SetValue(true);
    const Visitor visitor;
    NameLookupThread::AddReceiver(visitor.receiver);
    EXPECT_TRUE(gets_its_name(visitor, name));
}

TEST_F(NameLookup, SwitchingOffWaitsForTheEndOfTheThread) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    setting()->SetValue(false);
    log.All();
    EXPECT_EQ(log.Count(STOPPED), 1);
}

// Kept: once switched off it stays off, and listeners wait for nobody.
TEST_F(NameLookup, CannotBeSwitchedOnAgain) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    setting()->SetValue(false);
    setting()->SetValue(true);
    Visitor visitor;
    NameLookupThread::AddReceiver(visitor.receiver);
    EXPECT_EQ(visitor.receiver.use_count(), 2) << "it is queued";
    log.All();
    EXPECT_EQ(log.Count(STARTED), 1);
    EXPECT_EQ(visitor.receiver->GetHostname(), ADDRESS);
}

TEST_F(NameLookup, TwoThatSwitchOffAtOnceBothReturn) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    const auto other = std::async(std::launch::async, NameLookupThread::WaitForStop);
    NameLookupThread::WaitForStop();
    other.wait();
    log.All();
    EXPECT_EQ(log.Count(STOPPED), 1);
}

TEST_F(NameLookup, OthersHearOfTheSettingAndItsEmptyValueTakesItAway) {
    NameLookupThread::Init();
    NameLookupListener listener(setting());
    EXPECT_FALSE(listener.OnConfigNodeChanged(setting(), ""));
    setting()->SetValue(true);
    EXPECT_FALSE(listener.OnConfigNodeChanged(setting(), "")) << "started";
    setting()->SetValue("");
    EXPECT_FALSE(Config::GetRoot()->ChildExists("NameLookups"));
}

TEST_F(NameLookup, ALookupUnderWayDelaysTheStop) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    const Visitor first;
    const Visitor slow;
    const Visitor behind;
    ReceiverProbe probe{*slow.receiver};
    probe.HoldName();
    for (const Visitor* visitor : {&first, &slow, &behind})
        NameLookupThread::AddReceiver(visitor->receiver);
    EXPECT_TRUE(gets_its_name(first, name));
    Sleep(200); // the next one is taken at once
    const auto stop = std::async(std::launch::async, NameLookupThread::WaitForStop);
    EXPECT_EQ(stop.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    probe.LetNameGo();
    stop.wait();
    EXPECT_EQ(slow.receiver->GetHostname(), name) << "it was finished";
    EXPECT_EQ(behind.receiver->GetHostname(), ADDRESS) << "no other was begun";
}

TEST_F(NameLookup, SwitchingOnAgainDoesNotWaitForALookupUnderWay) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    const Visitor first;
    const Visitor slow;
    ReceiverProbe probe{*slow.receiver};
    probe.HoldName();
    NameLookupThread::AddReceiver(first.receiver);
    NameLookupThread::AddReceiver(slow.receiver);
    EXPECT_TRUE(gets_its_name(first, name));
    Sleep(200); // the next one is taken at once
    const auto off = std::async(std::launch::async, [] { setting()->SetValue(false); });
    EXPECT_EQ(off.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    const auto on = std::async(std::launch::async, [] { setting()->SetValue(true); });
    EXPECT_EQ(on.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    probe.LetNameGo();
    off.wait();
    log.All();
    EXPECT_EQ(log.Count(STARTED), 1);
    EXPECT_EQ(log.Count(STOPPED), 1);
}

TEST_F(NameLookup, WhoWaitsInTheQueueIsGoneForItsPlayerAllTheSame) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    setting()->SetValue(false);
    OnAir air("/live");
    air.Connect();
    Visitor listener("GET /live HTTP/1.0\r\n\r\n");
    listener.Slice();
    EXPECT_GE(listener.receiver.use_count(), 2) << "it is queued";
    listener.receiver->Kick();
    listener.Slice();
    listener.Hear();
    EXPECT_TRUE(listener.IsClosed());
}

TEST_F(NameLookup, WhoIsAdmittedIsLookedUp) {
    setting()->SetValue(true);
    NameLookupThread::Init();
    OnAir air("/live");
    air.Connect();
    Visitor listener("GET /live HTTP/1.0\r\n\r\n");
    Visitor page("GET /about HTTP/1.0\r\n\r\n");
    listener.Slice();
    page.Slice();
    EXPECT_TRUE(gets_its_name(listener, name));
    EXPECT_EQ(page.receiver->GetHostname(), ADDRESS);
}
