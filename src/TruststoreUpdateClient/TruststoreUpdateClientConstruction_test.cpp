// The client's construction, and what becomes of it when something cannot be made or the process is
// to end meanwhile.
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using lumo_connector::SessionStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

const Lines kBegun = {"info: Trust Store Update Client started",
                      "info: Trust Store Update Client version: 2.1.8-support-0.0.3"};
const Lines kAwaitsConnector = {"info: Waiting for Lumo-Connector to start",
                                "debug: Process timeout set to inf"};
const Lines kConnectorStarted = {"info: LumoConnector Status OK",
                                 "info: Lumo-Connector was started successfully."};
const std::string kReady = "info: Truststore Update Client Ready";
const std::string kContainer =
    "info: Currently installed container: installed-1  Timestamp: time 1720000000";
const std::string kMqttInitialized = "info: MQTT Initialized";
const std::string kNoMqtt = "error: MQTT Connection FAILED! Result: 1";

Lines Joined(const std::vector<Lines>& parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class ClientConstruction : public tests::ClientTest {
 protected:
  // From Initialize to the end of the main loop; without the line of the connector's thread, which
  // comes whenever it comes.
  Lines RestOfLife() {
    log.Clear();
    Initialize();
    StartMain();
    client->ProcessLifecycleAdapterTerminate();
    mainThread.join();
    Lines lines = log.Lines();
    lines.erase(std::remove(lines.begin(), lines.end(),
                            "debug: Connection state notification, new state: 1"),
                lines.end());
    return lines;
  }
  static Lines RestWith(const Lines& initialize, const Lines& firstRound) {
    return Joined({initialize, {kReady}, firstRound, {kAsleep, kSignal, kEnding, kEnded}});
  }
};

TEST_F(ClientConstruction, EverythingMade_ToldInOrder) {
  Construct();
  EXPECT_EQ(log.Lines(), Joined({kBegun, kAwaitsConnector, kConnectorStarted}));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("create ProcessLifecycleAdapter",
                          "ProcessLifecycleAdapter Initialize truststore-update-client",
                          "create LumoConnector", "create TlsAlerts 46 48", "create UpdateHandler",
                          "create MqttConnection"));
  EXPECT_THAT(unit.connector.Calls(), ElementsAre("Start"));
}

// Where an operation is in the table of virtual operations, counted from the destructor's two.
template <typename Operation>
std::uintptr_t SlotOf(Operation operation) {
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &operation, sizeof offset);
  return offset / sizeof(void*);
}

// Whoever was compiled against the class calls by these numbers.
TEST_F(ClientConstruction, VirtualOperations_OrderIsFixed) {
  using C = TruststoreUpdateClient;
  EXPECT_THAT((std::vector<std::uintptr_t>{
                  SlotOf(&C::MQTTMessageReceivedCb), SlotOf(&C::MQTTResubscribeCb),
                  SlotOf(&C::MQTTSubscribeFailedCb), SlotOf(&C::LumoConnectorStatus),
                  SlotOf(&C::ProcessLifecycleAdapterTerminate),
                  SlotOf(&C::ProcessLifecycleAdapterGetHealthStatus),
                  SlotOf(&C::ProcessLifecycleAdapterEnterState), SlotOf(&C::LumoSCSessionStatus),
                  SlotOf(&C::LumoSCInvocationURL), SlotOf(&C::LumoSCActivationState),
                  SlotOf(&C::LumoSCConnectionState), SlotOf(&C::TlsAlertNotifyCb)}),
              ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13));
}

TEST_F(ClientConstruction, EverythingMade_OwnCallbacksGiven) {
  Construct();
  EXPECT_EQ(unit.callbacks.lifecycle, client.get());
  EXPECT_EQ(unit.callbacks.states, client.get());
  EXPECT_EQ(unit.callbacks.alerts, client.get());
  EXPECT_EQ(unit.callbacks.mqtt, client.get());
}

TEST_F(ClientConstruction, EverythingMade_RestOfLifeTold) {
  Construct();
  EXPECT_EQ(RestOfLife(), RestWith({kMqttInitialized}, {kContainer}));
}

TEST_F(ClientConstruction, SessionNotStarted_ToldAndRestMade) {
  const std::vector<std::tuple<SessionStatus, std::string, std::string>> cases = {
      {SessionStatus::kStopped, "error: LumoConnectorStatus Failed=0", "0"},
      {SessionStatus::kFailed, "error: LumoConnectorStatus Failed=1", "1"},
      {SessionStatus::kRejected, "error: LumoConnector Status Rejected=3", "3"},
      {SessionStatus{4}, "error: LumoConnectorStatus Failed=4", "4"},
      {SessionStatus{4294967295U}, "error: LumoConnectorStatus Failed=4294967295", "4294967295"}};
  for (const auto& [status, line, number] : cases) {
    Forget();
    Construct(status);
    EXPECT_EQ(log.Lines(),
              Joined({kBegun,
                      kAwaitsConnector,
                      {line, "error: Lumo-Connector failed to start! SessionStatus=" + number}}));
    EXPECT_EQ(unit.calls.Calls().back(), "create MqttConnection");
    EXPECT_TRUE(client->CheckLumoConnectorStatus());
    client.reset();
  }
}

TEST_F(ClientConstruction, SessionStarted_CheckIsFalse) {
  Construct();
  EXPECT_FALSE(client->CheckLumoConnectorStatus());
}

// How a collaborator is missing: the factory gives null, or throws.
enum class Failure { kNull, kException };

class MissingCollaborator : public ClientConstruction,
                            public ::testing::WithParamInterface<Failure> {
 protected:
  void LeaveOut(const std::string& name, const std::string& making) {
    if (GetParam() == Failure::kNull) {
      unit.LeaveOut(name);
    } else {
      unit.calls.During(making, [] { throw std::runtime_error("cannot"); });
    }
  }
};

INSTANTIATE_TEST_SUITE_P(EveryWay, MissingCollaborator,
                         ::testing::Values(Failure::kNull, Failure::kException),
                         [](const auto& test) {
                           return test.param == Failure::kNull ? "Null" : "Exception";
                         });

TEST_P(MissingCollaborator, Lifecycle_ToldAndRestWorks) {
  LeaveOut("ProcessLifecycleAdapter", "create ProcessLifecycleAdapter");
  Construct();
  EXPECT_EQ(log.Lines(), Joined({kBegun,
                                 {"error: Cannot create ProcessLifecycleAdapter!"},
                                 kAwaitsConnector,
                                 kConnectorStarted}));
  EXPECT_EQ(RestOfLife(), RestWith({kMqttInitialized}, {kContainer}));
}

TEST_P(MissingCollaborator, Connector_ToldAndNothingAfterItMade) {
  LeaveOut("LumoConnector", "create LumoConnector");
  ConstructAtOnce();
  EXPECT_EQ(log.Lines(), Joined({kBegun, {"error: Cannot create LumoConnector!"}}));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("create ProcessLifecycleAdapter",
                          "ProcessLifecycleAdapter Initialize truststore-update-client",
                          "create LumoConnector"));
  EXPECT_EQ(RestOfLife(), RestWith({"error: Subscribe to connection state failed!", kNoMqtt}, {}));
}

TEST_P(MissingCollaborator, Alerts_ToldAndNothingAfterThemMade) {
  LeaveOut("TlsAlerts", "create TlsAlerts 46 48");
  Construct();
  EXPECT_EQ(
      log.Lines(),
      Joined({kBegun, kAwaitsConnector, kConnectorStarted, {"error: Cannot create TlsAlerts!"}}));
  EXPECT_EQ(unit.calls.Calls().back(), "create TlsAlerts 46 48");
  EXPECT_EQ(RestOfLife(), RestWith({kNoMqtt}, {}));
}

TEST_P(MissingCollaborator, UpdateHandler_ToldAndNothingAfterItMade) {
  LeaveOut("UpdateHandler", "create UpdateHandler");
  Construct();
  EXPECT_EQ(
      log.Lines(),
      Joined(
          {kBegun, kAwaitsConnector, kConnectorStarted, {"error: Cannot create UpdateHandler!"}}));
  EXPECT_EQ(unit.calls.Calls().back(), "create UpdateHandler");
  EXPECT_EQ(RestOfLife(), RestWith({kNoMqtt}, {}));
}

TEST_P(MissingCollaborator, Mqtt_ToldAndRestWorks) {
  LeaveOut("MqttConnection", "create MqttConnection");
  Construct();
  EXPECT_EQ(
      log.Lines(),
      Joined(
          {kBegun, kAwaitsConnector, kConnectorStarted, {"error: Cannot create MqttConnection!"}}));
  EXPECT_EQ(RestOfLife(), RestWith({kNoMqtt}, {kContainer}));
}

// Callbacks come all the same: from what was made, or late.
TEST_P(MissingCollaborator, UpdateHandler_EveryEventIsHandled) {
  LeaveOut("UpdateHandler", "create UpdateHandler");
  Begin();
  EXPECT_THAT(Round([&] { Connect(2); }),
              ElementsAre("debug: Connection state notification, new state: 2",
                          "info: Handling MQTT subscription request.",
                          "error: MQTT Subscription FAILED!", kAsleep));
  EXPECT_THAT(Round([&] { Request(State::kPrepSD, 1); }),
              ElementsAre("debug: Preparing for shutdown request received.",
                          "info: Prepararing client for shutdown.", kAsleep));
  EXPECT_THAT(Round([&] { Request(State::kOn, 2); }),
              ElementsAre("debug: Resume request received.", "info: Resuming client.", kAsleep));
  EXPECT_THAT(Round([&] { Alert(48, "Some.Operation"); }),
              ElementsAre("info: Tls Alert 48 occurred with Operation Some.Operation",
                          "info: Tls Alert 'Unknown CA' Occurred", kAsleep));
  EXPECT_THAT(End(), ElementsAre(kSignal, kEnding, kEnded));
}

TEST_P(MissingCollaborator, UpdateHandler_ResetAndContainerFail) {
  LeaveOut("UpdateHandler", "create UpdateHandler");
  Construct();
  log.Clear();
  EXPECT_FALSE(client->FactoryReset());
  client->HandleDevContainer("/container", true);
  EXPECT_THAT(log.Lines(), ElementsAre("info: Truststore Update Client Factory Reset",
                                       "error: Factory Reset failed!"));
}

TEST_P(MissingCollaborator, Mqtt_EveryEventIsHandled) {
  LeaveOut("MqttConnection", "create MqttConnection");
  Begin();
  EXPECT_THAT(Round([&] { Connect(2); }),
              ElementsAre("debug: Connection state notification, new state: 2",
                          "info: Handling MQTT subscription request.",
                          "error: MQTT Subscription FAILED!", kAsleep));
  EXPECT_THAT(Round([&] { client->MQTTMessageReceivedCb(); }),
              ElementsAre("info: MQTT Message was received", kAsleep));
  log.Clear();
  client->PublishStatus("topic", "message");
  EXPECT_THAT(log.Lines(), IsEmpty());
}

class TerminationMeanwhile : public ClientConstruction {
 protected:
  // Where the test's own lines of construction are: all up to the connector's status.
  const Lines started = Joined({kBegun, kAwaitsConnector, kConnectorStarted});
};

TEST_F(TerminationMeanwhile, WhileLifecycleBegins_ConnectorStartedAndNothingAfterIt) {
  unit.calls.During("ProcessLifecycleAdapter Initialize truststore-update-client",
                    [&] { Terminate(); });
  unit.connector.HoldStart();
  ConstructAtOnce();
  EXPECT_EQ(log.Lines(), Joined({kBegun,
                                 {kSignal},
                                 kAwaitsConnector,
                                 {"error: Lumo-Connector failed to start! SessionStatus=0"}}));
  EXPECT_EQ(unit.calls.Calls().back(), "create LumoConnector");
  EXPECT_THAT(unit.connector.Calls(), ElementsAre("Start"));
}

TEST_F(TerminationMeanwhile, BeforeStatusOfConnector_NothingAfterItMade) {
  Construct([&] { Terminate(); });
  EXPECT_EQ(log.Lines(), Joined({kBegun,
                                 kAwaitsConnector,
                                 {kSignal,
                                  "error: Lumo-Connector failed to start! "
                                  "SessionStatus=0"}}));
  EXPECT_EQ(unit.calls.Calls().back(), "create LumoConnector");
  Initialize();
  EXPECT_THAT(RunToEnd(), ElementsAre(kReady, kEnding, kEnded));
}

TEST_F(TerminationMeanwhile, WhileAlertsAreMade_NothingAfterThemMade) {
  unit.calls.During("create TlsAlerts 46 48", [&] { Terminate(); });
  Construct();
  EXPECT_EQ(log.Lines(), Joined({started, {kSignal}}));
  EXPECT_EQ(unit.calls.Calls().back(), "create TlsAlerts 46 48");
  Initialize();
  EXPECT_THAT(RunToEnd(), ElementsAre(kReady, kEnding, kEnded));
}

TEST_F(TerminationMeanwhile, WhileUpdateHandlerIsMade_HandlerToldAndNothingAfterItMade) {
  unit.calls.During("create UpdateHandler", [&] { Terminate(); });
  Construct();
  EXPECT_EQ(log.Lines(), Joined({started, {kSignal}}));
  const Lines calls = unit.calls.Calls();
  EXPECT_THAT(Lines(calls.end() - 2, calls.end()),
              ElementsAre("create UpdateHandler", "TerminateProcessing"));
  Initialize();
  EXPECT_THAT(RunToEnd(), ElementsAre(kReady, kEnding, kEnded));
}

TEST_F(TerminationMeanwhile, WhileMqttConnectionIsMade_HandlerStopped) {
  unit.calls.During("create MqttConnection", [&] { Terminate(); });
  Construct();
  EXPECT_EQ(log.Lines(), Joined({started, {kSignal}}));
  const Lines calls = unit.calls.Calls();
  EXPECT_THAT(Lines(calls.end() - 3, calls.end()),
              ElementsAre("create MqttConnection", "TerminateProcessing", "StopProcessing true"));
  Initialize();
  EXPECT_THAT(RunToEnd(), ElementsAre(kReady, kEnding, kEnded));
}

// The main loop never hears a trigger again: neither the store nor a job is looked at.
TEST_F(TerminationMeanwhile, BeforeMain_NothingHandled) {
  Construct();
  Initialize();
  Job("wanted-2");
  Request(State::kPrepSD, 1);
  Terminate();
  unit.calls.Clear();
  EXPECT_THAT(RunToEnd(), ElementsAre(kReady, kEnding, kEnded));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("IsContainerUpdateOngoing"));
}

class StateRequestMeanwhile : public ClientConstruction {
 protected:
  Lines CallsSinceMaking() const {
    const Lines calls = unit.calls.Calls();
    return {std::find(calls.begin(), calls.end(), "create UpdateHandler") + 1, calls.end()};
  }
};

TEST_F(StateRequestMeanwhile, BeforeStatusOfConnector_StatusStillAwaited) {
  Construct([&] {
    Request(State::kOn, 1);
    EXPECT_TRUE(WaitForLine(kAsleep, 2));
    EXPECT_EQ(unit.calls.Count("create TlsAlerts 46 48"), 0);
    unit.connector.ReportSession(SessionStatus::kStarted);
  });
  EXPECT_EQ(log.Lines(), Joined({kBegun,
                                 kAwaitsConnector,
                                 {"debug: Resume request received.", kAsleep},
                                 kConnectorStarted}));
}

TEST_F(StateRequestMeanwhile, BeforeHandlerExists_HandlerToldWhenItDoes) {
  Construct([&] {
    Request(State::kPrepSD, 1);
    unit.connector.ReportSession(SessionStatus::kStarted);
  });
  EXPECT_THAT(CallsSinceMaking(), ElementsAre("StopProcessing true", "create MqttConnection"));
}

TEST_F(StateRequestMeanwhile, TakenBackBeforeHandlerExists_HandlerNotTold) {
  Construct([&] {
    Request(State::kPrepSD, 1);
    Request(State::kOn, 2);
    unit.connector.ReportSession(SessionStatus::kStarted);
  });
  EXPECT_THAT(CallsSinceMaking(), ElementsAre("create MqttConnection"));
}

TEST_F(StateRequestMeanwhile, ResumedWhileHandlerIsTold_LastWordIsResume) {
  unit.calls.During("StopProcessing true", [&] { Request(State::kOn, 2); });
  Construct([&] {
    Request(State::kPrepSD, 1);
    unit.connector.ReportSession(SessionStatus::kStarted);
  });
  EXPECT_THAT(CallsSinceMaking(), ElementsAre("StopProcessing true", "StopProcessing false",
                                              "StopProcessing false", "create MqttConnection"));
}

TEST_F(StateRequestMeanwhile, SuspendedAgainWhileHandlerIsTold_LastWordIsStop) {
  bool resumed = false;
  bool suspended = false;
  unit.calls.During("StopProcessing true", [&] {
    if (!std::exchange(resumed, true)) Request(State::kOn, 2);
  });
  unit.calls.During("StopProcessing false", [&] {
    if (!std::exchange(suspended, true)) Request(State::kPrepSD, 3);
  });
  Construct([&] {
    Request(State::kPrepSD, 1);
    unit.connector.ReportSession(SessionStatus::kStarted);
  });
  EXPECT_THAT(CallsSinceMaking(), ElementsAre("StopProcessing true", "StopProcessing false",
                                              "StopProcessing true", "create MqttConnection"));
}

// Carried out and confirmed once there is a main loop.
TEST_F(StateRequestMeanwhile, BeforeMain_LastOneConfirmed) {
  Construct([&] {
    Request(State::kOn, 1);
    Request(State::kPrepSD, 2);
    unit.connector.ReportSession(SessionStatus::kStarted);
  });
  Initialize();
  Forget();
  StartMain();
  EXPECT_THAT(log.Lines(), ElementsAre(kReady, "info: Prepararing client for shutdown.", kAsleep));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("StateChanged 2 2"));
}

}  // namespace
}  // namespace truststore_update_client
