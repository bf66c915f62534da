#include "TruststoreUpdateClient/UpdateActivity.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/WaitingThread.h"

namespace truststore_update_client {
namespace {

// A thread that waits until nothing is ongoing.
struct IdleWaiter {
  explicit IdleWaiter(const UpdateActivity& activity)
      : thread([&activity] {
          activity.WaitUntilIdle();
          return true;
        }) {}

  tests::WaitingThread<bool> thread;
};

TEST(UpdateActivity, Fresh_EveryFlagOff) {
  const UpdateActivity activity;
  EXPECT_FALSE(activity.IsOngoing());
  EXPECT_FALSE(activity.IsProcessingStopped());
  EXPECT_FALSE(activity.IsConnectingAllowed());
  EXPECT_FALSE(activity.IsUpdateRetryDisabled());
}

TEST(UpdateActivity, ContainerUpdate_OngoingFromBeginToEnd) {
  UpdateActivity activity;
  EXPECT_TRUE(activity.BeginContainerUpdate());
  EXPECT_TRUE(activity.IsOngoing());
  activity.EndContainerUpdate();
  EXPECT_FALSE(activity.IsOngoing());
}

TEST(UpdateActivity, StatusReport_OngoingFromBeginToEnd) {
  UpdateActivity activity;
  EXPECT_TRUE(activity.BeginStatusReport());
  EXPECT_TRUE(activity.IsOngoing());
  activity.EndStatusReport();
  EXPECT_FALSE(activity.IsOngoing());
}

TEST(UpdateActivity, SecondOfAKind_RefusedUntilFirstHasEnded) {
  UpdateActivity activity;
  ASSERT_TRUE(activity.BeginContainerUpdate());
  ASSERT_TRUE(activity.BeginStatusReport());
  EXPECT_FALSE(activity.BeginContainerUpdate());
  EXPECT_FALSE(activity.BeginStatusReport());
  activity.EndContainerUpdate();
  EXPECT_TRUE(activity.BeginContainerUpdate());
  activity.EndStatusReport();
  EXPECT_TRUE(activity.BeginStatusReport());
}

TEST(UpdateActivity, OneOfTwoEnds_StillOngoing) {
  UpdateActivity activity;
  ASSERT_TRUE(activity.BeginContainerUpdate());
  ASSERT_TRUE(activity.BeginStatusReport());
  activity.EndContainerUpdate();
  EXPECT_TRUE(activity.IsOngoing());
  activity.EndStatusReport();
  ASSERT_TRUE(activity.BeginContainerUpdate());
  EXPECT_TRUE(activity.IsOngoing());
}

TEST(UpdateActivity, NothingOngoing_WaitReturnsAtOnce) {
  const UpdateActivity activity;
  IdleWaiter waiter(activity);
  EXPECT_TRUE(waiter.thread.Ends());
}

TEST(UpdateActivity, Wait_LastsUntilBothHaveEnded) {
  UpdateActivity activity;
  ASSERT_TRUE(activity.BeginContainerUpdate());
  ASSERT_TRUE(activity.BeginStatusReport());
  IdleWaiter waiter(activity);
  EXPECT_TRUE(waiter.thread.Waits());
  activity.EndContainerUpdate();
  EXPECT_TRUE(waiter.thread.Waits());
  EXPECT_FALSE(waiter.thread.HasEnded());
  activity.EndStatusReport();
  EXPECT_TRUE(waiter.thread.Ends());
}

TEST(UpdateActivity, EndOfContainerUpdateLast_EndsWait) {
  UpdateActivity activity;
  ASSERT_TRUE(activity.BeginContainerUpdate());
  IdleWaiter waiter(activity);
  EXPECT_TRUE(waiter.thread.Waits());
  activity.EndContainerUpdate();
  EXPECT_TRUE(waiter.thread.Ends());
}

TEST(UpdateActivity, SeveralWait_AllEnd) {
  UpdateActivity activity;
  ASSERT_TRUE(activity.BeginStatusReport());
  IdleWaiter first(activity);
  IdleWaiter second(activity);
  EXPECT_TRUE(first.thread.Waits());
  EXPECT_TRUE(second.thread.Waits());
  activity.EndStatusReport();
  EXPECT_TRUE(first.thread.Ends());
  EXPECT_TRUE(second.thread.Ends());
}

TEST(UpdateActivity, StopAndResume_Told) {
  UpdateActivity activity;
  activity.SetProcessingStopped(true);
  EXPECT_TRUE(activity.IsProcessingStopped());
  EXPECT_TRUE(activity.IsStopRequested());
  activity.SetProcessingStopped(false);
  EXPECT_FALSE(activity.IsProcessingStopped());
  EXPECT_FALSE(activity.IsStopRequested());
}

TEST(UpdateActivity, Termination_OutlastsResume) {
  UpdateActivity activity;
  activity.Terminate();
  EXPECT_TRUE(activity.IsProcessingStopped());
  EXPECT_FALSE(activity.IsStopRequested());
  activity.SetProcessingStopped(true);
  activity.SetProcessingStopped(false);
  EXPECT_TRUE(activity.IsProcessingStopped());
}

TEST(UpdateActivity, Stop_OutlastsBeginAndEnd) {
  UpdateActivity activity;
  activity.SetProcessingStopped(true);
  ASSERT_TRUE(activity.BeginContainerUpdate());
  activity.EndContainerUpdate();
  EXPECT_TRUE(activity.IsProcessingStopped());
}

TEST(UpdateActivity, ConnectingAllowed_AsToldLast) {
  UpdateActivity activity;
  activity.SetConnectingAllowed(true);
  EXPECT_TRUE(activity.IsConnectingAllowed());
  activity.SetConnectingAllowed(false);
  EXPECT_FALSE(activity.IsConnectingAllowed());
}

TEST(UpdateActivity, DisabledRetries_AllowedAgainByNextContainerUpdateOnly) {
  UpdateActivity activity;
  ASSERT_TRUE(activity.BeginContainerUpdate());
  activity.DisableUpdateRetries();
  EXPECT_FALSE(activity.BeginContainerUpdate());
  EXPECT_TRUE(activity.IsUpdateRetryDisabled()) << "by one that was refused";
  ASSERT_TRUE(activity.BeginStatusReport());
  activity.EndStatusReport();
  activity.EndContainerUpdate();
  EXPECT_TRUE(activity.IsUpdateRetryDisabled());
  ASSERT_TRUE(activity.BeginContainerUpdate());
  EXPECT_FALSE(activity.IsUpdateRetryDisabled());
}

// A worker that says that it has ended uses the block after its owner has let it go.
TEST(UpdateActivity, OwnerLetsGoAtEnd_WorkerHoldsIt) {
  constexpr int kTurns = 500;
  for (int turn = 0; turn < kTurns; ++turn) {
    auto activity = std::make_shared<UpdateActivity>();
    ASSERT_TRUE(activity->BeginContainerUpdate());
    ASSERT_TRUE(activity->BeginStatusReport());
    std::thread update([shared = activity] { shared->EndContainerUpdate(); });
    std::thread report([shared = activity] { shared->EndStatusReport(); });
    activity->WaitUntilIdle();
    activity.reset();
    update.join();
    report.join();
  }
}

TEST(UpdateActivity, SeveralThreadsBegin_OneBegins) {
  UpdateActivity activity;
  std::atomic<int> begun{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] { begun += activity.BeginContainerUpdate() ? 1 : 0; });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(begun, 1);
}

}  // namespace
}  // namespace truststore_update_client
