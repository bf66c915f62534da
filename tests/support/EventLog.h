/// What a test's listeners have heard, in order, with a wait for more. Any thread.
#ifndef TESTS_SUPPORT_EVENTLOG_H
#define TESTS_SUPPORT_EVENTLOG_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "support/Mutex.h"
#include "tests/support/Deadline.h"

namespace tests {

/// A list of texts. No wait goes beyond kDeadline.
class EventLog {
 public:
  void Add(const std::string& text) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    texts.push_back(text);
    changed.NotifyAll();
  }

  [[nodiscard]] std::vector<std::string> Texts() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return texts;
  }

  /// The first `count` texts and whatever came with them; fewer when the deadline has passed.
  [[nodiscard]] std::vector<std::string> WaitForCount(std::size_t count) EXCLUDES(mutex) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    const support::MutexLock lock(mutex);
    while (texts.size() < count && changed.WaitUntil(mutex, deadline)) {
    }
    return texts;
  }

  /// Whether `text` came `times` times before the deadline.
  [[nodiscard]] bool WaitFor(const std::string& text, std::ptrdiff_t times = 1) EXCLUDES(mutex) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    const support::MutexLock lock(mutex);
    while (std::count(texts.begin(), texts.end(), text) < times) {
      if (!changed.WaitUntil(mutex, deadline)) return false;
    }
    return true;
  }

 private:
  mutable support::Mutex mutex;
  support::ConditionVariable changed;
  std::vector<std::string> texts GUARDED_BY(mutex);
};

/// Waits for `condition`, which something changes that cannot notify. False after the deadline.
template <typename Condition>
[[nodiscard]] bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace tests

#endif
