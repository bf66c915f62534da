#include "platform/host/lumo_connector/BrokerSession.h"

#include <gmock/gmock.h>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeMqttClient.h"
#include "tests/doubles/RecordingListeners.h"

namespace lumo_connector {
namespace {

using platform_host::Error;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A session at a time that the test sets, with the longest pauses that may be drawn.
class KeptSession : public ::testing::Test {
 protected:
  KeptSession() {
    bool isConnected = false;
    EXPECT_TRUE(events.Listen(&topics, isConnected));
    EXPECT_NE(states.Subscribe("T", &types), 0U);
    requests.Begin();
  }

  static platform_host::BrokerConfig Config() {
    platform_host::BrokerConfig config;
    config.host = "broker.example";
    return config;
  }

  /// One turn. Returns how long the session then wants to wait.
  milliseconds Turn() {
    const auto wait = session.Turn(0, now);
    return wait ? std::chrono::duration_cast<milliseconds>(wait->until - now) : milliseconds(-1);
  }

  void Accept() {
    broker.saying = {[](MqttListenerIf& listener) { listener.Accepted(); }};
    Turn();
  }

  void Lose() {
    broker.loss = Error("the broker closed the connection");
    Turn();
  }

  std::vector<std::string> Heard(const tests::EventLog& heard) {
    while (events.TellNext() || states.TellNext()) {
    }
    return heard.Texts();
  }

  const platform_host::CapturedLog log;
  BrokerSession::TimePoint now{std::chrono::hours(1)};
  CallbackThread thread;
  TransactionTypeStates states{thread};
  TopicEvents events{thread};
  TopicRequests requests{events};
  tests::RecordingTopics topics;
  tests::RecordingStates types;
  tests::FakeBroker broker;
  int rejections = 0;
  BrokerSession session{Config(),
                        std::make_unique<tests::FakeMqttClient>(broker),
                        {states, events, requests, [this] { ++rejections; }},
                        [] { return 0.0; },
                        [this] { return now; }};
};

constexpr const char* kConnected =
    "info: libLumoConnectorShared: connected to the broker broker.example:1883";
constexpr const char* kClosed =
    "error: libLumoConnectorShared: no connection to the broker broker.example:1883: the broker "
    "closed the connection";

TEST_F(KeptSession, FirstTurn_ConnectsAtOnceAndWaitsForTheAnswer) {
  EXPECT_EQ(Turn(), seconds(15));
  EXPECT_THAT(broker.calls, ElementsAre("connect"));
  EXPECT_THAT(Heard(types.heard), ElementsAre("T 1"));
}

TEST_F(KeptSession, Accepted_ToldEverywhereWithOneLine) {
  Turn();
  Accept();
  EXPECT_THAT(Heard(types.heard), ElementsAre("T 1", "T 2"));
  EXPECT_THAT(topics.heard.Texts(), ElementsAre("connection 0"));
  EXPECT_THAT(log.Lines(), ElementsAre(kConnected));
}

TEST_F(KeptSession, NoAnswerInTime_ClosedWithALineAndTriedAgain) {
  Turn();
  now += BrokerSession::kAcceptLimit - milliseconds(1);
  EXPECT_EQ(Turn(), milliseconds(1));
  EXPECT_THAT(log.Lines(), IsEmpty());
  now += milliseconds(1);
  EXPECT_EQ(Turn(), seconds(2));
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: no connection to the broker "
                                       "broker.example:1883: no answer within 20 seconds"));
  now += seconds(2);
  Turn();
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close", "connect"));
}

TEST_F(KeptSession, NameResolvedAfterLong_TheAnswerHasItsWholeTime) {
  broker.connecting = [this] { now += 2 * BrokerSession::kAcceptLimit; };
  Turn();
  now += BrokerSession::kAcceptLimit - milliseconds(1);
  EXPECT_EQ(Turn(), milliseconds(1));
  Accept();
  EXPECT_THAT(log.Lines(), ElementsAre(kConnected));
}

TEST_F(KeptSession, NameNotResolvedAfterLong_TheWholePauseFollows) {
  broker.connecting = [this] { now += seconds(10); };
  broker.connectError = Error("the name cannot be resolved");
  EXPECT_EQ(Turn(), seconds(2));
  EXPECT_EQ(Turn(), seconds(2));
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close"));
}

TEST_F(KeptSession, ManyFailures_GrowingPausesAndOneLine) {
  broker.connectError = Error("Connection refused");
  std::vector<long> pauses;
  for (int round = 0; round < 7; ++round) {
    pauses.push_back(Turn().count());
    now += milliseconds(pauses.back());
  }
  EXPECT_THAT(pauses, ElementsAre(2000, 4000, 8000, 16000, 32000, 60000, 60000));
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: no connection to the broker "
                                       "broker.example:1883: Connection refused"));
}

TEST_F(KeptSession, WokenDuringPause_NoEarlierTry) {
  broker.connectError = Error("Connection refused");
  Turn();
  now += milliseconds(1999);
  EXPECT_EQ(Turn(), milliseconds(1));
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close"));
}

TEST_F(KeptSession, Lost_ToldEverywhereAndBackAgain) {
  Turn();
  Accept();
  Lose();
  now += seconds(2);
  Turn();
  Accept();
  EXPECT_THAT(Heard(types.heard), ElementsAre("T 1", "T 2", "T 1", "T 2"));
  EXPECT_THAT(topics.heard.Texts(), ElementsAre("connection 0", "connection 1", "connection 0"));
  EXPECT_THAT(log.Lines(), ElementsAre(kConnected, kClosed, kConnected));
}

TEST_F(KeptSession, LostWithSubscriptionUnanswered_FailureToldAfterTheReturn) {
  Turn();
  Accept();
  EXPECT_EQ(requests.Subscribe("job").status, 0);
  Turn();
  Lose();
  now += seconds(2);
  Turn();
  Accept();
  Heard(topics.heard);
  EXPECT_THAT(topics.heard.Texts(), ElementsAre("connection 0", "connection 1", "connection 0",
                                                "subscribe failed job 1"));
}

TEST_F(KeptSession, ShortSessionsInARow_PausesGrow) {
  // Another unit with the same client id: accepted, thrown out, accepted ...
  std::vector<long> pauses;
  for (int round = 0; round < 6; ++round) {
    Turn();
    Accept();
    now += BrokerSession::kGoodSession - milliseconds(1);
    broker.loss = Error("the broker closed the connection");
    pauses.push_back(Turn().count());
    now += milliseconds(pauses.back());
  }
  EXPECT_THAT(pauses, ElementsAre(2000, 4000, 8000, 16000, 32000, 60000));
}

TEST_F(KeptSession, GoodSession_ShortPauseAfterIt) {
  broker.connectError = Error("Connection refused");
  for (int round = 0; round < 5; ++round) now += Turn();
  broker.connectError.reset();
  Turn();
  Accept();
  now += BrokerSession::kGoodSession;
  broker.loss = Error("the broker closed the connection");
  EXPECT_EQ(Turn(), seconds(2));
}

TEST_F(KeptSession, CredentialsRefused_RejectedOnceAndNoFurtherTry) {
  Turn();
  broker.saying = {[](MqttListenerIf& listener) {
    listener.CredentialsRefused("Connection Refused: not authorised");
  }};
  broker.loss = Error("the broker refuses the connection");
  EXPECT_EQ(session.Turn(0, now), std::nullopt);
  now += std::chrono::hours(1);
  EXPECT_EQ(session.Turn(0, now), std::nullopt);
  EXPECT_EQ(rejections, 1);
  EXPECT_FALSE(requests.HasSession());
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close"));
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libLumoConnectorShared: the broker broker.example:1883 refuses "
                          "the credentials of this unit: Connection Refused: not authorised"));
}

TEST_F(KeptSession, AcceptedTwice_ToldOnce) {
  Turn();
  Accept();
  Accept();
  EXPECT_THAT(Heard(topics.heard), ElementsAre("connection 0"));
  EXPECT_THAT(log.Lines(), ElementsAre(kConnected));
}

TEST_F(KeptSession, CredentialsRefusedAfterAcceptance_NoRejection) {
  Turn();
  Accept();
  broker.saying = {[](MqttListenerIf& listener) { listener.CredentialsRefused("no"); }};
  EXPECT_NE(session.Turn(0, now), std::nullopt);
  EXPECT_EQ(rejections, 0);
}

TEST_F(KeptSession, RequestsWhileConnecting_SentOnceAccepted) {
  Turn();
  EXPECT_EQ(requests.Subscribe("job").status, 3);
  Turn();
  EXPECT_THAT(broker.calls, ElementsAre("connect"));
  Accept();
  Turn();
  EXPECT_THAT(broker.calls, ElementsAre("connect", "subscribe job"));
}

TEST_F(KeptSession, AnswersAndMessages_HandedOn) {
  Turn();
  Accept();
  EXPECT_EQ(requests.Subscribe("job").status, 0);
  EXPECT_EQ(requests.Publish("report", {}), 0);
  Turn();
  broker.saying = {[](MqttListenerIf& listener) {
    listener.SubscribeAnswered(1, true);
    listener.PublishAcknowledged(2);
    listener.MessageArrived("job", {'x'}, 9);
    listener.OversizedMessageArrived();
  }};
  Turn();
  EXPECT_THAT(Heard(topics.heard), ElementsAre("connection 0", "subscribed job 0 1",
                                               "published report 2", "message job x"));
  EXPECT_THAT(log.Lines(platform_host::LogLevel::kWarning),
              ElementsAre("warning: libLumoConnectorShared: messages dropped because they have "
                          "more than 65536 bytes: 1"));
}

TEST_F(KeptSession, FailedTurn_PauseAndAnotherTry) {
  Turn();
  Accept();
  session.Fail("interrupted", now);
  EXPECT_EQ(Turn(), seconds(2));
  EXPECT_THAT(Heard(types.heard), ElementsAre("T 1", "T 2", "T 1"));
  now += seconds(2);
  Turn();
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close", "connect"));
}

TEST_F(KeptSession, End_Closes) {
  Turn();
  Accept();
  session.End();
  EXPECT_THAT(broker.calls, ElementsAre("connect", "close"));
}

TEST(KeptSessionPeer, Ipv6Address_InBrackets) {
  const platform_host::CapturedLog log;
  CallbackThread thread;
  TransactionTypeStates states(thread);
  TopicEvents events(thread);
  TopicRequests requests(events);
  tests::FakeBroker broker;
  broker.connectError = Error("Connection refused");
  platform_host::BrokerConfig config;
  config.host = "::1";
  BrokerSession session(config, std::make_unique<tests::FakeMqttClient>(broker),
                        {states, events, requests, [] {}}, [] { return 0.0; });
  EXPECT_NE(session.Turn(0, {}), std::nullopt);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: no connection to the broker "
                                       "[::1]:1883: Connection refused"));
}

}  // namespace
}  // namespace lumo_connector
