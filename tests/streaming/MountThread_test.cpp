#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/LogLines.h"
#include "support/Sections.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace {
struct MountThread : testing::Test {
    std::shared_ptr<Mount> mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));
    ~MountThread() override { mount->WaitForStop(); }

    static bool comes_true(const std::function<bool()>& condition) {
        for (int look = 0; look < 5000 && !condition(); ++look)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return condition();
    }
    void disable(const std::string& value) { Set(mount->GetConfigNode(), "Disabled", value); }
};

bool thread_exists(const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string found;
        if (std::getline(comm, found) && found == name) return true;
    }
    return false;
}
} // namespace

TEST_F(MountThread, NothingRunsBeforeTheStart) { EXPECT_FALSE(mount->IsRunning()); }

TEST_F(MountThread, TheThreadIsNamedAfterTheAddress) {
    mount->Start();
    EXPECT_TRUE(comes_true([] { return thread_exists("/live"); }));
}

TEST_F(MountThread, ASecondStartIsLoggedAndChangesNothing) {
    LogLines log;
    mount->Start();
    mount->Start();
    EXPECT_TRUE(log.Wait("Attempting to start duplicate thread on Mount /live"));
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, AWaitingMountStopsAndSaysSo) {
    LogLines log;
    mount->Start();
    mount->WaitForStop();
    EXPECT_FALSE(mount->IsRunning());
    EXPECT_TRUE(log.Wait("Closing Mount /live down"));
}

TEST_F(MountThread, AStoppedMountCanStartAgain) {
    mount->Start();
    mount->WaitForStop();
    mount->Start();
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, SignalStopEndsTheThreadByItself) {
    mount->Start();
    mount->SignalStop();
    EXPECT_TRUE(comes_true([&] { return !mount->IsRunning(); }));
    mount->Start();
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, DisablingEndsTheThreadAndEnablingStartsItAgain) {
    mount->Start();
    disable("1");
    EXPECT_TRUE(comes_true([&] { return !mount->IsRunning(); }));
    disable("");
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, DisabledAndEnabledInARowItGoesOn) {
    mount->Start();
    for (int round = 0; round < 50; ++round) {
        disable("1");
        disable("0");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, ADisabledMountStartsOnceItIsEnabled) {
    disable("1");
    mount->Start();
    EXPECT_FALSE(mount->IsRunning());
    disable("0");
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, EnablingDoesNotStartWhatNobodyStarted) {
    disable("1");
    disable("0");
    EXPECT_FALSE(mount->IsRunning());
}

TEST_F(MountThread, AStopHoldsAgainstEnabling) {
    mount->Start();
    disable("1");
    mount->SignalStop();
    disable("0");
    EXPECT_TRUE(comes_true([&] { return !mount->IsRunning(); }));
    mount->WaitForStop();
    EXPECT_FALSE(mount->IsRunning());
}

TEST_F(MountThread, KicksOfAWaitingMountDoNotEndIt) {
    mount->Start();
    mount->Kick();
    mount->Kick();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(mount->IsRunning());
}

TEST_F(MountThread, AMountThatOnlyItsThreadHoldsIsFreedWithIt) {
    auto other = std::make_shared<Mount>("/other", 2, AddSection("2", {}));
    const std::weak_ptr<Mount> watched = other;
    other->Start();
    other->SignalStop();
    other.reset();
    EXPECT_TRUE(comes_true([&] { return watched.expired(); }));
}
