#include "platform/host/lumo_connector/ConnectorControl.h"

#include <gmock/gmock.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "lumo_connector/LumoConnector.h"
#include "tests/doubles/FakeMqttClient.h"
#include "tests/doubles/RecordingListeners.h"
#include "tests/support/HostConfiguration.h"

namespace lumo_connector {
namespace {

using nlohmann::json;
using platform_host::ControlBoard;
using platform_host::ControlReply;
using ::testing::UnorderedElementsAre;

/// A connector's parts, on a board of the test's own.
class Control : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Served(const std::string& line) {
    std::string answer = "nothing";
    board.Serve(line, ControlReply([&answer](const std::string& text) { answer = text; }));
    return answer;
  }

  [[nodiscard]] json Shown(const std::string& part) {
    return json::parse(Served(R"({"command": "status"})"))["status"][part];
  }

  /// What is answered to the command "connection" with `state`, which is JSON.
  [[nodiscard]] std::string Held(const std::string& state) {
    return Served(R"({"command": "connection", "state": )" + state + "}");
  }

  ControlBoard board;
  CallbackThread thread;
  TransactionTypeStates states{thread};
  TopicEvents events{thread};
  TopicRequests requests{events};
  SessionStatus session = SessionStatus::kStopped;
  std::string address;
  const ConnectorControl control{
      board, {states, requests, [this] { return session; }, [this] { return address; }}};
};

TEST_F(Control, Session_NumberAndName) {
  const std::vector<std::string> names = {"stopped", "failed", "started", "rejected"};
  for (std::uint32_t number = 0; number < names.size(); ++number) {
    session = static_cast<SessionStatus>(number);
    EXPECT_EQ(Shown("session"), (json{{"status", number}, {"name", names[number]}}));
  }
}

TEST_F(Control, ConnectionNotHeld_StateOfConnection) {
  EXPECT_EQ(Shown("connection"), (json{{"state", 1}, {"held", false}}));
  states.Set(2);
  EXPECT_EQ(Shown("connection"), (json{{"state", 2}, {"held", false}}));
}

TEST_F(Control, EachState_Held) {
  for (const char* const state : {"1", "2", "3", "4"}) {
    EXPECT_EQ(Held(state), std::string(R"({"ok":true,"held":true,"state":)") + state + "}");
    EXPECT_EQ(Shown("connection"), (json{{"state", json::parse(state)}, {"held", true}}));
  }
}

TEST_F(Control, Auto_FollowsConnectionAgain) {
  EXPECT_EQ(Held("4"), R"({"ok":true,"held":true,"state":4})");
  states.Set(2);
  EXPECT_EQ(Held("\"auto\""), R"({"ok":true,"held":false,"state":2})");
  states.Set(1);
  EXPECT_EQ(Shown("connection"), (json{{"state", 1}, {"held", false}}));
}

TEST_F(Control, OtherStates_RefusedAndNothingHeld) {
  const std::string refused =
      R"({"ok":false,"error":"\"state\" must be a number from 1 to 4, or \"auto\""})";
  for (const char* const state :
       {"0", "5", "-1", "258", "18446744073709551615", "2.0", "1e0", "\"2\"", "\"Auto\"", "\"\"",
        "null", "true", "[2]", "{\"state\": 2}"}) {
    EXPECT_EQ(Held(state), refused) << state;
  }
  EXPECT_EQ(Served(R"({"command": "connection"})"), refused);
  EXPECT_EQ(Shown("connection"), (json{{"state", 1}, {"held", false}}));
}

TEST_F(Control, NoBroker_Null) {
  EXPECT_EQ(Shown("broker"), nullptr);
}

TEST_F(Control, Broker_AddressConnectionAndTopics) {
  address = "broker:1883";
  tests::FakeBroker broker;
  tests::FakeMqttClient client(broker);
  requests.Begin();
  requests.Connected();
  for (const char* const topic : {"c", "a", "b"}) {
    EXPECT_EQ(requests.Subscribe(topic).status, TopicRequests::kSent);
  }
  requests.SendTo(client);
  requests.SubscribeAnswered(1, true);
  requests.SubscribeAnswered(2, false);
  EXPECT_EQ(Shown("broker"), json::parse(R"({"address": "broker:1883", "connected": true,
      "topics": [{"topic": "a", "state": "refused"}, {"topic": "b", "state": "waiting"},
                 {"topic": "c", "state": "subscribed"}]})"));
  requests.Lost();
  EXPECT_EQ(Shown("broker")["connected"], false);
}

TEST(ControlOfConnector, Ended_NothingOffered) {
  ControlBoard board;
  CallbackThread thread;
  TransactionTypeStates states{thread};
  TopicEvents events{thread};
  TopicRequests requests{events};
  std::string answer;
  {
    const ConnectorControl control(board, {states, requests, [] { return SessionStatus::kStopped; },
                                           [] { return std::string(); }});
  }
  board.Serve(R"({"command": "status"})",
              ControlReply([&answer](const std::string& text) { answer = text; }));
  EXPECT_EQ(answer, R"({"ok":true,"status":{}})");
}

/// What this process's board answers.
std::string Asked(const std::string& line) {
  std::string answer = "nothing";
  ControlBoard::OfProcess().Serve(
      line, ControlReply([&answer](const std::string& text) { answer = text; }));
  return answer;
}

TEST(ConnectorOnBoard, WholeLife_SessionShown) {
  const tests::HostConfiguration configuration("");
  tests::RecordingSession listener;
  std::optional<LumoConnector> connector(&listener);
  const auto shown = [] { return json::parse(Asked(R"({"command": "status"})"))["status"]; };
  EXPECT_EQ(shown()["session"]["name"], "stopped");
  connector->Start();
  ASSERT_TRUE(listener.heard.WaitFor("session 2"));
  EXPECT_EQ(shown(), json::parse(R"({"session": {"status": 2, "name": "started"},
      "connection": {"state": 2, "held": false}, "broker": null})"));
  connector->Stop();
  EXPECT_EQ(shown()["session"]["name"], "stopped");
  connector.reset();
  EXPECT_EQ(shown(), json::object());
}

TEST(ConnectorOnBoard, ConnectionHeld_SubscribersHear) {
  const tests::HostConfiguration configuration("");
  tests::RecordingSession listener;
  tests::RecordingStates subscriber;
  LumoConnector connector(&listener);
  connector.Start();
  ASSERT_TRUE(listener.heard.WaitFor("session 2"));
  ASSERT_NE(connector.SubscribeTransactionTypeState("A", &subscriber, 0), 0U);
  ASSERT_NE(connector.SubscribeTransactionTypeState("B", &subscriber, 0), 0U);
  EXPECT_EQ(Asked(R"({"command": "connection", "state": 4})"),
            R"({"ok":true,"held":true,"state":4})");
  EXPECT_TRUE(subscriber.heard.WaitFor("A 4"));
  EXPECT_TRUE(subscriber.heard.WaitFor("B 4"));
  EXPECT_EQ(Asked(R"({"command": "connection", "state": "auto"})"),
            R"({"ok":true,"held":false,"state":2})");
  EXPECT_TRUE(subscriber.heard.WaitFor("B 2", 2));
  EXPECT_THAT(subscriber.heard.Texts(),
              UnorderedElementsAre("A 2", "A 4", "A 2", "B 2", "B 4", "B 2"));
}

TEST(ConnectorOnBoard, AskedWhileConnectorsComeAndGo_EachAnswered) {
  const tests::HostConfiguration configuration("");
  std::atomic<bool> isDone{false};
  std::thread asker([&isDone] {
    while (!isDone) {
      EXPECT_NE(Asked(R"({"command": "status"})"), "nothing");
      EXPECT_NE(Asked(R"({"command": "connection", "state": 3})"), "nothing");
      EXPECT_NE(Asked(R"({"command": "connection", "state": "auto"})"), "nothing");
    }
  });
  for (int round = 0; round < 50; ++round) {
    LumoConnector connector(nullptr);
    connector.Start();
    if (round % 2 == 0) connector.Stop();
  }
  isDone = true;
  asker.join();
}

}  // namespace
}  // namespace lumo_connector
