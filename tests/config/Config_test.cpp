#include "config/Config.h"

#include "config/ConfigNodeListener.h"
#include "core/Clock.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/LogLines.h"
#include "support/SettingsTree.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

bool comes_true(const std::function<bool()>& condition) {
    for (int look = 0; look < 500; ++look) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

std::string not_loaded(const std::string& path) {
    return "WARNING: " + path +
           " could not be loaded. Please Configure via your web browser or provide a path to a "
           "configuration file if "
           "quillwave.conf is not located in the current working directory.";
}

} // namespace

TEST(Config, RootIsThereBeforeAnythingElse) {
    const auto root = Config::GetRoot();
    EXPECT_EQ(root->GetId(), 0U);
    EXPECT_EQ(root->GetKey(true), "globalnode");
    EXPECT_EQ(root->GetFriendlyName(), "Global Node");
    EXPECT_EQ(root->GetChild("Default", false)->GetFriendlyName(), "Defaults");
    EXPECT_EQ(root->GetChild("Source", false)->GetFriendlyName(), "Sources");
    EXPECT_EQ(Config::Get("ClientTimeout", false)->GetValue(30), 30);
}

TEST(Config, KnownKeysAreEighteenInTheirOrder) {
    EXPECT_THAT(Config::GetKnownConfigKeys(),
                ElementsAre("ClientTimeout", "Debug", "Hostname", "LogFile", "MimeFile",
                            "NameLookups", "PidFile", "PortBase", "RealtimeLog", "ScreenLog",
                            "ServIP", "SocketTimeout", "SrcIP", "ThreadPool", "WebLog", "YPLog",
                            "UploadLimit", "MaxRequestBufferSize"));
}

TEST(Config, NodeIdsCountUp) {
    const auto first = Config::GetNewNodeId();
    EXPECT_EQ(Config::GetNewNodeId(), first + 1);
}

TEST(Config, TranslatesFiveWordsInAnyCase) {
    const auto translated = [](std::string text) {
        return Config::translate(text) ? text : text + " stays";
    };
    EXPECT_EQ(translated("Yes"), "1");
    EXPECT_EQ(translated("TRUE"), "1");
    EXPECT_EQ(translated("none"), "0");
    EXPECT_EQ(translated("No"), "0");
    EXPECT_EQ(translated("false"), "0");
    EXPECT_EQ(translated("1"), "1 stays");
    EXPECT_EQ(translated("On"), "On stays");
    EXPECT_EQ(translated(""), " stays");
}

TEST(Config, LoadSourceIsOneOnceAFileWasOpened) {
    const TemporaryDirectory folder;
    EXPECT_EQ(Config::GetLoadSource(), 0);
    EXPECT_FALSE(Config::LoadQuillwave(folder.Path("none.conf")));
    EXPECT_EQ(Config::GetLoadSource(), 0);
    folder.Write("some.conf", "A=1\n");
    EXPECT_TRUE(Config::LoadQuillwave(folder.Path("some.conf")));
    EXPECT_EQ(Config::GetLoadSource(), 1);
}

TEST(Config, InitLoadsTheFileOfItsPath) {
    LogLines log;
    const TemporaryDirectory folder;
    folder.Write("q.conf", "PortBase=1\nPortBase=2\nSourceMount1=/a\n");
    EXPECT_TRUE(Config::Init(folder.Path("q.conf")));
    EXPECT_THAT(Config::GetAll("portbase"), testing::SizeIs(2));
    EXPECT_THAT(log.All(), ElementsAre("Configuration loaded from " + folder.Path("q.conf")));
}

TEST(Config, EmptyPathIsTheFileInTheWorkingDirectory) {
    const TemporaryDirectory folder;
    folder.Write("quillwave.conf", "Hostname=here\n");
    std::filesystem::current_path(folder.Path(""));
    EXPECT_TRUE(Config::Init(""));
    EXPECT_EQ(Config::Get("Hostname", false)->GetValue(""), "here");
}

TEST(Config, MissingFileIsMadeByTheFirstChange) {
    LogLines log;
    const TemporaryDirectory folder;
    Clock::Hold(1000);
    EXPECT_FALSE(Config::Init(folder.Path("q.conf")));
    EXPECT_THAT(log.All(), ElementsAre(not_loaded(folder.Path("q.conf"))));
    Config::Get("Hostname", true)->SetValue("here");
    Clock::Advance(6);
    EXPECT_TRUE(comes_true([&] { return folder.Has("q.conf"); }));
    EXPECT_THAT(folder.Read("q.conf"), HasSubstr("Hostname=here\n"));
    struct stat found {};
    ASSERT_EQ(stat(folder.Path("q.conf").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0600U);
    Config::SavePending();
}

TEST(Config, PendingSaveIsDoneAtTheEndAndNoneWithoutAChange) {
    const TemporaryDirectory folder;
    folder.Write("q.conf", "A=1\n");
    Config::Init(folder.Path("q.conf"));
    folder.Write("q.conf", "; by hand\nA=1\n");
    Config::SavePending();
    EXPECT_EQ(folder.Read("q.conf"), "; by hand\nA=1\n");

    Config::Init("");
    Config::Get("A", false)->SetValue("2");
    Config::SavePending();
    EXPECT_EQ(folder.Read("q.conf"), "; by hand\nA=2\n");
}

TEST(Config, ReloadSavesWhatIsPendingFirstAndIsNotEchoed) {
    LogLines log;
    const TemporaryDirectory folder;
    Clock::Hold(1000);
    folder.Write("q.conf", "A=1\nB=1\n");
    Config::Init(folder.Path("q.conf"));
    Config::Get("A", false)->SetValue("2");
    Config::Reload();
    EXPECT_EQ(Config::Get("A", false)->GetValue(0), 2);
    folder.Write("q.conf", "A=3\nB=1\n");
    Config::Reload();
    Clock::Advance(60);
    Config::SavePending();
    const std::string path = folder.Path("q.conf");
    EXPECT_THAT(log.All(),
                ElementsAre("Configuration loaded from " + path, "Configuration saved to " + path,
                            "Configuration reload started", "Configuration loaded from " + path,
                            "Configuration reload started", "Configuration loaded from " + path));
    EXPECT_EQ(Config::Get("A", false)->GetValue(0), 3);
}

TEST(Config, ReloadIsWatchedAgainAfterwards) {
    const TemporaryDirectory folder;
    folder.Write("q.conf", "A=1\n");
    Config::Init(folder.Path("q.conf"));
    Config::Reload();
    Config::Get("A", false)->SetValue("2");
    Config::SavePending();
    EXPECT_EQ(folder.Read("q.conf"), "A=2\n");
}

TEST(Config, DebugInTheFileDoesNotRaiseTheLevel) {
    const TemporaryDirectory folder;
    folder.Write("q.conf", "Debug=1\n");
    Config::Init(folder.Path("q.conf"));
    EXPECT_EQ(Log::GetLevel(), Log::NORMAL);
    Config::Reload();
    EXPECT_EQ(Log::GetLevel(), Log::NORMAL);
    Config::Get("Debug", false)->SetValue("yes");
    EXPECT_EQ(Log::GetLevel(), Log::DETAIL);
    Config::SavePending();
}

TEST(Config, SaveRoundTripsThroughIncludedFiles) {
    const TemporaryDirectory folder;
    folder.Write("more.conf", "; more\nB=2\n");
    folder.Write("q.conf", "A=1\ninclude=" + folder.Path("more.conf") + "\n");
    Config::Init(folder.Path("q.conf"));
    Config::Get("B", false)->SetValue("3");
    Config::Get("C", true)->SetValue("4");
    Config::Save();
    EXPECT_EQ(folder.Read("more.conf"), "; more\nB=3\n");
    EXPECT_EQ(folder.Read("q.conf"), "A=1\ninclude=" + folder.Path("more.conf") + "\nC=4\n");
    Config::SavePending();
}

TEST(Config, FileReachedByTwoNamesIncludesItselfOnce) {
    const TemporaryDirectory folder;
    std::filesystem::create_symlink("q.conf", folder.Path("alias.conf"));
    folder.Write("q.conf", "A=1\ninclude=" + folder.Path("alias.conf") + "\n");
    EXPECT_TRUE(Config::LoadQuillwave(folder.Path("q.conf")));
    EXPECT_THAT(Config::GetAll("A"), testing::SizeIs(1));
}

TEST(Config, UnreadableFileIsNotReplaced) {
    LogLines log;
    const TemporaryDirectory folder;
    std::filesystem::create_directory(folder.Path("q.conf"));
    EXPECT_FALSE(Config::SaveQuillwave(folder.Path("q.conf"), SettingsOf("A=1\n")));
    EXPECT_THAT(log.All(),
                ElementsAre("WARNING: " + folder.Path("q.conf") + " could not be saved"));
}

TEST(Config, IncludeOfAFolderIsPassedOverAndDoesNotKeepFromSaving) {
    const TemporaryDirectory folder;
    std::filesystem::create_directory(folder.Path("conf.d"));
    const std::string text =
        "include=" + folder.Path("conf.d") + "\ninclude=" + folder.Path("q.conf/more") + "\nA=1\n";
    folder.Write("q.conf", text);
    EXPECT_TRUE(Config::SaveQuillwave(folder.Path("q.conf"), SettingsOf("A=1\nB=2\n")));
    EXPECT_EQ(folder.Read("q.conf"), text + "B=2\n");
}

TEST(Config, FileThatCannotBeWrittenIsLoggedAndTheTreeStays) {
    LogLines log;
    const TemporaryDirectory folder;
    const std::string path = folder.Path("none/q.conf");
    const auto root = SettingsOf("A=1\n");
    EXPECT_FALSE(Config::SaveQuillwave(path, root));
    EXPECT_THAT(log.All(), ElementsAre("WARNING: " + path + " could not be saved",
                                       "Configuration saved to " + path));
    EXPECT_EQ(root->GetChild("A", false)->GetValue(0), 1);
}

TEST(Config, ReadersGoOnDuringReloadsAndSaves) {
    const TemporaryDirectory folder;
    folder.Write("q.conf", "A=1\nSourceMount1=/a\nSourceName1=A\n");
    Config::Init(folder.Path("q.conf"));
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            Config::Get("A", false)->GetValue(0);
            Config::GetAll("A");
            MountSettings(Config::GetRoot(), "1")->GetChild("Name", false)->GetValue("");
        }
    });
    std::thread saver([] {
        for (int i = 0; i < 20; ++i)
            Config::Save();
    });
    std::thread changer([] {
        for (int i = 0; i < 200; ++i)
            Config::Get("Changing", true)->SetValue(i % 3 == 0 ? std::string() : "x");
    });
    for (int i = 0; i < 20; ++i)
        Config::Reload();
    saver.join();
    changer.join();
    done = true;
    reader.join();
    Config::SavePending();
    EXPECT_EQ(Config::Get("A", false)->GetValue(0), 1);
}

TEST(Config, MountWhoseSectionLeftTheFileIsRemoved) {
    const TemporaryDirectory folder;
    folder.Write("q.conf", "SourceMount1=/a\nSourceMount2=/b\nSourceName2=B\n");
    Config::Init(folder.Path("q.conf"));
    MountList::Init();
    ASSERT_NE(MountList::GetMount(2), nullptr);
    folder.Write("q.conf", "SourceMount1=/a\n");
    Config::Reload();
    EXPECT_EQ(MountList::GetMount(2), nullptr);
    EXPECT_NE(MountList::GetMount(1), nullptr);
    EXPECT_TRUE(Lines(MountSettings(Config::GetRoot(), "2")).empty());
    MountList::SignalStop();
    MountList::WaitForStop();
    Config::SavePending();
}
