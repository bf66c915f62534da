#include "support/Mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace support {
namespace {

class Counter {
 public:
  void Increment() EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    ++count;
    changed.NotifyAll();
  }

  void WaitFor(int target) EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    while (count < target) changed.Wait(mutex);
  }

  bool IsReachedBy(int target, std::chrono::steady_clock::time_point deadline) EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    while (count < target) {
      if (!changed.WaitUntil(mutex, deadline)) return count >= target;
    }
    return true;
  }

 private:
  Mutex mutex;
  ConditionVariable changed;
  int count GUARDED_BY(mutex) = 0;
};

TEST(Mutex, ManyThreads_AreExcludedFromEachOther) {
  Counter counter;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&counter] {
      for (int i = 0; i < 1000; ++i) counter.Increment();
    });
  }
  counter.WaitFor(4000);
  for (std::thread& thread : threads) thread.join();
}

TEST(ConditionVariable, DeadlineInThePast_EndsTheWait) {
  Counter counter;
  EXPECT_FALSE(counter.IsReachedBy(1, std::chrono::steady_clock::time_point()));
}

TEST(ConditionVariable, NotifiedBeforeTheDeadline_Waits) {
  Counter counter;
  std::thread other([&counter] { counter.Increment(); });
  EXPECT_TRUE(counter.IsReachedBy(1, std::chrono::steady_clock::now() + std::chrono::minutes(1)));
  other.join();
}

}  // namespace
}  // namespace support
