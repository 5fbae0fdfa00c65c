#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Clock.h"
#include "http/Request.h"
#include "http/Response.h"
#include "media/Metadata.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"
#include "support/Admit.h"
#include "support/Broadcaster.h"
#include "support/LogLines.h"
#include "support/ReceiverProbe.h"
#include "support/Sections.h"

#include <gtest/gtest.h>
#include <list>

namespace {
constexpr time_t START = 1'000'000;

// A connection whose request was read, but not yet judged.
struct Caller {
    explicit Caller(const std::string& fields = {}) {
        pair.Send("GET /live HTTP/1.0\r\nUser-Agent: ear\r\n" + fields + "\r\n");
        receiver = std::make_shared<Receiver>(pair.server);
        const auto request = receiver->GetRequest();
        Broadcaster::comes_true([&] { return request->ReadRequest() > 0 && request->Complete(); });
    }

    LoopbackPair pair;
    std::shared_ptr<Receiver> receiver;

    std::string At() const {
        return "127.0.0.1:" + std::to_string(receiver->GetRequest()->Port()) + "/live";
    }
};

struct MountListeners : testing::Test {
    std::shared_ptr<Mount> mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));
    std::list<Caller> callers;
    LogLines log;

    Caller& call(const std::string& fields = {}) { return callers.emplace_back(fields); }
    int knock(Caller& caller) { return admit(*mount, caller.receiver).status; }
    int knock() { return knock(call()); }
    void set(const std::string& key, const std::string& value) {
        Set(mount->GetConfigNode(), key, value);
    }
    std::string refusal(const std::string& words) {
        return "<127.0.0.1> " + words + " [U: Anonymous] (A: " + callers.back().At() +
               ") {UA: ear}";
    }
};
} // namespace

TEST_F(MountListeners, AListenerIsAdmittedAndCounted) {
    Caller& caller = call();
    const Admission admission = admit(*mount, caller.receiver);
    EXPECT_EQ(admission.status, Admission::ADMITTED);
    EXPECT_EQ(admission.time_limit, 0U);
    EXPECT_EQ(mount->ReceiverSize(), 1U);
    EXPECT_EQ(mount->UniqueReceivers(), 1U);
    EXPECT_EQ(mount->TuneIns(), 1U);
    EXPECT_EQ(mount->GetReceiverList(), (std::vector{caller.receiver}));
    EXPECT_EQ(MountList::TotalReceivers(), 1U);
    EXPECT_EQ(MountList::TotalUniqueReceivers(), 1U);
    EXPECT_EQ(log.All(), (std::vector<std::string>{
                             "<127.0.0.1> Connection Opened [U: Anonymous] (A: " + caller.At() +
                             ") [L: 1] {UA: ear} [I: " + caller.receiver->GetUUID() + "]"}));
}

TEST_F(MountListeners, ListenersOfOneAddressAreOneUniqueListener) {
    knock();
    knock();
    EXPECT_EQ(mount->ReceiverSize(), 2U);
    EXPECT_EQ(mount->UniqueReceivers(), 1U);
    mount->UnregisterReceiver(callers.front().receiver);
    EXPECT_EQ(mount->UniqueReceivers(), 1U);
    mount->UnregisterReceiver(callers.back().receiver);
    EXPECT_EQ(mount->UniqueReceivers(), 0U);
    EXPECT_EQ(mount->PeakReceivers(), 2U);
    EXPECT_EQ(MountList::TotalReceivers(), 0U);
    EXPECT_EQ(MountList::TotalUniqueReceivers(), 0U);
    EXPECT_EQ(MountList::TotalPeakReceivers(), 2U);
}

TEST_F(MountListeners, TheCurrentRecordCountsItsTuneIns) {
    knock();
    const auto record = std::make_shared<METADATA>();
    record->title = "Song";
    mount->SetMetaData(record);
    knock();
    EXPECT_EQ(record->tune_ins, 1U);
}

TEST_F(MountListeners, ALeavingListenerIsLogged) {
    Clock::Hold(START);
    knock();
    Clock::Advance(75);
    mount->UnregisterReceiver(callers.back().receiver);
    EXPECT_EQ(log.All().back(), "<127.0.0.1> Connection Closed [U: Anonymous] [L: 0] {0 bytes} (75 "
                                "secs) [I: " +
                                    callers.back().receiver->GetUUID() + "]");
    EXPECT_TRUE(mount->GetReceiverList().empty());
}

TEST_F(MountListeners, AStrangerCannotLeave) {
    call();
    mount->UnregisterReceiver(callers.back().receiver);
    EXPECT_EQ(log.All(), (std::vector<std::string>{"<127.0.0.1> Error trying to unregister "
                                                   "receiver on /live that is not registered."}));
    EXPECT_EQ(MountList::TotalReceivers(), 0U);
}

// ---- Refusals -----------------------------------------------------------------------------------

TEST_F(MountListeners, ABannedClientIsRefused) {
    UserList::GetBanUser()->AddProperty(1, "127.0.0.1", User::IP);
    EXPECT_EQ(knock(), Admission::BANNED);
    EXPECT_EQ(log.All(), (std::vector{refusal("Banned")}));
    EXPECT_EQ(mount->ReceiverSize(), 0U);
}

TEST_F(MountListeners, ABanOnAnotherMountMeansNothingHere) {
    UserList::GetBanUser()->AddProperty(2, "127.0.0.1", User::IP);
    EXPECT_EQ(knock(), Admission::ADMITTED);
}

TEST_F(MountListeners, WithoutALoginNobodyEntersAMountThatAsksForOne) {
    set("Auth", "1");
    EXPECT_EQ(knock(), Admission::NOT_AUTHORIZED);
    EXPECT_EQ(log.All(), (std::vector{refusal("Not Authorized")}));
}

TEST_F(MountListeners, WithRoomForNobodyEverybodyIsRefused) {
    set("UserMax", "0");
    EXPECT_EQ(knock(), Admission::FULL);
    EXPECT_EQ(log.All(), (std::vector{refusal("/live Full")}));
}

TEST_F(MountListeners, TheLastPlaceIsGivenAndNoneAfterIt) {
    set("UserMax", "2");
    EXPECT_EQ(knock(), Admission::ADMITTED);
    EXPECT_EQ(knock(), Admission::ADMITTED);
    EXPECT_EQ(knock(), Admission::FULL);
    set("UserMax", "3");
    EXPECT_EQ(knock(callers.back()), Admission::ADMITTED);
}

TEST_F(MountListeners, OneAddressGetsAsManyPlacesAsIsSetWhateverElseIsFull) {
    set("IPUserMax", "1");
    set("UserMax", "1");
    EXPECT_EQ(knock(), Admission::ADMITTED);
    EXPECT_EQ(knock(), Admission::FULL);
    EXPECT_EQ(log.All().back(), refusal("/live IP Full"));
}

TEST_F(MountListeners, AnAddressLimitOfZeroOrLessIsNone) {
    for (const char* limit : {"0", "-1"}) {
        set("IPUserMax", limit);
        EXPECT_EQ(knock(), Admission::ADMITTED);
        EXPECT_EQ(knock(), Admission::ADMITTED);
    }
}

TEST_F(MountListeners, ABanIsNamedBeforeAMissingLoginAndThatBeforeAFullMount) {
    set("UserMax", "0");
    set("Auth", "1");
    UserList::GetBanUser()->AddProperty(1, "*", User::ALL);
    EXPECT_EQ(knock(), Admission::BANNED);
    UserList::GetBanUser()->RemoveMount(1);
    EXPECT_EQ(knock(), Admission::NOT_AUTHORIZED);
    set("Auth", "");
    EXPECT_EQ(knock(), Admission::FULL);
}

TEST_F(MountListeners, ControlBytesOfAClientDoNotReachTheLog) {
    set("UserMax", "0");
    LoopbackPair pair;
    pair.Send("GET /live HTTP/1.0\r\nUser-Agent: a\tb\x01\x63\r\n\r\n");
    const auto receiver = std::make_shared<Receiver>(pair.server);
    const auto request = receiver->GetRequest();
    ASSERT_TRUE(
        Broadcaster::comes_true([&] { return request->ReadRequest() > 0 && request->Complete(); }));
    admit(*mount, receiver);
    EXPECT_EQ(log.All().back().find_first_of("\t\x01"), std::string::npos);
}

// ---- Wrapping -----------------------------------------------------------------------------------

TEST_F(MountListeners, WhoTakesOnlyFlvIsToGetTheStreamWrapped) {
    EXPECT_EQ(knock(call("Accept: video/x-flv\r\n")), Admission::ADMITTED_AS_FLV);
    EXPECT_EQ(knock(call("Accept: application/octet-stream,video/x-flv\r\n")), Admission::ADMITTED);
    EXPECT_EQ(knock(call("Accept: text/html\r\n")), Admission::ADMITTED);
}

// ---- Bitrate limit ------------------------------------------------------------------------------

struct BitrateLimit : MountListeners {
    Broadcaster source{"Content-Type: application/test\r\n"};

    BitrateLimit() {
        Clock::Hold(START);
        mount->Start();
        mount->SetRequest(source.request);
        Broadcaster::comes_true([this] { return mount->IsConnected(); });
        set("AvgBitrateLimit", "100"); // refused above 102000 bits per second
    }
    ~BitrateLimit() override { mount->WaitForStop(); }

    // All of it in the one second that the clock shows.
    void send(std::size_t bytes) {
        source.Send(std::string(bytes, 'a'));
        EXPECT_TRUE(Broadcaster::comes_true([&] { return mount->GetBitrate(false) == bytes * 8; }));
    }
};

TEST_F(BitrateLimit, AStreamAboveItIsRefusedToListeners) {
    send(12751);
    Clock::Advance(21);
    EXPECT_EQ(knock(), Admission::ABOVE_BITRATE);
    EXPECT_EQ(log.All().back(), refusal("/live Exceeds Bitrate Limit"));
    EXPECT_TRUE(mount->IsConnected());
}

TEST_F(BitrateLimit, AStreamOfExactlyTheLimitAndItsMarginIsNot) {
    send(12750);
    Clock::Advance(21);
    EXPECT_EQ(knock(), Admission::ADMITTED);
}

TEST_F(BitrateLimit, NobodyIsRefusedInTheFirstTwentySeconds) {
    send(20000);
    Clock::Advance(20);
    EXPECT_EQ(knock(), Admission::ADMITTED);
    Clock::Advance(1);
    EXPECT_EQ(knock(), Admission::ABOVE_BITRATE);
}

TEST_F(BitrateLimit, ItIsNamedBeforeAMissingLogin) {
    set("Auth", "1");
    send(20000);
    Clock::Advance(21);
    EXPECT_EQ(knock(), Admission::ABOVE_BITRATE);
}

TEST_F(BitrateLimit, ZeroIsNoLimit) {
    set("AvgBitrateLimit", "0");
    send(20000);
    Clock::Advance(21);
    EXPECT_EQ(knock(), Admission::ADMITTED);
}

// ---- Reserves -----------------------------------------------------------------------------------

// Listeners that come the whole way, so that some of them are known as reserved.
struct Reserves : MountListeners {
    Broadcaster source{"Content-Type: application/test\r\n"};

    Reserves() {
        Clock::Hold(START);
        ReceiverList::Open();
        UserList::GetReserveUser()->AddProperty(User::EVERY_MOUNT, "vip", User::USER_AGENT);
        MountList::Add(mount);
        mount->SetRequest(source.request);
        Broadcaster::comes_true([this] { return mount->IsConnected(); });
    }
    ~Reserves() override { MountList::WaitForStop(); }

    std::list<LoopbackPair> pairs;
    std::vector<std::shared_ptr<Receiver>> visitors;

    std::shared_ptr<Receiver> visit(const std::string& agent) {
        LoopbackPair& pair = pairs.emplace_back();
        pair.Send("GET /live HTTP/1.0\r\nUser-Agent: " + agent + "\r\n\r\n");
        Broadcaster::comes_true([&] { return pair.server->CanRecv() == 1; });
        const auto receiver = visitors.emplace_back(std::make_shared<Receiver>(pair.server));
        receiver->Process();
        return receiver;
    }
};

TEST_F(Reserves, AReservedListenerTakesThePlaceOfWhoListensLongest) {
    set("UserMax", "2");
    const auto first = visit("ear");
    Clock::Advance(1);
    visit("ear");
    Clock::Advance(1);
    const auto reserved = visit("vip");
    EXPECT_TRUE(reserved->Vip());
    EXPECT_EQ(mount->ReceiverSize(), 3U); // until the other has left by itself
    EXPECT_TRUE(log.Wait("<127.0.0.1> /live Kicking 127.0.0.1 to make room for new Reserve"));
    first->Process();
    EXPECT_EQ(mount->ReceiverSize(), 2U);
    EXPECT_EQ(first->Status(), 3);
}

TEST_F(Reserves, OfEquallyLongListenersTheFirstByIdGoes) {
    set("UserMax", "3");
    visit("ear");
    visit("ear");
    visit("ear");
    const auto listeners = mount->GetReceiverList(); // by id
    visit("vip");
    for (const auto& listener : listeners)
        listener->Process();
    EXPECT_EQ(listeners.front()->Status(), 3);
    EXPECT_EQ(mount->ReceiverSize(), 3U);
}

TEST_F(Reserves, AListenerThatLeavesByAnErrorIsLoggedWithIt) {
    Clock::Hold(START);
    const auto listener = visit("ear");
    ReceiverProbe{*listener}.GetResponse()->SetLastError(110);
    mount->UnregisterReceiver(listener);
    EXPECT_EQ(log.All().back(), "<127.0.0.1> Connection Closed (Connection timed out) [U: "
                                "Anonymous] [L: 0] {" +
                                    std::to_string(listener->BytesSent()) +
                                    " bytes} (0 secs) [I: " + listener->GetUUID() + "]");
}

TEST_F(Reserves, AmongReservedListenersNobodyMakesRoom) {
    set("UserMax", "1");
    visit("vip");
    visit("vip");
    EXPECT_EQ(mount->ReceiverSize(), 1U);
    EXPECT_TRUE(log.Wait("<127.0.0.1> /live Reserve Full [U: "));
}

TEST_F(Reserves, WithoutAPlaceAtAllThereIsNobodyToGo) {
    set("UserMax", "0");
    visit("vip");
    EXPECT_EQ(mount->ReceiverSize(), 0U);
    EXPECT_TRUE(log.Wait("<127.0.0.1> /live Reserve Full [U: "));
}

TEST_F(Reserves, TheAddressLimitHoldsForThemToo) {
    set("IPUserMax", "1");
    visit("ear");
    visit("vip");
    EXPECT_EQ(mount->ReceiverSize(), 1U);
    EXPECT_TRUE(log.Wait("/live IP Full [U: "));
}

TEST_F(Reserves, AnAccountOfTheMountEntersWhereALoginIsAsked) {
    set("Auth", "1");
    const auto account = UserList::Add("joe", "secret");
    account->SetGroup(User::LISTENER);
    account->AddProperty(1, "*", User::ALL);
    visit("ear\r\nAuthorization: Basic am9lOnNlY3JldA=="); // joe:secret
    EXPECT_EQ(mount->ReceiverSize(), 1U);
    visit("ear\r\nAuthorization: Basic am9lOg=="); // joe:
    visit("ear");
    EXPECT_EQ(mount->ReceiverSize(), 1U);
    account->RemoveMount(1);
    visit("ear\r\nAuthorization: Basic am9lOnNlY3JldA==");
    EXPECT_EQ(mount->ReceiverSize(), 1U);
    account->AddProperty(User::EVERY_MOUNT, "*", User::ALL);
    visit("ear\r\nAuthorization: Basic am9lOnNlY3JldA==");
    EXPECT_EQ(mount->ReceiverSize(), 2U);
}

TEST_F(Reserves, AStopSendsEveryListenerAway) {
    const auto listener = visit("ear");
    mount->WaitForStop();
    listener->Process();
    EXPECT_EQ(listener->Status(), 3);
    EXPECT_EQ(mount->ReceiverSize(), 0U);
}
