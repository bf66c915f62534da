/// What test doubles were asked, in one list, with something to happen in the middle of a call. Any
/// thread.
#ifndef TESTS_DOUBLES_CALLRECORD_H
#define TESTS_DOUBLES_CALLRECORD_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/Mutex.h"
#include "tests/support/Deadline.h"

namespace tests {

/// Every call is a text: its name and its arguments.
class CallRecord {
 public:
  /// Writes `call` down, then runs what is to happen in it, on the caller's thread and with no lock
  /// held. Throws what that throws.
  void Add(const std::string& call) EXCLUDES(mutex) {
    std::function<void()> action;
    {
      const support::MutexLock lock(mutex);
      calls.push_back(call);
      changed.NotifyAll();
      const auto found = actions.find(call);
      if (found != actions.end()) action = found->second;
    }
    if (action) action();
  }

  /// From now on `action` happens in every `call`; null: nothing.
  void During(const std::string& call, std::function<void()> action) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    actions[call] = std::move(action);
  }

  /// The calls so far, oldest first.
  [[nodiscard]] std::vector<std::string> Calls() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return calls;
  }

  /// How often `call` has come.
  [[nodiscard]] std::ptrdiff_t Count(const std::string& call) const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return std::count(calls.begin(), calls.end(), call);
  }

  /// Forgets the calls so far, not what is to happen.
  void Clear() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    calls.clear();
  }

  /// Whether `call` came `times` times before the deadline.
  [[nodiscard]] bool WaitFor(const std::string& call, std::ptrdiff_t times = 1) EXCLUDES(mutex) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    const support::MutexLock lock(mutex);
    while (std::count(calls.begin(), calls.end(), call) < times) {
      if (!changed.WaitUntil(mutex, deadline)) return false;
    }
    return true;
  }

 private:
  mutable support::Mutex mutex;
  support::ConditionVariable changed;
  std::vector<std::string> calls GUARDED_BY(mutex);
  std::map<std::string, std::function<void()>> actions GUARDED_BY(mutex);
};

}  // namespace tests

#endif
