#include "platform/host/control/RetryPlan.h"

#include <gtest/gtest.h>

namespace platform_host {
namespace {

using std::chrono::milliseconds;

constexpr RetryPlan::TimePoint kStart{std::chrono::hours(1)};

TEST(RetryPlan, NotBegun_NothingDue) {
  const RetryPlan plan;
  EXPECT_FALSE(plan.IsDue(kStart));
  EXPECT_EQ(plan.Next(), std::nullopt);
}

TEST(RetryPlan, Begun_DueAtOnce) {
  RetryPlan plan;
  plan.Begin(kStart);
  EXPECT_TRUE(plan.IsDue(kStart));
}

TEST(RetryPlan, Failures_PausesDouble) {
  RetryPlan plan;
  plan.Begin(kStart);
  plan.Failed(kStart);
  EXPECT_EQ(plan.Next(), kStart + milliseconds(1));
  EXPECT_FALSE(plan.IsDue(kStart));
  plan.Failed(kStart);
  EXPECT_EQ(plan.Next(), kStart + milliseconds(2));
  EXPECT_TRUE(plan.IsDue(kStart + milliseconds(2)));
}

TEST(RetryPlan, FailuresForAMinute_Over) {
  RetryPlan plan;
  auto now = kStart;
  int attempts = 0;
  for (plan.Begin(now); plan.Next(); ++attempts) {
    now = *plan.Next();
    plan.Failed(now);
  }
  EXPECT_EQ(attempts, 17);
  EXPECT_EQ(now - kStart, milliseconds(65535));
}

TEST(RetryPlan, NoPause_OneAttempt) {
  RetryPlan plan(milliseconds(0));
  plan.Begin(kStart);
  EXPECT_TRUE(plan.IsDue(kStart));
  plan.Failed(kStart);
  EXPECT_EQ(plan.Next(), std::nullopt);
}

TEST(RetryPlan, BegunAgain_FromTheFirstPause) {
  RetryPlan plan;
  plan.Begin(kStart);
  plan.Failed(kStart);
  plan.Begin(kStart);
  plan.Failed(kStart);
  EXPECT_EQ(plan.Next(), kStart + milliseconds(1));
}

TEST(RetryPlan, Ended_NothingDue) {
  RetryPlan plan;
  plan.Begin(kStart);
  plan.End();
  EXPECT_EQ(plan.Next(), std::nullopt);
}

}  // namespace
}  // namespace platform_host
