// The whole adapter over a platform in memory.
#include "process_lifecycle_adapter/ProcessLifecycleAdapter.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <string>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeAra.h"
#include "tests/doubles/RecordingLifecycle.h"
#include "tests/support/EventLog.h"
#include "tests/support/KeptSignals.h"

namespace process_lifecycle_adapter {
namespace {

using ::testing::ElementsAre;

/// Confirms each state at once.
class StateFollower : public ProcessLifecycleAdapterStateCallbackIf {
 public:
  void ProcessLifecycleAdapterEnterState(ProcessState state, unsigned int sequence) override {
    adapter->StateChanged(state, sequence);
  }

  ProcessLifecycleAdapter* adapter = nullptr;
};

class WholeAdapter : public ::testing::Test {
 protected:
  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
  tests::FakeAra ara;
  tests::EventLog events;
  tests::RecordingOwner owner{events};
  StateFollower follower;
};

TEST_F(WholeAdapter, FromInitializeToTermination_PlatformTold) {
  ProcessLifecycleAdapter adapter;
  follower.adapter = &adapter;
  adapter.Initialize("no-such-component", &owner, &follower);
  ara.RequestState(1, "kPrepSD");
  ara.RequestState(2, "kOn");
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  EXPECT_THAT(ara.Calls(),
              ElementsAre("report running", "component no-such-component", "component created",
                          "confirm 1 kPrepSD", "confirm 2 kOn", "report terminating"));
}

TEST_F(WholeAdapter, NotifyInit_StatesFollowed) {
  ProcessLifecycleAdapter adapter;
  follower.adapter = &adapter;
  adapter.Configure({});
  adapter.NotifyInit("no-such-component", &follower);
  ara.RequestState(5, "kOn");
  EXPECT_THAT(ara.Calls("confirm"), ElementsAre("confirm 5 kOn"));
}

TEST_F(WholeAdapter, CallbackOfConstructor_ToldBeforeInitialize) {
  ProcessLifecycleAdapter adapter(&owner);
  ::raise(SIGTERM);
  EXPECT_TRUE(events.WaitFor("terminate"));
  adapter.Initialize("no-such-component", &owner);
  EXPECT_THAT(ara.Calls(), ElementsAre("report terminating"));
}

TEST_F(WholeAdapter, End_NoComponentClientLeft) {
  {
    ProcessLifecycleAdapter adapter;
    adapter.Initialize("no-such-component", &owner, &follower);
  }
  EXPECT_FALSE(ara.HasComponentClient());
}

}  // namespace
}  // namespace process_lifecycle_adapter
