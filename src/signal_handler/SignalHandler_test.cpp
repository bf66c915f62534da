#include "signal_handler/SignalHandler.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/KeptSignals.h"
#include "tests/support/ProcessUse.h"

namespace signal_handler {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kStopCaught =
    "info: SignalHandler: Signal " + std::to_string(SIGRTMIN) + " caught";
constexpr const char* kStopped = "info: SignalHandler: STOP message received.";
constexpr const char* kTerminationCaught = "info: SignalHandler: Signal 15 caught";
constexpr const char* kTerminated = "info: SignalHandler: SIGTERM received.";
constexpr const char* kBrokenPipeCaught = "info: SignalHandler: Signal 13 caught";

/// More bytes than any pipe holds unless it is told to.
constexpr int kMoreThanAPipe = 70'000;

class Signals : public ::testing::Test {
 protected:
  [[nodiscard]] std::function<void()> Count() {
    return [this] { ++calls; };
  }

  [[nodiscard]] bool WaitForLine(const std::string& line) const {
    return tests::Eventually([&] {
      const auto lines = log.Lines();
      return std::count(lines.begin(), lines.end(), line) > 0;
    });
  }

  const tests::KeptSignals former;
  const platform_host::CapturedLog log;
  std::atomic<int> calls{0};
};

TEST_F(Signals, Termination_ActionCalled) {
  {
    const SignalHandler handler(Count());
    ::raise(SIGTERM);
    EXPECT_TRUE(tests::Eventually([&] { return calls == 1; }));
  }
  EXPECT_THAT(log.Lines(), ElementsAre(kTerminationCaught, kTerminated));
}

TEST_F(Signals, TerminationTwice_ActionCalledOnce) {
  {
    const SignalHandler handler(Count());
    ::raise(SIGTERM);
    ::raise(SIGTERM);
    EXPECT_TRUE(tests::Eventually([&] { return calls == 1; }));
    ::raise(SIGTERM);
  }
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(log.Lines(), ElementsAre(kTerminationCaught, kTerminated));
}

TEST_F(Signals, TerminationFromAnotherProcess_ActionCalled) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const support::UniqueFd readEnd(ends[0]);
  support::UniqueFd writeEnd(ends[1]);
  tests::ChildProcess killer([&] {
    writeEnd = support::UniqueFd();
    char byte = 0;
    return ::read(readEnd.Get(), &byte, 1) == 0 ? ::kill(::getppid(), SIGTERM) : 1;
  });
  tests::EventLog events;
  const SignalHandler handler([&events] { events.Add("called"); });
  writeEnd = support::UniqueFd();
  EXPECT_TRUE(events.WaitFor("called"));
  EXPECT_EQ(killer.Wait(), 0);
}

TEST_F(Signals, WriteToBrokenPipe_LoggedAndNothingElse) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const support::UniqueFd writeEnd(ends[1]);
  ASSERT_EQ(::close(ends[0]), 0);
  {
    const SignalHandler handler(Count());
    EXPECT_EQ(::write(writeEnd.Get(), "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_TRUE(WaitForLine(kBrokenPipeCaught));
  }
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(log.Lines(), ElementsAre(kBrokenPipeCaught, kStopCaught, kStopped));
}

TEST_F(Signals, TerminationAfterBrokenPipe_ActionCalled) {
  const SignalHandler handler(Count());
  ::raise(SIGPIPE);
  ::raise(SIGTERM);
  EXPECT_TRUE(tests::Eventually([&] { return calls == 1; }));
}

TEST_F(Signals, NoSignal_StopMessageEndsThread) {
  { const SignalHandler handler(Count()); }
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(log.Lines(), ElementsAre(kStopCaught, kStopped));
}

TEST_F(Signals, TerminationAfterEnd_CaughtAndIgnored) {
  { const SignalHandler handler(Count()); }
  ::raise(SIGTERM);
  ::raise(SIGPIPE);
  EXPECT_EQ(calls, 0);
}

TEST_F(Signals, TerminationBetweenTwoHandlers_NotActedOnLater) {
  { const SignalHandler first(Count()); }
  ::raise(SIGTERM);
  { const SignalHandler second(Count()); }
  EXPECT_EQ(calls, 0);
}

TEST_F(Signals, SecondHandlerAfterTermination_ListensAfresh) {
  for (int turn = 1; turn <= 2; ++turn) {
    const SignalHandler handler(Count());
    ::raise(SIGTERM);
    EXPECT_TRUE(tests::Eventually([&] { return calls == turn; }));
  }
}

TEST_F(Signals, BrokenPipeAfterTerminationOfAnEarlierHandler_NothingElse) {
  {
    const SignalHandler first([] {});
    ::raise(SIGTERM);
  }
  const SignalHandler second(Count());
  ::raise(SIGPIPE);
  ::raise(SIGPIPE);
  EXPECT_TRUE(tests::Eventually([this] {
    const auto lines = log.Lines();
    return std::count(lines.begin(), lines.end(), kBrokenPipeCaught) == 2;
  }));
  EXPECT_EQ(calls, 0);
}

TEST_F(Signals, End_WaitsForAction) {
  std::promise<void> entered;
  std::promise<void> leave;
  auto handler = std::make_unique<SignalHandler>([&] {
    entered.set_value();
    leave.get_future().wait();
    ++calls;
  });
  ::raise(SIGTERM);
  ASSERT_EQ(entered.get_future().wait_for(tests::kDeadline), std::future_status::ready);
  auto ended = std::async(std::launch::async, [&] { handler.reset(); });
  leave.set_value();
  EXPECT_EQ(ended.wait_for(tests::kDeadline), std::future_status::ready);
  EXPECT_EQ(calls, 1);
}

TEST_F(Signals, MessageThread_NamedAndWithoutSignals) {
  char name[16] = "";
  sigset_t blocked;
  {
    const SignalHandler handler([&] {
      ::pthread_getname_np(::pthread_self(), name, sizeof name);
      ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    });
    ::raise(SIGTERM);
  }
  EXPECT_STREQ(name, "signals");
  EXPECT_EQ(::sigismember(&blocked, SIGTERM), 1);
  EXPECT_EQ(::sigismember(&blocked, SIGPIPE), 1);
}

TEST_F(Signals, Handling_RestartsSystemCallsWithoutMask) {
  const SignalHandler handler(Count());
  for (const int signal : {SIGTERM, SIGPIPE}) {
    struct sigaction present {};
    ASSERT_EQ(::sigaction(signal, nullptr, &present), 0);
    EXPECT_EQ(present.sa_handler, &HandleSignal);
    EXPECT_NE(present.sa_flags & SA_RESTART, 0);
    EXPECT_EQ(::sigismember(&present.sa_mask, SIGPIPE), 0);
  }
}

TEST_F(Signals, ActionThrows_OneErrorLine) {
  {
    const SignalHandler handler([] { throw std::runtime_error("no way out"); });
    ::raise(SIGTERM);
  }
  EXPECT_THAT(log.Lines(), ElementsAre(kTerminationCaught, kTerminated,
                                       "error: SignalHandler: Action failed: no way out"));
}

TEST_F(Signals, ActionThrowsNoException_OneErrorLine) {
  {
    const SignalHandler handler([] { throw 1; });
    ::raise(SIGTERM);
  }
  EXPECT_THAT(log.Lines(),
              ElementsAre(kTerminationCaught, kTerminated, "error: SignalHandler: Action failed."));
}

TEST_F(Signals, EmptyAction_OneErrorLine) {
  {
    const SignalHandler handler(nullptr);
    ::raise(SIGTERM);
  }
  EXPECT_THAT(log.Lines(), ElementsAre(kTerminationCaught, kTerminated,
                                       "error: SignalHandler: Action failed: bad_function_call"));
}

TEST_F(Signals, ManyHandlers_NoDescriptorsLeft) {
  const auto before = tests::OpenDescriptors();
  for (int turn = 0; turn < 50; ++turn) {
    const SignalHandler handler(Count());
    if (turn % 2 == 0) ::raise(SIGTERM);
  }
  EXPECT_EQ(tests::OpenDescriptors(), before);
  EXPECT_EQ(gPipeWriteFd, -1);
}

TEST_F(Signals, HandleSignal_KeepsErrno) {
  SignalSystem system;
  system.startThread = [](std::function<void()>) { return std::thread([] {}); };
  const SignalHandler handler(Count(), system);
  for (int signal = 0; signal < kMoreThanAPipe; ++signal) HandleSignal(SIGPIPE);
  errno = ENOSPC;
  HandleSignal(SIGPIPE);
  EXPECT_EQ(errno, ENOSPC);
}

/// A reader that stands still until it is let go, so that the pipe fills up.
class FullPipe : public Signals {
 protected:
  FullPipe() {
    system.readByte = [this](int descriptor, unsigned char& byte) {
      released.wait();
      return ::read(descriptor, &byte, 1);
    };
  }

  void Fill() {
    for (int signal = 0; signal < kMoreThanAPipe; ++signal) HandleSignal(SIGPIPE);
  }

  SignalSystem system;
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
};

TEST_F(FullPipe, Termination_ActionCalledAllTheSame) {
  {
    const SignalHandler handler(Count(), system);
    Fill();
    ::raise(SIGTERM);
    release.set_value();
    EXPECT_TRUE(tests::Eventually([&] { return calls == 1; }));
  }
  EXPECT_THAT(log.Lines(), ElementsAre(kBrokenPipeCaught, kTerminationCaught, kTerminated));
}

TEST_F(FullPipe, End_NeitherBlocksNorGetsLost) {
  auto handler = std::make_unique<SignalHandler>(Count(), system);
  Fill();
  auto ended = std::async(std::launch::async, [&] { handler.reset(); });
  ASSERT_TRUE(tests::Eventually([] { return gPipeWriteFd == -1; }));
  release.set_value();
  ASSERT_EQ(ended.wait_for(tests::kDeadline), std::future_status::ready);
  const auto lines = log.Lines();
  ASSERT_GE(lines.size(), 3);
  EXPECT_THAT(std::vector<std::string>(lines.end() - 2, lines.end()),
              ElementsAre(kStopCaught, kStopped));
}

TEST(SignalSystem, Pipe_ClosedOnExecAndOnlyItsReaderWaits) {
  const SignalSystem real;
  support::UniqueFd readEnd;
  support::UniqueFd writeEnd;
  ASSERT_TRUE(real.makePipe(readEnd, writeEnd));
  EXPECT_EQ(::fcntl(readEnd.Get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(writeEnd.Get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(readEnd.Get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(::fcntl(writeEnd.Get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

/// System calls that fail.
class FailingSystem : public Signals {
 protected:
  SignalSystem system;
};

TEST_F(FailingSystem, NoPipe_OneErrorLineAndSignalsIgnored) {
  system.makePipe = [](support::UniqueFd&, support::UniqueFd&) { return false; };
  {
    const SignalHandler handler(Count(), system);
    ::raise(SIGTERM);
    ::raise(SIGPIPE);
  }
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(log.Lines(), ElementsAre("error: SignalHandler: Invalid pipe descriptor"));
}

TEST_F(FailingSystem, NoDescriptorLeft_NoPipe) {
  const SignalSystem real;
  support::UniqueFd readEnd;
  support::UniqueFd writeEnd;
  struct rlimit usual {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  struct rlimit none = usual;
  none.rlim_cur = 0;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const bool isMade = real.makePipe(readEnd, writeEnd);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
  EXPECT_FALSE(isMade);
  EXPECT_FALSE(readEnd.IsOpen());
  EXPECT_FALSE(writeEnd.IsOpen());
}

TEST_F(FailingSystem, NoThread_ThrowsAndNothingIsLeft) {
  const auto before = tests::OpenDescriptors();
  system.startThread = [](std::function<void()>) -> std::thread {
    throw std::system_error(EAGAIN, std::generic_category());
  };
  EXPECT_THROW(SignalHandler(Count(), system), std::system_error);
  EXPECT_EQ(gPipeWriteFd, -1);
  EXPECT_EQ(tests::OpenDescriptors(), before);
  EXPECT_TRUE(tests::HasDefaultAction(SIGTERM));
  EXPECT_TRUE(tests::HasDefaultAction(SIGPIPE));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FailingSystem, NoHandlers_ErrorLineEach) {
  system.installHandler = [](int) { return false; };
  { const SignalHandler handler(Count(), system); }
  EXPECT_THAT(log.Lines(platform_host::LogLevel::kError),
              ElementsAre("error: SignalHandler: Failed to set SIGTERM handler",
                          "error: SignalHandler: Failed to set SIGPIPE handler"));
}

TEST_F(FailingSystem, InterruptedRead_ReadAgain) {
  std::atomic<int> reads{0};
  system.readByte = [&](int descriptor, unsigned char& byte) -> std::ptrdiff_t {
    if (++reads > 3) return ::read(descriptor, &byte, 1);
    errno = EINTR;
    return -1;
  };
  { const SignalHandler handler(Count(), system); }
  EXPECT_THAT(log.Lines(), ElementsAre(kStopCaught, kStopped));
}

TEST_F(FailingSystem, ReadFails_OneErrorLine) {
  system.readByte = [](int, unsigned char&) -> std::ptrdiff_t {
    errno = EIO;
    return -1;
  };
  { const SignalHandler handler(Count(), system); }
  EXPECT_THAT(log.Lines(), ElementsAre("error: SignalHandler: Error reading pipe"));
}

TEST_F(FailingSystem, PipeEnds_OneErrorLine) {
  system.readByte = [](int, unsigned char&) -> std::ptrdiff_t { return 0; };
  { const SignalHandler handler(Count(), system); }
  EXPECT_THAT(log.Lines(), ElementsAre("error: SignalHandler: Error reading pipe"));
}

TEST_F(FailingSystem, Construction_PipeThreadTerminationBrokenPipe) {
  std::vector<std::string> steps;
  const SignalSystem real;
  system.makePipe = [&](support::UniqueFd& readEnd, support::UniqueFd& writeEnd) {
    steps.emplace_back("pipe");
    return real.makePipe(readEnd, writeEnd);
  };
  system.startThread = [&](std::function<void()> body) {
    steps.emplace_back("thread");
    return real.startThread(std::move(body));
  };
  system.installHandler = [&](int signal) {
    steps.push_back("signal " + std::to_string(signal));
    return real.installHandler(signal);
  };
  const SignalHandler handler(Count(), system);
  EXPECT_THAT(steps, ElementsAre("pipe", "thread", "signal 15", "signal 13"));
}

}  // namespace
}  // namespace signal_handler
