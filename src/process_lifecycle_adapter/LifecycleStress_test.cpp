// SIGTERM and requests of states at every instant of an adapter's life.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterImpl.h"
#include "support/UniqueFd.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/FakeAra.h"
#include "tests/doubles/RecordingLifecycle.h"
#include "tests/support/EventLog.h"
#include "tests/support/KeptSignals.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/Repeated.h"

namespace process_lifecycle_adapter {
namespace {

constexpr int kTurns = 50;
constexpr unsigned kDeadlineS = 60;
const std::string kRequested =
    "info: ProcessLifecycleAdapterApiImpl::StateChangeRequested new state: ";
constexpr const char* kNoClient =
    "error: ProcessLifecycleAdapterApiImpl::StateChanged: Component Client uninitialized, cannot "
    "notify new state";

/// Confirms each state at once, on the thread of state management.
class StateFollower : public ProcessLifecycleAdapterStateCallbackIf {
 public:
  void ProcessLifecycleAdapterEnterState(ProcessState state, unsigned int sequence) override {
    adapter->StateChanged(state, sequence);
  }

  ProcessLifecycleAdapterIf* adapter = nullptr;  ///< which this object outlives
};

std::ptrdiff_t Count(const std::vector<std::string>& texts, const std::string& text) {
  return std::count(texts.begin(), texts.end(), text);
}

/// That one termination, or none, was reported after everything else and told to the owner.
void ExpectOrderly(const std::vector<std::string>& texts) {
  EXPECT_LE(Count(texts, "terminating"), 1);
  EXPECT_EQ(Count(texts, "terminate"), Count(texts, "terminating"));
  const auto terminating = std::find(texts.begin(), texts.end(), "terminating");
  EXPECT_EQ(std::find(terminating, texts.end(), "running unit"), texts.end());
  EXPECT_EQ(std::find(texts.begin(), terminating, "terminate"), terminating);
}

class LifecycleStress : public ::testing::Test {
 protected:
  [[nodiscard]] static ProcessLifecycleAdapterImpl::Parts PartsOver(tests::EventLog& events) {
    ProcessLifecycleAdapterImpl::Parts parts;
    parts.api = std::make_unique<tests::RecordingApi>(events, 1);
    return parts;
  }

  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
};

TEST_F(LifecycleStress, TerminateFromTwoThreads_ReportedAndToldOnce) {
  for (int turn = 0; turn < kTurns; ++turn) {
    tests::EventLog events;
    tests::RecordingOwner owner(events);
    {
      ProcessLifecycleAdapterImpl adapter(nullptr, PartsOver(events));
      std::thread first([&] { adapter.Terminate(); });
      std::thread second([&] { adapter.Terminate(); });
      adapter.Initialize("unit", &owner);
      first.join();
      second.join();
    }
    ExpectOrderly(events.Texts());
    EXPECT_EQ(Count(events.Texts(), "terminate"), 1);
  }
}

TEST_F(LifecycleStress, SignalsFromConstructionToEnd_OrderlyEveryTime) {
  // From here on no signal ends the process.
  std::make_unique<signal_handler::SignalHandler>([] {}).reset();
  const auto before = tests::OpenDescriptors();
  {
    const tests::Repeated signals([] { ::raise(SIGTERM); });
    for (int turn = 0; turn < kTurns; ++turn) {
      tests::EventLog events;
      tests::RecordingOwner owner(events);
      {
        ProcessLifecycleAdapterImpl adapter(nullptr, PartsOver(events));
        adapter.Initialize("unit", &owner);
        adapter.NotifyInit("unit", nullptr);
      }
      ExpectOrderly(events.Texts());
    }
  }
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

TEST_F(LifecycleStress, StateRequestsFromConstructionToEnd_EachConfirmedOrRefused) {
  tests::FakeAra ara;
  const tests::Repeated requests([&ara] { ara.RequestState(1, "kPrepSD"); });
  for (int turn = 0; turn < kTurns; ++turn) {
    StateFollower follower;
    ProcessLifecycleAdapterImpl adapter;
    follower.adapter = &adapter;
    if (turn % 2 == 0) ara.RequestDuringCreation(2, "kOn");
    adapter.Initialize("no-such-component", nullptr, &follower);
    adapter.NotifyInit("no-such-component", &follower);
    if (turn % 3 == 0) adapter.Terminate();
  }
  EXPECT_FALSE(ara.HasComponentClient());
  const auto lines = log.Lines();
  EXPECT_EQ(Count(lines, kRequested + "kOn") + Count(lines, kRequested + "kPrepSD"),
            Count(ara.Calls(), "confirm 2 kOn") + Count(ara.Calls(), "confirm 1 kPrepSD") +
                Count(lines, kNoClient));
}

TEST_F(LifecycleStress, ConfirmationsWhileClientIsReplaced_NoneIsDroppedInSilence) {
  tests::FakeAra ara;
  StateFollower follower;
  ProcessLifecycleAdapterImpl adapter;
  follower.adapter = &adapter;
  adapter.NotifyInit("no-such-component", &follower);
  {
    const tests::Repeated confirmations([&] { adapter.StateChanged(ProcessState::kOn, 1); });
    for (int turn = 0; turn < kTurns; ++turn) adapter.NotifyInit("no-such-component", &follower);
  }
  EXPECT_EQ(ara.Calls("component ended").size(), kTurns);
  // Between two clients there is none that a confirmation could go to.
  const auto lines = log.Lines();
  EXPECT_EQ(Count(ara.Calls(), "confirm 1 kOn") + Count(lines, kNoClient),
            Count(lines, "info: ProcessLifecycleAdapterApiImpl::StateChanged: 1 seq: 1"));
}

/// A process that lives until it is told to end, and writes a byte once SIGTERM cannot kill it.
int LiveUntilTold(int ready) {
  ::alarm(kDeadlineS);
  const platform_host::CapturedLog log;
  tests::FakeAra ara;
  tests::EventLog events;
  tests::RecordingOwner owner(events);
  {
    ProcessLifecycleAdapterImpl::Parts parts;
    const signal_handler::SignalSystem real;
    parts.signalSystem.installHandler = [&](int signal) {
      const bool isInstalled = real.installHandler(signal);
      return isInstalled && (signal == SIGPIPE || ::write(ready, "x", 1) == 1);
    };
    StateFollower follower;
    ProcessLifecycleAdapterImpl adapter(nullptr, std::move(parts));
    follower.adapter = &adapter;
    adapter.Initialize("no-such-component", &owner, &follower);
    if (!events.WaitFor("terminate")) return 2;
  }
  return ara.Calls("report terminating").size() == 1 ? 0 : 1;
}

TEST_F(LifecycleStress, ProcessKilledTwiceAtAnyInstant_EndsWithZero) {
  std::minstd_rand chance;  // the same series every time; the instants differ all the same
  for (int turn = 0; turn < kTurns / 5; ++turn) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const support::UniqueFd readEnd(ends[0]);
    support::UniqueFd writeEnd(ends[1]);
    tests::ChildProcess unit([&] { return LiveUntilTold(writeEnd.Get()); });
    writeEnd = support::UniqueFd();
    char byte = 0;
    ASSERT_EQ(::read(readEnd.Get(), &byte, 1), 1);
    for (auto yields = chance() % 100; yields > 0; --yields) std::this_thread::yield();
    unit.Signal(SIGTERM);
    unit.Signal(SIGTERM);
    EXPECT_EQ(unit.Wait(), 0);
  }
}

}  // namespace
}  // namespace process_lifecycle_adapter
