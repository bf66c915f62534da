// The connector's topics against a real broker.
#include <gmock/gmock.h>

#include <future>
#include <memory>

#include "lumo_connector/LumoConnector.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/RecordingListeners.h"
#include "tests/support/HostConfiguration.h"
#include "tests/support/MosquittoBroker.h"

namespace lumo_connector {
namespace {

using platform_host::LogLevel;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPrefix = "libLumoConnectorShared: ";

std::string Configuration(const tests::MosquittoBroker& broker, const std::string& more) {
  return "[mqtt]\nhost = \"127.0.0.1\"\nport = " + std::to_string(broker.Port()) +
         "\nclient_id = \"unit-1\"\n" + more;
}

/// A unit with its connector, for the broker of one test.
class Unit {
 public:
  explicit Unit(const tests::MosquittoBroker& broker, const std::string& moreConfiguration = "")
      : configuration(Configuration(broker, moreConfiguration)), connector(&session) {}

  /// As a client does it: session, states, topics.
  void Start() {
    connector.Start();
    ASSERT_THAT(session.heard.WaitForCount(1), ElementsAre("session 2"));
    ASSERT_NE(connector.SubscribeTransactionTypeState("T", &states, 0), 0U);
  }

  /// Start, and until the broker has accepted the unit.
  void Connect() {
    Start();
    ASSERT_TRUE(states.heard.WaitFor("T 2"));
    ASSERT_EQ(connector.PubSubConnect(&topics), 0);
  }

  /// Connect, and until the subscription of "job" is granted.
  void ConnectAndSubscribe() {
    Connect();
    const auto request = connector.PubSubSubscribe("job", true);
    ASSERT_EQ(request.status, 0);
    ASSERT_TRUE(topics.heard.WaitFor("subscribed job 0 " + std::to_string(request.requestId)));
  }

  const tests::HostConfiguration configuration;
  tests::RecordingSession session;
  tests::RecordingStates states;
  tests::RecordingTopics topics;
  LumoConnector connector;
};

class Broker : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Peer() const { return "127.0.0.1:" + std::to_string(broker.Port()); }

  const platform_host::CapturedLog log;
  tests::MosquittoBroker broker;
};

TEST_F(Broker, GrantedSubscription_MessagesArriveInOrder) {
  broker.Start();
  Unit unit(broker);
  unit.ConnectAndSubscribe();
  EXPECT_TRUE(broker.Publish("job", "first"));
  EXPECT_TRUE(broker.Publish("job", "second"));
  EXPECT_THAT(unit.topics.heard.WaitForCount(3),
              ElementsAre("subscribed job 0 1", "message job first", "message job second"));
  unit.connector.Stop();
  EXPECT_THAT(log.Lines(LogLevel::kInfo),
              ElementsAre("info: " + (kPrefix + ("connected to the broker " + Peer()))));
}

TEST_F(Broker, Publication_AcknowledgedAndDelivered) {
  broker.Start();
  Unit unit(broker);
  unit.ConnectAndSubscribe();
  EXPECT_EQ(unit.connector.PubSubPublish("job", {'x'}, 10, 20, 0, "none", true), 0);
  EXPECT_TRUE(unit.topics.heard.WaitFor("published job 2"));
  EXPECT_TRUE(unit.topics.heard.WaitFor("message job x"));
}

TEST_F(Broker, JobWhileUnitWasOff_DeliveredOnce) {
  broker.Start();
  {
    Unit unit(broker);
    unit.ConnectAndSubscribe();
  }
  EXPECT_TRUE(broker.Publish("job", "while off"));
  broker.Stop();
  broker.Start();
  {
    Unit unit(broker);
    unit.Connect();
    EXPECT_TRUE(unit.topics.heard.WaitFor("message job while off"));
    EXPECT_TRUE(broker.Publish("job", "end"));
    EXPECT_TRUE(unit.topics.heard.WaitFor("message job end"));
    EXPECT_THAT(unit.topics.heard.Texts(), ElementsAre("message job while off", "message job end"));
  }
  Unit unit(broker);
  unit.Connect();
  EXPECT_TRUE(broker.Publish("job", "end"));
  EXPECT_THAT(unit.topics.heard.WaitForCount(1), ElementsAre("message job end"));
}

TEST_F(Broker, KilledAndRestarted_LossAndReturnToldAndResubscribed) {
  broker.Start();
  Unit unit(broker);
  unit.ConnectAndSubscribe();
  broker.Stop(SIGKILL);
  ASSERT_TRUE(unit.topics.heard.WaitFor("connection 1"));
  const auto queued = unit.connector.PubSubSubscribe("job", true);
  EXPECT_EQ(queued.status, 3);
  EXPECT_EQ(unit.connector.PubSubPublish("job", {'x'}, 0, 0, 0, "", false), 0);
  broker.Start();
  EXPECT_THAT(
      unit.topics.heard.WaitForCount(6),
      ::testing::UnorderedElementsAre("subscribed job 0 1", "connection 1", "connection 0",
                                      "subscribed job 0 2", "published job 3", "message job x"));
  EXPECT_THAT(unit.states.heard.WaitForCount(4), ElementsAre("T 1", "T 2", "T 1", "T 2"));
  EXPECT_THAT(log.Lines(LogLevel::kInfo),
              ElementsAre("info: " + (kPrefix + ("connected to the broker " + Peer())),
                          "error: " + (kPrefix + ("no connection to the broker " + Peer() +
                                                  ": the broker closed the connection")),
                          "info: " + (kPrefix + ("connected to the broker " + Peer()))));
}

TEST_F(Broker, NobodyThere_OneLineAndSubscriptionWaits) {
  Unit unit(broker);
  unit.Start();
  EXPECT_EQ(unit.connector.PubSubConnect(&unit.topics), 1);
  EXPECT_EQ(unit.connector.PubSubSubscribe("job", true).status, 3);
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
  broker.Start();
  EXPECT_THAT(unit.topics.heard.WaitForCount(2), ElementsAre("connection 0", "subscribed job 0 1"));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: " + (kPrefix + ("no connection to the broker " + Peer() +
                                                  ": Connection refused"))));
}

TEST_F(Broker, MessagesBeforeListening_Wait) {
  broker.Start();
  {
    Unit unit(broker);
    unit.ConnectAndSubscribe();
  }
  EXPECT_TRUE(broker.Publish("job", "1", {"--repeat", "1000"}));
  Unit unit(broker);
  unit.Start();
  ASSERT_TRUE(unit.states.heard.WaitFor("T 2"));
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kWarning).empty(); }));
  EXPECT_EQ(unit.connector.PubSubConnect(&unit.topics), 0);
  EXPECT_GE(unit.topics.heard.WaitForCount(256).size(), 256U);
  EXPECT_EQ(log.Lines(LogLevel::kWarning).size(), 1U);
}

}  // namespace
}  // namespace lumo_connector
