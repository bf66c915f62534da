#include "TruststoreUpdateClient/Trigger.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/Deadline.h"

namespace truststore_update_client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tests::EndsInTime;

constexpr std::chrono::hours kLong{1};
constexpr milliseconds kShort{20};

TEST(Trigger, RaisedBeforeWait_WaitReturns) {
  Trigger trigger;
  trigger.Raise();
  EXPECT_TRUE(EndsInTime([&] { trigger.Wait(); }, [&] { trigger.Raise(); }));
}

TEST(Trigger, RaisedBeforeWaitFor_ReturnsLongBeforeTimeout) {
  Trigger trigger;
  trigger.Raise();
  EXPECT_TRUE(EndsInTime([&] { trigger.WaitFor(kLong); }, [&] { trigger.Raise(); }));
}

TEST(Trigger, RaisedByOtherThread_WaitReturns) {
  Trigger trigger;
  std::thread raiser([&] { trigger.Raise(); });
  EXPECT_TRUE(EndsInTime([&] { trigger.Wait(); }, [&] { trigger.Raise(); }));
  raiser.join();
}

TEST(Trigger, NotRaised_WaitForReturnsNoEarlierThanTimeout) {
  Trigger trigger;
  const auto start = steady_clock::now();
  trigger.WaitFor(kShort);
  EXPECT_GE(steady_clock::now() - start, kShort);
}

TEST(Trigger, WaitForZeroOrPastTimeout_Returns) {
  Trigger trigger;
  EXPECT_TRUE(EndsInTime(
      [&] {
        trigger.WaitFor(milliseconds(0));
        trigger.WaitFor(milliseconds(-1));
      },
      [&] { trigger.Raise(); }));
}

// A flag that outlived its wait would end the second wait early.
TEST(Trigger, RaisedTwiceBeforeWait_EndsOneWaitOnly) {
  Trigger trigger;
  trigger.Raise();
  trigger.Raise();
  ASSERT_TRUE(EndsInTime([&] { trigger.Wait(); }, [&] { trigger.Raise(); }));
  const auto start = steady_clock::now();
  trigger.WaitFor(kShort);
  EXPECT_GE(steady_clock::now() - start, kShort);
}

TEST(Trigger, RaisedBeforeWaitFor_FlagClearedAfterwards) {
  Trigger trigger;
  trigger.Raise();
  ASSERT_TRUE(EndsInTime([&] { trigger.WaitFor(kLong); }, [&] { trigger.Raise(); }));
  const auto start = steady_clock::now();
  trigger.WaitFor(kShort);
  EXPECT_GE(steady_clock::now() - start, kShort);
}

// Two threads that wake each other in turn come to a halt at the first lost trigger.
TEST(Trigger, RaisedInTurnByTwoThreads_NoneLost) {
  constexpr int kRounds = 1000;
  Trigger ping;
  Trigger pong;
  std::thread answering([&] {
    for (int i = 0; i < kRounds; ++i) {
      ping.WaitFor(tests::kDeadline);
      pong.Raise();
    }
  });
  EXPECT_TRUE(EndsInTime(
      [&] {
        for (int i = 0; i < kRounds; ++i) {
          ping.Raise();
          pong.WaitFor(tests::kDeadline * 2);
        }
      },
      [&] { pong.Raise(); }));
  answering.join();
}

// Meanwhile the waiter is anywhere in its wait: at its start, asleep, at its end.
TEST(Trigger, RaisedByManyThreads_LastRaiseIsSeen) {
  Trigger trigger;
  std::vector<std::thread> raisers;
  for (int thread = 0; thread < 4; ++thread) {
    raisers.emplace_back([&] {
      for (int i = 0; i < 200; ++i) trigger.Raise();
    });
  }
  EXPECT_TRUE(EndsInTime([&] { trigger.Wait(); }, [&] { trigger.Raise(); }));
  for (std::thread& raiser : raisers) raiser.join();
  trigger.Raise();
  EXPECT_TRUE(EndsInTime([&] { trigger.Wait(); }, [&] { trigger.Raise(); }));
}

}  // namespace
}  // namespace truststore_update_client
