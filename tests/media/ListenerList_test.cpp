#include "media/ListenerList.h"

#include "support/RecordingListener.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

using Listener = ListenerList::Listener;
using Listeners = std::vector<Listener>;
constexpr auto JOIN = ListenerList::Change::JOIN;
constexpr auto LEAVE = ListenerList::Change::LEAVE;

Listeners make_listeners(std::size_t count) {
    Listeners made;
    while (made.size() < count)
        made.push_back(std::make_shared<RecordingListener>());
    return made;
}

// Three listeners, and a list with the first two in it.
struct ListenerListTest : testing::Test {
    ListenerListTest() { list.Apply({{a, JOIN}, {b, JOIN}}); }

    const Listener a = std::make_shared<RecordingListener>();
    const Listener b = std::make_shared<RecordingListener>();
    const Listener c = std::make_shared<RecordingListener>();
    ListenerList list;
};

// The same changes, one by one.
Listeners one_by_one(Listeners listeners, const ListenerList::Changes& changes) {
    for (const auto& [listener, change] : changes) {
        const auto found = std::find(listeners.begin(), listeners.end(), listener);
        if (change == JOIN && found == listeners.end()) listeners.push_back(listener);
        if (change == LEAVE && found != listeners.end()) listeners.erase(found);
    }
    return listeners;
}

} // namespace

TEST_F(ListenerListTest, KeepsTheOrderInWhichTheyJoined) {
    list.Apply({{c, JOIN}});
    EXPECT_EQ(list.All(), (Listeners{a, b, c}));
}

TEST_F(ListenerListTest, WhoJoinsTwiceKeepsItsPlace) {
    list.Apply({{c, JOIN}, {a, JOIN}, {c, JOIN}});
    EXPECT_EQ(list.All(), (Listeners{a, b, c}));
}

TEST_F(ListenerListTest, WhoLeavesAndComesBackStandsLast) {
    list.Apply({{a, LEAVE}, {c, JOIN}, {a, JOIN}});
    EXPECT_EQ(list.All(), (Listeners{b, c, a}));
}

TEST_F(ListenerListTest, WhoJoinsAndLeavesInOneBatchIsNotIn) {
    list.Apply({{c, JOIN}, {c, LEAVE}});
    EXPECT_EQ(list.All(), (Listeners{a, b}));
}

TEST_F(ListenerListTest, AStrangerMayLeave) {
    list.Apply({{c, LEAVE}});
    EXPECT_EQ(list.All(), (Listeners{a, b}));
}

TEST_F(ListenerListTest, WhoHasLeftIsLetGo) {
    list.Apply({{b, LEAVE}});
    EXPECT_EQ(b.use_count(), 1);
}

TEST(ListenerList, ABatchComesToWhatItsChangesComeToOneByOne) {
    std::mt19937 random(5);
    const Listeners everybody = make_listeners(12);
    ListenerList list;
    Listeners expected;
    for (int batch = 0; batch < 2000; ++batch) {
        ListenerList::Changes changes;
        for (auto i = random() % 20; i > 0; --i)
            changes.emplace_back(everybody[random() % everybody.size()],
                                 random() % 2 == 0 ? JOIN : LEAVE);
        list.Apply(changes);
        expected = one_by_one(expected, changes);
        ASSERT_EQ(list.All(), expected) << batch;
    }
}

// One by one, the backward half of these would take a thousand million looks.
TEST(ListenerList, TensOfThousandsMayLeaveAtOnce) {
    const Listeners everybody = make_listeners(60000);
    ListenerList::Changes joins;
    ListenerList::Changes leaves;
    for (const Listener& listener : everybody) {
        joins.emplace_back(listener, JOIN);
        if (listener != everybody[100]) leaves.emplace_front(listener, LEAVE);
    }
    ListenerList list;
    list.Apply(joins);
    EXPECT_EQ(list.All(), everybody);
    list.Apply(leaves);
    EXPECT_EQ(list.All(), Listeners{everybody[100]});
}
