#include "http/Sessions.h"

#include "core/Clock.h"
#include "support/LogLines.h"

#include <gtest/gtest.h>

namespace {

constexpr time_t START = 1700000000;

std::string new_id() {
    std::string id;
    return SessionList::Add("1.2.3.4", "agent", id);
}

class SessionsAtAHeldClock : public testing::Test {
protected:
    void SetUp() override {
        Clock::Hold(START);
        SessionList::Init();
    }
};

using SessionTest = SessionsAtAHeldClock;
using SessionListTest = SessionsAtAHeldClock;

} // namespace

TEST_F(SessionTest, MissingKeyIsTheEmptyTextWhateverTheDefault) {
    Session session("id");
    EXPECT_EQ(session.Get("key", "default"), "");
}

TEST_F(SessionTest, SetReplacesAndEraseRemoves) {
    Session session("id");
    session.Set("key", "one");
    session.Set("key", "two");
    EXPECT_EQ(session.Get("key", ""), "two");
    session.Erase("key");
    EXPECT_EQ(session.Get("key", ""), "");
}

TEST_F(SessionTest, DatesBeginWithTheSession) {
    Session session("id");
    Clock::Advance(10);
    EXPECT_EQ(session.CreateDate(), START);
    EXPECT_EQ(session.UpdateDate(), START);
    EXPECT_EQ(session.LifeSpan(), 10.0);
}

TEST_F(SessionTest, GetSetAndEraseRefresh) {
    Session session("id");
    Clock::Advance(1);
    session.Get("key", "");
    EXPECT_EQ(session.UpdateDate(), START + 1);
    Clock::Advance(1);
    session.Set("key", "value");
    EXPECT_EQ(session.UpdateDate(), START + 2);
    Clock::Advance(1);
    session.Erase("key");
    EXPECT_EQ(session.UpdateDate(), START + 3);
    EXPECT_EQ(session.CreateDate(), START);
}

TEST_F(SessionListTest, NewSessionIsFoundUnderItsId) {
    std::string id;
    const std::string result = SessionList::Add("1.2.3.4", "agent", id);
    EXPECT_FALSE(id.empty());
    EXPECT_EQ(result, id);
    ASSERT_TRUE(SessionList::Get(id));
    EXPECT_EQ(SessionList::Get(id)->Id(), id);
}

TEST_F(SessionListTest, KnownIdIsKept) {
    const std::string first = new_id();
    std::string again = first;
    EXPECT_EQ(SessionList::Add("1.2.3.4", "agent", again), first);
    EXPECT_EQ(SessionList::Count(), 1U);
}

TEST_F(SessionListTest, UnknownIdIsReplaced) {
    std::string id = "made up";
    EXPECT_NE(SessionList::Add("1.2.3.4", "agent", id), "made up");
    EXPECT_FALSE(SessionList::Get("made up"));
}

TEST_F(SessionListTest, RemovedSessionIsGoneButItsHoldersKeepIt) {
    const std::string id = new_id();
    const auto held = SessionList::Get(id);
    SessionList::Remove(id);
    SessionList::Remove("unknown");
    EXPECT_FALSE(SessionList::Get(id));
    EXPECT_EQ(held->Id(), id);
}

TEST_F(SessionListTest, SixthAttemptMayStillFindAFreeId) {
    static int draws = 0;
    SessionList::SetIdSource([] { return std::string(++draws < 7 ? "same" : "other"); });
    EXPECT_EQ(new_id(), "same");
    EXPECT_EQ(new_id(), "other");
    EXPECT_EQ(draws, 7);
}

TEST_F(SessionListTest, SixTakenIdsInARowMakeNoSession) {
    LogLines log;
    static int draws = 0;
    SessionList::SetIdSource([] { return std::string(++draws, 'x').substr(0, 1); });
    EXPECT_EQ(new_id(), "x");
    const std::string id = new_id();
    EXPECT_EQ(id, ""); // and not that of the session which is in the way
    EXPECT_FALSE(SessionList::Get(id));
    EXPECT_EQ(draws, 7);
    EXPECT_EQ(SessionList::Count(), 1U);
    EXPECT_TRUE(log.Wait("Unable to Generate a Session ID."));
}

TEST_F(SessionListTest, FullListTakesNoMoreUntilOldOnesLeaveAndKnowsItsOwn) {
    SessionList::SetIdSource([] {
        static int draws = 0;
        return std::to_string(++draws);
    });
    std::string known = new_id();
    while (SessionList::Count() < SessionList::MOST_SESSIONS)
        new_id();
    EXPECT_EQ(new_id(), "");
    EXPECT_EQ(SessionList::Count(), SessionList::MOST_SESSIONS);
    EXPECT_EQ(SessionList::Add("1.2.3.4", "agent", known), "1");
    Clock::Advance(3601);
    new_id(); // prunes
    EXPECT_NE(new_id(), "");
    EXPECT_EQ(SessionList::Count(), 1U);
}

TEST_F(SessionListTest, SessionOfAnHourSurvivesAPruneAndAnOlderOneDoesNot) {
    const std::string old_id = new_id();
    Clock::Advance(1);
    const std::string at_the_limit = new_id();
    Clock::Advance(1);
    const std::string young = new_id();
    Clock::Advance(3599);
    SessionList::Prune();
    EXPECT_FALSE(SessionList::Get(old_id));
    EXPECT_TRUE(SessionList::Get(at_the_limit));
    EXPECT_TRUE(SessionList::Get(young));
}

TEST_F(SessionListTest, ReadSessionLivesOnAndAnAskedForOneDoesNot) {
    const std::string read = new_id();
    std::string asked_for = new_id();
    Clock::Advance(3601);
    SessionList::Get(read)->Get("key", "");
    SessionList::Add("1.2.3.4", "agent", asked_for);
    EXPECT_TRUE(SessionList::Get(read));
    EXPECT_FALSE(SessionList::Get(asked_for));
}

TEST_F(SessionListTest, AddPrunesWhenMoreThanFiveMinutesHavePassed) {
    const std::string id = new_id();
    Clock::Advance(3601);
    new_id();
    EXPECT_FALSE(SessionList::Get(id));
}

TEST_F(SessionListTest, NoTwoPrunesWithinFiveMinutes) {
    const std::string id = new_id();
    Clock::Advance(3600);
    new_id(); // prunes, and finds nothing that is too old
    Clock::Advance(300);
    new_id();
    EXPECT_TRUE(SessionList::Get(id));
    Clock::Advance(1);
    new_id();
    EXPECT_FALSE(SessionList::Get(id));
}
