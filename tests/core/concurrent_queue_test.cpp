#include "core/concurrent_queue.h"

#include <gmock/gmock.h>
#include <memory>
#include <thread>
#include <vector>

TEST(ConcurrentQueue, FirstInFirstOut) {
    concurrent_queue<int> queue;
    queue.push(1);
    queue.push(2);
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(queue.pop(), 1);
    EXPECT_EQ(queue.pop(), 2);
    EXPECT_EQ(queue.pop(), std::nullopt);
    EXPECT_TRUE(queue.empty());
}

TEST(ConcurrentQueue, SwapTakesAllAndLeavesWhatItWasGiven) {
    concurrent_queue<int> queue;
    queue.push(1);
    queue.push(2);
    std::deque<int> other = {7};
    queue.swap(other);
    EXPECT_THAT(other, testing::ElementsAre(1, 2));
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(queue.pop(), 7);
}

TEST(ConcurrentQueue, PopLetsGoOfTheElement) {
    concurrent_queue<std::shared_ptr<int>> queue;
    const auto element = std::make_shared<int>(1);
    queue.push(element);
    queue.pop();
    EXPECT_EQ(element.use_count(), 1);
}

TEST(ConcurrentQueue, ManyThreadsLoseAndDoubleNothing) {
    constexpr long EACH = 20000;
    concurrent_queue<long> queue;
    std::atomic<long> sum{0};
    std::atomic<long> taken{0};
    std::vector<std::thread> threads;
    for (int pusher = 0; pusher < 2; ++pusher) {
        threads.emplace_back([&queue] {
            for (long value = 1; value <= EACH; ++value)
                queue.push(value);
        });
        threads.emplace_back([&] {
            while (taken < 2 * EACH) {
                const auto value = queue.pop();
                if (!value) continue;
                sum += *value;
                ++taken;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(sum, EACH * (EACH + 1));
    EXPECT_TRUE(queue.empty());
}
