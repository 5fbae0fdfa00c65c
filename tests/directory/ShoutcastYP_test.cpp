#include "directory/ShoutcastYP.h"

#include "media/Metadata.h"
#include "support/Directory.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::Pair;

std::string answer_of(const std::string& body) {
    return "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

const std::string ADDED = answer_of("icy-response: ack\nicy-id: 4711\nicy-tchfrq: 5\n");
const std::string ACK = answer_of("icy-response: ack\n");

struct ShoutcastYPTest : DirectoryTest {
    explicit ShoutcastYPTest(const OnAir::Settings& settings = {{"Public", "always"},
                                                                {"UserMax", "32"},
                                                                {"IP", "127.0.0.9"}},
                             const char* type = "audio/mpeg")
        : DirectoryTest(settings, type) {
        make_page<ShoutcastYP>("yp.example", "127.0.0.1:" + std::to_string(directory.Port()));
    }
    void add() { exchange(ADDED); }
    std::string called_target() const {
        const std::string line = sent.substr(0, sent.find("\r\n"));
        return line.substr(0, line.rfind(' '));
    }
    bool logged(const std::string& words) {
        log.All();
        return log.Count("<127.0.0.1> [" + mount()->Address() + "] " + words) == 1;
    }
    // Some slices of a page that is to call nobody.
    void slices() {
        for (int slice = 0; slice < 20; ++slice)
            page->Process();
        EXPECT_FALSE(directory.IsCalled());
    }
};

TEST(ShoutcastAnswer, LinesAreKeysAndValues) {
    EXPECT_THAT(parse_shoutcast_resp("a:1\nb : 2 \r\nno pair\n\nurl: http://x:1/\na: 3"),
                ElementsAre(Pair("a", "3"), Pair("b", "2"), Pair("url", "http://x:1/")));
    EXPECT_TRUE(parse_shoutcast_resp("").empty());
    EXPECT_THAT(parse_shoutcast_resp(":\nx:"), ElementsAre(Pair("", ""), Pair("x", "")));
}

TEST(ShoutcastDirectory, IsMeantByItsHostInAnyForm) {
    const std::string host = ShoutcastYP::DIRECTORY;
    EXPECT_TRUE(ShoutcastYP::IsMeantBy(host));
    EXPECT_TRUE(ShoutcastYP::IsMeantBy("http://" + host + "/any/path?at=all"));
    EXPECT_TRUE(ShoutcastYP::IsMeantBy("https://" + host));
    EXPECT_FALSE(ShoutcastYP::IsMeantBy("http://yp.example/" + host));
    EXPECT_FALSE(ShoutcastYP::IsMeantBy(""));
}

TEST_F(ShoutcastYPTest, AddIsAQueryOfThisMount) {
    const TakenCall call = called();
    EXPECT_EQ(sent, "GET /addsrv?v=1&br=128&p=8000&m=32&t=A+%26+B&g=Pop%2FRock"
                    "&url=http%3A%2F%2Fx%2F%3Fa%3D1&content=audio%2Fmpeg&sid=1 HTTP/1.0\r\n"
                    "Host: 127.0.0.1:" +
                        std::to_string(directory.Port()) + "\r\n\r\n");
    EXPECT_EQ(call.PeerIP(), "127.0.0.9");
}

TEST_F(ShoutcastYPTest, RelaySaysWhomItRelays) {
    mount()->AddRelayAddress("http://master.example:8100/far");
    called();
    EXPECT_TRUE(called_target().ends_with("&sid=1&r=master.example%3A8100"));
}

TEST_F(ShoutcastYPTest, AddSpeaksInMinutes) {
    add();
    EXPECT_TRUE(page->Listed());
    EXPECT_EQ(page->Interval(), 300);
    EXPECT_EQ(page->Status(), "Added");
    EXPECT_EQ(page->LastTouchTime(), MOMENT);
    EXPECT_TRUE(logged("added me successfully! (id: 4711 | tchfrq: 300)"));
}

TEST_F(ShoutcastYPTest, MinutesBeyondAllBoundsAreShownAsTheyAre) {
    exchange(answer_of("icy-response: ack\nicy-id: 1\nicy-tchfrq: 99999999999999999999\n"));
    EXPECT_EQ(page->Interval(), 2147483647);
    Clock::Advance(86401);
    EXPECT_TRUE(is_due());
}

TEST_F(ShoutcastYPTest, TouchSpeaksInSeconds) {
    add();
    exchange(answer_of("icy-response: ack\nicy-tchfrq: 5\n"));
    EXPECT_EQ(page->Interval(), 5);
    EXPECT_EQ(page->Status(), "Touched");
    EXPECT_TRUE(logged("touched! (tchfrq: 5)"));
}

TEST_F(ShoutcastYPTest, TouchWithoutAFrequencyKeepsTheInterval) {
    add();
    exchange(ACK);
    EXPECT_EQ(page->Interval(), 300);
    log.All();
    EXPECT_EQ(log.Count("] touched!"), 1);
    EXPECT_EQ(log.Count("tchfrq"), 1); // of the add
}

TEST_F(ShoutcastYPTest, SuccessfulTouchesNeedNotBeLogged) {
    Config::Get("YPLog", true)->SetValue(false);
    add();
    exchange(ACK);
    EXPECT_EQ(page->Status(), "Touched");
    EXPECT_FALSE(logged("touched!"));
}

TEST_F(ShoutcastYPTest, TouchTellsWhatIsOnAndWhoHears) {
    add();
    const auto record = std::make_shared<METADATA>();
    record->title = "One & two";
    mount()->SetMetaData(record);
    called();
    EXPECT_EQ(called_target(),
              "GET /tchsrv?id=4711&sid=1&p=8000&li=0&alt=0&ct=One+%26+two&cm=0&ht=0");
}

TEST_F(ShoutcastYPTest, CountersAreToldByTheirGrowth) {
    add();
    mount()->ExtendedReceiver();
    mount()->ExtendedReceiver();
    exchange(ACK);
    EXPECT_TRUE(called_target().ends_with("&cm=2&ht=0"));
    mount()->ExtendedReceiver();
    exchange(ACK);
    EXPECT_TRUE(called_target().ends_with("&cm=1&ht=0"));
    exchange(ACK);
    EXPECT_TRUE(called_target().ends_with("&cm=0&ht=0"));
    mount()->ResetStats();
    mount()->ExtendedReceiver();
    exchange(ACK);
    EXPECT_TRUE(called_target().ends_with("&cm=1&ht=0"));
}

TEST_F(ShoutcastYPTest, AnswerWithoutAnIdIsAddedAgain) {
    for (const char* body :
         {"icy-response: ack\nicy-tchfrq: 5\n", "icy-response: ack\nicy-id: 1"}) {
        exchange(answer_of(body));
        EXPECT_FALSE(page->Listed());
        EXPECT_EQ(page->Status(), "Added, error missing ID.");
        EXPECT_TRUE(called_target().starts_with("GET /addsrv?"));
    }
    EXPECT_GE(log.Count("] add successful, however failed receiving ID and Touch Frequency, "
                        "quillwave cannot continue this session without ID, attemtping to re-add"),
              1);
}

TEST_F(ShoutcastYPTest, RefusalIsToldWithItsCodeIfAny) {
    exchange(answer_of("icy-response: nak\nicy-error: Bad\n"));
    EXPECT_EQ(page->Status(), "Error: Bad");
    EXPECT_TRUE(logged("Error: Bad"));
    exchange(answer_of("icy-response: nak\nicy-error: Worse\nicy-error-code: 17\n"));
    EXPECT_EQ(page->Status(), "Error: Worse");
    EXPECT_TRUE(logged("Error: Worse (17)"));
    EXPECT_FALSE(page->Listed());
}

TEST_F(ShoutcastYPTest, RefusedTouchLeadsToANewAdd) {
    add();
    exchange(answer_of("icy-response: nak\nicy-error: Who?\n"));
    EXPECT_FALSE(page->Listed());
    called();
    EXPECT_TRUE(called_target().starts_with("GET /addsrv?"));
}

TEST_F(ShoutcastYPTest, BlanksAroundAWordDoNotMatter) {
    exchange(answer_of("icy-response:\t ack \r\n icy-id : 4711\r\nicy-tchfrq: 5"));
    EXPECT_TRUE(page->Listed());
}

TEST_F(ShoutcastYPTest, AnswerThatIsNeitherYesNorNoIsNone) {
    exchange(answer_of("icy-response: perhaps\n"));
    EXPECT_EQ(page->Status(), "Error: No icy-response!");
    EXPECT_TRUE(logged("Error: (No icy-response!)"));
}

TEST_F(ShoutcastYPTest, BodyWithoutALengthIsEmpty) {
    exchange("HTTP/1.0 200 OK\r\n\r\nicy-response: ack\nicy-id: 1\nicy-tchfrq: 5\n");
    EXPECT_EQ(page->Status(), "Error: No icy-response!");
}

TEST_F(ShoutcastYPTest, BodyIsNotWaitedForInASlice) {
    const TakenCall call = called();
    for (const char byte : ADDED) {
        EXPECT_FALSE(page->Listed());
        call.Send(std::string(1, byte));
        page->Process();
    }
    EXPECT_TRUE(page->Listed());
}

TEST_F(ShoutcastYPTest, BodyThatNeverEndsTimesOut) {
    const TakenCall call = called();
    call.Send("HTTP/1.0 200 OK\r\nContent-Length: 1000\r\n\r\nicy-response: ack\n");
    page->Process();
    Clock::Advance(6);
    page->Process();
    EXPECT_EQ(page->Status(), "Error: Connection Timed Out");
    EXPECT_TRUE(logged("Error: Connection Timed Out"));
}

TEST_F(ShoutcastYPTest, StatusOtherThan200IsToldWithItsMessage) {
    exchange("HTTP/1.0 503 Not now\r\nContent-Length: 1000\r\n\r\n");
    EXPECT_EQ(page->Status(), "Error: Not now");
    EXPECT_TRUE(logged("Error: 503 Not now"));
}

TEST_F(ShoutcastYPTest, ConnectionThatEndsWithoutAnAnswerIsTold) {
    exchange("");
    EXPECT_EQ(page->Status(), "Error: Connection Failed");
    EXPECT_TRUE(logged("Error: Connection failed"));
}

TEST_F(ShoutcastYPTest, RemoveCountsAsUnlistedBeforeTheRequestGoesOut) {
    add();
    page->Remove();
    page->Process();
    EXPECT_FALSE(page->Listed());
    EXPECT_FALSE(page->HoldsUpStop());
    exchange(ACK);
    EXPECT_EQ(called_target(), "GET /remsrv?id=4711&p=8000");
    EXPECT_EQ(page->Status(), "Removed");
    EXPECT_TRUE(logged("removed me!"));
    slices();
}

TEST_F(ShoutcastYPTest, FiveFailedTouchesMakeTheSixthSliceARemove) {
    add();
    for (int failed = 0; failed < 5; ++failed) {
        exchange("");
        EXPECT_TRUE(called_target().starts_with("GET /tchsrv?"));
    }
    exchange(ACK);
    EXPECT_TRUE(called_target().starts_with("GET /remsrv?"));
    EXPECT_TRUE(logged("Attempting delisting due to too many touch errors"));
    called();
    EXPECT_TRUE(called_target().starts_with("GET /addsrv?"));
}

TEST_F(ShoutcastYPTest, ListedMountThatLosesItsLimitIsRemoved) {
    add();
    mount()->SetMaxReceivers(-1);
    page->Process();
    EXPECT_TRUE(page->Listed());
    EXPECT_FALSE(directory.IsCalled());
    exchange(ACK);
    EXPECT_TRUE(called_target().starts_with("GET /remsrv?"));
    EXPECT_FALSE(page->Listed());
}

struct AssignedPort : ShoutcastYPTest {
    AssignedPort() : ShoutcastYPTest({{"Public", "always"}, {"UserMax", "32"}, {"Port", "8200"}}) {}
};

TEST_F(AssignedPort, IsToldToListenersFromTheFirstExchangeOn) {
    exchange(ADDED);
    EXPECT_NE(called_target().find("&p=8200&"), std::string::npos);
    mount()->GetConfigNode()->GetChild("Port", true)->SetValue("9");
    called();
    EXPECT_NE(called_target().find("&p=8200&"), std::string::npos);
}

struct LimitOfZero : ShoutcastYPTest {
    LimitOfZero() : ShoutcastYPTest({{"Public", "always"}, {"UserMax", "0"}}) {}
};

TEST_F(LimitOfZero, IsRefusedBeforeAnythingGoesOut) {
    slices();
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->LastTouchTime(), MOMENT);
    log.All();
    EXPECT_GE(log.Count("</live> Unlimited UserMax is not supported by SHOUTcast!"), 1);
    Clock::Advance(300);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
}

struct OtherType : ShoutcastYPTest {
    OtherType() : ShoutcastYPTest({{"Public", "always"}, {"UserMax", "32"}}, "audio/ogg") {}
};

TEST_F(OtherType, IsRefusedBeforeAnythingGoesOut) {
    slices();
    log.All();
    EXPECT_GE(log.Count("</live> audio/ogg is not supported by SHOUTcast!"), 1);
}

struct CarriedType : ShoutcastYPTest, testing::WithParamInterface<const char*> {
    CarriedType() : ShoutcastYPTest({{"Public", "always"}, {"UserMax", "1"}}, GetParam()) {}
};

TEST_P(CarriedType, IsAdded) {
    called();
    EXPECT_TRUE(called_target().starts_with("GET /addsrv?"));
}
INSTANTIATE_TEST_SUITE_P(All, CarriedType,
                         testing::Values("audio/aac", "audio/aacp", "audio/mpeg", "video/nsv"));

} // namespace
