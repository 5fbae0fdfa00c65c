#include "core/Log.h"
#include "support/LogLines.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

const std::string TAIL = "/admin/tail/log";

struct LogTail : testing::Test {
    LogTail() { make_account("root", "secret", User::ADMINISTRATOR); }

    static void write(const std::string& line) { LogWrite(2) << line << std::endl; }
    // Whether the text comes with the passes of five seconds.
    static bool brings(PanelVisit& visit, const std::string& text) {
        std::string heard;
        return comes_true([&] {
            visit.Pass();
            heard += visit.Hear();
            return holds(heard, text);
        });
    }

    LogLines log; // starts the logging
};

TEST_F(LogTail, BeginsWithTheNewestLinesAndStaysOpen) {
    write("a line of before");
    log.All();
    PanelVisit visit(TAIL, basic("root:secret"));
    EXPECT_EQ(visit.Pass(), WebPanel::IN_PROGRESS);
    const std::string answer = visit.Hear();
    EXPECT_TRUE(answer.starts_with("HTTP/1.0 200 OK\r\n"));
    EXPECT_FALSE(holds(answer, "Content-Type"));
    EXPECT_FALSE(holds(answer, "Content-Length"));
    EXPECT_TRUE(holds(answer, "a line of before\r\n"));
}

TEST_F(LogTail, LaterLinesFollow) {
    PanelVisit visit(TAIL, basic("root:secret"));
    visit.Pass();
    visit.Hear();
    EXPECT_EQ(visit.Pass(), WebPanel::IN_PROGRESS);
    EXPECT_EQ(visit.Hear(), "");
    write("a line of after");
    EXPECT_TRUE(brings(visit, "] a line of after\r\n"));
    EXPECT_EQ(visit.Pass(), WebPanel::IN_PROGRESS);
}

TEST_F(LogTail, EndsWhenTheClientHasGone) {
    PanelVisit visit(TAIL, basic("root:secret"));
    visit.Pass();
    visit.pair.ResetClient();
    EXPECT_TRUE(comes_true([&] {
        write("one more");
        return visit.Pass() == WebPanel::ANSWERED;
    }));
}

TEST_F(LogTail, EndsWithTheRightToIt) {
    PanelVisit visit(TAIL, basic("root:secret"));
    visit.Pass();
    visit.Hear();
    UserList::Get("root", "secret")->SetGroup(User::MOUNT_MANAGER);
    write("not for everybody");
    log.All();
    EXPECT_EQ(visit.Pass(), WebPanel::ANSWERED);
    EXPECT_EQ(visit.Hear(), "");
}

TEST_F(LogTail, EndsWithTheAccount) {
    PanelVisit visit(TAIL, basic("root:secret"));
    visit.Pass();
    UserList::Remove("root");
    EXPECT_EQ(visit.Pass(), WebPanel::ANSWERED);
}

TEST_F(LogTail, AHeadGetsTheHeadAlone) {
    write("a line");
    log.All();
    PanelVisit visit(TAIL, basic("root:secret"), "HEAD");
    EXPECT_EQ(visit.Pass(), WebPanel::ANSWERED);
    EXPECT_TRUE(visit.Hear().ends_with("\r\n\r\n"));
}

// The numbers of readers are handed out again, the lowest first.
TEST_F(LogTail, TheReaderGoesWithThePanel) {
    const auto next_number = [] {
        const int number = Log::AddLogReceiver(Log::EVENT_LOG);
        Log::RemoveLogReceiver(number, Log::EVENT_LOG);
        return number;
    };
    const int before = next_number();
    {
        PanelVisit visit(TAIL, basic("root:secret"));
        visit.Pass();
        EXPECT_EQ(next_number(), before + 1);
    }
    EXPECT_EQ(next_number(), before);
}

TEST_F(LogTail, ThePageShowsItInAFrameThatRunsNoScripts) {
    const std::string page = PanelVisit("/admin/log", basic("root:secret")).Ask();
    EXPECT_TRUE(holds(page, "<title>Quillwave Multimedia Server - Quillwave Administration - Log"));
    EXPECT_TRUE(holds(page, "<h2>Event Log:</h2><iframe id=\"log_window\" src=\"/admin/tail/log\" "
                            "width=\"100%\" height=\"100%\" sandbox=\"allow-same-origin\" "
                            "title=\"Event log\"></iframe>"));
    EXPECT_TRUE(holds(between(page, "<head>", "</head>"), "\"interactive\""));
    const std::string scroll = between(page, "id=\"displayArea\"", "<h2>");
    EXPECT_TRUE(holds(scroll, "function pageScroll()"));
    EXPECT_TRUE(holds(scroll, "scrollTo(0, numUnits * 10)"));
    EXPECT_TRUE(holds(scroll, "setTimeout(pageScroll, 10)"));
}

} // namespace
