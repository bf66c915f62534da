// What the client does when it is told to, and its main loop: what it does in which order.
#include <chrono>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using lumo_connector::SessionStatus;
using std::chrono::seconds;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using Lines = std::vector<std::string>;

const std::string kReady = "info: Truststore Update Client Ready";
const std::string kContainer =
    "info: Currently installed container: installed-1  Timestamp: time 1720000000";
const std::string kDue = "info: Handling MQTT subscription request.";
const std::string kSubscribed = "info: MQTT Subscribed successfully";
const std::string kSubscribe = "Subscribe RUNA-TruststoreUpdate.CTTSCJobKORB1";

std::string Wait(int timeout) {
  return "debug: Process timeout set to: " + std::to_string(timeout) + "s";
}

class ClientWait : public tests::ClientTest {
 protected:
  ClientWait() {
    Construct();
    log.Clear();
  }

  bool WaitEnds(int timeout) {
    return tests::EndsInTime([&] { client->WaitForTrigger(timeout); },
                             [&] { client->SendTrigger(); });
  }
};

TEST_F(ClientWait, TriggerSentBefore_UnlimitedWaitEnds) {
  client->SendTrigger();
  EXPECT_TRUE(WaitEnds(100000));
  EXPECT_THAT(log.Lines(), ElementsAre(kAsleep));
}

TEST_F(ClientWait, TriggerSentBefore_LongestLimitedWaitEnds) {
  client->SendTrigger();
  EXPECT_TRUE(WaitEnds(99999));
  EXPECT_THAT(log.Lines(), ElementsAre(Wait(99999)));
}

TEST_F(ClientWait, TriggerSentByOtherThread_UnlimitedWaitEnds) {
  std::thread sender([&] { client->SendTrigger(); });
  EXPECT_TRUE(WaitEnds(kNoTimeout));
  sender.join();
}

// The main loop is woken to tell that it waits for the workers, and again when they have ended.
TEST_F(ClientWait, Termination_TriggersBeforeAndAfterWorkersEnd) {
  unit.calls.During("StopProcessing true", [&] { EXPECT_TRUE(WaitEnds(kNoTimeout)); });
  Terminate();
  EXPECT_TRUE(WaitEnds(kNoTimeout));
}

TEST_F(ClientWait, TimeoutOfZero_EndsAtOnce) {
  EXPECT_TRUE(WaitEnds(0));
  EXPECT_THAT(log.Lines(), ElementsAre(Wait(0)));
}

// Also when the main loop does not wait for it.
TEST_F(ClientWait, EverySessionStatus_LoggedAndWaitEnds) {
  const std::vector<std::pair<SessionStatus, std::string>> cases = {
      {SessionStatus::kStopped, "error: LumoConnectorStatus Failed=0"},
      {SessionStatus::kFailed, "error: LumoConnectorStatus Failed=1"},
      {SessionStatus::kStarted, "info: LumoConnector Status OK"},
      {SessionStatus::kRejected, "error: LumoConnector Status Rejected=3"},
      {SessionStatus{4294967295U}, "error: LumoConnectorStatus Failed=4294967295"}};
  for (const auto& [status, line] : cases) {
    log.Clear();
    client->LumoConnectorStatus(status);
    EXPECT_TRUE(WaitEnds(kNoTimeout)) << line;
    EXPECT_THAT(log.Lines(), ElementsAre(line, kAsleep));
  }
}

// One second passes: what ended the wait for the connector is used up.
TEST_F(ClientWait, TriggerOfConstruction_EndsNoOtherWait) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(WaitEnds(1));
  EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));
  EXPECT_THAT(log.Lines(), ElementsAre(Wait(1)));
}

class ClientInitialize : public tests::ClientTest {
 protected:
  ClientInitialize() {
    Construct();
    Forget();
  }

  // Without the line of the connector's thread.
  Lines LinesOf(bool reset) {
    unit.connector.FailStateSubscription();
    Initialize(reset);
    return log.Lines();
  }

  const std::string notSubscribed = "error: Subscribe to connection state failed!";
};

TEST_F(ClientInitialize, EverythingWorks_SubscribedConnectedAndMarkerCleared) {
  Initialize();
  EXPECT_THAT(unit.connector.Calls(),
              ElementsAre("Start", "SubscribeTransactionTypeState RUNA-TruststoreUpdate 0"));
  EXPECT_THAT(unit.calls.Calls(), IsSupersetOf({"Connect", "SendUpdateNotificationToOtherApps 0",
                                                "ConnectionStateChange false"}));
  EXPECT_THAT(unit.calls.Calls(), Not(Contains("RemoveAllTrustStores")));
  EXPECT_THAT(log.Lines(), Not(Contains(notSubscribed)));
}

TEST_F(ClientInitialize, StateSubscriptionFails_ToldAndRestDone) {
  EXPECT_THAT(LinesOf(false), ElementsAre(notSubscribed, "info: MQTT Initialized"));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("Connect", "SendUpdateNotificationToOtherApps 0"));
}

TEST_F(ClientInitialize, BrokerRefuses_ToldAndRestDone) {
  unit.broker.connect = 7;
  EXPECT_THAT(LinesOf(false),
              ElementsAre(notSubscribed, "error: MQTT Connection FAILED! Result: 7"));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("Connect", "SendUpdateNotificationToOtherApps 0"));
}

TEST_F(ClientInitialize, WithReset_ResetComesFirst) {
  EXPECT_THAT(LinesOf(true), ElementsAre("info: Truststore Update Client Factory Reset",
                                         notSubscribed, "info: MQTT Initialized"));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("RemoveAllTrustStores", "Connect",
                                              "SendUpdateNotificationToOtherApps 0"));
}

TEST_F(ClientInitialize, ResetFails_ToldAndRestDone) {
  unit.updates.removal = kStoresNotRemoved;
  EXPECT_THAT(LinesOf(true),
              ElementsAre("info: Truststore Update Client Factory Reset",
                          "error: Factory Reset failed!", notSubscribed, "info: MQTT Initialized"));
}

TEST_F(ClientInitialize, FactoryReset_TrueOnlyForSuccess) {
  EXPECT_TRUE(client->FactoryReset());
  unit.updates.removal = ResponseStatus{1};
  EXPECT_FALSE(client->FactoryReset());
}

class ClientByHand : public tests::ClientTest {
 protected:
  ClientByHand() {
    Construct();
    Forget();
  }
};

TEST_F(ClientByHand, Container_Installed) {
  client->HandleDevContainer("/some file", false);
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("UpdateDevContainer [/some file]"));
}

TEST_F(ClientByHand, ContainerAfterReset_ResetFirst) {
  client->HandleDevContainer("/file", true);
  EXPECT_THAT(log.Lines(), ElementsAre("info: Truststore Update Client Factory Reset"));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("RemoveAllTrustStores", "UpdateDevContainer [/file]"));
}

TEST_F(ClientByHand, ContainerAfterFailedReset_ToldAndInstalled) {
  unit.updates.removal = kRecordsNotStored;
  client->HandleDevContainer("/file", true);
  EXPECT_THAT(log.Lines(), ElementsAre("info: Truststore Update Client Factory Reset",
                                       "error: Factory Reset failed!"));
  EXPECT_EQ(unit.calls.Calls().back(), "UpdateDevContainer [/file]");
}

TEST_F(ClientByHand, Status_PublishedAndTold) {
  client->PublishStatus("some/topic", "a message");
  EXPECT_THAT(log.Lines(),
              ElementsAre("info:  Successfully Published:a message> To this topic==>some/topic"));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("Publish [some/topic] [a message] true 10 20 [none]"));
}

TEST_F(ClientByHand, StatusNotPublished_NothingTold) {
  unit.broker.publish = 4;
  client->PublishStatus("some/topic", "a message");
  EXPECT_THAT(log.Lines(), IsEmpty());
}

class ClientMainLoop : public tests::ClientTest {};

TEST_F(ClientMainLoop, FirstRound_StoreIsChecked) {
  Construct();
  Initialize();
  Forget();
  StartMain();
  EXPECT_THAT(log.Lines(), ElementsAre(kReady, kContainer, kAsleep));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("GetInstalledContainerId", "GetInstalledContainerTimestamp"));
}

TEST_F(ClientMainLoop, TriggerForNothing_OneRoundWithoutWork) {
  Begin();
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kAsleep));
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
}

// What comes while a handler works is handled in the round after.
TEST_F(ClientMainLoop, EventWhileBusy_HandledInNextRound) {
  Begin();
  unit.calls.During("GetReceivedMessage", [&] { Alert(48, "Some.Operation"); });
  Message("");
  EXPECT_TRUE(WaitForLine(kAsleep));
  EXPECT_THAT(log.Lines(), ElementsAre("info: MQTT Message was received",
                                       "info: Tls Alert 48 occurred with Operation Some.Operation",
                                       "info: Empty message received via MQTT", Wait(1),
                                       "info: Tls Alert 'Unknown CA' Occurred", kAsleep));
}

// The wait after it has no limit: without the trigger it would not end.
TEST_F(ClientMainLoop, TriggerWhileBusy_NextWaitEndsAtOnce) {
  Begin();
  unit.calls.During("GetReceivedMessage", [&] { client->SendTrigger(); });
  Message("");
  EXPECT_TRUE(WaitForLine(kAsleep, 2));
  EXPECT_THAT(log.Lines(), ElementsAre("info: MQTT Message was received",
                                       "info: Empty message received via MQTT", kAsleep, kAsleep));
}

TEST_F(ClientMainLoop, EverythingAtOnce_StateThenStoreThenAlertThenMessageThenSubscription) {
  unit.connector.SetConnectionState(2);
  Construct();
  Initialize();
  Alert(46, "operation");
  Job("wanted-2");
  Request(State::kOn, 1);
  Forget();
  StartMain();
  EXPECT_THAT(log.Lines(),
              ElementsAre(kReady, "info: Client already in kOn state.", kContainer,
                          "info: Tls Alert 'Missing Truststore Id' Occurred",
                          "info: MQTT Message Ignored", kDue, kSubscribed, kAsleep, kAsleep));
  EXPECT_THAT(
      unit.calls.Calls(),
      ElementsAre("StateChanged 1 1", "GetInstalledContainerId", "GetInstalledContainerTimestamp",
                  "GetInstalledContainerId", "StartContainerUpdate 3 [operation] [installed-1]",
                  "GetReceivedMessage", kSubscribe));
}

TEST_F(ClientMainLoop, HandlersThatThrow_ToldAndLoopGoesOn) {
  const std::vector<std::tuple<std::string, std::function<void()>, std::string>> cases = {
      {"StateChanged 1 1", [&] { Request(State::kOn, 1); }, "State change"},
      {"GetInstalledContainerId", [&] { Alert(48, "operation"); }, "TLS alert"},
      {"GetReceivedMessage", [&] { Message("x"); }, "MQTT message"},
      {kSubscribe, [&] { Connect(2); }, "MQTT subscription"}};
  Begin();
  for (const auto& [call, event, what] : cases) {
    unit.calls.During(call, [] { throw std::runtime_error("broken"); });
    const Lines lines = Round(event);
    EXPECT_THAT(lines, Contains("error: " + what + " failed: broken").Times(1)) << call;
    EXPECT_EQ(lines.back(), kAsleep) << call;
    unit.calls.During(call, nullptr);
  }
  EXPECT_THAT(Round([&] { Alert(48, "again"); }),
              ElementsAre("info: Tls Alert 48 occurred with Operation again",
                          "info: Tls Alert 'Unknown CA' Ignored", kAsleep));
}

TEST_F(ClientMainLoop, CheckOfStoreThrows_ToldAndLoopGoesOn) {
  unit.calls.During("GetInstalledContainerId", [] { throw std::runtime_error("broken"); });
  Construct();
  Initialize();
  Forget();
  StartMain();
  EXPECT_THAT(log.Lines(),
              ElementsAre(kReady, "error: Check of the trust store failed: broken", kAsleep));
}

}  // namespace
}  // namespace truststore_update_client
