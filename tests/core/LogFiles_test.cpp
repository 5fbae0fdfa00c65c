#include "core/LogFiles.h"

#include "core/Clock.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

constexpr time_t MOMENT = 1794714942; // 2026-11-15 03:55:42 UTC

class LogFilesTest : public testing::Test {
protected:
    LogFilesTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        Clock::Hold(MOMENT);
        std::filesystem::current_path(directory.Path(""));
    }
    ~LogFilesTest() override { std::filesystem::current_path("/"); }

    TemporaryDirectory directory;
};

Log::ReceiverStats full_stats() {
    Log::ReceiverStats stats;
    stats.s_ip = "10.0.0.1";
    stats.s_dns = "radio.example";
    stats.c_ip = "10.0.0.2";
    stats.c_dns = "peer.example";
    stats.cs_username = "ann";
    stats.cs_method = "\x02";
    stats.cs_uri_stem = "/live";
    stats.cs_uri_query = "a=b";
    stats.connected = 99;
    stats.sc_status = 200;
    stats.sc_bytes = 12345678901ULL;
    stats.time_taken = 12.5;
    stats.cs_version = "HTTP/1.1";
    stats.cs_user_agent = "mpv 0.35";
    stats.x_metatitle = "Artist - Song";
    return stats;
}

const char* const HEADER =
    "#Software:  Quillwave Distributed Network Media Server 1.0.2 evergreen\n"
    "#Version: 1.0\n"
    "#Date: 2026-11-15 03:55:42\n"
    "#Fields: date time s-ip s-dns c-ip c-dns cs-username cs-method cs-uri-stem cs-uri-query "
    "sc-status sc-bytes time-taken cs-version cs(User-Agent) x-metatitle\n";

const char* const FULL_LINE =
    "2026-11-15 03:55:42 10.0.0.1 radio.example 10.0.0.2 peer.example ann \x02 /live a=b 200 "
    "12345678901 12.500000 \"HTTP/1.1\" \"mpv 0.35\" \"Artist - Song\"\n";

} // namespace

TEST(LogRecord, FieldsInTheirOrder) { EXPECT_EQ(record_line(MOMENT, full_stats()), FULL_LINE); }

TEST(LogRecord, EmptyFieldsAreDashesAndAnEmptyVersionIsTwoQuotes) {
    EXPECT_EQ(record_line(MOMENT, {}), "2026-11-15 03:55:42     -   - 0 0 0.000000 \"\" - -\n");
}

TEST(LogRecord, QuotesAreDoubledInAgentAndTitle) {
    Log::ReceiverStats stats;
    stats.cs_user_agent = "a\"b";
    stats.x_metatitle = "\"Song\"";
    EXPECT_TRUE(record_line(MOMENT, stats).ends_with("\"\" \"a\"\"b\" \"\"\"Song\"\"\"\n"));
}

TEST(LogRecord, VersionIsQuotedAsItStands) {
    Log::ReceiverStats stats;
    stats.cs_version = "a\"b";
    EXPECT_TRUE(record_line(MOMENT, stats).ends_with(" \"a\"b\" - -\n"));
}

TEST(LogRecord, ControlBytesOfAPeerAreBlanksAndTheMethodStays) {
    Log::ReceiverStats stats = full_stats();
    stats.cs_username = "a\nb";
    stats.cs_method = "\x09";
    stats.x_metatitle = std::string("x\0y\x7Fz", 5);
    const std::string line = record_line(MOMENT, stats);
    EXPECT_NE(line.find(" a b \x09 /live "), std::string::npos);
    EXPECT_TRUE(line.ends_with(" \"x y z\"\n"));
}

TEST(LogText, ControlBytesBecomeBlanks) {
    EXPECT_EQ(log_text(std::string("\0a\tb\r\nc\x1F\x7F", 9)), " a b  c  ");
    EXPECT_EQ(log_text("\x80\xC3\xA9 ~"), "\x80\xC3\xA9 ~");
}

TEST(LogFilePath, AnyZeroSwitchesItOff) {
    EXPECT_FALSE(is_file_on(""));
    EXPECT_FALSE(is_file_on("0"));
    EXPECT_FALSE(is_file_on("logs/2010/a.log"));
    EXPECT_TRUE(is_file_on("logs/%Y-%m/server.log"));
}

TEST_F(LogFilesTest, EventsAreAppended) {
    append_event("a.log", "one");
    append_event("a.log", "two");
    EXPECT_EQ(directory.Read("a.log"), "one\ntwo\n");
}

TEST_F(LogFilesTest, FileMayBeMovedAwayBetweenLines) {
    append_event("a.log", "one");
    std::filesystem::rename("a.log", "b.log");
    append_event("a.log", "two");
    EXPECT_EQ(directory.Read("b.log"), "one\n");
    EXPECT_EQ(directory.Read("a.log"), "two\n");
}

TEST_F(LogFilesTest, FileThatIsOffIsNotMade) {
    append_event("a0.log", "one");
    append_record("a0.log", MOMENT, {});
    EXPECT_FALSE(directory.Has("a0.log"));
}

TEST_F(LogFilesTest, DatedPathMakesTheDirectoryOfTheMonth) {
    append_event("logs/%Y-%m/server.log", "one");
    Clock::Hold(MOMENT + 30L * 86400);
    append_event("logs/%Y-%m/server.log", "two");
    EXPECT_EQ(directory.Read("logs/2026-11/server.log"), "one\n");
    EXPECT_EQ(directory.Read("logs/2026-12/server.log"), "two\n");
}

TEST_F(LogFilesTest, EventPathIsDatedInLocalTimeAndRecordPathInUtc) {
    setenv("TZ", "XYZ-9", 1); // nine hours east
    tzset();
    append_event("e%H.log", "one");
    append_record("w%H.log", MOMENT, {});
    EXPECT_TRUE(directory.Has("e12.log"));
    EXPECT_TRUE(directory.Has("w03.log"));
}

TEST_F(LogFilesTest, BackslashesDivideDirectoriesToo) {
    append_event("a\\b\\c.log", "one");
    EXPECT_TRUE(std::filesystem::is_directory("a"));
    EXPECT_TRUE(std::filesystem::is_directory("a\\b"));
    EXPECT_EQ(directory.Read("a\\b\\c.log"), "one\n");
}

TEST_F(LogFilesTest, DatedPathOf128BytesLosesTheLine) {
    const std::string fits = "%Y" + std::string(123, 'a');
    append_event(fits, "one");
    append_event(fits + "a", "one");
    EXPECT_TRUE(directory.Has("2026" + std::string(123, 'a')));
    EXPECT_FALSE(directory.Has("2026" + std::string(124, 'a')));
    append_event(std::string(150, 'b'), "one");
    EXPECT_TRUE(directory.Has(std::string(150, 'b')));
}

TEST_F(LogFilesTest, FileThatCannotBeOpenedLosesTheLineOnly) {
    std::filesystem::create_directory("a.log");
    append_event("a.log", "one");
    append_record("a.log", MOMENT, {});
    std::filesystem::remove("a.log");
    append_event("a.log", "two");
    EXPECT_EQ(directory.Read("a.log"), "two\n");
}

TEST_F(LogFilesTest, NewOrEmptyRecordFileBeginsWithTheHeader) {
    append_record("w.log", MOMENT, full_stats());
    append_record("w.log", MOMENT, full_stats());
    EXPECT_EQ(directory.Read("w.log"), std::string(HEADER) + FULL_LINE + FULL_LINE);
    directory.Write("empty.log", "");
    append_record("empty.log", MOMENT, full_stats());
    EXPECT_EQ(directory.Read("empty.log"), std::string(HEADER) + FULL_LINE);
    directory.Write("used.log", "x\n");
    append_record("used.log", MOMENT, full_stats());
    EXPECT_EQ(directory.Read("used.log"), std::string("x\n") + FULL_LINE);
}

TEST_F(LogFilesTest, EachDatedRecordFileHasItsHeader) {
    append_record("%d.log", MOMENT, full_stats());
    Clock::Advance(86400);
    append_record("%d.log", MOMENT, full_stats());
    EXPECT_EQ(directory.Read("15.log"), std::string(HEADER) + FULL_LINE);
    EXPECT_EQ(directory.Read("16.log"), std::string(HEADER) + FULL_LINE);
}

TEST_F(LogFilesTest, NewFilesAreNotForEverybodyToWrite) {
    const mode_t before = umask(0);
    append_event("a.log", "one");
    replace_file("a.pid", "1");
    umask(before);
    EXPECT_EQ(std::filesystem::status("a.log").permissions(), std::filesystem::perms(0644));
    EXPECT_EQ(std::filesystem::status("a.pid").permissions(), std::filesystem::perms(0644));
}

TEST_F(LogFilesTest, ReplacedFileHoldsTheNewTextOnly) {
    directory.Write("a.pid", "123456789");
    replace_file("a.pid", "42");
    EXPECT_EQ(directory.Read("a.pid"), "42");
}
