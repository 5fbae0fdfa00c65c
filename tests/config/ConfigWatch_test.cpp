#include "config/ConfigWatch.h"

#include "config/ConfigNode.h"
#include "core/Clock.h"
#include "core/Log.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace {

using std::chrono::milliseconds;

class ConfigWatchTest : public testing::Test {
protected:
    ConfigWatchTest() { Clock::Hold(1000); }

    void change() { watch.OnConfigNodeChanged(std::make_shared<ConfigNode>("Key", ""), ""); }
    bool saves_reach(int count, milliseconds within = milliseconds(5000)) {
        const auto end = std::chrono::steady_clock::now() + within;
        while (saves < count && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(milliseconds(5));
        return saves >= count;
    }

    std::atomic<int> saves{0};
    std::function<void()> during_save;
    ConfigWatch watch{[this] {
        ++saves;
        if (during_save) during_save();
    }};
};

} // namespace

TEST_F(ConfigWatchTest, SavesOnceWhenMoreThanFiveSecondsPassedSinceTheLastChange) {
    change();
    Clock::Advance(5);
    change();
    Clock::Advance(5);
    EXPECT_FALSE(saves_reach(1, milliseconds(1200)));
    Clock::Advance(1);
    EXPECT_TRUE(saves_reach(1));
    EXPECT_FALSE(saves_reach(2, milliseconds(1200)));
}

TEST_F(ConfigWatchTest, EveryRunOfChangesHasItsSave) {
    change();
    Clock::Advance(6);
    ASSERT_TRUE(saves_reach(1));
    change();
    Clock::Advance(6);
    EXPECT_TRUE(saves_reach(2));
}

TEST_F(ConfigWatchTest, ChangeDuringASaveIsSavedToo) {
    during_save = [this] {
        if (saves == 1) change();
    };
    change();
    Clock::Advance(6);
    ASSERT_TRUE(saves_reach(1));
    Clock::Advance(6);
    EXPECT_TRUE(saves_reach(2));
}

TEST_F(ConfigWatchTest, FlushSavesAtOnceWhatIsPending) {
    change();
    watch.Flush();
    EXPECT_EQ(saves, 1);
}

TEST_F(ConfigWatchTest, FlushWithoutAChangeSavesNothing) {
    watch.Flush();
    EXPECT_EQ(saves, 0);
    change();
    Clock::Advance(6);
    ASSERT_TRUE(saves_reach(1));
    watch.Flush();
    EXPECT_EQ(saves, 1);
}

TEST_F(ConfigWatchTest, WatchesOnAfterAFlush) {
    change();
    watch.Flush();
    change();
    EXPECT_FALSE(saves_reach(2, milliseconds(100)));
    Clock::Advance(6);
    EXPECT_TRUE(saves_reach(2));
}

TEST_F(ConfigWatchTest, ChangesOfManyThreadsStartOneTimer) {
    std::vector<std::thread> changers;
    for (int i = 0; i < 4; ++i)
        changers.emplace_back([this] {
            for (int j = 0; j < 100; ++j)
                change();
        });
    for (auto& changer : changers)
        changer.join();
    watch.Flush();
    EXPECT_EQ(saves, 1);
}

TEST_F(ConfigWatchTest, DebugTakesEffectAsALiveChange) {
    const auto debug = std::make_shared<ConfigNode>("DEBUG", "");
    debug->SetValue("yes");
    EXPECT_FALSE(watch.OnConfigNodeChanged(debug, ""));
    EXPECT_EQ(Log::GetLevel(), Log::DETAIL);
    debug->SetValue("");
    watch.OnConfigNodeChanged(debug, "yes");
    EXPECT_EQ(Log::GetLevel(), Log::NORMAL);
}
