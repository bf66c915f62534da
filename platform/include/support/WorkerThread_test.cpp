#include "support/WorkerThread.h"

#include <gtest/gtest.h>

#include <string>

namespace support {
namespace {

bool BlocksSignal(int number) {
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return ::sigismember(&blocked, number) == 1;
}

TEST(WorkerThread, Started_NamedAndWithoutSignals) {
  char name[16] = "";
  bool blocksTermination = false;
  bool blocksBrokenPipe = false;
  std::thread thread = StartThread("A worker", [&] {
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    blocksTermination = BlocksSignal(SIGTERM);
    blocksBrokenPipe = BlocksSignal(SIGPIPE);
  });
  thread.join();
  EXPECT_EQ(std::string(name), "A worker");
  EXPECT_TRUE(blocksTermination);
  EXPECT_TRUE(blocksBrokenPipe);
}

TEST(WorkerThread, Starter_KeepsItsSignals) {
  StartThread("A worker", [] {}).join();
  EXPECT_FALSE(BlocksSignal(SIGTERM));
}

}  // namespace
}  // namespace support
