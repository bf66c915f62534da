#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiImpl.h"

#include <gmock/gmock.h>

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeAra.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace process_lifecycle_adapter {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kPrefix = "ProcessLifecycleAdapterApiImpl::";

/// Remembers the states that it was asked to enter, "STATE SEQUENCE" each, and then does more.
class StateListener : public ProcessLifecycleAdapterStateCallbackIf {
 public:
  void ProcessLifecycleAdapterEnterState(ProcessState state, unsigned int sequence) override {
    entered.Add(std::to_string(static_cast<int>(state)) + " " + std::to_string(sequence));
    if (then) then(state, sequence);
  }

  tests::EventLog entered;
  std::function<void(ProcessState, unsigned int)> then;
};

class LifecycleApi : public ::testing::Test {
 protected:
  tests::FakeAra ara;
  const tests::TemporaryDirectory directory;
  StateListener listener;
  const platform_host::CapturedLog log;
  std::unique_ptr<ProcessLifecycleAdapterApiImpl> api =
      std::make_unique<ProcessLifecycleAdapterApiImpl>(directory.Path());
};

TEST_F(LifecycleApi, Initialize_ReportsRunning) {
  api->Initialize("unit");
  EXPECT_THAT(ara.Calls(), ElementsAre("report running"));
  EXPECT_THAT(log.Lines(),
              ElementsAre("info: " + kPrefix + "Initialize, ReportApplicationState kRunning"));
}

TEST_F(LifecycleApi, InitializeWithFailingReport_Logged) {
  ara.FailReports();
  api->Initialize("unit");
  EXPECT_THAT(log.Lines(LogLevel::kWarning),
              ElementsAre("error: ReportApplicationState to kRunning failed."));
}

TEST_F(LifecycleApi, InitializeWithStateCallback_ReportsRunningFirst) {
  api->Initialize("unit", &listener);
  EXPECT_THAT(ara.Calls(), ElementsAre("report running", "component unit", "component created"));
  EXPECT_THAT(log.Lines(),
              ElementsAre("info: " + kPrefix + "Initialize, ReportApplicationState kRunning"));
}

TEST_F(LifecycleApi, NoComponentClient_LoggedAndGoesOn) {
  ara.FailComponentClient("state management is away");
  api->Initialize("unit", &listener);
  EXPECT_THAT(log.Lines(LogLevel::kWarning),
              ElementsAre("error: " + kPrefix +
                          "Initialize could not create ComponentClient: state management is away"));
  api->StateChanged(ProcessState::kOn, 1);
  EXPECT_EQ(log.Lines().back(), "error: " + kPrefix +
                                    "StateChanged: Component Client uninitialized, cannot notify "
                                    "new state");
}

TEST_F(LifecycleApi, Terminating_Reported) {
  api->Terminating();
  EXPECT_THAT(ara.Calls(), ElementsAre("report terminating"));
  EXPECT_THAT(log.Lines(), ElementsAre("debug: " + kPrefix +
                                       "Terminating, ReportApplicationState kTerminating"));
}

TEST_F(LifecycleApi, TerminatingNotDelivered_NoFurtherLine) {
  ara.FailReports();
  api->Terminating();
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(LifecycleApi, StateRequested_OwnerEntersIt) {
  api->Initialize("unit", &listener);
  ara.RequestState(7, "kPrepSD");
  ara.RequestState(8, "kOn");
  EXPECT_THAT(listener.entered.Texts(), ElementsAre("2 7", "1 8"));
  const auto lines = log.Lines();
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 1, lines.end()),
              ElementsAre("info: " + kPrefix + "StateChangeRequested new state: kPrepSD",
                          "info: " + kPrefix + "StateChangeRequested new state: kOn"));
}

TEST_F(LifecycleApi, InvalidStateRequested_LoggedAndReachesNoOwner) {
  api->Initialize("unit", &listener);
  for (const std::string state : {"kRunning", "", "kon", "kOn ", "kPrepSDx", "1"}) {
    SCOPED_TRACE(state);
    ara.RequestState(1, state);
    EXPECT_EQ(log.Lines().back(),
              "error: " + kPrefix + "StateChangeRequested, Invalid state requested: " + state);
  }
  EXPECT_THAT(listener.entered.Texts(), IsEmpty());
}

TEST_F(LifecycleApi, StateRequestedWithoutOwner_LoggedOnly) {
  api->Initialize("unit", nullptr);
  ara.RequestState(1, "kOn");
  EXPECT_EQ(log.Lines().back(), "info: " + kPrefix + "StateChangeRequested new state: kOn");
}

TEST_F(LifecycleApi, StateChanged_Confirmed) {
  api->Initialize("unit", &listener);
  api->StateChanged(ProcessState::kPrepSD, 7);
  api->StateChanged(ProcessState::kOn, 8);
  EXPECT_THAT(ara.Calls("confirm"), ElementsAre("confirm 7 kPrepSD", "confirm 8 kOn"));
  const auto lines = log.Lines();
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 1, lines.end()),
              ElementsAre("info: " + kPrefix + "StateChanged: 2 seq: 7",
                          "info: " + kPrefix + "StateChanged: 1 seq: 8"));
}

TEST_F(LifecycleApi, StateChangedToInvalid_LoggedAndNotConfirmed) {
  api->Initialize("unit", &listener);
  for (const int state : {0, 3, 255}) {
    SCOPED_TRACE(state);
    api->StateChanged(static_cast<ProcessState>(state), 5);
    const auto lines = log.Lines();
    EXPECT_THAT(
        std::vector<std::string>(lines.end() - 2, lines.end()),
        ElementsAre("info: " + kPrefix + "StateChanged: " + std::to_string(state) + " seq: 5",
                    "error: " + kPrefix + "StateChanged: Invalid state: " + std::to_string(state)));
  }
  EXPECT_THAT(ara.Calls("confirm"), IsEmpty());
}

TEST_F(LifecycleApi, StateChangedBeforeInitialize_ErrorLine) {
  api->StateChanged(ProcessState::kOn, 1);
  EXPECT_THAT(log.Lines(),
              ElementsAre("info: " + kPrefix + "StateChanged: 1 seq: 1",
                          "error: " + kPrefix +
                              "StateChanged: Component Client uninitialized, cannot notify new "
                              "state"));
}

TEST_F(LifecycleApi, RequestBeforeClientIsThere_OwnersConfirmationArrives) {
  ara.RequestDuringCreation(3, "kPrepSD");
  listener.then = [this](ProcessState state, unsigned int sequence) {
    api->StateChanged(state, sequence);
  };
  api->Initialize("unit", &listener);
  EXPECT_TRUE(listener.entered.WaitFor("2 3"));
  EXPECT_TRUE(tests::Eventually([this] { return !ara.Calls("confirm").empty(); }));
  EXPECT_THAT(ara.Calls(), ElementsAre("report running", "component unit", "component created",
                                       "confirm 3 kPrepSD"));
}

TEST_F(LifecycleApi, RequestWhileClientIsReplaced_OwnerEntersIt) {
  api->Initialize("unit", &listener);
  ara.RequestDuringCreation(4, "kOn");
  api->Initialize("unit", &listener);
  EXPECT_TRUE(listener.entered.WaitFor("1 4"));
}

TEST_F(LifecycleApi, SecondInitialize_ReplacesComponentClient) {
  api->Initialize("unit", &listener);
  api->Initialize("unit", &listener);
  EXPECT_THAT(ara.Calls("component"),
              ElementsAre("component unit", "component created", "component ended",
                          "component unit", "component created"));
  EXPECT_TRUE(ara.HasComponentClient());
}

TEST_F(LifecycleApi, End_EndsComponentClient) {
  api->Initialize("unit", &listener);
  api.reset();
  EXPECT_FALSE(ara.HasComponentClient());
}

TEST_F(LifecycleApi, EndDuringRequest_WaitsAndOwnerMayStillConfirm) {
  std::promise<void> entered;
  std::promise<void> leave;
  ProcessLifecycleAdapterApiImpl& used = *api;
  listener.then = [&](ProcessState state, unsigned int sequence) {
    entered.set_value();
    leave.get_future().wait();
    used.StateChanged(state, sequence);
  };
  api->Initialize("unit", &listener);
  auto request = std::async(std::launch::async, [this] { ara.RequestState(1, "kOn"); });
  ASSERT_EQ(entered.get_future().wait_for(tests::kDeadline), std::future_status::ready);
  auto end = std::async(std::launch::async, [this] { api.reset(); });
  EXPECT_TRUE(tests::Eventually([this] { return !ara.HasComponentClient(); }));
  leave.set_value();
  EXPECT_EQ(end.wait_for(tests::kDeadline), std::future_status::ready);
  // No confirmation goes to a client that is ending.
  EXPECT_EQ(ara.Calls().back(), "component ended");
  EXPECT_EQ(log.Lines().back(), "error: " + kPrefix +
                                    "StateChanged: Component Client uninitialized, cannot notify "
                                    "new state");
}

TEST_F(LifecycleApi, ConfirmationUnderWay_ClientEndsAfterIt) {
  std::promise<void> entered;
  std::promise<void> leave;
  ara.DuringConfirmations([&] {
    entered.set_value();
    leave.get_future().wait();
  });
  api->Initialize("unit", &listener);
  auto confirmation =
      std::async(std::launch::async, [this] { api->StateChanged(ProcessState::kOn, 1); });
  ASSERT_EQ(entered.get_future().wait_for(tests::kDeadline), std::future_status::ready);
  auto next = std::async(std::launch::async, [this] { api->Initialize("unit", nullptr); });
  EXPECT_TRUE(tests::Eventually([this] { return ara.Calls("report running").size() == 2; }));
  // Turns enough for an end that does not wait.
  for (int turn = 0; turn < 1000; ++turn) std::this_thread::yield();
  leave.set_value();
  EXPECT_EQ(next.wait_for(tests::kDeadline), std::future_status::ready);
  EXPECT_THAT(ara.Calls(), ElementsAre("report running", "component unit", "component created",
                                       "report running", "confirm 1 kOn", "component ended",
                                       "component unit", "component created"));
}

/// The health supervision file of "unit".
class Supervision : public LifecycleApi {
 protected:
  using Lines = std::vector<std::pair<std::string, std::string>>;

  Supervision() { api->Initialize("unit"); }

  /// Starts with a complete file but for the lines of `changes`; an empty key's line is left out.
  [[nodiscard]] bool StartWith(const Lines& changes) {
    Lines lines = {{"instance-id", "tsuc"},
                   {"supervision-entity-id", "11"},
                   {"checkpoint-id", "22"},
                   {"supervision-cycle", "50"},
                   {"expected-alive-indications", "5"}};
    for (const auto& [key, value] : changes) {
      for (auto& line : lines) {
        if (line.first == key) line.second = value;
      }
    }
    std::string text;
    for (const auto& [key, value] : lines) {
      if (value != kAbsent) text.append(key).append(" = ").append(value).append("\n");
    }
    tests::WriteText(path, text);
    return api->Start();
  }

  static constexpr const char* kAbsent = "absent";
  const std::string path = directory.Path() + "/unit-phm.ini";
};

TEST_F(Supervision, CompleteFile_HealthObjectsMade) {
  EXPECT_TRUE(StartWith({}));
  EXPECT_EQ(api->GetIAmAliveTime(), 10);
  EXPECT_THAT(ara.Calls(),
              ElementsAre("report running", "client tsuc", "supervision tsuc", "channel tsuc"));
  const auto lines = log.Lines();
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 1, lines.end()),
              ElementsAre("debug: " + kPrefix + "Start",
                          "debug: IniFileReader: Settings read from file " + path,
                          "debug: Create Phm_client tsuc"));
}

TEST_F(Supervision, NoFile_FirstKeyMissing) {
  EXPECT_FALSE(api->Start());
  EXPECT_EQ(api->GetIAmAliveTime(), 0);
  EXPECT_THAT(ara.Calls(), ElementsAre("report running"));
  const auto lines = log.Lines();
  EXPECT_THAT(
      std::vector<std::string>(lines.begin() + 1, lines.end()),
      ElementsAre(
          "debug: " + kPrefix + "Start",
          "error: IniFileReader: Reading file " + path + " failed: No such file or directory",
          "warning: Configuration parameter \"instance-id\" not found from INI file for "
          "component unit",
          "error: ProcessLifecycleAdapter::Reading application configuration failed for "
          "unit"));
}

TEST_F(Supervision, KeyMissingOrEmpty_OneWarningAndNoAliveReports) {
  for (const char* key : {"instance-id", "supervision-entity-id", "checkpoint-id",
                          "supervision-cycle", "expected-alive-indications"}) {
    for (const char* value : {kAbsent, ""}) {
      SCOPED_TRACE(std::string(key) + "=" + value);
      const platform_host::CapturedLog lines;
      EXPECT_FALSE(StartWith({{key, value}}));
      EXPECT_EQ(api->GetIAmAliveTime(), 0);
      EXPECT_THAT(lines.Lines(LogLevel::kInfo),
                  ElementsAre("warning: Configuration parameter \"" + std::string(key) +
                                  "\" not found from INI file for component unit",
                              "error: ProcessLifecycleAdapter::Reading application configuration "
                              "failed for unit"));
    }
  }
}

TEST_F(Supervision, SeveralKeysMissing_OnlyFirstNamed) {
  const std::vector<std::string> keys = {"instance-id", "supervision-entity-id", "checkpoint-id",
                                         "supervision-cycle", "expected-alive-indications"};
  for (auto first = keys.begin(); first != keys.end(); ++first) {
    SCOPED_TRACE(*first);
    const platform_host::CapturedLog lines;
    Lines changes;
    for (auto key = first; key != keys.end(); ++key) changes.emplace_back(*key, kAbsent);
    EXPECT_FALSE(StartWith(changes));
    EXPECT_THAT(lines.Lines(LogLevel::kWarning),
                ElementsAre("warning: Configuration parameter \"" + *first +
                                "\" not found from INI file for component unit",
                            "error: ProcessLifecycleAdapter::Reading application configuration "
                            "failed for unit"));
  }
}

TEST_F(Supervision, InitializedUnderAnotherName_FileOfThat) {
  api->Initialize("other");
  EXPECT_FALSE(StartWith({}));
  EXPECT_EQ(log.Lines().back(),
            "error: ProcessLifecycleAdapter::Reading application configuration failed for other");
}

TEST_F(Supervision, ValueThatIsNoNumber_OneWarningAndAsIfMissing) {
  for (const char* key : {"supervision-entity-id", "checkpoint-id", "supervision-cycle",
                          "expected-alive-indications"}) {
    for (const char* value :
         {"x12", "-", "+", ".5", "#1", "ten", "9223372036854775808", "-9223372036854775809",
          "99999999999999999999", "-99999999999999999999"}) {
      SCOPED_TRACE(std::string(key) + "=" + value);
      const platform_host::CapturedLog lines;
      EXPECT_FALSE(StartWith({{key, value}}));
      EXPECT_EQ(api->GetIAmAliveTime(), 0);
      EXPECT_THAT(
          lines.Lines(LogLevel::kInfo),
          ElementsAre("warning: Configuration parameter \"" + std::string(key) +
                          "\" has no usable number in INI file for component unit: " + value,
                      "error: ProcessLifecycleAdapter::Reading application configuration "
                      "failed for unit"));
    }
  }
}

TEST_F(Supervision, Number_DecimalAndCutTo16Bits) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"0", "0"},          {"12", "12"},
      {"12x", "12"},       {"0x10", "0"},
      {"010", "10"},       {"+5", "5"},
      {"1.9", "1"},        {"1 2", "12"},
      {"-1", "65535"},     {"65535", "65535"},
      {"65536", "0"},      {"65537", "1"},
      {"-65537", "65535"}, {"9223372036854775807", "65535"},
  };
  for (const auto& [text, number] : cases) {
    SCOPED_TRACE(text);
    EXPECT_TRUE(StartWith({{"checkpoint-id", text}}));
    api->IAmAlive();
    EXPECT_EQ(ara.Calls().back(), "checkpoint 11 " + number);
  }
}

TEST_F(Supervision, AliveTime_WholeTenthsOfCycleByIndications) {
  const std::vector<std::tuple<std::string, std::string, int>> cases = {
      {"50", "5", 10}, {"7", "2", 3}, {"4", "5", 0},         {"5", "5", 1},     {"50", "0", 0},
      {"0", "5", 0},   {"0", "0", 0}, {"65535", "1", 65535}, {"65536", "5", 0}, {"50", "65536", 0},
  };
  for (const auto& [cycle, indications, time] : cases) {
    SCOPED_TRACE(cycle + "/" + indications);
    EXPECT_TRUE(
        StartWith({{"supervision-cycle", cycle}, {"expected-alive-indications", indications}}));
    EXPECT_EQ(api->GetIAmAliveTime(), time);
  }
}

TEST_F(Supervision, AliveTimeBeforeStart_None) {
  EXPECT_EQ(api->GetIAmAliveTime(), 0);
}

TEST_F(Supervision, FailureAfterSuccess_NoAliveTime) {
  EXPECT_TRUE(StartWith({}));
  EXPECT_FALSE(StartWith({{"expected-alive-indications", ""}}));
  EXPECT_EQ(api->GetIAmAliveTime(), 0);
}

TEST_F(Supervision, NoHealthManagement_LoggedAndNoAliveReports) {
  for (const char* kind : {"client", "supervision", "channel"}) {
    SCOPED_TRACE(kind);
    const platform_host::CapturedLog lines;
    ara.FailHealthObjects(kind);
    EXPECT_FALSE(StartWith({}));
    EXPECT_EQ(api->GetIAmAliveTime(), 0);
    EXPECT_THAT(
        lines.Lines(LogLevel::kInfo),
        ElementsAre("error: " + kPrefix + "Start, Phm_client exception: no health management"));
    api->IAmAlive();
    EXPECT_THAT(ara.Calls("checkpoint"), IsEmpty());
  }
}

TEST_F(Supervision, IAmAlive_CheckpointReached) {
  EXPECT_TRUE(StartWith({}));
  api->IAmAlive();
  EXPECT_THAT(ara.Calls("checkpoint"), ElementsAre("checkpoint 11 22"));
  EXPECT_EQ(log.Lines().back(),
            "verbose: " + kPrefix +
                "IAmAlive, call CheckpointReached, supervision id=11, checkpoint id=22");
}

TEST_F(Supervision, IAmAliveBeforeStart_ErrorLine) {
  api->IAmAlive();
  EXPECT_EQ(log.Lines().back(),
            "error: IAmAlive called, the mSupervisionEntity has not been created");
  EXPECT_THAT(ara.Calls("checkpoint"), IsEmpty());
}

TEST_F(Supervision, CheckpointThrows_Logged) {
  EXPECT_TRUE(StartWith({}));
  ara.SetCheckpoints(tests::FakeAra::Checkpoints::kThrow);
  api->IAmAlive();
  EXPECT_EQ(log.Lines().back(),
            "error: " + kPrefix + "IAmAlive, CheckpointReached exception: no health management");
}

TEST_F(Supervision, CheckpointThrowsNoException_Logged) {
  EXPECT_TRUE(StartWith({}));
  ara.SetCheckpoints(tests::FakeAra::Checkpoints::kThrowWhatIsNoError);
  api->IAmAlive();
  EXPECT_EQ(log.Lines().back(),
            "error: " + kPrefix + "IAmAlive, CheckpointReached exception: unknown");
}

}  // namespace
}  // namespace process_lifecycle_adapter
