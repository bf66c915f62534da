#include "socks_cdp/Listening.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <thread>

#include "tests/doubles/FakeCommunicator.h"
#include "tests/support/AlertProxy.h"
#include "tests/support/Deadline.h"

namespace socks_cdp {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using tests::FakeCommunicator;

class OneListening : public ::testing::Test {
 protected:
  tests::RecordingAlertCallback callback;
  Listening listening{&callback};
  const std::shared_ptr<FakeCommunicator> connection = std::make_shared<FakeCommunicator>("");
};

TEST_F(OneListening, Fresh_RunsAndKnowsWhomToTell) {
  EXPECT_TRUE(listening.IsRunning());
  EXPECT_EQ(listening.Callback(), &callback);
}

TEST_F(OneListening, Stopped_RunsNoMoreAndTellsNobody) {
  listening.Stop();
  listening.Stop();
  EXPECT_FALSE(listening.IsRunning());
  EXPECT_EQ(listening.Callback(), nullptr);
}

TEST_F(OneListening, Stop_DisconnectsWhatIsHeld) {
  EXPECT_TRUE(listening.Hold(connection));
  EXPECT_TRUE(connection->IsOpen());
  listening.Stop();
  EXPECT_FALSE(connection->IsOpen());
}

TEST_F(OneListening, HoldOnceStopped_RefusedAndLeftToTheCaller) {
  listening.Stop();
  EXPECT_FALSE(listening.Hold(connection));
  EXPECT_TRUE(connection->IsOpen());
  EXPECT_EQ(connection.use_count(), 1);
}

TEST_F(OneListening, HoldAnother_TheFormerIsGivenUp) {
  EXPECT_TRUE(listening.Hold(connection));
  EXPECT_TRUE(listening.Hold(std::make_shared<FakeCommunicator>("")));
  EXPECT_EQ(connection.use_count(), 1);
}

TEST_F(OneListening, Drop_DisconnectsAndRunsOn) {
  listening.Drop();
  EXPECT_TRUE(listening.Hold(connection));
  listening.Drop();
  EXPECT_FALSE(connection->IsOpen());
  EXPECT_TRUE(listening.IsRunning());
}

TEST_F(OneListening, Pause_EndsByItself) {
  EXPECT_TRUE(tests::EndsInTime([this] { listening.Pause(milliseconds(1)); },
                                [this] { listening.Stop(); }));
  EXPECT_TRUE(listening.IsRunning());
}

TEST_F(OneListening, StopDuringPause_EndsItAtOnce) {
  std::thread stopper([this] { listening.Stop(); });
  EXPECT_TRUE(tests::EndsInTime([this] { listening.Pause(hours(1)); }, [] {}));
  stopper.join();
}

}  // namespace
}  // namespace socks_cdp
