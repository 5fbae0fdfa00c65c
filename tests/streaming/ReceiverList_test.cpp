#include "streaming/ReceiverList.h"

#include "streaming/Receiver.h"
#include "support/LogLines.h"
#include "support/LoopbackPair.h"

#include <gtest/gtest.h>

namespace {

struct ReceiverListTest : testing::Test {
    LoopbackPair pair;
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>(pair.server);
};

TEST_F(ReceiverListTest, CountIsHigherAtOnceAfterAdd) {
    ReceiverList::Add(receiver);
    EXPECT_EQ(ReceiverList::Count(), 1);
    EXPECT_EQ(ReceiverList::GetReceiver(receiver->GetUUID()), receiver);
}

TEST_F(ReceiverListTest, UnknownIdGivesAnEmptyPointer) {
    EXPECT_EQ(ReceiverList::GetReceiver("nobody"), nullptr);
}

TEST_F(ReceiverListTest, AddOverAnExistingKeyReplacesIt) {
    ReceiverList::Add(receiver);
    ReceiverList::Add(receiver);
    EXPECT_EQ(ReceiverList::Count(), 1);
}

TEST_F(ReceiverListTest, RemoveReturnsHowManyAreLeft) {
    LoopbackPair other_pair;
    ReceiverList::Add(receiver);
    ReceiverList::Add(std::make_shared<Receiver>(other_pair.server));
    EXPECT_EQ(ReceiverList::Remove(receiver), 1);
    EXPECT_EQ(ReceiverList::GetReceiver(receiver->GetUUID()), nullptr);
}

TEST_F(ReceiverListTest, RemoveOfAStrangerStillTakesItOutOfThePool) {
    LoopbackPair other_pair;
    const auto stranger = std::make_shared<Receiver>(other_pair.server);
    ReceiverList::Add(receiver);
    const long references = stranger.use_count();
    EXPECT_EQ(ReceiverList::Remove(stranger), 1);
    EXPECT_GT(stranger.use_count(), references) << "the pool's queue of leavers holds it";
    EXPECT_EQ(ReceiverList::GetReceiver(receiver->GetUUID()), receiver);
}

TEST_F(ReceiverListTest, AnIdInUseIsReplacedAndTheNewOneLogged) {
    ReceiverList::Add(receiver);
    LogLines log;
    const std::string fresh = ReceiverList::unused_uuid(receiver->GetUUID());
    EXPECT_NE(fresh, receiver->GetUUID());
    EXPECT_EQ(log.All(), std::vector<std::string>{"Duplicate UUID, regenerating [" + fresh + "]"});
}

TEST_F(ReceiverListTest, AnIdThatNobodyHasIsTakenAsItIs) {
    EXPECT_EQ(ReceiverList::unused_uuid("free"), "free");
}

} // namespace
