// The end of the client: in which order its collaborators go, and what may still call back
// meanwhile.
#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

const Lines kReleased = {"~ProcessLifecycleAdapter", "~MqttConnection", "~LumoConnector",
                         "~TlsAlerts", "~UpdateHandler"};

class ClientEnd : public tests::ClientTest {};

TEST_F(ClientEnd, EverythingMade_ConnectorStoppedThenReleasedInOrder) {
  Construct();
  Forget();
  Lines before;
  unit.calls.During("~ProcessLifecycleAdapter", [&] { before = unit.connector.Calls(); });
  client.reset();
  EXPECT_THAT(before, ElementsAre("Start", "Stop"));
  EXPECT_EQ(unit.calls.Calls(), kReleased);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ClientEnd, AfterMainLoop_SameOrder) {
  Begin();
  (void)End();
  Forget();
  client.reset();
  EXPECT_EQ(unit.calls.Calls(), kReleased);
}

TEST_F(ClientEnd, WithoutConnector_RestReleased) {
  unit.LeaveOut("LumoConnector");
  ConstructAtOnce();
  Forget();
  client.reset();
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("~ProcessLifecycleAdapter"));
}

// The end of each collaborator waits for what it is telling: everything that this uses is there.
TEST_F(ClientEnd, CallbackUnderWay_FindsWhatItUses) {
  Construct();
  Forget();
  unit.calls.During("~ProcessLifecycleAdapter", [&] {
    Request(State::kPrepSD, 1);
    Terminate();
    EXPECT_EQ(unit.callbacks.lifecycle.load()->ProcessLifecycleAdapterGetHealthStatus(), 0);
  });
  unit.calls.During("~MqttConnection", [&] {
    unit.callbacks.mqtt.load()->MQTTMessageReceivedCb();
    unit.callbacks.mqtt.load()->MQTTResubscribeCb();
    unit.callbacks.mqtt.load()->MQTTSubscribeFailedCb();
  });
  unit.calls.During("~TlsAlerts", [&] { Alert(48, std::string(100, 'x')); });
  client.reset();
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: Preparing for shutdown request received.", kSignal,
                          "debug: Get Health Status called.", "info: MQTT Message was received",
                          "info: MQTT Re-Subscription request was received",
                          "info: MQTT Subscribtion failed",
                          "info: Tls Alert 48 occurred with Operation " + std::string(100, 'x')));
  EXPECT_THAT(unit.calls.Calls(), Contains("TerminateProcessing"));
  EXPECT_EQ(unit.calls.Count("StopProcessing true"), 2);
}

}  // namespace
}  // namespace truststore_update_client
