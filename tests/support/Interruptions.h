/// Signals that interrupt system calls, for tests of code that must go on after one.
#ifndef TESTS_SUPPORT_INTERRUPTIONS_H
#define TESTS_SUPPORT_INTERRUPTIONS_H

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "tests/support/EventLog.h"

namespace tests {

/// While it lives, one thread gets SIGUSR1 again and again; its handler asks for no restart of
/// system calls. The handler stays, as a signal may still be on its way. One at a time; the thread
/// outlives it.
class Interruptions {
 public:
  explicit Interruptions(pthread_t interrupted) {
    handled = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { ++handled; };
    ::sigaction(SIGUSR1, &action, nullptr);
    sender = std::thread([this, interrupted] {
      while (!stopping) {
        const unsigned before = handled;
        ::pthread_kill(interrupted, SIGUSR1);
        // Not for ever: ThreadSanitizer may put one off until the call that it should end.
        for (int i = 0; i < 1000 && handled == before && !stopping; ++i) std::this_thread::yield();
      }
    });
  }
  ~Interruptions() {
    stopping = true;
    sender.join();
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

  /// Waits until `count` of them have been handled. False after the deadline.
  [[nodiscard]] static bool WaitForCount(unsigned count) {
    return Eventually([count] { return handled >= count; });
  }

 private:
  static inline std::atomic<unsigned> handled{0};
  static_assert(std::atomic<unsigned>::is_always_lock_free, "a handler takes no lock");

  std::atomic<bool> stopping{false};
  std::thread sender;
};

}  // namespace tests

#endif
