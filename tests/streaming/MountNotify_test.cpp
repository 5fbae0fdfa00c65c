// What other servers hear of mounts and listeners, and how their answers count.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "core/Clock.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "support/Admit.h"
#include "support/Broadcaster.h"
#include "support/CalledServer.h"
#include "support/LogLines.h"
#include "support/Ports.h"
#include "support/ReceiverProbe.h"
#include "support/Sections.h"

#include <future>
#include <gtest/gtest.h>
#include <list>

namespace {

const std::string YES = "HTTP/1.0 200 OK\r\nicecast-auth-user: 1\r\n";

// A connection whose request was read, but not yet judged.
struct Caller {
    explicit Caller(const std::string& fields = "User-Agent: an ear\r\n") {
        pair.Send("GET /live HTTP/1.0\r\n" + fields + "\r\n");
        receiver = std::make_shared<Receiver>(pair.server);
        const auto request = receiver->GetRequest();
        Broadcaster::comes_true([&] { return request->ReadRequest() > 0 && request->Complete(); });
    }
    LoopbackPair pair;
    std::shared_ptr<Receiver> receiver;
};

struct MountNotify : testing::Test {
    CalledServer server;
    LogLines log;
    std::shared_ptr<Mount> mount = std::make_shared<Mount>(
        "/my live", 1, AddSection("1", {{"NotifyUser", "app"}, {"NotifyPass", "key"}}));
    std::list<Caller> callers;

    MountNotify() {
        Config::Get("Hostname", true)->SetValue("radio.example");
        Config::Get("PortBase", true)->SetValue(8010);
        MountList::Add(mount);
    }
    ~MountNotify() override {
        Clock::Release();
        MountList::WaitForStop();
    }

    void set(const std::string& key, const std::string& value) {
        Set(mount->GetConfigNode(), key, value);
    }
    // The verdict on a listener when the server answers this; what it was asked.
    Admission ask(Caller& caller, const std::string& answer, std::string* asked = nullptr) {
        auto verdict =
            std::async(std::launch::async, [&] { return admit(*mount, caller.receiver); });
        const TakenCall call = server.Take();
        const std::string text = call.Receive();
        if (asked != nullptr) *asked = text;
        call.Send(answer + "\r\n");
        return verdict.get();
    }
    Admission ask(const std::string& answer) { return ask(callers.emplace_back(), answer); }
};

// ---- Mounts -------------------------------------------------------------------------------------

TEST_F(MountNotify, ASourceThatComesIsTold) {
    set("NotifyMountAdd", server.Address("/hook"));
    Broadcaster source("Content-Type: application/test\r\n");
    mount->SetRequest(source.request);
    EXPECT_EQ(server.Take().Receive(),
              "POST /hook HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
                  "\r\nContent-Length: 64\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                  "Authorization: Basic YXBwOmtleQ==\r\n\r\n"
                  "action=mount_add&mount=%2Fmy+live&server=radio.example&port=8010");
}

TEST_F(MountNotify, ASourceThatLeavesIsToldAfterItsComing) {
    set("NotifyMountAdd", server.Address());
    set("NotifyMountRemove", server.Address());
    {
        Broadcaster source("Content-Type: application/test\r\n");
        mount->SetRequest(source.request);
        ASSERT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    }
    {
        const TakenCall call = server.Take();
        EXPECT_TRUE(body_of(call.Receive()).starts_with("action=mount_add&"));
        EXPECT_TRUE(log.Wait("Source Disconnected"));
        EXPECT_FALSE(server.IsCalled());
    }
    EXPECT_EQ(body_of(server.Take().Receive()),
              "action=mount_remove&mount=%2Fmy+live&server=radio.example&port=8010");
}

TEST_F(MountNotify, ASourceWhoseMountIsRemovedIsTold) {
    set("NotifyMountRemove", server.Address());
    Broadcaster source("Content-Type: application/test\r\n");
    mount->SetRequest(source.request);
    ASSERT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    MountList::Remove(mount);
    EXPECT_EQ(body_of(server.Take().Receive()),
              "action=mount_remove&mount=%2Fmy+live&server=radio.example&port=8010");
}

TEST_F(MountNotify, AnApplicationThatIsSilentKeepsNoSourceAndNoStop) {
    Clock::Hold(1000);
    set("NotifyMountAdd", server.Address());
    set("NotifyMountRemove", server.Address());
    {
        Broadcaster source("Content-Type: application/test\r\n");
        mount->SetRequest(source.request);
        ASSERT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    }
    EXPECT_TRUE(Broadcaster::comes_true([this] { return !mount->IsConnected(); }));
    Broadcaster next("Content-Type: application/test\r\n");
    mount->SetRequest(next.request);
    EXPECT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    mount->WaitForStop();
}

// ---- Listeners that come ------------------------------------------------------------------------

TEST_F(MountNotify, AListenerIsDescribed) {
    set("NotifyListenerAdd", server.Address());
    Caller caller("User-Agent: an ear/1.0\r\nAuthorization: Basic am9lOmEmYg==\r\n"); // joe:a&b
    std::string asked;
    EXPECT_EQ(ask(caller, YES, &asked).status, Admission::ADMITTED);
    EXPECT_EQ(body_of(asked), "action=listener_add&server=radio.example&port=8010&client=" +
                                  caller.receiver->GetUUID() +
                                  "&mount=%2Fmy+live&user=joe&pass=a%26b&ip=127.0.0.1&agent="
                                  "\"an+ear%2F1.0\"");
    EXPECT_NE(asked.find("Authorization: Basic YXBwOmtleQ==\r\n"), std::string::npos);
}

TEST_F(MountNotify, ALongAgentIsCutWithTheBody) {
    set("NotifyListenerAdd", server.Address());
    Caller caller("User-Agent: " + std::string(300, 'z') + "\r\n");
    std::string asked;
    ask(caller, YES, &asked);
    EXPECT_EQ(body_of(asked).size(), 255U);
    EXPECT_TRUE(body_of(asked).ends_with("zzz"));
}

TEST_F(MountNotify, WithoutAuthTheAnswerIsIgnored) {
    set("NotifyListenerAdd", server.Address());
    EXPECT_EQ(ask("HTTP/1.0 403 Never Ever\r\n").status, Admission::ADMITTED);
    EXPECT_EQ(ask("HTTP/1.0 200 OK\r\nicecast-auth-timelimit: 60\r\n").time_limit, 0U);
    EXPECT_EQ(mount->ReceiverSize(), 2U);
}

TEST_F(MountNotify, WithoutAuthAServerThatIsNotThereIsIgnored) {
    set("NotifyListenerAdd", "http://127.0.0.1:" + std::to_string(Ports::Free()));
    EXPECT_EQ(admit(*mount, callers.emplace_back().receiver).status, Admission::ADMITTED);
    set("NotifyListenerAdd", "http://host/a:b");
    EXPECT_EQ(admit(*mount, callers.emplace_back().receiver).status, Admission::ADMITTED);
}

TEST_F(MountNotify, WithAuthTheFieldHasToBeOne) {
    set("NotifyListenerAdd", server.Address());
    set("Auth", "yes");
    EXPECT_EQ(ask(YES).status, Admission::ADMITTED);
    EXPECT_EQ(ask("HTTP/1.0 500 Who Cares\r\nIceCast-Auth-User: 1\r\n").status,
              Admission::ADMITTED);
    for (const char* answer :
         {"HTTP/1.0 200 OK\r\n", "HTTP/1.0 200 OK\r\nicecast-auth-user: 0\r\n",
          "HTTP/1.0 200 OK\r\nicecast-auth-user: 11\r\n",
          "HTTP/1.0 200 OK\r\nicecast-auth-user: 1\r\nicecast-auth-user: 1\r\n", "garbage\r\n"})
        EXPECT_EQ(ask(answer).status, Admission::NOT_AUTHORIZED) << answer;
}

TEST_F(MountNotify, WithAuthNoAnswerIsARefusal) {
    set("Auth", "yes");
    set("NotifyListenerAdd", "http://127.0.0.1:" + std::to_string(Ports::Free()));
    EXPECT_EQ(admit(*mount, callers.emplace_back().receiver).status, Admission::NOT_AUTHORIZED);
    EXPECT_EQ(mount->ReceiverSize(), 0U);
}

TEST_F(MountNotify, ARefusalIsLogged) {
    set("NotifyListenerAdd", server.Address());
    set("Auth", "yes");
    ask("HTTP/1.0 200 OK\r\n");
    const std::string port = std::to_string(callers.back().receiver->GetRequest()->Port());
    EXPECT_EQ(log.All().back(), "<127.0.0.1> Not Authorized [U: Anonymous] (A: 127.0.0.1:" + port +
                                    "/live) {UA: an ear}");
}

TEST_F(MountNotify, AnAccountDoesNotHelpWhereAServerDecides) {
    UserList::Add("joe", "pw")->SetGroup(User::ADMINISTRATOR);
    set("NotifyListenerAdd", server.Address());
    set("Auth", "yes");
    Caller caller("Authorization: Basic am9lOnB3\r\n");
    EXPECT_EQ(ask(caller, "HTTP/1.0 200 OK\r\n").status, Admission::NOT_AUTHORIZED);
}

TEST_F(MountNotify, TheNamesOfTheFieldsAreSettings) {
    set("NotifyListenerAdd", server.Address());
    set("NotifyAuthHeader", "X-May");
    set("NotifyTimelimitHeader", "X-Time");
    set("Auth", "yes");
    EXPECT_EQ(ask(YES).status, Admission::NOT_AUTHORIZED);
    const Admission admission = ask("HTTP/1.0 200 OK\r\nx-may: 1\r\nx-time: 90\r\n");
    EXPECT_EQ(admission.status, Admission::ADMITTED);
    EXPECT_EQ(admission.time_limit, 90U);
}

TEST_F(MountNotify, TheTimeLimitIsANumberOrNone) {
    set("NotifyListenerAdd", server.Address());
    set("Auth", "yes");
    EXPECT_EQ(ask(YES).time_limit, 0U);
    EXPECT_EQ(ask(YES + "icecast-auth-timelimit: 3600 s\r\n").time_limit, 3600U);
    EXPECT_EQ(ask(YES + "icecast-auth-timelimit: soon\r\n").time_limit, 0U);
    EXPECT_EQ(ask(YES + "icecast-auth-timelimit: -5\r\n").time_limit, 0U);
}

TEST_F(MountNotify, WhoIsBannedIsNotAskedAbout) {
    set("NotifyListenerAdd", server.Address());
    UserList::GetBanUser()->AddProperty(1, "127.0.0.1", User::IP);
    EXPECT_EQ(admit(*mount, callers.emplace_back().receiver).status, Admission::BANNED);
    EXPECT_FALSE(server.IsCalled());
}

TEST_F(MountNotify, PlacesAreCountedAfterTheAnswer) {
    set("NotifyListenerAdd", server.Address());
    set("Auth", "yes");
    set("UserMax", "1");
    Caller& first = callers.emplace_back();
    Caller& second = callers.emplace_back();
    std::shared_ptr<Request> of_first;
    std::shared_ptr<Request> of_second;
    EXPECT_EQ(mount->RegisterReceiver(first.receiver, of_first).status, Admission::PENDING);
    EXPECT_EQ(mount->RegisterReceiver(second.receiver, of_second).status, Admission::PENDING);
    const TakenCall call = server.Take();
    const TakenCall other = server.Take();
    const auto finish = [this](Caller& caller, std::shared_ptr<Request>& inquiry) {
        Admission admission{.status = Admission::PENDING};
        while (admission.status == Admission::PENDING)
            admission = mount->RegisterReceiver(caller.receiver, inquiry);
        return admission.status;
    };
    call.Send(YES + "\r\n");
    other.Send(YES + "\r\n");
    EXPECT_EQ(finish(second, of_second), Admission::ADMITTED);
    EXPECT_EQ(finish(first, of_first), Admission::FULL);
    EXPECT_EQ(of_first, nullptr);
}

TEST_F(MountNotify, WhoIsLetInWhenTheMountHasGoneIsSentAway) {
    set("NotifyListenerAdd", server.Address());
    const auto receiver = callers.emplace_back().receiver;
    std::shared_ptr<Request> inquiry;
    ASSERT_EQ(mount->RegisterReceiver(receiver, inquiry).status, Admission::PENDING);
    const TakenCall call = server.Take();
    MountList::Remove(mount);
    call.Send(YES + "\r\n");
    Admission admission{.status = Admission::PENDING};
    ASSERT_TRUE(Broadcaster::comes_true([&] {
        admission = mount->RegisterReceiver(receiver, inquiry);
        return admission.status != Admission::PENDING;
    }));
    EXPECT_EQ(admission.status, Admission::ADMITTED);
    EXPECT_TRUE(ReceiverProbe{*receiver}.IsKicked());
}

// ---- Listeners that leave -----------------------------------------------------------------------

TEST_F(MountNotify, AListenerThatLeavesIsTold) {
    Clock::Hold(5000);
    set("NotifyListenerRemove", server.Address());
    Caller caller("Authorization: Basic am9lOmEmYg==\r\n");
    admit(*mount, caller.receiver);
    Clock::Advance(77);
    mount->UnregisterReceiver(caller.receiver);
    EXPECT_EQ(body_of(server.Take().Receive()),
              "action=listener_remove&server=0&port=8010&client=" + caller.receiver->GetUUID() +
                  "&mount=%2Fmy+live&user=joe&pass=a%26b&duration=77");
}

TEST_F(MountNotify, AListenerWithoutANameLeavesAsAnonymous) {
    set("NotifyListenerRemove", server.Address());
    Caller caller;
    admit(*mount, caller.receiver);
    mount->UnregisterReceiver(caller.receiver);
    EXPECT_NE(server.Take().Receive().find("&user=Anonymous&pass=&duration=0"), std::string::npos);
}

TEST_F(MountNotify, AStrangerThatLeavesIsNotTold) {
    set("NotifyListenerRemove", server.Address());
    mount->UnregisterReceiver(callers.emplace_back().receiver);
    usleep(100000);
    EXPECT_FALSE(server.IsCalled());
}

} // namespace
