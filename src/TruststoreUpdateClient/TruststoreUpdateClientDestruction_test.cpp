// The end of a client: in which order it lets go, and callbacks that come until the last moment.
#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

class ClientDestruction : public tests::ClientTest {
 protected:
  // Everything that the platform's threads may tell.
  void TellEverything() {
    Request(State::kPrepSD, 1);
    Request(State::kOn, 2);
    Terminate();
    (void)unit.callbacks.lifecycle.load()->ProcessLifecycleAdapterGetHealthStatus();
  }

  Lines CallsOfEnd() {
    Forget();
    client.reset();
    return unit.calls.Calls();
  }

  const Lines everything = {"~ProcessLifecycleAdapter", "~MqttConnection", "~LumoConnector",
                            "~TlsAlerts", "~UpdateHandler"};
};

TEST_F(ClientDestruction, Everything_ReleasedInOrder) {
  Construct();
  EXPECT_EQ(CallsOfEnd(), everything);
}

TEST_F(ClientDestruction, Connector_StoppedBeforeAnythingIsReleased) {
  Construct();
  Lines before;
  unit.calls.During("~ProcessLifecycleAdapter", [&] { before = unit.connector.Calls(); });
  (void)CallsOfEnd();
  EXPECT_THAT(before, ElementsAre("Start", "Stop"));
}

TEST_F(ClientDestruction, AfterMain_ReleasedInOrder) {
  Begin();
  (void)End();
  EXPECT_EQ(CallsOfEnd(), everything);
}

TEST_F(ClientDestruction, ConnectorOnly_Released) {
  Construct([&] { Terminate(); });
  EXPECT_THAT(CallsOfEnd(), ElementsAre("~ProcessLifecycleAdapter", "~LumoConnector"));
}

TEST_F(ClientDestruction, NothingMade_NothingReleased) {
  unit.LeaveOut("ProcessLifecycleAdapter");
  unit.LeaveOut("LumoConnector");
  ConstructAtOnce();
  EXPECT_THAT(CallsOfEnd(), ElementsAre());
}

// The workers are still there to be stopped.
TEST_F(ClientDestruction, PlatformCallsBack_HandlerTold) {
  Construct();
  unit.calls.During("~ProcessLifecycleAdapter", [&] { TellEverything(); });
  EXPECT_THAT(CallsOfEnd(),
              ElementsAre("~ProcessLifecycleAdapter", "StopProcessing true", "StopProcessing false",
                          "TerminateProcessing", "StopProcessing true", "~MqttConnection",
                          "~LumoConnector", "~TlsAlerts", "~UpdateHandler"));
}

TEST_F(ClientDestruction, OthersCallBack_Heard) {
  Construct();
  unit.calls.During("~MqttConnection", [&] {
    unit.callbacks.mqtt.load()->MQTTMessageReceivedCb();
    unit.callbacks.mqtt.load()->MQTTResubscribeCb();
    unit.callbacks.mqtt.load()->MQTTSubscribeFailedCb();
  });
  unit.calls.During("~TlsAlerts", [&] { Alert(48, "op"); });
  EXPECT_EQ(CallsOfEnd(), everything);
  EXPECT_THAT(log.Lines(), ElementsAre("info: MQTT Message was received",
                                       "info: MQTT Re-Subscription request was received",
                                       "info: MQTT Subscribtion failed",
                                       "info: Tls Alert 48 occurred with Operation op"));
}

// A failure that nobody foresaw, with callbacks that may come already.
TEST_F(ClientDestruction, ConstructionFails_CallbacksEndAndEverythingIsReleased) {
  unit.calls.During("create UpdateHandler", [] { throw 1; });
  unit.calls.During("~ProcessLifecycleAdapter", [&] { TellEverything(); });
  unit.calls.During("~TlsAlerts", [&] { Alert(48, "op"); });
  EXPECT_THROW(ConstructAtOnce(), int);
  const Lines calls = unit.calls.Calls();
  EXPECT_THAT(Lines(std::find(calls.begin(), calls.end(), "create UpdateHandler"), calls.end()),
              ElementsAre("create UpdateHandler", "~ProcessLifecycleAdapter", "~LumoConnector",
                          "~TlsAlerts"));
}

TEST_F(ClientDestruction, ManyInTurn_EachStartsAndEnds) {
  for (int i = 0; i < 50; ++i) {
    ConstructAtOnce();
    client.reset();
  }
  EXPECT_EQ(unit.calls.Count("create MqttConnection"), 50);
  EXPECT_EQ(unit.calls.Count("~UpdateHandler"), 50);
}

}  // namespace
}  // namespace truststore_update_client
