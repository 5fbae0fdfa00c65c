#include "directory/IcecastYP.h"

#include "media/Metadata.h"
#include "support/Directory.h"

namespace {

const std::string OK = "HTTP/1.0 200 OK\r\n";
const std::string ADDED =
    OK + "YPResponse: 1\r\nYPMessage: Added\r\nSID: s&1\r\nTouchFreq: 200\r\n\r\n";
const std::string YES = OK + "YPResponse: 1\r\nYPMessage: Good\r\n\r\n";
const std::string NO = OK + "YPResponse: 0\r\nYPMessage: Who are you?\r\n\r\n";

struct IcecastYPTest : DirectoryTest {
    IcecastYPTest() : DirectoryTest({{"Public", "always"}, {"IP", "127.0.0.9"}}) {
        make_page<IcecastYP>(directory.Address("/cgi-bin/yp"));
    }
    void add() { exchange(ADDED); }
    // Whether the log has this line of the page's.
    bool logged(const std::string& words) {
        log.All();
        return log.Count("<" + mount()->Address() + "> [127.0.0.1] " + words) == 1;
    }
};

TEST_F(IcecastYPTest, AddIsAFormOfThisMount) {
    const TakenCall call = called();
    EXPECT_EQ(body_of(sent),
              "action=add&sn=A+%26+B&listenurl=http://localhost:8000%2Flive&genre=Pop%2FRock&b=128"
              "&type=audio%2Fmpeg&url=http%3A%2F%2Fx%2F%3Fa%3D1&desc=So%3A+yes&stype="
              "&bitrate=128&channels=2");
    EXPECT_EQ(sent.substr(0, sent.find("\r\n\r\n") + 2),
              "POST /cgi-bin/yp HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(directory.Port()) +
                  "\r\nContent-Length: " + std::to_string(body_of(sent).size()) +
                  "\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                  "Cache-Control: no-cache\r\n"
                  "User-Agent: Quillwave/1.0.2 evergreen (Linux 64-bit)\r\n");
}

TEST_F(IcecastYPTest, ListenersAreToldOfTheConfiguredHostAsItIs) {
    Config::Get("Hostname", true)->SetValue("radio.example/x");
    Config::Get("PortBase", true)->SetValue("9000");
    called();
    EXPECT_NE(sent.find("&listenurl=http://radio.example/x:9000%2Flive&"), std::string::npos);
}

TEST_F(IcecastYPTest, CallsFromTheAddressOfTheMount) {
    const TakenCall call = called();
    EXPECT_EQ(call.PeerIP(), "127.0.0.9");
}

TEST_F(IcecastYPTest, AddedIsListedAndTouchedAtOnce) {
    exchange(ADDED);
    EXPECT_TRUE(page->Listed());
    EXPECT_EQ(page->Status(), "Added");
    EXPECT_EQ(page->Interval(), 200);
    EXPECT_EQ(page->LastTouchTime(), 0);
    EXPECT_TRUE(logged("ACK: Added (id: s&1 | tchfrq: 200)"));
    EXPECT_TRUE(is_due());
}

TEST_F(IcecastYPTest, TouchTellsWhatIsOnAndWhoHears) {
    add();
    const auto record = std::make_shared<METADATA>();
    record->title = "One & two";
    record->codec = "Opus";
    mount()->SetMetaData(record);
    called();
    EXPECT_EQ(body_of(sent), "action=touch&sid=s&1&st=One+%26+two&listeners=0&max_listeners=-1"
                             "&alt=0&cm=0&ht=0&stype=Opus");
}

TEST_F(IcecastYPTest, TouchMayChangeTheInterval) {
    add();
    exchange(OK + "YPResponse: 1\r\nYPMessage: Good\r\nTouchFreq: 60\r\n\r\n");
    EXPECT_EQ(page->Interval(), 60);
    EXPECT_EQ(page->LastTouchTime(), MOMENT);
    EXPECT_TRUE(logged("ACK: Good (tchfrq: 60)"));
    EXPECT_FALSE(is_due());
}

TEST_F(IcecastYPTest, TouchWithoutAFrequencyKeepsTheInterval) {
    add();
    exchange(YES);
    EXPECT_EQ(page->Interval(), 200);
    EXPECT_EQ(page->Status(), "Good");
    EXPECT_TRUE(logged("ACK: Good (tchfrq: 200)"));
}

TEST_F(IcecastYPTest, SuccessfulTouchesNeedNotBeLogged) {
    Config::Get("YPLog", true)->SetValue(false);
    add();
    exchange(YES);
    EXPECT_FALSE(logged("ACK: Good"));
}

TEST_F(IcecastYPTest, AnswerWithoutAnIdIsAddedAgainAtTheNextInterval) {
    exchange(OK + "YPResponse: 1\r\nYPMessage: Added\r\nTouchFreq: 200\r\n\r\n");
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->Status(), "Added");
    EXPECT_TRUE(logged("add successful, however failed receiving SID and Touch Frequency, "
                       "Quillwave cannot continue this session without an SID, attemtping to "
                       "re-add"));
    Clock::Advance(300);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
    called();
    EXPECT_TRUE(body_of(sent).starts_with("action=add&"));
}

TEST_F(IcecastYPTest, AnswerWithoutAFrequencyIsNotEnoughEither) {
    exchange(OK + "YPResponse: 1\r\nSID: 5\r\n\r\n");
    EXPECT_FALSE(page->Listed());
}

TEST_F(IcecastYPTest, FrequencyThatIsNoNumberComesDueOnceASecond) {
    exchange(OK + "YPResponse: 1\r\nYPMessage: x\r\nSID: 5\r\nTouchFreq: abc\r\n\r\n");
    EXPECT_EQ(page->Interval(), 0);
    exchange(YES);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
}

TEST_F(IcecastYPTest, FrequencyBeyondAllBoundsIsShownAndNotFollowed) {
    exchange(OK + "YPResponse: 1\r\nSID: 5\r\nTouchFreq: 99999999999999999999\r\n\r\n");
    EXPECT_EQ(page->Interval(), 2147483647);
    exchange(YES);
    Clock::Advance(86400);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
}

TEST_F(IcecastYPTest, FrequencyBelowZeroIsShownAndCountsAsZero) {
    exchange(OK + "YPResponse: 1\r\nSID: 5\r\nTouchFreq: -7\r\n\r\n");
    EXPECT_EQ(page->Interval(), -7);
    exchange(YES);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
}

TEST_F(IcecastYPTest, RefusedAddIsTriedAgainAfterTheInterval) {
    exchange(NO);
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->Status(), "Who are you?");
    EXPECT_TRUE(logged("NAK: Who are you?"));
    Clock::Advance(300);
    EXPECT_FALSE(is_due());
    Clock::Advance(1);
    EXPECT_TRUE(is_due());
}

TEST_F(IcecastYPTest, RefusedTouchLeadsToANewAddWithANewId) {
    add();
    exchange(NO);
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->LastTouchTime(), MOMENT);
    Clock::Advance(201);
    EXPECT_TRUE(is_due());
    exchange(OK + "YPResponse: 1\r\nSID: second\r\nTouchFreq: 200\r\n\r\n");
    EXPECT_TRUE(body_of(sent).starts_with("action=add&"));
    called();
    EXPECT_TRUE(body_of(sent).starts_with("action=touch&sid=second&"));
}

TEST_F(IcecastYPTest, ResponseWithoutAMessageGivesAnEmptyStatus) {
    exchange(OK + "YPResponse: 0\r\n\r\n");
    EXPECT_EQ(page->Status(), "");
    EXPECT_TRUE(logged("NAK: "));
}

TEST_F(IcecastYPTest, StatusOtherThan200IsToldWithItsMessage) {
    exchange("HTTP/1.0 404 Not Found\r\nYPResponse: 1\r\n\r\n");
    EXPECT_EQ(page->Status(), "Error: Not Found");
    EXPECT_TRUE(logged("NAK: 404 Not Found"));
}

TEST_F(IcecastYPTest, ResponseThatIsNeitherYesNorNoIsNone) {
    for (const char* field : {"YPResponse: 2\r\n", "YPResponse: \r\n", ""}) {
        exchange("HTTP/1.0 500 Other\r\n\r\n");
        exchange(OK + field + "\r\n");
        EXPECT_EQ(page->Status(), "Error: No YPResponse!");
    }
    log.All();
    EXPECT_EQ(log.Count("NAK: (No YPResponse!)"), 3);
}

TEST_F(IcecastYPTest, ConnectionThatIsRefusedIsTold) {
    directory.Close();
    for (int i = 0; i < 1000 && page->Status() == "Initialized"; ++i)
        page->Process();
    EXPECT_EQ(page->Status(), "Error: Connection Failed");
    EXPECT_TRUE(logged("NAK: Connection failed"));
    EXPECT_EQ(page->LastTouchTime(), MOMENT);
}

TEST_F(IcecastYPTest, ConnectionThatEndsWithoutAnAnswerFailsAtALaterStep) {
    TakenCall call = called();
    call.Close();
    page->Process();
    EXPECT_EQ(page->Status(), "Error: Connection Failed");
    EXPECT_TRUE(logged("NAK: Connection failed"));
}

TEST_F(IcecastYPTest, SilenceOfMoreThanTheTimeoutIsTold) {
    Config::Get("SocketTimeout", true)->SetValue("5");
    const TakenCall call = called();
    Clock::Advance(5);
    page->Process();
    EXPECT_EQ(page->Status(), "Initialized");
    Clock::Advance(1);
    page->Process();
    EXPECT_EQ(page->Status(), "Error: Connection Timed Out");
    EXPECT_TRUE(logged("NAK: Connection timed out"));
    EXPECT_EQ(page->LastTouchTime(), MOMENT + 6);
}

TEST_F(IcecastYPTest, AnswersMayComeInSingleBytesAndBehindAnInterimOne) {
    const TakenCall call = called();
    for (const char byte : "HTTP/1.1 100 Continue\r\n\r\n" + ADDED) {
        EXPECT_FALSE(page->Listed());
        call.Send(std::string(1, byte));
        page->Process();
    }
    EXPECT_TRUE(page->Listed());
}

TEST_F(IcecastYPTest, FiveFailedTouchesMakeTheSixthSliceARemove) {
    add();
    for (int failed = 0; failed < 5; ++failed) {
        exchange("HTTP/1.0 500 Oh no\r\n\r\n");
        EXPECT_TRUE(body_of(sent).starts_with("action=touch&"));
        EXPECT_TRUE(page->Listed());
    }
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=s&1");
    EXPECT_TRUE(logged("Attempting delisting due to too many touch errors"));
    EXPECT_FALSE(page->Listed());
    exchange(ADDED);
    EXPECT_TRUE(body_of(sent).starts_with("action=add&"));
    EXPECT_TRUE(page->Listed());
}

TEST_F(IcecastYPTest, EveryKindOfFailedTouchCountsAndASuccessForgivesThem) {
    add();
    exchange("HTTP/1.0 500 Oh no\r\n\r\n");
    exchange(OK + "\r\n");
    exchange("");
    exchange_without_answer();
    EXPECT_TRUE(page->Listed());
    exchange(YES);
    for (int failed = 0; failed < 4; ++failed)
        exchange("");
    called();
    EXPECT_TRUE(body_of(sent).starts_with("action=touch&"));
}

TEST_F(IcecastYPTest, RemoveEndsTheListing) {
    add();
    page->Remove();
    exchange(YES);
    EXPECT_EQ(body_of(sent), "action=remove&sid=s&1");
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->Status(), "Good");
    EXPECT_TRUE(logged("ACK: Good"));
}

TEST_F(IcecastYPTest, RefusedRemoveEndsItToo) {
    add();
    page->Remove();
    exchange(NO);
    EXPECT_FALSE(page->Listed());
    EXPECT_EQ(page->Status(), "Who are you?");
    EXPECT_TRUE(logged("NAK: Who are you?"));
}

TEST_F(IcecastYPTest, RemoveThatFailsEndsItToo) {
    add();
    page->Remove();
    exchange("");
    EXPECT_FALSE(page->Listed());
}

TEST_F(IcecastYPTest, WhatADirectorySaysStaysInOneLineOfTheLog) {
    exchange(OK + "YPResponse: 0\r\nYPMessage: a\x1b[2J\tb\r\n\r\n");
    EXPECT_TRUE(logged("NAK: a [2J b"));
}

} // namespace
