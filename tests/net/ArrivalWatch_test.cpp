#include "net/ArrivalWatch.h"

#include "net/Socket.h"
#include "support/LoopbackPair.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <vector>

namespace {

class CountingListener : public ArrivalListener {
public:
    void OnArrival() override { ++arrivals; }
    int arrivals = 0;
};

bool has_something() {
    pollfd watched{.fd = ArrivalWatch::Descriptor(), .events = POLLIN, .revents = 0};
    return poll(&watched, 1, 1000) == 1;
}

bool has_nothing() {
    pollfd watched{.fd = ArrivalWatch::Descriptor(), .events = POLLIN, .revents = 0};
    return poll(&watched, 1, 0) == 0;
}

TEST(ArrivalWatch, TellsOnceOfWhatComesIn) {
    const LoopbackPair pair;
    const auto listener = std::make_shared<CountingListener>();
    EXPECT_TRUE(ArrivalWatch::Watch(*pair.server, listener));
    EXPECT_TRUE(has_nothing());
    pair.Send("a");
    ASSERT_TRUE(has_something());
    ArrivalWatch::Deliver();
    EXPECT_EQ(listener->arrivals, 1);
    pair.Send("b");
    EXPECT_TRUE(has_nothing()) << "although neither byte was read";

    ArrivalWatch::Watch(*pair.server, listener);
    ASSERT_TRUE(has_something()) << "what is there already has arrived";
    ArrivalWatch::Deliver();
    EXPECT_EQ(listener->arrivals, 2);
}

TEST(ArrivalWatch, TellsOfThePeersEnd) {
    LoopbackPair pair;
    const auto listener = std::make_shared<CountingListener>();
    ArrivalWatch::Watch(*pair.server, listener);
    pair.CloseClient();
    ASSERT_TRUE(has_something());
    ArrivalWatch::Deliver();
    EXPECT_EQ(listener->arrivals, 1);
}

TEST(ArrivalWatch, TellsTheLatestOfAllWhoWatchASocket) {
    const LoopbackPair pair;
    const auto first = std::make_shared<CountingListener>();
    const auto second = std::make_shared<CountingListener>();
    ArrivalWatch::Watch(*pair.server, first);
    ArrivalWatch::Watch(*pair.server, second);
    pair.Send("a");
    ASSERT_TRUE(has_something());
    ArrivalWatch::Deliver();
    EXPECT_EQ(first->arrivals, 0);
    EXPECT_EQ(second->arrivals, 1);
}

TEST(ArrivalWatch, NeitherTheForgottenNorTheGoneAreTold) {
    const LoopbackPair forgotten;
    const LoopbackPair gone;
    const auto listener = std::make_shared<CountingListener>();
    ArrivalWatch::Watch(*forgotten.server, listener);
    ArrivalWatch::Watch(*gone.server, std::make_shared<CountingListener>());
    ArrivalWatch::Forget(*forgotten.server);
    forgotten.Send("a");
    gone.Send("a");
    ASSERT_TRUE(has_something());
    ArrivalWatch::Deliver();
    EXPECT_EQ(listener->arrivals, 0);
    EXPECT_EQ(listener.use_count(), 1);
}

TEST(ArrivalWatch, AClosedSocketIsNotWatched) {
    const LoopbackPair pair;
    pair.server->Close();
    const auto listener = std::make_shared<CountingListener>();
    EXPECT_FALSE(ArrivalWatch::Watch(*pair.server, listener));
    EXPECT_EQ(listener.use_count(), 1) << "nobody is kept for it";
    EXPECT_TRUE(has_nothing());
}

TEST(ArrivalWatch, ManyAreToldInSeveralDeliveries) {
    constexpr int MANY = 100;
    std::vector<std::unique_ptr<LoopbackPair>> pairs;
    const auto listener = std::make_shared<CountingListener>();
    for (int count = 0; count < MANY; ++count) {
        pairs.push_back(std::make_unique<LoopbackPair>());
        ArrivalWatch::Watch(*pairs.back()->server, listener);
        pairs.back()->Send("a");
    }
    while (listener->arrivals < MANY && has_something())
        ArrivalWatch::Deliver();
    EXPECT_EQ(listener->arrivals, MANY);
}

} // namespace
