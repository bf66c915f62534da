/// For tests of code that installs signal handlers: they are gone after the test.
#ifndef TESTS_SUPPORT_KEPTSIGNALS_H
#define TESTS_SUPPORT_KEPTSIGNALS_H

#include <signal.h>

namespace tests {

/// What SIGTERM and SIGPIPE do when it is made, they do again when it ends. One at a time.
class KeptSignals {
 public:
  KeptSignals() {
    // Sends nothing, but ThreadSanitizer loses a signal that interrupts a thread's first wait or
    // raise, where it sets up what it keeps of the thread's signals.
    ::raise(0);
    ::sigaction(SIGTERM, nullptr, &termination);
    ::sigaction(SIGPIPE, nullptr, &brokenPipe);
  }
  ~KeptSignals() {
    ::sigaction(SIGTERM, &termination, nullptr);
    ::sigaction(SIGPIPE, &brokenPipe, nullptr);
  }
  KeptSignals(const KeptSignals&) = delete;
  KeptSignals& operator=(const KeptSignals&) = delete;

 private:
  struct sigaction termination {};
  struct sigaction brokenPipe {};
};

/// Whether `signal` has its default action.
[[nodiscard]] inline bool HasDefaultAction(int signal) {
  struct sigaction present {};
  return ::sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_DFL;
}

}  // namespace tests

#endif
