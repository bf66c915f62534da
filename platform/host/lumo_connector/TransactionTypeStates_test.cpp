#include "platform/host/lumo_connector/TransactionTypeStates.h"

#include <gmock/gmock.h>

#include "tests/doubles/RecordingListeners.h"

namespace lumo_connector {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// States whose callbacks the test makes itself.
class States : public ::testing::Test {
 protected:
  void TellAll() {
    while (states.TellNext()) {
    }
  }

  CallbackThread thread;
  TransactionTypeStates states{thread};
  tests::RecordingStates listener;
};

TEST_F(States, Subscribed_PresentStateOnce) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  EXPECT_THAT(listener.heard.Texts(), IsEmpty()) << "told from inside the call";
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1"));
}

TEST_F(States, SubscribedLater_StateOfThen) {
  states.Set(TransactionTypeStates::kConnected);
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 2"));
}

TEST_F(States, Changes_EachOnceInOrder) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  states.Set(2);
  states.Set(2);
  states.Set(1);
  states.Set(4);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1", "A 2", "A 1", "A 4"));
}

TEST_F(States, TwoSubscriptions_NumbersDifferAndBothHear) {
  tests::RecordingStates other;
  EXPECT_NE(states.Subscribe("A", &listener), states.Subscribe("B", &other));
  states.Set(2);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1", "A 2"));
  EXPECT_THAT(other.heard.Texts(), ElementsAre("B 1", "B 2"));
}

TEST_F(States, Held_ToldToEverybodyInPlaceOfConnection) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  states.Hold(4);
  EXPECT_NE(states.Subscribe("B", &listener), 0U);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1", "A 4", "B 4"));
}

TEST_F(States, ConnectionChangesWhileHeld_NobodyToldUntilFollowed) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  states.Hold(1);
  states.Set(2);
  states.Set(1);
  states.Set(2);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1"));
  states.Follow();
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1", "A 2"));
  states.Set(1);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1", "A 2", "A 1"));
}

TEST_F(States, HeldAtOtherState_Told) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  states.Hold(3);
  states.Hold(3);
  states.Hold(4);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 1", "A 3", "A 4"));
}

TEST_F(States, FollowedWithoutHold_NothingToTell) {
  states.Set(2);
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  states.Follow();
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("A 2"));
}

TEST_F(States, Present_ShownStateAndWhetherHeld) {
  states.Set(2);
  EXPECT_EQ(states.Present().state, 2);
  EXPECT_FALSE(states.Present().isHeld);
  states.Hold(2);
  EXPECT_TRUE(states.Present().isHeld);
  states.Set(1);
  EXPECT_EQ(states.Present().state, 2);
  states.Follow();
  EXPECT_EQ(states.Present().state, 1);
  EXPECT_FALSE(states.Present().isHeld);
}

TEST_F(States, AsManyAsWait_AllTold) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  for (std::size_t round = 1; round < TransactionTypeStates::kWaitingLimit; ++round) {
    states.Set(static_cast<std::uint8_t>(1 + round % 2));
  }
  TellAll();
  EXPECT_EQ(listener.heard.Texts().size(), TransactionTypeStates::kWaitingLimit);
}

TEST_F(States, OneMoreThanWait_OldestTwoForgotten) {
  EXPECT_NE(states.Subscribe("A", &listener), 0U);
  for (std::size_t round = 1; round <= TransactionTypeStates::kWaitingLimit; ++round) {
    states.Set(static_cast<std::uint8_t>(10 + round));
  }
  TellAll();
  const auto texts = listener.heard.Texts();
  ASSERT_EQ(texts.size(), TransactionTypeStates::kWaitingLimit - 1);
  EXPECT_EQ(texts.front(), "A 12");
  EXPECT_EQ(texts.back(), "A 26");
}

}  // namespace
}  // namespace lumo_connector
