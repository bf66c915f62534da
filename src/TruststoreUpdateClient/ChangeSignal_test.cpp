#include "TruststoreUpdateClient/ChangeSignal.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/Deadline.h"
#include "tests/support/WaitingThread.h"

namespace truststore_update_client {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tests::EndsInTime;

// A thread that waits for more changes than there were when it was made.
class Waiter {
 public:
  explicit Waiter(const ChangeSignal& signal)
      : thread([&signal, seen = signal.Count()] {
          signal.WaitForChange(seen);
          return true;
        }) {}

  explicit Waiter(const ChangeSignal& signal, milliseconds timeout)
      : thread([&signal, timeout, seen = signal.Count()] {
          signal.WaitForChange(seen, timeout);
          return true;
        }) {}

  tests::WaitingThread<bool> thread;
};

TEST(ChangeSignal, Fresh_NoChangeCounted) {
  EXPECT_EQ(ChangeSignal().Count(), 0U);
}

TEST(ChangeSignal, EveryChange_CountedOnce) {
  ChangeSignal signal;
  for (unsigned changes = 1; changes <= 3; ++changes) {
    signal.Change();
    EXPECT_EQ(signal.Count(), changes);
  }
}

TEST(ChangeSignal, ChangeSinceCount_WaitReturnsAtOnce) {
  ChangeSignal signal;
  const std::uint64_t seen = signal.Count();
  signal.Change();
  EXPECT_TRUE(EndsInTime([&] { signal.WaitForChange(seen); }, [&] { signal.Change(); }));
  EXPECT_TRUE(EndsInTime([&] { signal.WaitForChange(seen, hours(1)); }, [&] { signal.Change(); }));
}

// Also a second wait for the same: to have waited takes nothing away.
TEST(ChangeSignal, SeveralChangesSinceCount_EveryWaitReturnsAtOnce) {
  ChangeSignal signal;
  signal.Change();
  signal.Change();
  for (std::uint64_t seen = 0; seen < 2; ++seen) {
    EXPECT_TRUE(EndsInTime([&] { signal.WaitForChange(seen); }, [&] { signal.Change(); }));
    EXPECT_TRUE(EndsInTime([&] { signal.WaitForChange(seen); }, [&] { signal.Change(); }));
  }
}

TEST(ChangeSignal, ChangeBeforeCount_DoesNotEndWait) {
  ChangeSignal signal;
  signal.Change();
  Waiter waiter(signal);
  EXPECT_TRUE(waiter.thread.Waits());
  EXPECT_FALSE(waiter.thread.HasEnded());
  signal.Change();
  EXPECT_TRUE(waiter.thread.Ends());
}

TEST(ChangeSignal, ChangeBeforeCount_DoesNotEndTimedWait) {
  ChangeSignal signal;
  signal.Change();
  Waiter waiter(signal, hours(1));
  EXPECT_TRUE(waiter.thread.Waits());
  EXPECT_FALSE(waiter.thread.HasEnded());
  signal.Change();
  EXPECT_TRUE(waiter.thread.Ends());
}

TEST(ChangeSignal, SeveralThreadsWait_OneChangeWakesAll) {
  ChangeSignal signal;
  Waiter first(signal);
  Waiter second(signal, hours(1));
  Waiter third(signal);
  for (const Waiter* waiter : {&first, &second, &third}) EXPECT_TRUE(waiter->thread.Waits());
  signal.Change();
  for (const Waiter* waiter : {&first, &second, &third}) EXPECT_TRUE(waiter->thread.Ends());
}

TEST(ChangeSignal, NoChange_TimedWaitLastsUntilTimeout) {
  const ChangeSignal signal;
  const auto start = steady_clock::now();
  signal.WaitForChange(0, milliseconds(20));
  EXPECT_GE(steady_clock::now() - start, milliseconds(20));
  EXPECT_EQ(signal.Count(), 0U);
}

TEST(ChangeSignal, NoTimeLeft_TimedWaitReturns) {
  const ChangeSignal signal;
  for (const milliseconds timeout : {milliseconds(0), milliseconds(-1)}) {
    signal.WaitForChange(0, timeout);
  }
}

// Each change here may come at any instant of the other thread's way from count to wait.
TEST(ChangeSignal, ChangesAtEveryInstant_NoneMissed) {
  constexpr std::uint64_t kChanges = 2000;
  ChangeSignal signal;
  ChangeSignal heard;
  std::thread listener([&] {
    for (std::uint64_t seen = 0; seen < kChanges; ++seen) {
      signal.WaitForChange(seen);
      heard.Change();
    }
  });
  EXPECT_TRUE(EndsInTime(
      [&] {
        for (std::uint64_t change = 0; change < kChanges; ++change) {
          signal.Change();
          heard.WaitForChange(change);
        }
      },
      [&] {
        for (std::uint64_t change = 0; change < kChanges; ++change) heard.Change();
      }));
  for (std::uint64_t change = signal.Count(); change < kChanges; ++change) signal.Change();
  listener.join();
}

}  // namespace
}  // namespace truststore_update_client
