#include "core/ThreadPool.h"

#include "config/Config.h"
#include "core/Log.h"
#include "core/ThreadPoolWork.h"
#include "support/LogLines.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <set>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Counts what the pool does with it, and leaves the pool when it is told to.
class CountingWork : public ThreadPoolWork, public std::enable_shared_from_this<CountingWork> {
public:
    void SignalStop() override {
        ++stops;
        if (leaves) ThreadPool::Remove(shared_from_this());
    }
    ThreadPool::Priority Poll(long long length) override {
        elapsed = length;
        ++polls;
        if (on_poll) on_poll();
        return answer.exchange(ThreadPool::NOTHING);
    }
    void Process() override {
        if (on_process) on_process();
        ++slices;
    }

    std::atomic<ThreadPool::Priority> answer{ThreadPool::NOTHING}; // to the next poll
    std::function<void()> on_poll;
    std::function<void()> on_process;
    std::atomic<bool> leaves{true};
    std::atomic<int> polls{0};
    std::atomic<int> slices{0};
    std::atomic<int> stops{0};
    std::atomic<long long> elapsed{0};
};

bool eventually(const std::function<bool()>& holds) {
    for (int look = 0; look < 5000; ++look) {
        if (holds()) return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

std::multiset<std::string> thread_names() {
    std::multiset<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        names.insert(name);
    }
    return names;
}

// A pool of three workers and its log.
class ThreadPoolTest : public testing::Test {
protected:
    ThreadPoolTest() { Config::Get("ThreadPool", true)->SetValue(3); }
    ~ThreadPoolTest() override { ThreadPool::WaitForStop(); }

    static std::shared_ptr<CountingWork> added() {
        auto work = std::make_shared<CountingWork>();
        ThreadPool::Add(work);
        return work;
    }

    LogLines log;
};

} // namespace

TEST(ThreadPoolWork, BaseOperationsAreNotToBeCalled) {
    ThreadPoolWork work;
    const auto text_of = [](auto&& call) -> std::string {
        try {
            call();
        } catch (const std::exception& fault) {
            return fault.what();
        }
        return {};
    };
    EXPECT_EQ(text_of([&] { work.SignalStop(); }),
              "ThreadPoolWork::SignalStop(): This shouldn't be called.");
    EXPECT_EQ(text_of([&] { work.Poll(50); }), "ThreadPoolWork::Poll(): This shouldn't be called.");
    EXPECT_EQ(text_of([&] { work.Process(); }),
              "ThreadPoolWork::Process(): This shouldn't be called.");
}

TEST(ThreadPoolWorkerCount, SettingsFromThreeOnCountUpToSixtyFour) {
    EXPECT_EQ(ThreadPool::WorkerCount(3, 8), 3U);
    EXPECT_EQ(ThreadPool::WorkerCount(64, 8), 64U);
    EXPECT_EQ(ThreadPool::WorkerCount(100, 8), 64U);
}

TEST(ThreadPoolWorkerCount, LessIsTheNumberOfProcessorsOrFour) {
    for (const int setting : {-1, 0, 1, 2}) {
        EXPECT_EQ(ThreadPool::WorkerCount(setting, 1), 4U);
        EXPECT_EQ(ThreadPool::WorkerCount(setting, 2), 4U);
        EXPECT_EQ(ThreadPool::WorkerCount(setting, 3), 3U);
        EXPECT_EQ(ThreadPool::WorkerCount(setting, 128), 128U);
    }
}

TEST_F(ThreadPoolTest, StartsItsThreadsByNameAndSaysHowMany) {
    ThreadPool::Start();
    EXPECT_TRUE(eventually([] { return thread_names().count("ThreadPool Work") == 3; }));
    EXPECT_TRUE(eventually([] { return thread_names().count("ThreadPool Mana") == 1; }));
    EXPECT_TRUE(log.Wait("] Starting thread pool of 3 threads..."));
    ThreadPool::WaitForStop();
    EXPECT_EQ(thread_names().count("ThreadPool Work"), 0U);
}

TEST_F(ThreadPoolTest, WorkIsPolledOncePerCycleWithItsLength) {
    ThreadPool::Start();
    const auto work = added();
    ASSERT_TRUE(eventually([&] { return work->polls > 0; }));
    EXPECT_EQ(work->elapsed, 50);
    const int before = work->polls;
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(eventually([&] { return work->polls >= before + 10; }));
    EXPECT_GE(std::chrono::steady_clock::now() - started, 8 * 50ms) << "ten polls are nine cycles";
}

TEST_F(ThreadPoolTest, WorkAddedBeforeTheStartWaitsForIt) {
    const auto work = added();
    ThreadPool::Start();
    EXPECT_TRUE(eventually([&] { return work->polls > 0; }));
}

TEST_F(ThreadPoolTest, EachPriorityOfAPollGetsOneSlice) {
    ThreadPool::Start();
    const auto work = added();
    for (const auto priority : {ThreadPool::HIGH, ThreadPool::NORMAL, ThreadPool::LOW}) {
        const int before = work->slices;
        work->answer = priority;
        EXPECT_TRUE(eventually([&] { return work->slices == before + 1; }));
    }
    std::this_thread::sleep_for(120ms);
    EXPECT_EQ(work->slices, 3);
}

TEST_F(ThreadPoolTest, NothingToDoLeavesTheWorkInTheListAndInNoQueue) {
    ThreadPool::Start();
    const auto work = added();
    EXPECT_TRUE(eventually([&] { return work->polls >= 3; }));
    EXPECT_EQ(work->slices, 0);
}

TEST_F(ThreadPoolTest, AddWorkGivesASliceWithoutAPoll) {
    ThreadPool::Start();
    const auto work = std::make_shared<CountingWork>();
    ThreadPool::AddWork(work, ThreadPool::NORMAL);
    EXPECT_TRUE(eventually([&] { return work->slices == 1; }));
    EXPECT_EQ(work->polls, 0);
}

TEST_F(ThreadPoolTest, AddWorkIgnoresOtherPriorities) {
    const auto work = std::make_shared<CountingWork>();
    ThreadPool::AddWork(work, ThreadPool::NOTHING);
    ThreadPool::AddWork(work, static_cast<ThreadPool::Priority>(200));
    EXPECT_EQ(work.use_count(), 1);
}

TEST_F(ThreadPoolTest, HighComesBeforeNormalBeforeLow) {
    std::promise<void> gates[3];
    std::atomic<int> closed{0};
    for (std::promise<void>& gate : gates) {
        auto blocker = std::make_shared<CountingWork>();
        blocker->on_process = [&gate, &closed] {
            ++closed;
            gate.get_future().wait();
        };
        ThreadPool::AddWork(blocker, ThreadPool::HIGH);
    }
    ThreadPool::Start();
    ASSERT_TRUE(eventually([&] { return closed == 3; }));

    std::vector<std::string> order; // written by the one worker that is let go
    std::vector<std::shared_ptr<CountingWork>> works;
    const auto queue = [&](const std::string& name, ThreadPool::Priority priority) {
        works.push_back(std::make_shared<CountingWork>());
        works.back()->on_process = [&order, name] { order.push_back(name); };
        ThreadPool::AddWork(works.back(), priority);
    };
    queue("low", ThreadPool::LOW);
    queue("normal", ThreadPool::NORMAL);
    queue("normal behind it", ThreadPool::NORMAL);
    queue("high", ThreadPool::HIGH);
    const auto polled = added(); // by now its poll waits for a worker
    polled->on_poll = [&order, told = false]() mutable {
        if (!told) order.push_back("poll");
        told = true;
    };
    std::this_thread::sleep_for(120ms);

    gates[0].set_value();
    ASSERT_TRUE(eventually([&] { return works.front()->slices == 1; }));
    gates[1].set_value();
    gates[2].set_value();
    ThreadPool::WaitForStop();
    EXPECT_THAT(order, ElementsAre("poll", "high", "normal", "normal behind it", "low"));
}

TEST_F(ThreadPoolTest, SlowCycleIsLoggedAndItsLengthGivenToTheNextPolls) {
    std::promise<long long> next_elapsed;
    const auto work = std::make_shared<CountingWork>();
    work->on_poll = [&next_elapsed, work = work.get()] {
        if (work->polls == 1) std::this_thread::sleep_for(80ms);
        if (work->polls == 2) next_elapsed.set_value(work->elapsed);
    };
    ThreadPool::Add(work);
    ThreadPool::Start();
    const long long elapsed = next_elapsed.get_future().get();
    EXPECT_GE(elapsed, 80);
    EXPECT_TRUE(
        log.Wait("] ThreadPool polling taking too long. Took " + std::to_string(elapsed) + " ms!"));
    EXPECT_TRUE(eventually([&] { return work->polls > 3 && work->elapsed == 50; }));
}

TEST_F(ThreadPoolTest, SliceThatRunsLongDoesNotHoldUpThePolls) {
    std::promise<void> gate;
    const auto blocker = std::make_shared<CountingWork>();
    blocker->on_process = [&gate] { gate.get_future().wait(); };
    ThreadPool::AddWork(blocker, ThreadPool::HIGH);
    ThreadPool::Start();
    const auto work = added();
    EXPECT_TRUE(eventually([&] { return work->polls >= 3; }));
    gate.set_value();
}

TEST_F(ThreadPoolTest, RemovedWorkIsPolledNoMoreAndReleased) {
    ThreadPool::Start();
    auto work = added();
    const std::weak_ptr<CountingWork> watched = work;
    work->on_process = [work = work.get()] { ThreadPool::Remove(work->shared_from_this()); };
    work->answer = ThreadPool::NORMAL;
    work.reset();
    EXPECT_TRUE(eventually([&] { return watched.expired(); }));
}

TEST_F(ThreadPoolTest, OneRemovalTakesOneEntry) {
    ThreadPool::Start();
    const auto work = added();
    ThreadPool::Add(work);
    ThreadPool::Remove(work);
    const auto neighbour = added();
    EXPECT_TRUE(eventually([&] { return neighbour->polls >= 3; }));
    EXPECT_GE(work->polls, 3);
}

TEST_F(ThreadPoolTest, RemovalOfAStrangerIsPassedOver) {
    ThreadPool::Start();
    const auto work = added();
    ThreadPool::Remove(std::make_shared<CountingWork>());
    EXPECT_TRUE(eventually([&] { return work->polls >= 3; }));
}

// The removal may reach the manager ahead of the addition.
TEST_F(ThreadPoolTest, WorkThatLeavesAsSoonAsItCameIsNotKept) {
    ThreadPool::Start();
    const auto witness = added();
    std::atomic<int> alive{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 2; ++caller) {
        callers.emplace_back([&] {
            for (int count = 0; count < 20000 && witness->polls < 20; ++count) {
                const std::shared_ptr<CountingWork> work(new CountingWork, [&alive](auto* gone) {
                    --alive;
                    delete gone;
                });
                ++alive;
                ThreadPool::Add(work);
                ThreadPool::Remove(work);
                if (count % 50 == 0) std::this_thread::sleep_for(1ms);
            }
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_TRUE(eventually([&] { return alive == 0; }));
}

TEST_F(ThreadPoolTest, StopSignalsEveryWorkAndWaitsUntilAllHaveLeft) {
    ThreadPool::Start();
    const auto work = added();
    const auto slow = added();
    slow->leaves = false;
    ASSERT_TRUE(eventually([&] { return work->polls > 0 && slow->polls > 0; }));
    auto stopped = std::async(std::launch::async, ThreadPool::WaitForStop);
    ASSERT_TRUE(eventually([&] { return slow->stops == 1; }));
    const int before = slow->polls;
    ASSERT_TRUE(eventually([&] { return slow->polls >= before + 3; }));
    EXPECT_NE(stopped.wait_for(0s), std::future_status::ready);
    slow->answer = ThreadPool::LOW;
    ASSERT_TRUE(eventually([&] { return slow->slices == 1; })); // it still works while it leaves
    ThreadPool::Remove(slow);
    EXPECT_EQ(stopped.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(work->stops, 1);
    EXPECT_EQ(slow->stops, 1);
    EXPECT_EQ(work.use_count(), 1);
    EXPECT_EQ(slow.use_count(), 1);
}

TEST_F(ThreadPoolTest, WorkAddedAfterTheStopSignalIsIgnored) {
    ThreadPool::SignalStop();
    EXPECT_EQ(added().use_count(), 1);
}

TEST_F(ThreadPoolTest, WorkThatWaitsAtTheStopIsReleasedWithoutASignal) {
    const auto late = std::make_shared<CountingWork>();
    const auto work = std::make_shared<CountingWork>();
    work->on_poll = [&, work = work.get()] {
        if (work->polls > 1) return;
        ThreadPool::Add(late);
        ThreadPool::SignalStop();
    };
    ThreadPool::Add(work);
    ThreadPool::Start();
    ASSERT_TRUE(eventually([&] { return work->stops == 1; }));
    ThreadPool::WaitForStop();
    EXPECT_EQ(late->stops, 0);
    EXPECT_EQ(late->polls, 0);
    EXPECT_EQ(late.use_count(), 1);
}

TEST_F(ThreadPoolTest, StopWithoutWorkEndsSoon) {
    ThreadPool::Start();
    std::this_thread::sleep_for(20ms);
    auto stopped = std::async(std::launch::async, ThreadPool::WaitForStop);
    EXPECT_EQ(stopped.wait_for(5s), std::future_status::ready);
}

TEST_F(ThreadPoolTest, WhatIsQueuedBehindTheEndIsNotKept) {
    ThreadPool::Start();
    ThreadPool::WaitForStop();
    const auto work = std::make_shared<CountingWork>();
    ThreadPool::AddWork(work, ThreadPool::HIGH);
    EXPECT_EQ(work.use_count(), 1);
}

TEST_F(ThreadPoolTest, PoolThatNeverStartedStopsAtOnceAndLetsGoOfItsWork) {
    const auto work = added();
    ThreadPool::AddWork(work, ThreadPool::HIGH);
    ThreadPool::WaitForStop();
    EXPECT_EQ(work.use_count(), 1);
    EXPECT_EQ(work->stops, 0);
}

TEST_F(ThreadPoolTest, EveryWorkOfALongListIsPolledInEachCycle) {
    std::vector<std::shared_ptr<CountingWork>> works;
    for (int count = 0; count < 1000; ++count) {
        works.push_back(std::make_shared<CountingWork>());
        works.back()->answer = static_cast<ThreadPool::Priority>(count % 3);
        ThreadPool::Add(works.back());
    }
    ThreadPool::Start();
    EXPECT_TRUE(eventually([&] {
        return std::all_of(works.begin(), works.end(),
                           [](const auto& work) { return work->slices == 1 && work->polls >= 3; });
    }));
    ThreadPool::WaitForStop();
    const auto [least, most] =
        std::minmax_element(works.begin(), works.end(),
                            [](const auto& a, const auto& b) { return a->polls < b->polls; });
    EXPECT_EQ((*least)->polls, (*most)->polls);
}

TEST_F(ThreadPoolTest, ThreadsAddQueueAndRemoveWhileItRuns) {
    ThreadPool::Start();
    std::atomic<int> slices{0};
    std::vector<std::thread> callers;
    constexpr int EACH = 500;
    for (int caller = 0; caller < 3; ++caller) {
        callers.emplace_back([&slices] {
            for (int count = 0; count < EACH; ++count) {
                auto work = std::make_shared<CountingWork>();
                work->on_process = [&slices, work = work.get()] {
                    ++slices;
                    ThreadPool::Remove(work->shared_from_this());
                };
                ThreadPool::Add(work);
                ThreadPool::AddWork(work, static_cast<ThreadPool::Priority>(count % 3));
            }
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_TRUE(eventually([&] { return slices == 3 * EACH; }));
}
