#include "streaming/PacketQueue.h"

#include "media/BufferEntry.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

std::shared_ptr<BufferEntry> packet(std::size_t size) {
    return std::make_shared<BufferEntry>(std::vector<char>(size));
}

TEST(PacketQueue, PacketsComeOutInTheirOrder) {
    PacketQueue queue;
    for (std::size_t size = 1; size <= 3; ++size)
        queue.Push(packet(size));
    EXPECT_EQ(queue.Pop()->size, 1U);
    queue.Push(packet(4)); // arrives while the first ones are being worked on
    for (std::uint64_t size = 2; size <= 4; ++size)
        EXPECT_EQ(queue.Pop()->size, size);
    EXPECT_TRUE(queue.Empty());
}

TEST(PacketQueue, CountAndBytesCoverWhatWasTakenButNotPopped) {
    PacketQueue queue;
    queue.Push(packet(10));
    queue.Push(packet(20));
    queue.Pop();
    queue.Push(packet(30));
    EXPECT_EQ(queue.Count(), 2U);
    EXPECT_EQ(queue.Bytes(), 50U);
}

TEST(PacketQueue, ClearLetsEveryPacketGo) {
    PacketQueue queue;
    const auto taken = packet(1);
    const auto arrived = packet(1);
    queue.Push(packet(1));
    queue.Push(taken);
    queue.Pop();
    queue.Push(arrived);
    queue.Clear();
    EXPECT_TRUE(queue.Empty());
    EXPECT_EQ(queue.Bytes(), 0U);
    EXPECT_EQ(taken.use_count(), 1);
    EXPECT_EQ(arrived.use_count(), 1);
}

TEST(PacketQueue, NothingIsLostBetweenTwoThreads) {
    constexpr std::uint64_t PACKETS = 20000;
    PacketQueue queue;
    std::thread producer([&queue] {
        for (std::uint64_t i = 0; i < PACKETS; ++i)
            queue.Push(std::make_shared<BufferEntry>(std::vector<char>(1), i));
    });
    for (std::uint64_t next = 0; next < PACKETS;) {
        if (queue.Empty()) continue;
        ASSERT_EQ(queue.Pop()->header_id, next);
        ++next;
    }
    producer.join();
    EXPECT_EQ(queue.Bytes(), 0U);
}

} // namespace
