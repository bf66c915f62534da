// Signals at every instant of a handler's life, on other threads than its own: ThreadSanitizer's
// runtime cannot bear many that interrupt the thread under test.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "platform/host/csc_logging/CapturedLog.h"
#include "signal_handler/SignalHandler.h"
#include "tests/support/KeptSignals.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/Repeated.h"

namespace signal_handler {
namespace {

constexpr int kTurns = 100;

/// Called once, before the next write(2) of the thread, unless null.
thread_local const std::function<void()>* gBeforeWrite = nullptr;

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

TEST(SignalStress, HandlerStoppedBeforeItsWrite_EndWaitsForIt) {
  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
  auto handler = std::make_unique<SignalHandler>([] {});
  std::promise<void> entered;
  std::promise<void> leave;
  std::thread signalled([&] {
    const std::function<void()> stop = [&] {
      entered.set_value();
      leave.get_future().wait();
    };
    gBeforeWrite = &stop;
    HandleSignal(SIGPIPE);
  });
  entered.get_future().wait();
  std::thread end([&] { handler.reset(); });
  // Turns enough for an end that does not wait.
  for (int turn = 0; turn < 10'000 && log.Lines().empty(); ++turn) std::this_thread::yield();
  EXPECT_THAT(log.Lines(), ::testing::IsEmpty());
  leave.set_value();
  signalled.join();
  end.join();
  EXPECT_EQ(log.Lines().front(), "info: SignalHandler: Signal 13 caught");
}

}  // namespace
}  // namespace signal_handler

// The names that the linker's --wrap asks for.
extern "C" {
ssize_t __real_write(int fd, const void* bytes, size_t size);  // NOLINT: the linker's name
ssize_t __wrap_write(int fd, const void* bytes, size_t size);  // NOLINT: the linker's name

ssize_t __wrap_write(int fd, const void* bytes, size_t size) {  // NOLINT: the linker's name
  if (const auto* before = std::exchange(signal_handler::gBeforeWrite, nullptr)) (*before)();
  return __real_write(fd, bytes, size);
}
}
