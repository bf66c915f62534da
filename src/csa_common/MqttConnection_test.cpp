#include "csa_common/MqttConnection.h"

#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/support/Deadline.h"

namespace csa_common {
namespace {

using lumo_connector::LumoPubSubCallbackIf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

/// Keeps the names of the callbacks; takes what waits when told to.
class Owner : public MqttConnectionCbIf {
 public:
  void MQTTMessageReceivedCb() override {
    heard.emplace_back("message");
    // Would never return if the connection held its lock here.
    if (takesFrom != nullptr) taken.push_back(takesFrom->GetReceivedMessage());
  }
  void MQTTResubscribeCb() override { heard.emplace_back("resubscribe"); }
  void MQTTSubscribeFailedCb() override { heard.emplace_back("subscribe failed"); }

  MqttConnectionIf* takesFrom = nullptr;
  std::vector<std::string> heard;
  std::vector<std::string> taken;
};

class Mqtt : public ::testing::Test {
 protected:
  /// Connects and forgets the line about it.
  void Listen() {
    ASSERT_EQ(connection.Connect(), 0U);
    log.Clear();
  }

  platform_host::CapturedLog log;
  tests::FakeLumoConnector fake;
  const std::shared_ptr<lumo_connector::LumoConnector> connector =
      std::make_shared<lumo_connector::LumoConnector>(nullptr);
  Owner owner;
  MqttConnection connection{connector, &owner};
};

TEST_F(Mqtt, ConnectStatus_ZeroOneAndThreeSucceed) {
  for (const std::int32_t status : {0, 1, 3}) {
    log.Clear();
    fake.SetPubSubConnectStatus(status);
    EXPECT_EQ(connection.Connect(), 0U);
    EXPECT_THAT(log.Lines(), ElementsAre("info: MqttConnection: Connected to MQTT-CDP, result=" +
                                         std::to_string(status)));
  }
}

TEST_F(Mqtt, ConnectStatus_OthersFail) {
  for (const std::int32_t status : {2, 4, -1, 255, 256}) {
    log.Clear();
    fake.SetPubSubConnectStatus(status);
    EXPECT_EQ(connection.Connect(), 1U);
    EXPECT_THAT(log.Lines(),
                ElementsAre("error: MqttConnection: Failed to connect to MQTT-CDP, result=" +
                            std::to_string(status)));
  }
}

TEST_F(Mqtt, SubscribeStatus_ZeroAndThreeSucceed) {
  for (const std::int32_t status : {0, 3}) {
    log.Clear();
    fake.SetPubSubSubscribeStatus(status);
    EXPECT_EQ(connection.Subscribe("A.B"), 0U);
    EXPECT_THAT(log.Lines(), ElementsAre("info: MqttConnection: Subscribed to topic A.B, status=" +
                                         std::to_string(status)));
  }
  EXPECT_THAT(fake.Calls(),
              ElementsAre("PubSubSubscribe A.B persistent", "PubSubSubscribe A.B persistent"));
}

TEST_F(Mqtt, SubscribeStatus_OthersFailWithRequestId) {
  unsigned int request = 0;
  for (const std::int32_t status : {1, 2, 4, -1}) {
    log.Clear();
    fake.SetPubSubSubscribeStatus(status);
    EXPECT_EQ(connection.Subscribe("A.B"), 1U);
    EXPECT_THAT(log.Lines(),
                ElementsAre("error: MqttConnection: Failed to subscribe to topic A.B, status=" +
                            std::to_string(status) + ", Request ID:" + std::to_string(++request)));
  }
}

TEST_F(Mqtt, Publish_ArgumentsPassedOn) {
  const std::string payload("p\0\xff", 3);
  EXPECT_EQ(connection.Publish("topic", payload, true, 7, 9, "text"), 0);
  ASSERT_EQ(fake.Publications().size(), 1U);
  const auto publication = fake.Publications().front();
  EXPECT_EQ(publication.topic, "topic");
  EXPECT_EQ(publication.payload, payload);
  EXPECT_EQ(publication.timeToLive, 7U);
  EXPECT_EQ(publication.priority, 9U);
  EXPECT_EQ(publication.payloadFormat, 0U);
  EXPECT_EQ(publication.contentType, "text");
  EXPECT_TRUE(publication.reliable);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Mqtt, PublishStatusAndFlag_Unchanged) {
  for (const std::int32_t status : {0, 2, -7}) {
    fake.SetPubSubPublishStatus(status);
    EXPECT_EQ(connection.Publish("topic", "", false, 0, 0, ""), status);
    EXPECT_FALSE(fake.Publications().back().reliable);
  }
}

TEST_F(Mqtt, Disconnect_StatusUnchanged) {
  for (const std::int32_t status : {0, 2, -7}) {
    fake.SetPubSubDisconnectStatus(status);
    EXPECT_EQ(connection.Disconnect(), status);
  }
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Mqtt, MessageReceived_KeptLoggedAndTold) {
  Listen();
  fake.ReportPublished("A.B", "pay", 65535);
  EXPECT_THAT(log.Lines(), ElementsAre("debug: MqttConnection: Message received for topic A.B, "
                                       "message:pay, messageId: 65535"));
  EXPECT_THAT(owner.heard, ElementsAre("message"));
  EXPECT_TRUE(connection.CheckReceivedUpdate());
  EXPECT_EQ(connection.GetReceivedMessage(), "pay");
  EXPECT_FALSE(connection.CheckReceivedUpdate());
}

TEST_F(Mqtt, TwoMessages_OldestFirst) {
  Listen();
  EXPECT_FALSE(connection.CheckReceivedUpdate());
  fake.ReportPublished("A.B", "first", 1);
  fake.ReportPublished("A.B", std::string("sec\0nd", 6), 2);
  EXPECT_EQ(connection.GetReceivedMessage(), "first");
  EXPECT_TRUE(connection.CheckReceivedUpdate());
  EXPECT_EQ(connection.GetReceivedMessage(), std::string("sec\0nd", 6));
  EXPECT_FALSE(connection.CheckReceivedUpdate());
  EXPECT_THAT(owner.heard, ElementsAre("message", "message"));
}

// Nobody takes them while the unit prepares its shutdown.
TEST_F(Mqtt, MoreMessagesThanMayWait_NewestDroppedAndToldOnce) {
  const std::string warning =
      "warning: MqttConnection: Messages are dropped because 256 others wait";
  std::size_t number = 0;
  const auto receive = [&](std::size_t count) {
    log.Clear();
    for (std::size_t i = 0; i < count; ++i) fake.ReportPublished("T", std::to_string(++number), 1);
  };
  Listen();
  receive(256);
  EXPECT_THAT(log.Lines(), Not(Contains(warning)));
  receive(3);
  EXPECT_THAT(log.Lines(), Contains(warning).Times(1));
  EXPECT_EQ(connection.GetReceivedMessage(), "1");
  receive(3);
  EXPECT_THAT(log.Lines(), Contains(warning).Times(1));
  for (int taken = 2; taken <= 256; ++taken) {
    EXPECT_EQ(connection.GetReceivedMessage(), std::to_string(taken));
  }
  EXPECT_EQ(connection.GetReceivedMessage(), "260");
  EXPECT_FALSE(connection.CheckReceivedUpdate());
  EXPECT_EQ(owner.heard.size(), number);
}

TEST_F(Mqtt, EmptyMessage_Kept) {
  Listen();
  fake.ReportPublished("A.B", "", 1);
  EXPECT_TRUE(connection.CheckReceivedUpdate());
  EXPECT_EQ(connection.GetReceivedMessage(), "");
}

TEST_F(Mqtt, MessageTakenInCallback_NoLockIsHeld) {
  owner.takesFrom = &connection;
  Listen();
  EXPECT_TRUE(tests::EndsInTime([&] { fake.ReportPublished("A.B", "pay", 1); }, [] {}));
  EXPECT_THAT(owner.taken, ElementsAre("pay"));
}

TEST_F(Mqtt, ConnectionBack_ResubscribedOnce) {
  Listen();
  for (const std::int32_t state : {0, 0, 1, 1, 0, 0})
    fake.ReportPubSub([&](auto& listener) { listener.LumoPubSubConnectionState(state); });
  EXPECT_THAT(owner.heard, ElementsAre("resubscribe"));
  const std::string line = "debug: MqttConnection: Connection state has changed from ";
  EXPECT_THAT(log.Lines(), ElementsAre(line + "0 to 0", line + "0 to 0", line + "0 to 1",
                                       line + "1 to 1", line + "1 to 0", line + "0 to 0"));
}

TEST_F(Mqtt, OtherConnectionStates_NoResubscription) {
  Listen();
  for (const std::int32_t state : {2, 0, -1, 0, 1, 2, 0})
    fake.ReportPubSub([&](auto& listener) { listener.LumoPubSubConnectionState(state); });
  EXPECT_THAT(owner.heard, IsEmpty());
}

/// An event, the line it gives and what the owner hears.
struct EventCase {
  void (*event)(LumoPubSubCallbackIf&);
  std::string line;
  std::vector<std::string> heard;
};

TEST_F(Mqtt, Events_LineAndOwner) {
  Listen();
  const std::vector<EventCase> cases{
      {[](auto& listener) { listener.LumoSubscribeAcknowledgeReceived("A.B", 0, 7); },
       "debug: MqttConnection: Subscribe acknowledged to topic A.B, status 0 Request ID:7",
       {}},
      {[](auto& listener) { listener.LumoSubscribeAcknowledgeReceived("A.B", 1, 7); },
       "debug: MqttConnection: Subscribe acknowledged to topic A.B, status 1 Request ID:7",
       {"subscribe failed"}},
      {[](auto& listener) { listener.LumoSubscribeAcknowledgeReceived("A.B", 2, 7); },
       "debug: MqttConnection: Subscribe acknowledged to topic A.B, status 2 Request ID:7",
       {}},
      {[](auto& listener) { listener.LumoSubscribeFailed("A.B", 65535); },
       "error: MqttConnection: Subscribe to topic A.B failed, Request ID:65535",
       {"resubscribe"}},
      {[](auto& listener) { listener.LumoPublishAcknowledgeReceived("A.B", 7); },
       "debug: MqttConnection: Publish acknowledged to topic A.B, Request ID:7",
       {}},
      {[](auto& listener) { listener.LumoPublishFailed("A.B", 7); },
       "error: MqttConnection: Publish to topic A.B failed, Request ID:7",
       {}},
      {[](auto& listener) { listener.LumoUnsubscribeAcknowledgeReceived("A.B", 7); },
       "debug: MqttConnection: Unsubscribe acknowledged to topic A.B, Request ID:7",
       {}},
      {[](auto& listener) { listener.LumoUnsubscribeFailed("A.B", 7); },
       "error: MqttConnection: Unsubscribe to topic A.B failed, Request ID:7",
       {}},
  };
  for (const EventCase& one : cases) {
    log.Clear();
    owner.heard.clear();
    fake.ReportPubSub(one.event);
    EXPECT_THAT(log.Lines(), ElementsAre(one.line));
    EXPECT_EQ(owner.heard, one.heard) << one.line;
  }
}

TEST_F(Mqtt, SessionStatus_Logged) {
  connection.LumoConnectorStatus(lumo_connector::SessionStatus::kRejected);
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: MqttConnection: Lumo-Connector status has changed to 3"));
}

TEST_F(Mqtt, NoOwner_MessagesKeptAndNothingElse) {
  MqttConnection alone(connector, nullptr);
  ASSERT_EQ(alone.Connect(), 0U);
  fake.ReportPublished("A.B", "pay", 1);
  fake.ReportPubSub([](auto& listener) {
    listener.LumoPubSubConnectionState(1);
    listener.LumoPubSubConnectionState(0);
    listener.LumoSubscribeAcknowledgeReceived("A.B", 1, 1);
    listener.LumoSubscribeFailed("A.B", 1);
  });
  ASSERT_TRUE(alone.CheckReceivedUpdate());
  EXPECT_EQ(alone.GetReceivedMessage(), "pay");
  EXPECT_THAT(owner.heard, IsEmpty());
}

/// Takes `count` messages as they come; fewer when the deadline passes first.
std::vector<std::string> Take(MqttConnection& connection, std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + tests::kDeadline;
  std::vector<std::string> taken;
  while (taken.size() < count && std::chrono::steady_clock::now() < deadline) {
    if (connection.CheckReceivedUpdate())
      taken.push_back(connection.GetReceivedMessage());
    else
      std::this_thread::yield();
  }
  return taken;
}

TEST_F(Mqtt, ReceivedWhileTaken_EveryMessageOnceInOrder) {
  for (int round = 0; round < 200; ++round) {
    std::vector<std::string> sent;
    for (int number = 0; number < 20; ++number) sent.push_back(std::to_string(number));
    std::thread receiving([&] {
      for (const std::string& message : sent)
        connection.LumoPublishReceived("T", {message.begin(), message.end()}, 1);
      connection.LumoPubSubConnectionState(round % 2);
    });
    const auto taken = Take(connection, sent.size());
    receiving.join();
    ASSERT_EQ(taken, sent);
    ASSERT_FALSE(connection.CheckReceivedUpdate());
  }
}

}  // namespace
}  // namespace csa_common
