#include "process_lifecycle_adapter/ProcessLifecycleAdapterImpl.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeAra.h"
#include "tests/doubles/RecordingLifecycle.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/KeptSignals.h"
#include "tests/support/ProcessUse.h"

namespace process_lifecycle_adapter {
namespace {

using platform_host::LogLevel;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kTerminateLine = "debug: ProcessLifecycleAdapterImpl::Terminate";

bool HasNoKeepAliveThread() {
  return tests::RunningThreadNames().count("keepAlive") == 0;
}

class NoStates : public ProcessLifecycleAdapterStateCallbackIf {
 public:
  void ProcessLifecycleAdapterEnterState(ProcessState, unsigned int) override {}
};

class Lifecycle : public ::testing::Test {
 protected:
  /// An adapter over a platform whose alive time is `aliveTime` and counts in hours, so that there
  /// is one report and no second one, unless `parts` says otherwise.
  void Make(std::uint16_t aliveTime, ProcessLifecycleAdapterCallbackIf* callback = nullptr) {
    auto recordingApi = std::make_unique<tests::RecordingApi>(events, aliveTime);
    recordingApi->inInitialize = inInitialize;
    recordingApi->inStart = inStart;
    parts.api = std::move(recordingApi);
    adapter = std::make_unique<ProcessLifecycleAdapterImpl>(callback, std::move(parts));
  }

  [[nodiscard]] static ProcessLifecycleAdapterImpl::Parts SlowParts() {
    ProcessLifecycleAdapterImpl::Parts slow;
    slow.aliveTimeUnit = std::chrono::hours(1);
    return slow;
  }

  /// The lines of the log that begin with `begin`.
  [[nodiscard]] std::vector<std::string> LinesFrom(const std::string& begin) const {
    std::vector<std::string> found;
    for (const std::string& line : log.Lines()) {
      if (line.find(begin) != std::string::npos) found.push_back(line);
    }
    return found;
  }

  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
  tests::FakeAra ara;
  tests::EventLog events;
  tests::RecordingOwner owner{events};
  NoStates states;
  std::function<void()> inInitialize;
  std::function<void()> inStart;
  ProcessLifecycleAdapterImpl::Parts parts = SlowParts();
  std::unique_ptr<ProcessLifecycleAdapterImpl> adapter;
};

TEST_F(Lifecycle, Initialize_RunningThenAliveReports) {
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive"));
  EXPECT_THAT(events.Texts(), ElementsAre("running unit", "start", "health", "alive"));
  EXPECT_THAT(log.Lines(), ElementsAre("debug: ProcessKeepAliveSignalling, aliveTime =1",
                                       "debug: ProcessKeepAliveSignalling, call IAmAlive()"));
}

TEST_F(Lifecycle, InitializeWithStateCallback_BothTold) {
  Make(0);
  adapter->Initialize("unit", &owner, &states);
  EXPECT_EQ(events.Texts().front(), "running unit with states");
}

TEST_F(Lifecycle, InitializeTwice_AliveReportsBeginOnce) {
  Make(0);
  adapter->Initialize("unit", &owner);
  adapter->Initialize("unit", &owner, &states);
  adapter.reset();
  const auto texts = events.Texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "start"), 1);
  EXPECT_THAT(texts, Contains("running unit with states"));
}

TEST_F(Lifecycle, NotifyInit_StatesOnly) {
  Make(1);
  adapter->NotifyInit("unit", &states);
  adapter.reset();
  EXPECT_THAT(events.Texts(), ElementsAre("running unit with states"));
}

TEST_F(Lifecycle, NotifyInitAfterInitialize_AliveReportsGoOn) {
  parts.aliveTimeUnit = std::chrono::milliseconds(0);
  Make(1);
  adapter->Initialize("unit", &owner);
  adapter->NotifyInit("unit", &states);
  const auto before = events.Texts().size();
  EXPECT_GT(events.WaitForCount(before + 4).size(), before + 3);
}

TEST_F(Lifecycle, NullCallback_FormerOneStays) {
  Make(0, &owner);
  adapter->Initialize("unit", nullptr);
  adapter->Terminate();
  EXPECT_THAT(events.Texts(), Contains("terminate"));
}

TEST_F(Lifecycle, NoApi_MadeByInitialize) {
  parts.api = nullptr;
  adapter = std::make_unique<ProcessLifecycleAdapterImpl>(nullptr, std::move(parts));
  adapter->StateChanged(ProcessState::kOn, 1);
  EXPECT_THAT(ara.Calls(), IsEmpty());
  adapter->Initialize("no-such-component", &owner, &states);
  EXPECT_THAT(ara.Calls(),
              ElementsAre("report running", "component no-such-component", "component created"));
}

TEST_F(Lifecycle, StateChanged_HandedOn) {
  Make(0);
  adapter->StateChanged(ProcessState::kPrepSD, 9);
  EXPECT_THAT(events.Texts(), ElementsAre("changed 2 9"));
}

TEST_F(Lifecycle, Configure_DoesNothing) {
  Make(0);
  adapter->Configure({});
  EXPECT_THAT(events.Texts(), IsEmpty());
  EXPECT_THAT(log.Lines(), IsEmpty());
}

/// The alive reports.
class KeepAlive : public Lifecycle {};

TEST_F(KeepAlive, NoAliveTime_ThreadEndsAfterItsFirstLine) {
  Make(0);
  adapter->Initialize("unit", &owner);
  adapter.reset();
  EXPECT_THAT(events.Texts(), ElementsAre("running unit", "start"));
  EXPECT_THAT(LinesFrom("ProcessKeepAliveSignalling"),
              ElementsAre("debug: ProcessKeepAliveSignalling, aliveTime =0"));
}

TEST_F(KeepAlive, Healthy_ReportedAgainAndAgain) {
  parts.aliveTimeUnit = std::chrono::milliseconds(1);
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive", 3));
}

TEST_F(KeepAlive, NextReport_NotBeforeItsTime) {
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive"));
  adapter->NotifyInit("unit", nullptr);  // which wakes the thread
  // Turns enough for a report before its time.
  for (int turn = 0; turn < 10'000 && events.Texts().size() < 6; ++turn) std::this_thread::yield();
  adapter.reset();
  EXPECT_THAT(events.Texts(),
              ElementsAre("running unit", "start", "health", "alive", "running unit"));
}

TEST_F(KeepAlive, UnitOfAliveTime_TenthOfASecond) {
  EXPECT_EQ(ProcessLifecycleAdapterImpl::Parts().aliveTimeUnit, std::chrono::milliseconds(100));
}

TEST_F(KeepAlive, UnhealthyOnce_NoReportEverAgain) {
  parts.aliveTimeUnit = std::chrono::milliseconds(0);
  owner.inHealth = [this] { owner.health = owner.health == 0 ? 1 : 0; };
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("health"));
  EXPECT_TRUE(tests::Eventually(HasNoKeepAliveThread));
  EXPECT_THAT(events.Texts(), ElementsAre("running unit", "start", "health"));
}

TEST_F(KeepAlive, WithoutOwner_NoReport) {
  parts.aliveTimeUnit = std::chrono::milliseconds(0);
  Make(1);
  adapter->Initialize("unit", nullptr);
  EXPECT_TRUE(events.WaitFor("start"));
  adapter->Initialize("unit", &owner);  // the reports begin with an owner
  EXPECT_TRUE(events.WaitFor("alive"));
  const auto texts = events.Texts();
  EXPECT_GT(std::find(texts.begin(), texts.end(), "alive"),
            std::find(texts.begin(), texts.end(), "health"));
}

TEST_F(KeepAlive, Thread_NamedAndWithoutSignals) {
  char name[16] = "";
  sigset_t blocked;
  owner.inHealth = [&] {
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  };
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive"));
  adapter.reset();
  EXPECT_STREQ(name, "keepAlive");
  EXPECT_EQ(::sigismember(&blocked, SIGTERM), 1);
}

TEST_F(KeepAlive, OwnerThrows_OneErrorLineAndThreadEnds) {
  owner.inHealth = [] { throw std::runtime_error("no idea"); };
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(tests::Eventually([this] { return !log.Lines(LogLevel::kError).empty(); }));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: ProcessKeepAliveSignalling, exception: no idea"));
}

TEST_F(KeepAlive, PlatformThrowsNoException_OneErrorLineAndThreadEnds) {
  inStart = [] { throw 1; };
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(tests::Eventually([this] { return !log.Lines(LogLevel::kError).empty(); }));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: ProcessKeepAliveSignalling, exception: unknown"));
}

TEST_F(KeepAlive, NoThread_OneErrorLineAndTerminationWorks) {
  parts.startKeepAlive = [](std::function<void()>) -> std::thread {
    throw std::runtime_error("no threads left");
  };
  Make(1);
  adapter->Initialize("unit", &owner);
  adapter->Terminate();
  EXPECT_THAT(events.Texts(), ElementsAre("running unit", "terminating", "terminate"));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: ProcessLifecycleAdapterImpl::Initialize, no alive reports: no "
                          "threads left"));
}

TEST_F(KeepAlive, EndDuringWait_EndsAtOnce) {
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive"));
  auto end = std::async(std::launch::async, [this] { adapter.reset(); });
  EXPECT_EQ(end.wait_for(tests::kDeadline), std::future_status::ready);
  EXPECT_THAT(events.Texts(), Not(Contains("terminating")));
}

/// SIGTERM at the instants of the adapter's life.
class Termination : public Lifecycle {
 protected:
  [[nodiscard]] std::ptrdiff_t Count(const std::string& text) const {
    const auto texts = events.Texts();
    return std::count(texts.begin(), texts.end(), text);
  }

  [[nodiscard]] bool SignalHandlerEnded() const {
    return tests::Eventually([this] { return !LinesFrom("Terminate").empty(); });
  }
};

TEST_F(Termination, Signal_ReportedThenOwnerTold) {
  Make(0);
  adapter->Initialize("unit", &owner);
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  adapter.reset();
  EXPECT_THAT(LinesFrom("Terminate"), ElementsAre(kTerminateLine));
  EXPECT_EQ(Count("terminating"), 1);
  const auto texts = events.Texts();
  EXPECT_LT(std::find(texts.begin(), texts.end(), "terminating"),
            std::find(texts.begin(), texts.end(), "terminate"));
}

TEST_F(Termination, SignalTwice_ReportedOnce) {
  Make(0);
  adapter->Initialize("unit", &owner);
  ::raise(SIGTERM);
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  ::raise(SIGTERM);
  adapter.reset();
  EXPECT_EQ(Count("terminating"), 1);
  EXPECT_EQ(Count("terminate"), 1);
}

TEST_F(Termination, TerminateTwice_SecondDoesNothing) {
  Make(0);
  adapter->Initialize("unit", &owner);
  adapter->Terminate();
  adapter->Terminate();
  EXPECT_EQ(Count("terminating"), 1);
  EXPECT_EQ(Count("terminate"), 1);
  EXPECT_THAT(LinesFrom("Terminate"), ElementsAre(kTerminateLine, kTerminateLine));
}

TEST_F(Termination, TerminateWhileOwnerIsTold_DoesNothing) {
  owner.inTerminate = [this] { adapter->Terminate(); };
  Make(0);
  adapter->Initialize("unit", &owner);
  adapter->Terminate();
  EXPECT_EQ(Count("terminating"), 1);
  EXPECT_EQ(Count("terminate"), 1);
}

TEST_F(Termination, WithoutCallback_Reported) {
  Make(0);
  adapter->Initialize("unit", nullptr);
  adapter->Terminate();
  EXPECT_EQ(Count("terminating"), 1);
}

TEST_F(Termination, WithoutApi_WarningAndOwnerTold) {
  parts.api = nullptr;
  adapter = std::make_unique<ProcessLifecycleAdapterImpl>(&owner, std::move(parts));
  adapter->Terminate();
  EXPECT_THAT(events.Texts(), ElementsAre("terminate"));
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(kTerminateLine, "warning: Cannot notify Terminating, adapter not instantiated"));
  adapter->Initialize("unit", &owner, &states);
  EXPECT_THAT(ara.Calls(), IsEmpty());
}

TEST_F(Termination, WhileAdapterIsBeingBuilt_ReportedAndOwnerToldByInitialize) {
  const signal_handler::SignalSystem real;
  parts.signalSystem.installHandler = [&](int signal) {
    const bool isInstalled = real.installHandler(signal);
    if (signal == SIGTERM) ::raise(SIGTERM);
    EXPECT_TRUE(events.WaitFor("terminating"));
    return isInstalled;
  };
  Make(1);
  adapter->Initialize("unit", &owner, &states);
  adapter.reset();
  EXPECT_THAT(events.Texts(), ElementsAre("terminating", "terminate"));
}

TEST_F(Termination, BeforeInitialize_OwnerToldOnceAndNothingBegins) {
  Make(1);
  adapter->Terminate();
  adapter->Initialize("unit", &owner);
  adapter->Initialize("unit", &owner, &states);
  adapter->NotifyInit("unit", &states);
  adapter.reset();
  EXPECT_THAT(events.Texts(), ElementsAre("terminating", "terminate"));
}

TEST_F(Termination, CallbackOfConstructorTold_NotAgainByInitialize) {
  Make(1, &owner);
  adapter->Terminate();
  adapter->Initialize("unit", &owner);
  EXPECT_THAT(events.Texts(), ElementsAre("terminating", "terminate"));
}

TEST_F(Termination, AnotherCallbackAfterwards_ToldToo) {
  tests::EventLog otherEvents;
  tests::RecordingOwner other(otherEvents);
  Make(1, &owner);
  adapter->Terminate();
  adapter->Initialize("unit", &other);
  EXPECT_THAT(otherEvents.Texts(), ElementsAre("terminate"));
}

TEST_F(Termination, WhileRunningIsReported_TerminatingComesLast) {
  inInitialize = [this] {
    ::raise(SIGTERM);
    EXPECT_TRUE(SignalHandlerEnded());
    // Turns enough for a Terminate that does not wait.
    for (int turn = 0; turn < 1000; ++turn) std::this_thread::yield();
  };
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("terminate"));
  adapter.reset();
  const auto texts = events.Texts();
  EXPECT_EQ(texts.front(), "running unit");
  EXPECT_EQ(Count("running unit"), 1);
  EXPECT_EQ(Count("terminating"), 1);
  EXPECT_EQ(Count("terminate"), 1);
}

TEST_F(Termination, InitializeThrowsMeanwhile_StillReported) {
  inInitialize = [this] {
    ::raise(SIGTERM);
    EXPECT_TRUE(SignalHandlerEnded());
    throw std::bad_alloc();
  };
  Make(1, &owner);
  EXPECT_THROW(adapter->Initialize("unit", &owner), std::bad_alloc);
  EXPECT_TRUE(events.WaitFor("terminate"));
}

TEST_F(Termination, OwnerTakesItsTime_AliveReportsGoOn) {
  std::promise<void> leave;
  owner.inTerminate = [&] { leave.get_future().wait(); };
  parts.aliveTimeUnit = std::chrono::milliseconds(0);
  Make(1);
  adapter->Initialize("unit", &owner);
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  const auto before = Count("alive");
  EXPECT_TRUE(events.WaitFor("alive", before + 3));
  leave.set_value();
  adapter.reset();  // before what its owner waits for
}

TEST_F(Termination, OwnerHasReturned_AliveReportsEnd) {
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive"));
  adapter->Terminate();
  EXPECT_TRUE(tests::Eventually(HasNoKeepAliveThread));
}

TEST_F(Termination, EndWhileOwnerIsTold_WaitsForIt) {
  std::promise<void> leave;
  owner.inTerminate = [&] {
    leave.get_future().wait();
    events.Add("left");
  };
  Make(0);
  adapter->Initialize("unit", &owner);
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  auto end = std::async(std::launch::async, [this] { adapter.reset(); });
  leave.set_value();
  EXPECT_EQ(end.wait_for(tests::kDeadline), std::future_status::ready);
  EXPECT_THAT(events.Texts(), Contains("left"));
}

TEST_F(Termination, OwnerThrows_LoggedAndAliveReportsEnd) {
  owner.inTerminate = [] { throw std::runtime_error("not now"); };
  Make(1);
  adapter->Initialize("unit", &owner);
  EXPECT_TRUE(events.WaitFor("alive"));
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  EXPECT_TRUE(tests::Eventually(HasNoKeepAliveThread));
  adapter.reset();
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: SignalHandler: Action failed: not now"));
}

TEST_F(Termination, SignalSeenOnceTheEndHasBegun_NeitherReportedNorTold) {
  std::promise<void> release;
  parts.signalSystem.readByte = [released = release.get_future().share()](int descriptor,
                                                                          unsigned char& byte) {
    released.wait();
    return ::read(descriptor, &byte, 1);
  };
  Make(0);
  adapter->Initialize("unit", &owner);
  ::raise(SIGTERM);
  auto end = std::async(std::launch::async, [this] { adapter.reset(); });
  EXPECT_TRUE(tests::Eventually([] { return signal_handler::gPipeWriteFd == -1; }));
  release.set_value();
  EXPECT_EQ(end.wait_for(tests::kDeadline), std::future_status::ready);
  EXPECT_THAT(LinesFrom("Terminate"), ElementsAre(kTerminateLine));
  EXPECT_THAT(events.Texts(), ElementsAre("running unit", "start"));
}

TEST_F(Termination, AfterTheEnd_Ignored) {
  Make(0);
  adapter->Initialize("unit", &owner);
  adapter.reset();
  ::raise(SIGTERM);
  EXPECT_EQ(Count("terminating"), 0);
}

TEST_F(Termination, NoSignalThread_ThrowsAndNothingIsLeft) {
  parts.signalSystem.startThread = [](std::function<void()>) -> std::thread {
    throw std::system_error(EAGAIN, std::generic_category());
  };
  EXPECT_THROW(Make(1), std::system_error);
  EXPECT_TRUE(tests::HasDefaultAction(SIGTERM));
}

}  // namespace
}  // namespace process_lifecycle_adapter
