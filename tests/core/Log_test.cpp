#include "core/Log.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "streaming/MountList.h"
#include "support/LogLines.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr time_t MOMENT = 1794714942; // 2026-11-15 03:55:42 UTC

// Counts how often it is written to a stream.
struct Countable {
    int* count;
    friend std::ostream& operator<<(std::ostream& out, const Countable& value) {
        ++*value.count;
        return out;
    }
};

// Log files in a directory of the test's own; the console is silent.
class LogTest : public testing::Test {
protected:
    LogTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        std::filesystem::current_path(directory.Path(""));
        for (const char* off : {"ScreenLog", "RealtimeLog"})
            Config::Get(off, true)->SetValue(false);
        Config::Get("PidFile", true)->SetValue("0");
    }
    ~LogTest() override {
        Log::Stop();
        std::filesystem::current_path("/");
    }

    TemporaryDirectory directory;
};

using Console = LogTest;

std::string pid_line() { return "[11/15/2026@03:55:42] PID: " + std::to_string(getpid()) + "\n"; }

} // namespace

TEST(LogWrite, OneStatementWritesSeveralLines) {
    LogLines log;
    LogWrite(2) << "one " << 1 << std::endl << "two" << std::endl;
    EXPECT_THAT(log.All(), ElementsAre("one 1", "two"));
}

TEST(LogWrite, DestructorPassesOnWhatIsLeft) {
    LogLines log;
    LogWrite(2) << "one" << std::endl << "left";
    EXPECT_THAT(log.All(), ElementsAre("one", "left"));
}

TEST(LogWrite, OtherManipulatorsWorkOnTheStream) {
    LogLines log;
    LogWrite(2) << std::flush << std::hex << 255 << std::ends << std::endl;
    EXPECT_THAT(log.All(), ElementsAre(std::string("ff\0", 3)));
}

TEST(LogWrite, DetailIsMutedAtTheNormalLevel) {
    LogLines log;
    int streamed = 0;
    LogWrite(1) << Countable{&streamed} << std::endl;
    EXPECT_EQ(streamed, 0);
    LogWrite(2) << Countable{&streamed} << "heard" << std::endl;
    EXPECT_EQ(streamed, 1);
    EXPECT_THAT(log.All(), ElementsAre("heard"));
}

TEST(LogWrite, DetailIsHeardAtItsLevel) {
    LogLines log;
    Log::SetLevel(Log::DETAIL);
    EXPECT_EQ(Log::GetLevel(), Log::DETAIL);
    LogWrite(1) << "detail" << std::endl;
    Log::SetLevel(Log::NORMAL);
    LogWrite(1) << "muted" << std::endl;
    EXPECT_THAT(log.All(), ElementsAre("detail"));
}

TEST(LogFold, RepeatsAreCountedAndToldByTheNextOtherMessage) {
    LogLines log;
    for (int count = 0; count < 10; ++count)
        LogWrite(2) << "same" << std::endl;
    LogWrite(2) << "other" << std::endl;
    LogWrite(2) << "same" << std::endl;
    EXPECT_THAT(log.All(), ElementsAre("same", "Last message repeated 9 times", "other", "same"));
}

TEST(LogFold, OneRepeatIsTimesToo) {
    LogLines log;
    for (const char* text : {"a", "a", "b"})
        LogWrite(2) << text << std::endl;
    EXPECT_THAT(log.All(), ElementsAre("a", "Last message repeated 1 times", "b"));
}

TEST(LogFold, RepeatsOfTheLastMessageStayUntold) {
    LogLines log;
    for (const char* text : {"a", "a", "a"})
        LogWrite(2) << text << std::endl;
    Log::Stop();
    EXPECT_EQ(log.Count("] a"), 1);
    EXPECT_EQ(log.Count("repeated"), 0);
}

TEST(LogSignal, TerminationIsToldOncePerSignalNoticed) {
    LogLines log;
    Log::NoteTermination();
    ASSERT_TRUE(log.Wait("] Received termination request, shutting down..."));
    LogWrite(2) << "between" << std::endl;
    Log::NoteTermination();
    EXPECT_THAT(log.All(), ElementsAre("Received termination request, shutting down...", "between",
                                       "Received termination request, shutting down..."));
}

TEST(LogReceivers, GetTheSmallestFreeNumberOfTheirType) {
    EXPECT_EQ(Log::AddLogReceiver(Log::EVENT_LOG), 0);
    EXPECT_EQ(Log::AddLogReceiver(Log::EVENT_LOG), 1);
    EXPECT_EQ(Log::AddLogReceiver(Log::EVENT_LOG), 2);
    EXPECT_EQ(Log::AddLogReceiver(Log::LISTENER_LOG), 0);
    Log::RemoveLogReceiver(1, Log::EVENT_LOG);
    EXPECT_EQ(Log::AddLogReceiver(Log::EVENT_LOG), 1);
    EXPECT_EQ(Log::AddLogReceiver(Log::EVENT_LOG), 3);
}

TEST(LogReceivers, QueryOfANumberThatDoesNotExistThrows) {
    EXPECT_THROW(Log::QueryLog(0, Log::EVENT_LOG), std::out_of_range);
    const int id = Log::AddLogReceiver(Log::EVENT_LOG);
    EXPECT_THROW(Log::QueryLog(id, Log::LISTENER_LOG), std::out_of_range);
    EXPECT_NO_THROW(Log::QueryLog(id, Log::EVENT_LOG));
    Log::RemoveLogReceiver(id, Log::EVENT_LOG);
    EXPECT_THROW(Log::QueryLog(id, Log::EVENT_LOG), std::out_of_range);
}

TEST(LogReceivers, BeginWithTheLastTwentyLines) {
    LogLines log;
    for (int number = 1; number <= 30; ++number)
        LogWrite(2) << "line " << number << std::endl;
    ASSERT_TRUE(log.Wait("line 30"));
    for (const auto type : {Log::EVENT_LOG, Log::LISTENER_LOG}) {
        const auto tail = Log::QueryLog(Log::AddLogReceiver(type), type);
        ASSERT_EQ(tail.size(), 20U);
        EXPECT_THAT(tail.front(), EndsWith("] line 11"));
        EXPECT_THAT(tail.back(), EndsWith("] line 30"));
    }
}

TEST(LogReceivers, QueryEmptiesTheList) {
    LogLines log;
    const int id = Log::AddLogReceiver(Log::EVENT_LOG);
    LogWrite(2) << "one" << std::endl;
    ASSERT_TRUE(log.Wait("one"));
    log.All();
    EXPECT_THAT(Log::QueryLog(id, Log::EVENT_LOG), testing::Contains(EndsWith("] one")));
    EXPECT_THAT(Log::QueryLog(id, Log::EVENT_LOG), IsEmpty());
}

TEST(LogReceivers, CountTheLinesTheyAreGiven) {
    LogLines log;
    log.All();
    const std::uint64_t before = Log::LinesWritten();
    LogWrite(2) << "one" << std::endl;
    log.All(); // writes a line as well
    EXPECT_EQ(Log::LinesWritten(), before + 2);
}

TEST(LogReceivers, TellWhetherAQueryWouldBringLines) {
    LogLines log;
    const int id = Log::AddLogReceiver(Log::EVENT_LOG);
    log.All();
    Log::QueryLog(id, Log::EVENT_LOG);
    EXPECT_FALSE(Log::HasLines(id, Log::EVENT_LOG));
    LogWrite(2) << "one" << std::endl;
    log.All();
    EXPECT_TRUE(Log::HasLines(id, Log::EVENT_LOG));
    EXPECT_TRUE(Log::HasLines(id, Log::EVENT_LOG));
    Log::QueryLog(id, Log::EVENT_LOG);
    EXPECT_FALSE(Log::HasLines(id, Log::EVENT_LOG));
    EXPECT_THROW(Log::HasLines(id + 1, Log::EVENT_LOG), std::out_of_range);
}

TEST(LogReceivers, OfTheListenerLogGetNothingAfterTheTail) {
    LogLines log;
    const int id = Log::AddLogReceiver(Log::LISTENER_LOG);
    Log::QueryLog(id, Log::LISTENER_LOG);
    LogWrite(2) << "one" << std::endl;
    Log::LogReceiver({});
    log.All();
    EXPECT_THAT(Log::QueryLog(id, Log::LISTENER_LOG), IsEmpty());
}

TEST(LogMemory, CountsUpAndDown) {
    EXPECT_EQ(Log::Memory(0), 0);
    EXPECT_EQ(Log::Memory(300), 300);
    EXPECT_EQ(Log::Memory(-100), 200);
    EXPECT_EQ(Log::Memory(0), 200);
}

TEST(LogEscape, QuotesAreDoubled) {
    EXPECT_EQ(Log::w3c_escape_quote("a\"b"), "a\"\"b");
    EXPECT_EQ(Log::w3c_escape_quote("\"\""), "\"\"\"\"");
    EXPECT_EQ(Log::w3c_escape_quote(""), "");
}

TEST_F(LogTest, LineIsTheLocalTimeOfTheStatementAndTheText) {
    setenv("TZ", "XYZ-1", 1);
    tzset();
    Clock::Hold(MOMENT);
    Log::SetFile("e.log", "w.log");
    Clock::Advance(28);
    LogWrite(2) << "text of the message" << std::endl;
    Clock::Advance(1000);
    Log::Stop();
    EXPECT_THAT(directory.Read("e.log"), EndsWith("\n[11/15/2026@04:56:10] text of the message\n"));
}

TEST_F(LogTest, FoldedRepeatsBearTheTimeOfTheNewMessage) {
    Clock::Hold(MOMENT);
    Log::SetFile("e.log", "w.log");
    LogWrite(2) << "a" << std::endl;
    LogWrite(2) << "a" << std::endl;
    Clock::Advance(28);
    LogWrite(2) << "b" << std::endl;
    Log::Stop();
    EXPECT_EQ(directory.Read("e.log"), pid_line() + "[11/15/2026@03:55:42] a\n"
                                                    "[11/15/2026@03:56:10] Last message repeated 1 "
                                                    "times\n[11/15/2026@03:56:10] b\n");
}

TEST_F(LogTest, StatementsBeforeTheThreadAreWrittenWithThePathsOfTheSettings) {
    testing::internal::CaptureStdout();
    Log::Init("early.log");
    LogWrite(2) << "early" << std::endl;
    EXPECT_FALSE(Log::IsRunning());
    Log::SetFile("e.log", "w.log");
    Log::Stop();
    testing::internal::GetCapturedStdout();
    EXPECT_THAT(directory.Read("e.log"), HasSubstr("] early\n"));
    EXPECT_FALSE(directory.Has("early.log"));
}

TEST_F(LogTest, EmptyPathsLeaveWhatWasThere) {
    testing::internal::CaptureStdout();
    Log::Init("early.log");
    Log::SetFile("", "");
    Log::Stop();
    testing::internal::GetCapturedStdout();
    EXPECT_THAT(directory.Read("early.log"), HasSubstr("] PID: "));
}

TEST_F(LogTest, ThreadRunsFromTheFirstSetFileUntilTheStop) {
    Log::SetFile("0", "0");
    Log::SetFile("0", "0");
    for (int look = 0; look < 1000 && !Log::IsRunning(); ++look)
        std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(Log::IsRunning());
    Log::Stop();
    EXPECT_FALSE(Log::IsRunning());
}

TEST_F(LogTest, RecordsAreWrittenWithTheTimeOfTheirQueueing) {
    Clock::Hold(MOMENT);
    Log::LogReceiver({});
    Clock::Advance(86400);
    Log::SetFile("0", "w.log");
    Log::Stop();
    EXPECT_THAT(directory.Read("w.log"), HasSubstr("\n#Date: 2026-11-15 03:55:42\n"));
    EXPECT_THAT(directory.Read("w.log"), HasSubstr("\n2026-11-15 03:55:42     -"));
}

TEST_F(LogTest, RecordsAreDroppedWhileTheirFileIsOff) {
    LogLines log;
    Log::LogReceiver({});
    LogWrite(2) << "first look" << std::endl;
    ASSERT_TRUE(log.Wait("first look"));
    LogWrite(2) << "second look" << std::endl; // the records of the first are gone by now
    ASSERT_TRUE(log.Wait("second look"));
    Log::SetFile("0", "w.log");
    log.All();
    EXPECT_FALSE(directory.Has("w.log"));
}

TEST_F(LogTest, PidFileHoldsTheNumberAndNoLineEnd) {
    Config::Get("PidFile", false)->SetValue("my.pid");
    Log::SetFile("0", "0");
    EXPECT_EQ(directory.Read("my.pid"), std::to_string(getpid()));
}

TEST_F(LogTest, PidFileOfTheDefaultName) {
    Config::Get("PidFile", false)->SetValue("");
    Log::SetFile("0", "0");
    EXPECT_EQ(directory.Read("quillwave.pid"), std::to_string(getpid()));
}

TEST_F(LogTest, PidFileZeroCreatesNothing) {
    Log::SetFile("0", "0");
    Log::Stop();
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path("")));
}

TEST_F(LogTest, PidFileThatCannotBeOpenedIsSilent) {
    Clock::Hold(MOMENT);
    Config::Get("PidFile", false)->SetValue("missing/my.pid");
    Log::SetFile("e.log", "w.log");
    Log::Stop();
    EXPECT_EQ(directory.Read("e.log"), pid_line());
}

TEST_F(Console, BannerNamesTheProductBetweenTwoFrames) {
    testing::internal::CaptureStdout();
    Log::Init("e.log");
    const std::string banner = testing::internal::GetCapturedStdout();
    const std::string frame = "/**************************************************/\n";
    ASSERT_EQ(frame.size(), 53U);
    EXPECT_THAT(banner, StartsWith(frame + "/** Quillwave Distributed Network Multimedia "
                                           "Server/1.0.2 evergreen (Linux 64-bit)\n"));
    EXPECT_THAT(banner, EndsWith("\n" + frame + "\n"));
}

TEST_F(Console, ScreenLogShowsEveryLine) {
    Clock::Hold(MOMENT);
    Config::Get("ScreenLog", false)->SetValue(true);
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    LogWrite(2) << "text" << std::endl;
    Log::Stop();
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Event Log:\n\r[11/15/2026@03:55:42] PID: " + pid +
                  "\n\r[11/15/2026@03:55:42] text\nLogging Thread shutting down\n");
}

TEST_F(Console, NothingButTheEndIsShownWithScreenLogOff) {
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    LogWrite(2) << "text" << std::endl;
    Log::Stop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Logging Thread shutting down\n");
}

TEST_F(Console, ScreenLogCountsAtOnceWhenItChanges) {
    LogLines log;
    LogWrite(2) << "unseen" << std::endl;
    ASSERT_TRUE(log.Wait("unseen"));
    testing::internal::CaptureStdout();
    Config::Get("ScreenLog", false)->SetValue(true);
    LogWrite(2) << "seen" << std::endl;
    ASSERT_TRUE(log.Wait("seen"));
    log.All();
    const std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_THAT(shown, HasSubstr("] seen\n"));
    EXPECT_THAT(shown, Not(HasSubstr("unseen")));
}

TEST_F(Console, NoStatusIsDrawnBeforeTheMountsAreRead) {
    Config::Get("RealtimeLog", false)->SetValue(true);
    ASSERT_FALSE(MountList::Ready());
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    std::this_thread::sleep_for(100ms);
    Log::Stop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Logging Thread shutting down\n");
}

TEST_F(Console, StatusLineIsDrawnOverItself) {
    MountList::Init();
    Config::Get("RealtimeLog", false)->SetValue(true);
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    std::this_thread::sleep_for(2s);
    Log::Stop();
    const std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_THAT(shown, StartsWith("\r<Status> Sources: 0 Nodes: 0 (Unique: 0) Tx: <->\r"));
    EXPECT_THAT(shown, HasSubstr("\r<Status> Sources: 0 Nodes: 0 (Unique: 0) Tx: 0 bps<->0 bps\r"));
}

TEST_F(Console, PromptTakesThePlaceOfTheStatusLineWhilePaused) {
    MountList::Init();
    Config::Get("RealtimeLog", false)->SetValue(true);
    Config::Get("ScreenLog", false)->SetValue(true);
    Log::Pause(true, "Sure?");
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    std::this_thread::sleep_for(300ms);
    Log::Pause(false, "");
    std::this_thread::sleep_for(300ms);
    Log::Pause(true, "Sure?");
    std::this_thread::sleep_for(300ms);
    Log::Stop();
    const std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_THAT(shown, HasSubstr("\rSure?\rSure?"));
    EXPECT_THAT(shown, HasSubstr("\rSure?\r<Status> "));
    EXPECT_THAT(shown,
                testing::ContainsRegex("\rSure\\? {43,}\rSure\\?\r")); // wipes the status out
}

TEST_F(Console, NothingIsDrawnWhilePausedWithoutAMessage) {
    MountList::Init();
    Config::Get("RealtimeLog", false)->SetValue(true);
    Log::Pause(true, "");
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    std::this_thread::sleep_for(300ms);
    Log::Stop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Logging Thread shutting down\n");
}

TEST_F(Console, LineWipesOutTheStatusLineBeforeIt) {
    Clock::Hold(MOMENT);
    MountList::Init();
    Config::Get("RealtimeLog", false)->SetValue(true);
    Config::Get("ScreenLog", false)->SetValue(true);
    testing::internal::CaptureStdout();
    Log::SetFile("0", "0");
    std::this_thread::sleep_for(300ms);
    LogWrite(2) << "x" << std::endl;
    Log::Stop();
    const std::string status = "<Status> Sources: 0 Nodes: 0 (Unique: 0) Tx: <->";
    const std::string line = "[11/15/2026@03:55:42] x";
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                HasSubstr("\r" + line + std::string(status.size() + 1 - line.size(), ' ') + "\n"));
}

TEST(LogThreads, EveryLineOfManyThreadsArrives) {
    LogLines log;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 4; ++writer) {
        threads.emplace_back([writer] {
            for (int line = 0; line < 200; ++line)
                LogWrite(2) << "writer " << writer << " line " << line << std::endl;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(log.All().size(), 800U);
}
