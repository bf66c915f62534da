// What starts an update, and what does not: jobs, an empty trust store, TLS alerts, the connection.
#include "TruststoreUpdateClient/Constants.h"
#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using Lines = std::vector<std::string>;

const std::string kReady = "info: Truststore Update Client Ready";
const std::string kReceived = "info: MQTT Message was received";
const std::string kNotified = "info: Update notification received via MQTT";
const std::string kIgnored = "info: MQTT Message Ignored";
const std::string kEmptyMessage = "info: Empty message received via MQTT";
const std::string kDiffers =
    "info: Received Container ID is NOT matched. Update process triggered by MQTT signal";
const std::string kUpToDate = "info: Container is up-to-date";
const std::string kEmptyStore = "info: TrustStore is empty! Starting TrustStore update process.";
const std::string kNotStarted = "info: TrustStore is empty! TrustStore update process not started.";
const std::string kPendingAlert =
    "info: Tls Alert ignored. Alert is already received and being handled.";

std::string Ids(const std::string& current, const std::string& received) {
  return "info: Current Container ID: " + current + ", Received Container ID: " + received;
}

std::string AlertLine(int code, const std::string& operation) {
  return "info: Tls Alert " + std::to_string(code) + " occurred with Operation " + operation;
}

class ClientJob : public tests::ClientTest {
 protected:
  ClientJob() { Begin(); }

  // The calls of an update handler that start something.
  Lines Starts() const {
    Lines starts = unit.calls.Calls();
    starts.erase(std::remove_if(starts.begin(), starts.end(),
                                [](const auto& call) { return call.rfind("Start", 0) != 0; }),
                 starts.end());
    return starts;
  }
};

TEST_F(ClientJob, OtherContainer_UpdateStarted) {
  EXPECT_THAT(Round([&] { Job("wanted-2"); }),
              ElementsAre(kReceived, kNotified, Ids("installed-1", "wanted-2"), kDiffers, kAsleep));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("GetReceivedMessage", "GetInstalledContainerId",
                                              "StartContainerUpdate 0 [] [installed-1]"));
}

TEST_F(ClientJob, InstalledContainer_SuccessReportedWithoutDownload) {
  EXPECT_THAT(
      Round([&] { Job("installed-1"); }),
      ElementsAre(kReceived, kNotified, Ids("installed-1", "installed-1"), kUpToDate, kAsleep));
  EXPECT_THAT(Starts(), ElementsAre("StartStatusUpdate 0 [installed-1]"));
}

// Bytes are compared, and all of them.
TEST_F(ClientJob, NearlyInstalledContainer_UpdateStarted) {
  for (const std::string& id :
       {std::string("installed-"), std::string("installed-12"), std::string("Installed-1"),
        std::string("installed-1\0", 12), std::string()}) {
    SCOPED_TRACE(id);
    EXPECT_THAT(End(), Contains(kEnded));
    client.reset();
    Begin();
    (void)Round([&] { Job(id); });
    EXPECT_THAT(Starts(), ElementsAre("StartContainerUpdate 0 [] [installed-1]"));
  }
}

TEST_F(ClientJob, SecondJob_Ignored) {
  (void)Round([&] { Job("wanted-2"); });
  EXPECT_THAT(Round([&] { Job("wanted-3"); }), ElementsAre(kReceived, kIgnored, kAsleep));
  EXPECT_THAT(Starts(), IsEmpty());
}

TEST_F(ClientJob, SecondJobAfterUpToDate_Ignored) {
  (void)Round([&] { Job("installed-1"); });
  EXPECT_THAT(Round([&] { Job("wanted-3"); }), ElementsAre(kReceived, kIgnored, kAsleep));
}

TEST_F(ClientJob, NotStartedByHandler_StillTheOnlyOne) {
  unit.updates.starts = false;
  (void)Round([&] { Job("wanted-2"); });
  EXPECT_THAT(Round([&] { Job("wanted-3"); }), ElementsAre(kReceived, kIgnored, kAsleep));
}

TEST_F(ClientJob, EmptyMessage_ToldAndNextJobWorks) {
  EXPECT_THAT(Round([&] { Message(""); }), ElementsAre(kReceived, kEmptyMessage, kAsleep));
  EXPECT_THAT(Round([&] { Job("wanted-2"); }), Contains(kDiffers));
}

TEST_F(ClientJob, EmptyMessageAfterJob_ToldAsEmpty) {
  (void)Round([&] { Job("wanted-2"); });
  EXPECT_THAT(Round([&] { Message(""); }), ElementsAre(kReceived, kEmptyMessage, kAsleep));
}

// Whatever cannot be read names no container: the backend wanted something.
TEST_F(ClientJob, NoJobMessage_UpdateStarted) {
  EXPECT_THAT(Round([&] { Message("\x0a\x7f"); }),
              ElementsAre(kReceived, kNotified, "info: Error in Parsing!", Ids("installed-1", ""),
                          kDiffers, kAsleep));
  EXPECT_THAT(Starts(), ElementsAre("StartContainerUpdate 0 [] [installed-1]"));
}

TEST_F(ClientJob, WithoutIdOnEmptyStore_UpToDate) {
  unit.updates.SetInstalledId("");
  EXPECT_THAT(Round([&] { Job(""); }),
              ElementsAre(kReceived, kNotified, Ids("", ""), kUpToDate, kAsleep));
  EXPECT_THAT(Starts(), ElementsAre("StartStatusUpdate 0 []"));
}

TEST_F(ClientJob, SeveralInQueue_AllTakenAndOneStarted) {
  unit.broker.Send("");
  unit.broker.Send(JobMessage("wanted-2"));
  unit.broker.Send(JobMessage("wanted-3"));
  EXPECT_THAT(Round([&] { Message(""); }),
              ElementsAre(kReceived, kEmptyMessage, kNotified, Ids("installed-1", "wanted-2"),
                          kDiffers, kIgnored, kEmptyMessage, kAsleep));
  EXPECT_THAT(Starts(), ElementsAre("StartContainerUpdate 0 [] [installed-1]"));
}

TEST_F(ClientJob, AnnouncedButTaken_NothingDone) {
  EXPECT_THAT(Round([&] { unit.callbacks.mqtt.load()->MQTTMessageReceivedCb(); }),
              ElementsAre(kReceived, kAsleep));
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
}

TEST_F(ClientJob, AfterAlert_Ignored) {
  (void)Round([&] { Alert(48, "op"); });
  EXPECT_THAT(Round([&] { Job("wanted-2"); }), ElementsAre(kReceived, kIgnored, kAsleep));
}

class ClientStore : public tests::ClientTest {
 protected:
  // The lines of the first round of a main loop over a store with container `id`.
  Lines FirstRound(const std::string& id, bool reset = false) {
    unit.updates.SetInstalledId(id);
    Construct();
    Initialize(reset);
    Forget();
    StartMain();
    return log.Lines();
  }
  Lines Resume() {
    (void)Round([&] { Request(State::kPrepSD, 1); });
    return Round([&] { Request(State::kOn, 2); });
  }
};

TEST_F(ClientStore, Empty_UpdateStarted) {
  EXPECT_THAT(FirstRound(""), ElementsAre(kReady, kEmptyStore, kAsleep));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("GetInstalledContainerId", "StartContainerUpdate 2 [] []"));
}

TEST_F(ClientStore, NotEmpty_ContainerTold) {
  unit.updates.timestamp = 4294967295U;
  EXPECT_THAT(FirstRound("container 1"),
              ElementsAre(kReady,
                          "info: Currently installed container: container 1  Timestamp: time "
                          "4294967295",
                          kAsleep));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("GetInstalledContainerId", "GetInstalledContainerTimestamp"));
}

TEST_F(ClientStore, StillEmptyAfterResume_NotStartedAgain) {
  (void)FirstRound("");
  EXPECT_THAT(Resume(), ElementsAre("debug: Resume request received.", "info: Resuming client.",
                                    kNotStarted, kAsleep));
  EXPECT_EQ(unit.calls.Count("StartContainerUpdate 2 [] []"), 0);
}

TEST_F(ClientStore, EmptyAfterResumeOnly_UpdateStarted) {
  (void)FirstRound("installed-1");
  unit.updates.SetInstalledId("");
  EXPECT_THAT(Resume(), Contains(kEmptyStore));
  EXPECT_EQ(unit.calls.Count("StartContainerUpdate 2 [] []"), 1);
}

TEST_F(ClientStore, EmptyAfterAlert_NotStarted) {
  (void)FirstRound("installed-1");
  (void)Round([&] { Alert(48, "op"); });
  unit.updates.SetInstalledId("");
  EXPECT_THAT(Resume(), Contains(kNotStarted));
}

TEST_F(ClientStore, Empty_LaterJobAndAlertIgnored) {
  (void)FirstRound("");
  EXPECT_THAT(Round([&] { Job("wanted-2"); }), ElementsAre(kReceived, kIgnored, kAsleep));
  EXPECT_THAT(Round([&] { Alert(48, "op"); }),
              ElementsAre(AlertLine(48, "op"), "info: Tls Alert 'Unknown CA' Ignored", kAsleep));
}

TEST_F(ClientStore, EmptyAfterReset_UpdateStartedAndJobStartsAnother) {
  EXPECT_THAT(FirstRound("", true), ElementsAre(kReady, kEmptyStore, kAsleep));
  EXPECT_EQ(unit.calls.Count("StartContainerUpdate 2 [] []"), 1);
  EXPECT_THAT(Round([&] { Job("wanted-2"); }),
              ElementsAre(kReceived, kNotified, Ids("", "wanted-2"), kDiffers, kAsleep));
  EXPECT_EQ(unit.calls.Count("StartContainerUpdate 0 [] []"), 1);
  EXPECT_THAT(Round([&] { Job("wanted-3"); }), ElementsAre(kReceived, kIgnored, kAsleep));
}

TEST_F(ClientStore, EmptyAfterReset_AlertStartsAnother) {
  (void)FirstRound("", true);
  (void)Round([&] { Alert(46, "op"); });
  EXPECT_EQ(unit.calls.Count("StartContainerUpdate 3 [op] []"), 1);
}

TEST_F(ClientStore, EmptyAfterResetAndResume_StartedAgain) {
  (void)FirstRound("", true);
  EXPECT_THAT(Resume(), Contains(kEmptyStore));
}

// Even a reset that failed leaves a store that is expected to be empty.
TEST_F(ClientStore, EmptyAfterFailedReset_JobStartsAnother) {
  unit.updates.removal = kStoresNotRemoved;
  (void)FirstRound("", true);
  EXPECT_THAT(Round([&] { Job("wanted-2"); }), Contains(kDiffers));
}

class ClientAlert : public tests::ClientTest {
 protected:
  ClientAlert() { Begin(); }
};

TEST_F(ClientAlert, MissingTruststoreId_UpdateStarted) {
  EXPECT_THAT(Round([&] { Alert(46, "Some.Operation"); }),
              ElementsAre(AlertLine(46, "Some.Operation"),
                          "info: Tls Alert 'Missing Truststore Id' Occurred", kAsleep));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("GetInstalledContainerId",
                          "StartContainerUpdate 3 [Some.Operation] [installed-1]"));
}

TEST_F(ClientAlert, UnknownCa_UpdateStarted) {
  EXPECT_THAT(Round([&] { Alert(48, "Some.Operation"); }),
              ElementsAre(AlertLine(48, "Some.Operation"), "info: Tls Alert 'Unknown CA' Occurred",
                          kAsleep));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("GetInstalledContainerId",
                          "StartContainerUpdate 3 [Some.Operation] [installed-1]"));
}

TEST_F(ClientAlert, SecondAlert_IgnoredUnderItsName) {
  (void)Round([&] { Alert(48, "op"); });
  EXPECT_THAT(Round([&] { Alert(48, "op"); }),
              ElementsAre(AlertLine(48, "op"), "info: Tls Alert 'Unknown CA' Ignored", kAsleep));
  EXPECT_THAT(
      Round([&] { Alert(46, "op"); }),
      ElementsAre(AlertLine(46, "op"), "info: Tls Alert 'Missing Truststore Id' Ignored", kAsleep));
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
}

TEST_F(ClientAlert, AfterJob_Ignored) {
  (void)Round([&] { Job("wanted-2"); });
  EXPECT_THAT(Round([&] { Alert(46, "op"); }),
              Contains("info: Tls Alert 'Missing Truststore Id' Ignored"));
}

TEST_F(ClientAlert, OtherCodes_LoggedAndNothingPending) {
  for (const int code : {0, 40, 45, 47, 49, 255}) {
    log.Clear();
    Alert(code, "op");
    EXPECT_THAT(log.Lines(), ElementsAre(AlertLine(code, "op"))) << code;
  }
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kAsleep));
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
}

TEST_F(ClientAlert, WhileOneIsPending_IgnoredWhateverItIs) {
  (void)Round([&] { Request(State::kPrepSD, 1); });
  (void)Round([&] { Alert(48, "first"); });
  log.Clear();
  Alert(46, "second");
  Alert(48, "third");
  Alert(47, "fourth");
  EXPECT_THAT(log.Lines(),
              ElementsAre(AlertLine(46, "second"), kPendingAlert, AlertLine(48, "third"),
                          kPendingAlert, AlertLine(47, "fourth"), kPendingAlert));
  EXPECT_THAT(Round([&] { Request(State::kOn, 2); }),
              Contains("info: Tls Alert 'Unknown CA' Occurred"));
  EXPECT_EQ(unit.calls.Count("StartContainerUpdate 3 [first] [installed-1]"), 1);
}

TEST_F(ClientAlert, WhileOneIsHandled_Ignored) {
  unit.calls.During("GetInstalledContainerId", [&] { Alert(46, "second"); });
  EXPECT_THAT(Round([&] { Alert(48, "first"); }),
              ElementsAre(AlertLine(48, "first"), AlertLine(46, "second"), kPendingAlert,
                          "info: Tls Alert 'Unknown CA' Occurred", kAsleep));
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kAsleep));
}

// Handled, it is forgotten: the next round has nothing to do.
TEST_F(ClientAlert, Handled_NotHandledAgain) {
  (void)Round([&] { Alert(46, "op"); });
  EXPECT_THAT(Round([&] { Alert(48, "op"); }),
              ElementsAre(AlertLine(48, "op"), "info: Tls Alert 'Unknown CA' Ignored", kAsleep));
}

class ClientConnection : public tests::ClientTest {
 protected:
  ClientConnection() {
    Begin();
    (void)Round([&] { Connect(2); });
    Forget();
  }

  static std::string Line(int state) {
    return "debug: Connection state notification, new state: " + std::to_string(state);
  }
  void TellOf(const std::string& type, std::uint8_t state) {
    client->LumoSCConnectionState({type, state});
  }
};

TEST_F(ClientConnection, Unusable_WorkersToldAndLoopNotWoken) {
  for (const int state : {1, 4, 0, 255}) {
    Forget();
    Connect(static_cast<std::uint8_t>(state));
    EXPECT_THAT(log.Lines(), ElementsAre(Line(state))) << state;
    EXPECT_THAT(unit.calls.Calls(), ElementsAre("ConnectionStateChange false")) << state;
  }
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kAsleep));
}

TEST_F(ClientConnection, Usable_LoopWokenAndWorkersTold) {
  for (const int state : {2, 3}) {
    EXPECT_THAT(Round([&] { Connect(static_cast<std::uint8_t>(state)); }),
                ElementsAre(Line(state), kAsleep));
    EXPECT_THAT(unit.calls.Calls(), ElementsAre("ConnectionStateChange true"));
  }
}

TEST_F(ClientConnection, OfOtherType_Ignored) {
  for (const char* type : {"RUNA-TruststoreReport", "RUNA-TruststoreUpdat",
                           "RUNA-TruststoreUpdate.CORequestTSC", "runa-truststoreupdate", ""}) {
    TellOf(type, 1);
  }
  TellOf(std::string("RUNA-TruststoreUpdate\0", 22), 1);
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
  EXPECT_FALSE(client->IsConnectingAllowed());
}

TEST_F(ClientConnection, AfterTermination_Ignored) {
  (void)End();
  Forget();
  TellOf(ConnectionStateTransactionTypeId, 1);
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
  EXPECT_FALSE(client->IsConnectingAllowed());
}

TEST_F(ClientConnection, EventsOfNoConcern_NothingHappens) {
  client->LumoSCSessionStatus(lumo_connector::SCSessionStatus::kActive);
  client->LumoSCInvocationURL({1, "RUNA-TruststoreUpdate", "http://x"});
  client->LumoSCActivationState({"RUNA-TruststoreUpdate", 2});
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
}

}  // namespace
}  // namespace truststore_update_client
