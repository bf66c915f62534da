// States that the platform asks for, the end of the process, and a connector that was refused.
#include <functional>
#include <utility>

#include "tests/doubles/RecordingListeners.h"
#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using lumo_connector::SessionStatus;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using Lines = std::vector<std::string>;

const std::string kReady = "info: Truststore Update Client Ready";
const std::string kContainer =
    "info: Currently installed container: installed-1  Timestamp: time 1720000000";
const std::string kSuspend = "debug: Preparing for shutdown request received.";
const std::string kSuspended = "info: Prepararing client for shutdown.";
const std::string kStillSuspended = "info: Client already in kPrepSD state.";
const std::string kResume = "debug: Resume request received.";
const std::string kResumed = "info: Resuming client.";
const std::string kStillOn = "info: Client already in kOn state.";
const std::string kOneSecond = "debug: Process timeout set to: 1s";
const std::string kRejected =
    "info: Trust Store Update Client stopped due to Rejected Lumo-Connector State.";

class ClientState : public tests::ClientTest {
 protected:
  ClientState() { Begin(); }

  tests::Gate workers;  // where a stop may be held
};

TEST_F(ClientState, Suspended_WorkersStoppedAndConfirmed) {
  EXPECT_THAT(Round([&] { Request(State::kPrepSD, 7); }),
              ElementsAre(kSuspend, kSuspended, kAsleep));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("StopProcessing true", "StateChanged 2 7"));
}

TEST_F(ClientState, Resumed_WorkersAllowedConfirmedAndStoreChecked) {
  (void)Round([&] { Request(State::kPrepSD, 7); });
  EXPECT_THAT(Round([&] { Request(State::kOn, 8); }),
              ElementsAre(kResume, kResumed, kContainer, kAsleep));
  EXPECT_THAT(unit.calls.Calls(),
              ElementsAre("StopProcessing false", "StateChanged 1 8", "GetInstalledContainerId",
                          "GetInstalledContainerTimestamp"));
}

TEST_F(ClientState, OnWhileOn_ConfirmedAndStoreNotChecked) {
  EXPECT_THAT(Round([&] { Request(State::kOn, 4294967295U); }),
              ElementsAre(kResume, kStillOn, kAsleep));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("StopProcessing false", "StateChanged 1 4294967295"));
}

TEST_F(ClientState, SuspendedWhileSuspended_Confirmed) {
  (void)Round([&] { Request(State::kPrepSD, 7); });
  EXPECT_THAT(Round([&] { Request(State::kPrepSD, 8); }),
              ElementsAre(kSuspend, kStillSuspended, kAsleep));
  EXPECT_THAT(unit.calls.Calls(), ElementsAre("StopProcessing true", "StateChanged 2 8"));
}

TEST_F(ClientState, ResumedTwice_StoreCheckedAfterEach) {
  for (unsigned int sequence = 1; sequence < 4; sequence += 2) {
    (void)Round([&] { Request(State::kPrepSD, sequence); });
    EXPECT_THAT(Round([&] { Request(State::kOn, sequence + 1); }), Contains(kContainer));
  }
}

TEST_F(ClientState, NoState_ToldAndNothingElse) {
  log.Clear();
  Request(State{0}, 1);
  EXPECT_THAT(log.Lines(), ElementsAre("error: Incorrect state change request!"));
  log.Clear();
  Request(State{3}, 1);
  Request(State{255}, 1);
  EXPECT_THAT(log.Lines(), ElementsAre("error: Default: Incorrect state change request!",
                                       "error: Default: Incorrect state change request!"));
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kAsleep));
  EXPECT_THAT(unit.calls.Calls(), IsEmpty());
}

// The one replaced is not confirmed: the platform asks for the last one only.
TEST_F(ClientState, ReplacedBeforeItWasCarriedOut_LastOneConfirmed) {
  unit.calls.During("GetReceivedMessage", [&] {
    Request(State::kPrepSD, 1);
    Request(State::kOn, 2);
  });
  Message("");
  EXPECT_TRUE(unit.calls.WaitFor("StateChanged 1 2"));
  EXPECT_EQ(unit.calls.Count("StateChanged 2 1"), 0);
  EXPECT_TRUE(WaitForLine(kStillOn));
}

TEST_F(ClientState, ReplacedWhileItIsConfirmed_BothConfirmed) {
  unit.calls.During("StateChanged 2 1", [&] { Request(State::kOn, 2); });
  Request(State::kPrepSD, 1);
  EXPECT_TRUE(unit.calls.WaitFor("StateChanged 1 2"));
  EXPECT_TRUE(WaitForLine(kContainer));
}

// Told by the platform's thread, which waits for the workers meanwhile.
TEST_F(ClientState, WorkersStillStopping_ConfirmedAfterwards) {
  workers.Close();
  unit.calls.During("StopProcessing true", [&] { workers.Pass(); });
  std::thread platform([&] { Request(State::kPrepSD, 1); });
  EXPECT_TRUE(unit.calls.WaitFor("StopProcessing true"));
  (void)Round([&] { client->SendTrigger(); });
  EXPECT_EQ(unit.calls.Count("StateChanged 2 1"), 0);
  workers.Open();
  platform.join();
  EXPECT_TRUE(unit.calls.WaitFor("StateChanged 2 1"));
}

// Neither is the new request taken for the old one, nor is one confirmed twice.
TEST_F(ClientState, WorkersStillStopping_EarlierRequestConfirmedMeanwhile) {
  workers.Close();
  unit.calls.During("StopProcessing true", [&] { workers.Pass(); });
  std::thread platform;
  unit.calls.During("GetReceivedMessage", [&] {
    platform = std::thread([&] {
      Request(State::kOn, 1);
      Request(State::kPrepSD, 2);
    });
    EXPECT_TRUE(unit.calls.WaitFor("StopProcessing true"));
  });
  Message("");
  EXPECT_TRUE(unit.calls.WaitFor("StateChanged 1 1"));
  EXPECT_TRUE(WaitForLine(kStillOn));
  EXPECT_EQ(unit.calls.Count("StateChanged 2 2"), 0);
  workers.Open();
  EXPECT_TRUE(unit.calls.WaitFor("StateChanged 2 2"));
  platform.join();
  (void)Round([&] { client->SendTrigger(); });
  EXPECT_THAT(unit.calls.Calls(), Not(Contains("StateChanged 2 2")));
}

// The broker sends one more for each that is taken.
TEST_F(ClientState, WhileMessagesComeWithoutEnd_CarriedOutAndRestHandledAfterResume) {
  unit.calls.During("GetReceivedMessage", [&] {
    unit.broker.Send("");
    if (unit.calls.Count("GetReceivedMessage") == 3) Request(State::kPrepSD, 1);
  });
  Message("");
  EXPECT_TRUE(unit.calls.WaitFor("StateChanged 2 1"));
  EXPECT_EQ(unit.calls.Count("GetReceivedMessage"), 3);
  unit.calls.During("GetReceivedMessage", nullptr);
  Request(State::kOn, 2);
  EXPECT_TRUE(unit.calls.WaitFor("GetReceivedMessage", 4));
}

class SuspendedClient : public ClientState {
 protected:
  SuspendedClient() {
    (void)Round([&] { Request(State::kPrepSD, 1); });
  }
};

TEST_F(SuspendedClient, Alert_HandledAfterResume) {
  EXPECT_THAT(Round([&] { Alert(46, "op"); }),
              ElementsAre("info: Tls Alert 46 occurred with Operation op", kOneSecond));
  EXPECT_THAT(Round([&] { Request(State::kOn, 2); }),
              ElementsAre(kResume, kResumed, kContainer,
                          "info: Tls Alert 'Missing Truststore Id' Occurred", kAsleep));
}

TEST_F(SuspendedClient, Job_HandledAfterResume) {
  EXPECT_THAT(Round([&] { Job("wanted-2"); }),
              ElementsAre("info: MQTT Message was received", kOneSecond));
  EXPECT_EQ(unit.calls.Count("GetReceivedMessage"), 0);
  EXPECT_THAT(Round([&] { Request(State::kOn, 2); }),
              Contains("info: Update notification received via MQTT"));
}

TEST_F(SuspendedClient, Connected_WorkersTold) {
  (void)Round([&] { Connect(2); });
  EXPECT_EQ(unit.calls.Count("ConnectionStateChange true"), 1);
}

class SuspendedAtStart : public tests::ClientTest {};

TEST_F(SuspendedAtStart, StoreCheckedAfterResumeOnly) {
  Construct();
  Request(State::kPrepSD, 1);
  Initialize();
  log.Clear();
  StartMain();
  EXPECT_THAT(log.Lines(), Not(Contains(kContainer)));
  EXPECT_EQ(Round([&] { Connect(2); }).back(), kOneSecond);
  EXPECT_THAT(Round([&] { Request(State::kOn, 2); }), Contains(kContainer));
}

class ClientTermination : public tests::ClientTest {
 protected:
  ClientTermination() { Begin(); }

  tests::Gate workers;  // where a stop may be held
};

TEST_F(ClientTermination, Idle_EndsAtOnceAndWorkersAreTold) {
  EXPECT_THAT(End(), ElementsAre(kSignal, kEnding, kEnded));
  const Lines calls = unit.calls.Calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "IsContainerUpdateOngoing"), 1);
  EXPECT_LT(std::find(calls.begin(), calls.end(), "TerminateProcessing"),
            std::find(calls.begin(), calls.end(), "StopProcessing true"));
  EXPECT_NE(std::find(calls.begin(), calls.end(), "StopProcessing true"), calls.end());
  EXPECT_EQ(unit.calls.Count("pause"), 0);
}

TEST_F(ClientTermination, UpdateUnderWay_WaitsSecondByTold) {
  unit.updates.ongoing = true;
  unit.calls.During("pause", [&] {
    if (unit.calls.Count("pause") == 3) unit.updates.ongoing = false;
  });
  EXPECT_THAT(End(), ElementsAre(kSignal, kEnding, kWaiting, kWaiting, kWaiting, kEnded));
  EXPECT_EQ(unit.calls.Count("IsContainerUpdateOngoing"), 4);
}

// The main loop tells that it waits while the signal's thread still does.
TEST_F(ClientTermination, WorkersStillStopping_LoopTellsMeanwhile) {
  workers.Close();
  unit.updates.ongoing = true;
  unit.calls.During("StopProcessing true", [&] { workers.Pass(); });
  std::thread signals([&] { Terminate(); });
  EXPECT_TRUE(WaitForLine(kWaiting, 2));
  unit.updates.ongoing = false;
  EXPECT_TRUE(WaitForLine(kEnded));
  workers.Open();
  signals.join();
  mainThread.join();
}

// Nothing is started any more, and no state is carried out.
TEST_F(ClientTermination, EventsAfterIt_NotHandled) {
  unit.updates.ongoing = true;
  unit.calls.During("pause", [&] {
    Request(State::kOn, 5);
    Alert(48, "op");
    Job("wanted-2");
    Connect(2);
    unit.updates.ongoing = false;
  });
  EXPECT_THAT(
      End(), ElementsAre(kSignal, kEnding, kResume, "info: Tls Alert 48 occurred with Operation op",
                         "info: MQTT Message was received", kWaiting, kEnded));
  for (const char* call : {"StateChanged 1 5", "GetInstalledContainerId", "GetReceivedMessage",
                           "ConnectionStateChange true"}) {
    EXPECT_EQ(unit.calls.Count(call), 0) << call;
  }
}

TEST_F(ClientTermination, WhileStopForSuspendIsUnderWay_Ends) {
  workers.Close();
  unit.updates.ongoing = true;
  unit.calls.During("StopProcessing true", [&] { workers.Pass(); });
  std::thread platform([&] { Request(State::kPrepSD, 1); });
  EXPECT_TRUE(unit.calls.WaitFor("StopProcessing true"));
  std::thread signals([&] { Terminate(); });
  EXPECT_TRUE(unit.calls.WaitFor("StopProcessing true", 2));
  EXPECT_EQ(unit.calls.Count("TerminateProcessing"), 1);
  unit.updates.ongoing = false;
  workers.Open();
  platform.join();
  signals.join();
  mainThread.join();
  EXPECT_EQ(log.Lines().back(), kEnded);
}

TEST_F(ClientTermination, AskedForTwice_EndsOnce) {
  Terminate();
  Terminate();
  mainThread.join();
  const Lines lines = log.Lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kEnded), 1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kEnding), 1);
}

// A broker that sends without end would keep the loop for ever.
TEST_F(ClientTermination, WhileMessagesAreRead_RestLeft) {
  unit.calls.During("GetReceivedMessage", [&] {
    unit.broker.Send("");
    if (unit.calls.Count("GetReceivedMessage") == 3) Terminate();
  });
  Message("");
  mainThread.join();
  EXPECT_EQ(unit.calls.Count("GetReceivedMessage"), 3);
  EXPECT_EQ(log.Lines().back(), kEnded);
}

TEST_F(ClientTermination, HealthAskedFor_AlwaysHealthy) {
  EXPECT_EQ(unit.callbacks.lifecycle.load()->ProcessLifecycleAdapterGetHealthStatus(), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("debug: Get Health Status called."));
  log.Clear();
}

class RejectedClient : public tests::ClientTest {
 protected:
  // Everything but states and the end is left alone.
  void ExpectIdle() {
    EXPECT_THAT(Round([&] { Alert(48, "op"); }),
                ElementsAre("info: Tls Alert 48 occurred with Operation op", kRejected, kAsleep));
    EXPECT_THAT(Round([&] { Job("wanted-2"); }),
                ElementsAre("info: MQTT Message was received", kRejected, kAsleep));
    EXPECT_THAT(
        Round([&] { Connect(2); }),
        ElementsAre("debug: Connection state notification, new state: 2", kRejected, kAsleep));
  }
};

TEST_F(RejectedClient, RejectedAtStart_IdlesUntilTermination) {
  Construct(SessionStatus::kRejected);
  Initialize();
  Forget();
  StartMain();
  EXPECT_THAT(log.Lines(), ElementsAre(kReady, kRejected, kAsleep));
  ExpectIdle();
  EXPECT_THAT(End(), ElementsAre(kSignal, kEnding, kEnded));
}

TEST_F(RejectedClient, RejectedLater_IdlesFromThenOn) {
  Begin();
  EXPECT_THAT(Round([&] { unit.connector.ReportSession(SessionStatus::kRejected); }),
              ElementsAre("error: LumoConnector Status Rejected=3", kRejected, kAsleep));
  ExpectIdle();
  EXPECT_THAT(End(), ElementsAre(kSignal, kEnding, kEnded));
}

TEST_F(RejectedClient, StartedAfterwards_StillIdles) {
  Begin();
  (void)Round([&] { unit.connector.ReportSession(SessionStatus::kRejected); });
  EXPECT_THAT(Round([&] { unit.connector.ReportSession(SessionStatus::kStarted); }),
              ElementsAre("info: LumoConnector Status OK", kRejected, kAsleep));
}

TEST_F(RejectedClient, StatesAskedFor_Confirmed) {
  Construct(SessionStatus::kRejected);
  Initialize();
  StartMain();
  EXPECT_THAT(Round([&] { Request(State::kPrepSD, 1); }),
              ElementsAre(kSuspend, kSuspended, kRejected, kAsleep));
  EXPECT_THAT(Round([&] { Request(State::kOn, 2); }),
              ElementsAre(kResume, kResumed, kRejected, kAsleep));
  EXPECT_EQ(unit.calls.Count("StateChanged 1 2"), 1);
}

TEST_F(RejectedClient, FailedLater_ToldAndWorkGoesOn) {
  Begin();
  EXPECT_THAT(Round([&] { unit.connector.ReportSession(SessionStatus::kFailed); }),
              ElementsAre("error: LumoConnectorStatus Failed=1", kAsleep));
}

}  // namespace
}  // namespace truststore_update_client
