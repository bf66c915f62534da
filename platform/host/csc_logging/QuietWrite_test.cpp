#include "platform/host/csc_logging/QuietWrite.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "support/UniqueFd.h"
#include "tests/support/KeptSignals.h"

namespace platform_host {
namespace {

std::atomic<int> gSignals{0};

void CountSignal(int /*signal*/) {
  ++gSignals;
}

bool IsBlocked(int signal) {
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return ::sigismember(&blocked, signal) == 1;
}

bool IsPending(int signal) {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, signal) == 1;
}

/// A pipe, and a count of the SIGPIPEs that anybody gets.
class BrokenPipe : public ::testing::Test {
 protected:
  BrokenPipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    readEnd = support::UniqueFd(ends[0]);
    writeEnd = support::UniqueFd(ends[1]);
    gSignals = 0;
    ::signal(SIGPIPE, CountSignal);
  }

  void Break() { readEnd = support::UniqueFd(); }

  const tests::KeptSignals former;
  support::UniqueFd readEnd;
  support::UniqueFd writeEnd;
};

TEST_F(BrokenPipe, WithReader_BytesArrive) {
  EXPECT_EQ(QuietWrite(writeEnd.Get(), "text"), 4);
  char text[5] = "";
  EXPECT_EQ(::read(readEnd.Get(), text, sizeof text), 4);
  EXPECT_STREQ(text, "text");
}

TEST_F(BrokenPipe, WithoutReader_ErrorAndNoSignal) {
  Break();
  EXPECT_EQ(QuietWrite(writeEnd.Get(), "text"), -1);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(gSignals, 0);
  EXPECT_FALSE(IsBlocked(SIGPIPE));
  EXPECT_FALSE(IsPending(SIGPIPE));
}

TEST_F(BrokenPipe, OtherError_Kept) {
  EXPECT_EQ(QuietWrite(-1, "text"), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(BrokenPipe, SignalBlockedByCaller_StaysBlocked) {
  Break();
  std::thread([&] {
    sigset_t brokenPipe;
    ::sigemptyset(&brokenPipe);
    ::sigaddset(&brokenPipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    EXPECT_EQ(QuietWrite(writeEnd.Get(), "text"), -1);
    EXPECT_TRUE(IsBlocked(SIGPIPE));
    EXPECT_FALSE(IsPending(SIGPIPE));
  }).join();
  EXPECT_EQ(gSignals, 0);
}

TEST_F(BrokenPipe, SignalThatWaitsAlready_StaysWaiting) {
  Break();
  std::thread([&] {
    sigset_t brokenPipe;
    ::sigemptyset(&brokenPipe);
    ::sigaddset(&brokenPipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    ::pthread_kill(::pthread_self(), SIGPIPE);
    EXPECT_EQ(QuietWrite(writeEnd.Get(), "text"), -1);
    EXPECT_TRUE(IsPending(SIGPIPE));
    ::pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
  }).join();
  EXPECT_EQ(gSignals, 1);
}

TEST_F(BrokenPipe, BehindShield_NoSignalAndErrnoKept) {
  Break();
  {
    const BrokenPipeShield shield;
    EXPECT_EQ(::write(writeEnd.Get(), "text", 4), -1);
  }
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(gSignals, 0);
  EXPECT_FALSE(IsBlocked(SIGPIPE));
  EXPECT_FALSE(IsPending(SIGPIPE));
}

TEST_F(BrokenPipe, WaitedBeforeShield_StaysWaiting) {
  Break();
  std::thread([&] {
    sigset_t brokenPipe;
    ::sigemptyset(&brokenPipe);
    ::sigaddset(&brokenPipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    ::pthread_kill(::pthread_self(), SIGPIPE);
    {
      const BrokenPipeShield shield;
      EXPECT_EQ(::write(writeEnd.Get(), "text", 4), -1);
    }
    EXPECT_TRUE(IsPending(SIGPIPE));
    ::pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
  }).join();
  EXPECT_EQ(gSignals, 1);
}

TEST_F(BrokenPipe, ManyThreads_NoSignalAtAll) {
  Break();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 1000; ++turn) EXPECT_EQ(QuietWrite(writeEnd.Get(), "text"), -1);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(gSignals, 0);
}

}  // namespace
}  // namespace platform_host
