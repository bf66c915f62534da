#include "process_lifecycle_adapter/ProcessLifecycleAdapterApi.h"

#include <gmock/gmock.h>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeAra.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace process_lifecycle_adapter {
namespace {

using ::testing::ElementsAre;

class NoStates : public ProcessLifecycleAdapterStateCallbackIf {
 public:
  void ProcessLifecycleAdapterEnterState(ProcessState, unsigned int) override {}
};

TEST(ProcessLifecycleAdapterApi, EveryCall_HandedOn) {
  const platform_host::CapturedLog log;
  const tests::FakeAra ara;
  const tests::TemporaryDirectory directory;
  tests::WriteText(directory.Path() + "/unit-phm.ini",
                   "instance-id=i\nsupervision-entity-id=1\ncheckpoint-id=2\nsupervision-cycle=7\n"
                   "expected-alive-indications=2\n");
  NoStates states;
  ProcessLifecycleAdapterApi api(directory.Path());
  api.Initialize("unit");
  api.Initialize("unit", &states);
  EXPECT_TRUE(api.Start());
  EXPECT_EQ(api.GetIAmAliveTime(), 3);
  api.IAmAlive();
  api.StateChanged(ProcessState::kOn, 4);
  api.Terminating();
  EXPECT_THAT(ara.Calls(),
              ElementsAre("report running", "report running", "component unit", "component created",
                          "client i", "supervision i", "channel i", "checkpoint 1 2",
                          "confirm 4 kOn", "report terminating"));
}

TEST(ProcessLifecycleAdapterApi, Fresh_ReadsTheUnitsFiles) {
  const platform_host::CapturedLog log;
  const tests::FakeAra ara;
  ProcessLifecycleAdapterApi api;
  api.Initialize("no-such-component");
  EXPECT_FALSE(api.Start());
  EXPECT_EQ(log.Lines().at(2),
            "error: IniFileReader: Reading file /etc/no-such-component-phm.ini failed: No such "
            "file or directory");
}

}  // namespace
}  // namespace process_lifecycle_adapter
