#include "platform/host/lumo_connector/TopicEvents.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/RecordingListeners.h"

namespace lumo_connector {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr TopicEvents::TimePoint kStart{std::chrono::hours(1)};

std::vector<std::uint8_t> Payload(const std::string& text) {
  return {text.begin(), text.end()};
}

/// Events whose callbacks the test makes itself.
class Events : public ::testing::Test {
 protected:
  void TellAll() {
    while (events.TellNext()) {
    }
  }

  void Listen() {
    bool isConnected = false;
    ASSERT_TRUE(events.Listen(&listener, isConnected));
  }

  void AddMessages(std::size_t count) {
    for (std::size_t number = 0; number < count; ++number) {
      events.MessageArrived("t", Payload(std::to_string(number)), 1);
    }
  }

  const platform_host::CapturedLog log;
  CallbackThread thread;
  TopicEvents events{thread};
  tests::RecordingTopics listener;
};

TEST_F(Events, Everything_ToldInTheOrderItCame) {
  Listen();
  events.ConnectionChanged(true);
  events.SubscribeAnswered("t", 0, 1);
  events.MessageArrived("t", Payload("job"), 7);
  events.PublishAcknowledged("r", 2);
  events.PublishFailed("r", 3);
  events.ConnectionChanged(false);
  events.ConnectionChanged(true);
  events.SubscribeFailed("t", 4);
  EXPECT_THAT(listener.heard.Texts(), IsEmpty()) << "told from inside a call";
  TellAll();
  EXPECT_THAT(
      listener.heard.Texts(),
      ElementsAre("connection 0", "subscribed t 0 1", "message t job", "published r 2",
                  "publish failed r 3", "connection 1", "connection 0", "subscribe failed t 4"));
}

TEST_F(Events, MessageBeforeListening_WaitsAndComesFirst) {
  events.MessageArrived("t", Payload("early"), 1);
  TellAll();
  Listen();
  events.MessageArrived("t", Payload("late"), 2);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("message t early", "message t late"));
}

TEST_F(Events, ChangeBeforeListening_TellsListenInstead) {
  events.ConnectionChanged(true);
  bool isConnected = false;
  EXPECT_TRUE(events.Listen(&listener, isConnected));
  EXPECT_TRUE(isConnected);
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), IsEmpty());
}

TEST_F(Events, SecondListener_Refused) {
  Listen();
  tests::RecordingTopics other;
  bool isConnected = false;
  EXPECT_FALSE(events.Listen(&other, isConnected));
  events.MessageArrived("t", Payload("x"), 1);
  TellAll();
  EXPECT_THAT(other.heard.Texts(), IsEmpty());
}

TEST_F(Events, Unlistened_MessagesWaitAndChangesAreForgotten) {
  Listen();
  events.ConnectionChanged(true);
  events.MessageArrived("t", Payload("x"), 1);
  EXPECT_TRUE(events.Unlisten());
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), IsEmpty());
  Listen();
  TellAll();
  EXPECT_THAT(listener.heard.Texts(), ElementsAre("message t x"));
}

TEST_F(Events, UnlistenWithoutListener_False) {
  EXPECT_FALSE(events.Unlisten());
}

TEST_F(Events, PayloadAtLimit_Told) {
  Listen();
  events.MessageArrived("t", std::vector<std::uint8_t>(TopicEvents::kPayloadLimit), 1);
  TellAll();
  events.ReportDrops(kStart);
  EXPECT_EQ(listener.heard.Texts().size(), 1U);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Events, PayloadAboveLimit_DroppedWithALine) {
  Listen();
  events.MessageArrived("t", std::vector<std::uint8_t>(TopicEvents::kPayloadLimit + 1), 1);
  TellAll();
  events.ReportDrops(kStart);
  EXPECT_THAT(listener.heard.Texts(), IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: messages dropped because "
                                       "they have more than 65536 bytes: 1"));
}

TEST_F(Events, FloodWithoutListener_OldestKeptAndOneLineAMinute) {
  AddMessages(TopicEvents::kMessageLimit);
  events.ReportDrops(kStart);
  EXPECT_THAT(log.Lines(), IsEmpty());
  AddMessages(744);
  events.ReportDrops(kStart);
  AddMessages(3);
  events.ReportDrops(kStart + std::chrono::seconds(59));
  Listen();
  TellAll();
  const auto texts = listener.heard.Texts();
  ASSERT_EQ(texts.size(), TopicEvents::kMessageLimit);
  EXPECT_EQ(texts.back(), "message t 255");
  const std::string line =
      "warning: libLumoConnectorShared: messages dropped because 256 others wait: ";
  EXPECT_THAT(log.Lines(), ElementsAre(line + "744"));
  events.ReportDrops(kStart + std::chrono::seconds(60));
  EXPECT_THAT(log.Lines(), ElementsAre(line + "744", line + "3"));
}

TEST_F(Events, MessageBeingTold_StillCounts) {
  class Asker : public tests::RecordingTopics {
   public:
    explicit Asker(TopicEvents& asked) : events(asked) {}
    void LumoPublishReceived(const std::string&, const std::vector<std::uint8_t>&,
                             std::uint16_t) override {
      events.MessageArrived("t", Payload("during"), 1);
    }
    TopicEvents& events;
  } asker(events);
  AddMessages(TopicEvents::kMessageLimit);
  bool isConnected = false;
  ASSERT_TRUE(events.Listen(&asker, isConnected));
  EXPECT_TRUE(events.TellNext());
  events.ReportDrops(kStart);
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: messages dropped because "
                                       "256 others wait: 1"));
}

TEST_F(Events, CallbackThrows_ItsMessageNoLongerCounts) {
  class Thrower : public tests::RecordingTopics {
   public:
    void LumoPublishReceived(const std::string&, const std::vector<std::uint8_t>&,
                             std::uint16_t) override {
      throw std::runtime_error("no");
    }
  } thrower;
  AddMessages(TopicEvents::kMessageLimit);
  bool isConnected = false;
  ASSERT_TRUE(events.Listen(&thrower, isConnected));
  EXPECT_THROW(events.TellNext(), std::runtime_error);
  AddMessages(1);
  events.ReportDrops(kStart);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Events, ManyChanges_OldestTwoForgottenAndLastStateTold) {
  Listen();
  for (std::size_t change = 0; change <= TopicEvents::kChangeLimit; ++change) {
    events.ConnectionChanged(change % 2 == 0);
  }
  TellAll();
  const auto texts = listener.heard.Texts();
  ASSERT_EQ(texts.size(), TopicEvents::kChangeLimit - 1);
  EXPECT_EQ(texts.front(), "connection 0");
  EXPECT_EQ(texts.back(), "connection 0");
}

TEST_F(Events, WaitingAnswers_CountedUntilHeard) {
  events.SubscribeAnswered("t", 0, 1);
  events.PublishAcknowledged("t", 2);
  events.MessageArrived("t", Payload("x"), 1);
  EXPECT_EQ(events.WaitingAnswers(), 2U);
  Listen();
  TellAll();
  EXPECT_EQ(events.WaitingAnswers(), 0U);
}

}  // namespace
}  // namespace lumo_connector
