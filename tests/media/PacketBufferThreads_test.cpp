#include "media/PacketBuffer.h"
#include "support/ByteReader.h"
#include "support/RecordingListener.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace {

constexpr int PACKETS = 3000;

// Cuts packets that hold their number.
class CountingBuffer : public PacketBuffer {
public:
    CountingBuffer() : PacketBuffer(std::make_shared<ByteReader>(""), 400) {}
    void Cut(int number) {
        std::vector<char> bytes(sizeof number);
        std::copy_n(reinterpret_cast<const char*>(&number), sizeof number, bytes.data());
        add(std::make_shared<BufferEntry>(std::move(bytes)));
    }
};

int number_of(const BufferEntry& entry) {
    int number = 0;
    std::copy_n(entry.data.data(), sizeof number, reinterpret_cast<char*>(&number));
    return number;
}

// Every packet from the first one on, in order; the burst may be repeated by the first delivery.
void expect_no_gap(const RecordingListener& listener) {
    std::set<int> seen;
    for (const auto& packet : listener.Packets()) {
        const int number = number_of(*packet);
        EXPECT_TRUE(seen.empty() || number <= *seen.rbegin() + 1)
            << number << " after " << *seen.rbegin();
        seen.insert(number);
    }
    EXPECT_TRUE(seen.empty() || *seen.rbegin() == PACKETS - 1);
}

} // namespace

// One thread cuts, one is the pool's, two join listeners, and one reads what pages read.
TEST(PacketBufferThreads, NobodyWhoJoinsMissesAPacket) {
    auto buffer = std::make_shared<CountingBuffer>();
    buffer->Start();
    std::atomic<bool> cutting{true};
    std::thread mount([&] {
        for (int number = 0; number < PACKETS; ++number)
            buffer->Cut(number);
        cutting = false;
    });
    std::thread worker([&] {
        while (cutting || buffer->Poll(50) == ThreadPool::HIGH) {
            buffer->Process();
            std::this_thread::yield();
        }
        buffer->Process();
    });
    std::vector<std::shared_ptr<RecordingListener>> joined[2];
    std::thread joining[2];
    for (int i = 0; i < 2; ++i)
        joining[i] = std::thread([&, i] {
            while (cutting && joined[i].size() < 200) {
                joined[i].push_back(std::make_shared<RecordingListener>());
                buffer->AddListener(joined[i].back(), true);
                std::this_thread::yield();
            }
        });
    std::thread page([&] {
        while (cutting) {
            for (const auto& entry : buffer->GetBufferSnapShot())
                entry->GetMetaData();
            buffer->SetMetaData(std::make_shared<METADATA>());
            buffer->GetMetaData();
            std::this_thread::yield();
        }
    });
    for (std::thread* thread : {&mount, &joining[0], &joining[1], &page, &worker})
        thread->join();
    buffer->Process();
    for (const auto& listeners : joined)
        for (const auto& listener : listeners)
            expect_no_gap(*listener);
    buffer->SignalStop();
}

// The stop comes while a worker delivers and listeners leave.
TEST(PacketBufferThreads, NobodyIsKeptWhenTheStopMeetsADelivery) {
    for (int round = 0; round < 200; ++round) {
        auto buffer = std::make_shared<CountingBuffer>();
        buffer->Start();
        std::vector<std::shared_ptr<RecordingListener>> listeners;
        for (int i = 0; i < 10; ++i) {
            listeners.push_back(std::make_shared<RecordingListener>());
            buffer->AddListener(listeners.back(), true);
        }
        buffer->Cut(0);
        std::thread worker([&] { buffer->Process(); });
        std::thread leaving([&] {
            for (const auto& listener : listeners)
                buffer->RemoveListener(listener);
        });
        buffer->SignalStop();
        worker.join();
        leaving.join();
        for (const auto& listener : listeners)
            EXPECT_EQ(listener.use_count(), 1);
    }
}
