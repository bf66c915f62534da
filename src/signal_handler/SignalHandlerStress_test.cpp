// Signals at every instant of a handler's life, on other threads than its own: ThreadSanitizer's
// runtime cannot bear many that interrupt the thread under test.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

#include "platform/host/csc_logging/CapturedLog.h"
#include "signal_handler/SignalHandler.h"
#include "tests/support/KeptSignals.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/Repeated.h"

namespace signal_handler {
namespace {

constexpr int kTurns = 100;

/// A pipe that takes over the lowest free descriptor numbers.
class Victim {
 public:
  Victim() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
  ~Victim() {
    ::close(ends[0]);
    ::close(ends[1]);
  }
  Victim(const Victim&) = delete;
  Victim& operator=(const Victim&) = delete;

  [[nodiscard]] bool IsUntouched() const {
    char byte = 0;
    return ::read(ends[0], &byte, 1) == -1 && errno == EAGAIN;
  }

 private:
  int ends[2] = {-1, -1};
};

TEST(SignalStress, HandlerUnderWayAtTheEnd_WritesIntoNoOtherFile) {
  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
  const tests::Repeated signals([] { HandleSignal(SIGPIPE); });
  for (int turn = 0; turn < kTurns; ++turn) {
    {
      const SignalHandler handler([] {});
    }
    const Victim victim;
    std::this_thread::yield();
    EXPECT_TRUE(victim.IsUntouched());
  }
}

TEST(SignalStress, TerminationsAtAnyInstant_ActionAtMostOncePerHandler) {
  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
  const auto before = tests::OpenDescriptors();
  // From here on no signal ends the process.
  std::make_unique<SignalHandler>([] {}).reset();
  {
    const tests::Repeated signals([] {
      ::raise(SIGTERM);
      ::raise(SIGPIPE);
    });
    for (int turn = 0; turn < kTurns; ++turn) {
      std::atomic<int> calls{0};
      {
        const SignalHandler handler([&calls] { ++calls; });
      }
      EXPECT_LE(calls, 1);
    }
  }
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

}  // namespace
}  // namespace signal_handler
