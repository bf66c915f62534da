// What the connector's operations answer in each state of its session.
#include <gmock/gmock.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "lumo_connector/LumoConnector.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/RecordingListeners.h"
#include "tests/support/HostConfiguration.h"

namespace lumo_connector {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;

constexpr const char* kServices =
    "[service.A]\nurl = \"http://backend.example/a\"\ntoken = \"secret\"\n";

/// A connector with the configuration of one test.
class Operations : public ::testing::Test {
 protected:
  /// Writes `text` as the configuration and starts the session. REQUIRES: called once.
  void Start(const std::string& text) {
    configuration.emplace(text);
    connector.Start();
    ASSERT_EQ(session.heard.WaitForCount(1).size(), 1U);
  }

  /// Every operation answers that there is no session.
  void ExpectNoSession() {
    EXPECT_EQ(connector.GetToken("A").status, 2);
    EXPECT_EQ(connector.GetInvocationUrl("A").status, 2);
    EXPECT_EQ(connector.GetInvocationUrl("A").operationTypeId, "A");
    EXPECT_EQ(connector.PubSubConnect(&topics), 2);
    EXPECT_EQ(connector.PubSubSubscribe("job", true).status, 2);
    EXPECT_EQ(connector.PubSubPublish("report", {}, 0, 0, 0, "", false), 2);
    EXPECT_EQ(connector.PubSubDisconnect(), 2);
    log.Clear();
    const auto result = connector.SocketConnect("A", "127.0.0.1", 80);
    EXPECT_EQ(result.status, ENOTCONN);
    EXPECT_EQ(result.descriptor, -1);
    EXPECT_EQ(result.text, "there is no session");
    EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: cannot connect to "
                                         "127.0.0.1:80 for A: there is no session"));
  }

  platform_host::CapturedLog log;
  std::optional<tests::HostConfiguration> configuration;
  tests::RecordingSession session;
  tests::RecordingStates states;
  tests::RecordingTopics topics;
  LumoConnector connector{&session};
};

TEST_F(Operations, BeforeStart_NoSession) {
  ExpectNoSession();
}

TEST_F(Operations, BrokenConfiguration_NoSession) {
  Start("[mqtt]\nport = \"x\"\n");
  EXPECT_THAT(session.heard.Texts(), ElementsAre("session 1"));
  ExpectNoSession();
}

TEST_F(Operations, AfterStop_NoSession) {
  Start(kServices);
  connector.Stop();
  ExpectNoSession();
}

TEST_F(Operations, Started_TokenAndUrl) {
  Start(kServices);
  EXPECT_EQ(connector.GetToken("A").status, 1);
  EXPECT_EQ(connector.GetToken("A").token, "secret");
  EXPECT_EQ(connector.GetInvocationUrl("A").url, "http://backend.example/a");
  EXPECT_EQ(connector.GetToken("B").status, 2);
}

TEST_F(Operations, StateBeforeStart_NoConnectionAndToldAtOnce) {
  EXPECT_NE(connector.SubscribeTransactionTypeState("T", &states, 0), 0U);
  EXPECT_THAT(states.heard.WaitForCount(1), ElementsAre("T 1"));
}

TEST_F(Operations, StateWithoutBroker_ConnectedOnceStarted) {
  EXPECT_NE(connector.SubscribeTransactionTypeState("T", &states, 0), 0U);
  EXPECT_THAT(states.heard.WaitForCount(1), ElementsAre("T 1"));
  Start(kServices);
  EXPECT_THAT(states.heard.WaitForCount(2), ElementsAre("T 1", "T 2"));
  EXPECT_EQ(connector.PubSubConnect(&topics), 2);
}

TEST_F(Operations, StateInFailedSession_NoConnection) {
  Start("[mqtt]\nport = \"x\"\n");
  EXPECT_NE(connector.SubscribeTransactionTypeState("T", &states, 0), 0U);
  EXPECT_THAT(states.heard.WaitForCount(1), ElementsAre("T 1"));
}

TEST_F(Operations, StateForNobodyOrAfterStop_NoSubscription) {
  EXPECT_EQ(connector.SubscribeTransactionTypeState("T", nullptr, 0), 0U);
  connector.Stop();
  EXPECT_EQ(connector.SubscribeTransactionTypeState("T", &states, 0), 0U);
}

TEST_F(Operations, TopicsForNobody_NotConnected) {
  Start("[mqtt]\nhost = \"127.0.0.1\"\nport = 1\nclient_id = \"unit-1\"\n");
  EXPECT_EQ(connector.PubSubConnect(nullptr), 2);
  EXPECT_EQ(connector.PubSubConnect(&topics), 1);
  EXPECT_EQ(connector.PubSubConnect(&topics), 3);
  EXPECT_EQ(connector.PubSubDisconnect(), 0);
  EXPECT_EQ(connector.PubSubConnect(&topics), 1);
}

TEST_F(Operations, ClientIdThatMqttDoesNotKnow_FailedWithOneLine) {
  Start("[mqtt]\nhost = \"127.0.0.1\"\nport = 1\nclient_id = \"\\uFFFE\"\n");
  EXPECT_THAT(session.heard.Texts(), ElementsAre("session 1"));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: libLumoConnectorShared: the MQTT library does not accept the "
                          "client id \"\xEF\xBF\xBE\""));
}

TEST_F(Operations, CallsInACallback_Answered) {
  struct Asker : tests::RecordingSession {
    void LumoConnectorStatus(SessionStatus status) override {
      answers.push_back(connector->SubscribeTransactionTypeState("T", states, 0) == 0U);
      answers.push_back(connector->PubSubSubscribe("job", true).status == 3);
      RecordingSession::LumoConnectorStatus(status);
    }
    LumoConnector* connector = nullptr;
    tests::RecordingStates* states = nullptr;
    std::vector<bool> answers;
  } asker;
  configuration.emplace("[mqtt]\nhost = \"127.0.0.1\"\nport = 1\nclient_id = \"unit-1\"\n");
  LumoConnector other(&asker);
  asker.connector = &other;
  asker.states = &states;
  other.Start();
  EXPECT_EQ(asker.heard.WaitForCount(1).size(), 1U);
  other.Stop();
  EXPECT_THAT(asker.answers, ElementsAre(false, true));
}

}  // namespace
}  // namespace lumo_connector
