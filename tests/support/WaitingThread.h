/// A second thread for tests of operations that wait: begun, seen to wait, ended.
#ifndef TESTS_SUPPORT_WAITINGTHREAD_H
#define TESTS_SUPPORT_WAITINGTHREAD_H

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <future>
#include <string>
#include <utility>

#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"

namespace tests {

/// Whether thread `id` of this process sleeps in a system call; proc(5).
[[nodiscard]] inline bool IsAsleep(pid_t id) {
  std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
  std::string line;
  std::getline(file, line);
  const auto nameEnd = line.rfind(") ");
  return nameEnd != std::string::npos && line.compare(nameEnd + 2, 1, "S") == 0;
}

/// Runs one call that returns a `Result`. Belongs to the test's thread.
template <typename Result>
class WaitingThread {
 public:
  template <typename Call>
  explicit WaitingThread(Call call)
      : future(std::async(std::launch::async, [this, call] {
          thread = ::pthread_self();
          id = ::gettid();
          return call();
        })) {}

  /// Whether the call came to wait for something before the deadline.
  [[nodiscard]] bool Waits() const {
    return Eventually([this] { return id != 0 && IsAsleep(id); });
  }

  /// REQUIRES: Waits has returned.
  [[nodiscard]] pthread_t Thread() const { return thread; }

  /// Whether the call has ended before the deadline.
  [[nodiscard]] bool Ends() const {
    return future.wait_for(kDeadline) == std::future_status::ready;
  }

  /// Whether the call has ended already.
  [[nodiscard]] bool HasEnded() const {
    return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

  /// What the call returned, once: blocks until then.
  [[nodiscard]] Result Get() { return future.get(); }

 private:
  std::atomic<pthread_t> thread{};
  std::atomic<pid_t> id{0};
  std::future<Result> future;  ///< last: its thread uses the members above
};

}  // namespace tests

#endif
