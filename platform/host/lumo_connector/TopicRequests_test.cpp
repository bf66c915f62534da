#include "platform/host/lumo_connector/TopicRequests.h"

#include <gmock/gmock.h>

#include "tests/doubles/FakeMqttClient.h"
#include "tests/doubles/RecordingListeners.h"

namespace lumo_connector {
namespace {

using Outcome = MqttClientIf::Sent::Outcome;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Requests of a session that has begun, with a listener whose callbacks the test makes itself.
class Requests : public ::testing::Test {
 protected:
  Requests() {
    bool isConnected = false;
    EXPECT_TRUE(events.Listen(&listener, isConnected));
    requests.Begin();
  }

  /// What the listener has heard by now.
  std::vector<std::string> Heard() {
    while (events.TellNext()) {
    }
    return listener.heard.Texts();
  }

  void Fill() {
    for (std::size_t count = 0; count < TopicRequests::kLimit; ++count) {
      EXPECT_EQ(requests.Publish("t", {}), TopicRequests::kSent);
    }
  }

  CallbackThread thread;
  TopicEvents events{thread};
  tests::RecordingTopics listener;
  TopicRequests requests{events};
  tests::FakeBroker broker;
  tests::FakeMqttClient client{broker};
};

TEST_F(Requests, BeforeBeginAndAfterEnd_NoSession) {
  TopicRequests others(events);
  EXPECT_EQ(others.Subscribe("t").status, TopicRequests::kNoSession);
  EXPECT_EQ(others.Publish("t", {}), TopicRequests::kNoSession);
  others.Begin();
  EXPECT_TRUE(others.HasSession());
  others.End();
  others.Begin();
  EXPECT_FALSE(others.HasSession());
  EXPECT_EQ(others.Subscribe("t").status, TopicRequests::kNoSession);
}

TEST_F(Requests, WithoutConnection_QueuedAndSentInOrder) {
  EXPECT_EQ(requests.Subscribe("b").status, TopicRequests::kQueued);
  EXPECT_EQ(requests.Subscribe("a").status, TopicRequests::kQueued);
  requests.Connected();
  requests.SendTo(client);
  EXPECT_THAT(broker.calls, ElementsAre("subscribe b", "subscribe a"));
}

TEST_F(Requests, WithConnection_Sent) {
  requests.Connected();
  EXPECT_EQ(requests.Subscribe("a").status, TopicRequests::kSent);
  requests.Lost();
  EXPECT_EQ(requests.Subscribe("a").status, TopicRequests::kQueued);
}

TEST_F(Requests, SameTopicTwice_OneSubscriptionAndTwoAnswers) {
  EXPECT_EQ(requests.Subscribe("a").requestId, 1);
  EXPECT_EQ(requests.Subscribe("a").requestId, 2);
  requests.SendTo(client);
  EXPECT_THAT(broker.calls, ElementsAre("subscribe a"));
  requests.SubscribeAnswered(1, true);
  EXPECT_THAT(Heard(), ElementsAre("subscribed a 0 1", "subscribed a 0 2"));
}

TEST_F(Requests, Refused_Status1) {
  EXPECT_EQ(requests.Subscribe("a").requestId, 1);
  requests.SendTo(client);
  requests.SubscribeAnswered(1, false);
  requests.SubscribeAnswered(1, false);
  EXPECT_THAT(Heard(), ElementsAre("subscribed a 1 1"));
}

TEST_F(Requests, ImpossibleTopic_Status1) {
  EXPECT_EQ(requests.Subscribe("a#").requestId, 1);
  broker.outcome = Outcome::kImpossible;
  requests.SendTo(client);
  EXPECT_THAT(Heard(), ElementsAre("subscribed a# 1 1"));
}

TEST_F(Requests, LostBeforeAnswer_FailedWhenConnectedAgain) {
  EXPECT_EQ(requests.Subscribe("a").requestId, 1);
  requests.SendTo(client);
  requests.Lost();
  EXPECT_THAT(Heard(), IsEmpty());
  requests.Connected();
  EXPECT_THAT(Heard(), ElementsAre("subscribe failed a 1"));
  requests.SubscribeAnswered(1, true);
  EXPECT_THAT(Heard(), ElementsAre("subscribe failed a 1"));
}

TEST_F(Requests, ConnectionBreaksWhileSending_FailedWhenConnectedAgain) {
  EXPECT_EQ(requests.Subscribe("a").requestId, 1);
  broker.outcome = Outcome::kNoConnection;
  requests.SendTo(client);
  requests.Lost();
  requests.Connected();
  EXPECT_THAT(Heard(), ElementsAre("subscribe failed a 1"));
}

TEST_F(Requests, Published_SentOnceAndAcknowledgedAfterALossToo) {
  EXPECT_EQ(requests.Publish("r", {'x'}), TopicRequests::kSent);
  requests.SendTo(client);
  requests.Lost();
  requests.Connected();
  requests.SendTo(client);
  requests.PublishAcknowledged(1);
  EXPECT_THAT(broker.calls, ElementsAre("publish r"));
  EXPECT_THAT(Heard(), ElementsAre("published r 1"));
}

TEST_F(Requests, ImpossiblePublication_Failed) {
  EXPECT_EQ(requests.Publish("r#", {}), TopicRequests::kSent);
  broker.outcome = Outcome::kImpossible;
  requests.SendTo(client);
  EXPECT_THAT(Heard(), ElementsAre("publish failed r# 1"));
}

TEST_F(Requests, PublicationsForgotten_Failed) {
  EXPECT_EQ(requests.Publish("r", {}), TopicRequests::kSent);
  requests.SendTo(client);
  requests.PublicationsForgotten();
  requests.PublishAcknowledged(1);
  EXPECT_THAT(Heard(), ElementsAre("publish failed r 1"));
}

TEST_F(Requests, PayloadAtAndAboveLimit_SentAndRefused) {
  std::vector<std::uint8_t> payload(TopicEvents::kPayloadLimit);
  EXPECT_EQ(requests.Publish("r", payload), TopicRequests::kSent);
  payload.push_back(0);
  EXPECT_EQ(requests.Publish("r", payload), TopicRequests::kRefused);
}

TEST_F(Requests, AboveLimit_Refused) {
  Fill();
  EXPECT_EQ(requests.Publish("r", {}), TopicRequests::kRefused);
  EXPECT_EQ(requests.Subscribe("a").status, TopicRequests::kRefused);
}

TEST_F(Requests, AnsweredAndHeard_RoomAgain) {
  Fill();
  requests.SendTo(client);
  requests.PublishAcknowledged(1);
  EXPECT_EQ(requests.Publish("r", {}), TopicRequests::kRefused) << "nobody has heard the answer";
  EXPECT_THAT(Heard(), ElementsAre("published t 1"));
  EXPECT_EQ(requests.Publish("r", {}), TopicRequests::kSent);
}

TEST_F(Requests, Ids_NeverZero) {
  requests.Connected();
  std::uint16_t last = 0;
  for (int count = 1; count <= 65536; ++count) {
    last = requests.Subscribe("a").requestId;
    ASSERT_NE(last, 0);
    requests.SendTo(client);
    requests.SubscribeAnswered(broker.lastNumber, true);
    broker.calls.clear();
    while (events.TellNext()) {
    }
  }
  EXPECT_EQ(last, 1);
}

TEST_F(Requests, Topics_StateOfLastRequest) {
  using TopicState = TopicRequests::TopicState;
  requests.Connected();
  EXPECT_EQ(requests.Subscribe("a").status, TopicRequests::kSent);
  EXPECT_EQ(requests.Topics().at("a"), TopicState::kWaiting);
  requests.SendTo(client);
  requests.SubscribeAnswered(1, true);
  EXPECT_EQ(requests.Topics().at("a"), TopicState::kSubscribed);
  EXPECT_EQ(requests.Subscribe("a").status, TopicRequests::kSent);
  EXPECT_EQ(requests.Topics().at("a"), TopicState::kWaiting);
  requests.SendTo(client);
  requests.SubscribeAnswered(2, false);
  EXPECT_EQ(requests.Topics().at("a"), TopicState::kRefused);
}

TEST_F(Requests, TopicsWithoutRequest_None) {
  EXPECT_EQ(requests.Publish("t", {}), TopicRequests::kSent);
  EXPECT_THAT(requests.Topics(), IsEmpty());
}

TEST_F(Requests, TopicsAtLimit_ShownAndOneMoreOnlyAnswered) {
  for (std::size_t count = 0; count <= TopicRequests::kTopicLimit; ++count) {
    EXPECT_EQ(requests.Subscribe(std::to_string(count)).status, TopicRequests::kQueued);
  }
  EXPECT_EQ(requests.Topics().size(), TopicRequests::kTopicLimit);
  EXPECT_EQ(requests.Topics().count("64"), 0U);
  requests.SendTo(client);
  requests.SubscribeAnswered(65, true);
  requests.SubscribeAnswered(1, true);
  EXPECT_THAT(Heard(), ElementsAre("subscribed 64 0 65", "subscribed 0 0 1"));
  EXPECT_EQ(requests.Topics().at("0"), TopicRequests::TopicState::kSubscribed);
}

TEST_F(Requests, IsConnected_FollowsConnection) {
  EXPECT_FALSE(requests.IsConnected());
  requests.Connected();
  EXPECT_TRUE(requests.IsConnected());
  requests.Lost();
  EXPECT_FALSE(requests.IsConnected());
}

}  // namespace
}  // namespace lumo_connector
