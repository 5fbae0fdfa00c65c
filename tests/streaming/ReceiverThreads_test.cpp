// A listener whose slices run on one thread while packets, moves, kicks and readers come from
// others. Meant for the sanitizers; what it looks at itself is that everybody gets an end.

#include "support/OnAir.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr int ROUNDS = 300;

TEST(ReceiverThreads, WhatPagesReadStaysWholeWhileTheListenerIsServed) {
    OnAir one("/one", 1, {{"Backup", "/two"}});
    OnAir two("/two", 2);
    one.Connect();
    two.Connect();
    Visitor visitor("GET /one HTTP/1.0\r\nUser-Agent: player\r\n\r\n");
    Receiver& receiver = *visitor.receiver;
    std::atomic<bool> done{false};

    std::vector<std::thread> others;
    others.emplace_back([&] { // the pool
        while (!done) {
            if (receiver.Poll(50) != ThreadPool::NOTHING) receiver.Process();
            visitor.Hear();
        }
    });
    others.emplace_back([&] { // a page
        while (!done) {
            EXPECT_EQ(receiver.GetLogStats().c_ip, "127.0.0.1");
            EXPECT_EQ(receiver.GetRequest()->GetIP(), "127.0.0.1");
            receiver.ActiveMount();
            receiver.GetBitrate(true);
            receiver.GetUserAccount();
            receiver.Detached();
        }
    });
    others.emplace_back([&] { // an administrator
        for (int round = 0; round < ROUNDS; ++round)
            receiver.SetMount(round % 2 == 0 ? two.mount : one.mount);
    });
    others.emplace_back([&] { // the streams
        const auto packet = std::make_shared<BufferEntry>(std::vector<char>(100));
        for (int round = 0; round < ROUNDS; ++round)
            receiver.OnNewPacket(packet);
    });
    receiver.Process();
    others[2].join();
    others[3].join();
    receiver.Kick();
    EXPECT_TRUE(comes_true([&] { return receiver.Status() == 3; }));
    done = true;
    others[0].join();
    others[1].join();
    EXPECT_EQ(one.mount->ReceiverSize() + two.mount->ReceiverSize(), 0U);
}

} // namespace
