#include "platform/host/control/SocketLock.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "support/FileContents.h"
#include "support/UniqueFd.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

bool IsReadable(int descriptor) {
  pollfd wait{descriptor, POLLIN, 0};
  return ::poll(&wait, 1, 0) == 1;
}

class SocketLockTest : public ::testing::Test {
 protected:
  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/sub/control.sock.lock";
};

TEST_F(SocketLockTest, Free_TakenAndFileMade) {
  SocketLock lock(path);
  EXPECT_EQ(lock.Acquire(), 0);
  EXPECT_EQ(lock.Descriptor(), -1);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
}

TEST_F(SocketLockTest, AnyUmask_OwnerReadsAndWrites) {
  for (const mode_t mask : {0U, 0277U, 0777U}) {
    const mode_t former = ::umask(mask);
    SocketLock lock(path);
    EXPECT_EQ(lock.Acquire(), 0);
    ::umask(former);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0600U) << std::oct << mask;
    std::filesystem::remove(path);
  }
}

TEST_F(SocketLockTest, HeldByAnother_AgainAndQuiet) {
  SocketLock holder(path);
  ASSERT_EQ(holder.Acquire(), 0);
  SocketLock waiter(path);
  EXPECT_EQ(waiter.Acquire(), EAGAIN);
  ASSERT_GE(waiter.Descriptor(), 0);
  EXPECT_EQ(waiter.Acquire(), EAGAIN);
  EXPECT_FALSE(IsReadable(waiter.Descriptor()));
}

TEST_F(SocketLockTest, HolderReleases_WaiterToldAndTakesIt) {
  SocketLock holder(path);
  ASSERT_EQ(holder.Acquire(), 0);
  SocketLock waiter(path);
  ASSERT_EQ(waiter.Acquire(), EAGAIN);
  holder.Release();
  EXPECT_TRUE(IsReadable(waiter.Descriptor()));
  EXPECT_EQ(waiter.Acquire(), 0);
  EXPECT_EQ(waiter.Descriptor(), -1);
}

TEST_F(SocketLockTest, AnotherWaiterGoes_ToldAndStillHeld) {
  SocketLock holder(path);
  ASSERT_EQ(holder.Acquire(), 0);
  SocketLock waiter(path);
  ASSERT_EQ(waiter.Acquire(), EAGAIN);
  {
    SocketLock other(path);
    ASSERT_EQ(other.Acquire(), EAGAIN);
  }
  ASSERT_TRUE(IsReadable(waiter.Descriptor()));
  EXPECT_EQ(waiter.Acquire(), EAGAIN);
  waiter.Clear();
  EXPECT_FALSE(IsReadable(waiter.Descriptor()));
}

TEST_F(SocketLockTest, HoldingProcessKilled_WaiterToldAndTakesIt) {
  std::filesystem::create_directory(directory.Path() + "/sub");
  std::array<int, 2> held{-1, -1};
  ASSERT_EQ(::pipe(held.data()), 0);
  const support::UniqueFd reading(held[0]);
  support::UniqueFd writing(held[1]);
  tests::ChildProcess holder([&] {
    SocketLock lock(path);
    static_cast<void>(support::WriteAll(writing.Get(), lock.Acquire() == 0 ? "y" : "n"));
    return ::pause();
  });
  char byte = 0;
  ASSERT_EQ(::read(reading.Get(), &byte, 1), 1);
  ASSERT_EQ(byte, 'y');
  SocketLock waiter(path);
  ASSERT_EQ(waiter.Acquire(), EAGAIN);
  holder.Kill();
  EXPECT_TRUE(tests::WaitFor(waiter.Descriptor(), POLLIN));
  EXPECT_TRUE(tests::Eventually([&] { return waiter.Acquire() == 0; }));
}

TEST_F(SocketLockTest, FileRemovedUnderTheWaiter_ToldAndNewFileTaken) {
  SocketLock holder(path);
  ASSERT_EQ(holder.Acquire(), 0);
  SocketLock waiter(path);
  ASSERT_EQ(waiter.Acquire(), EAGAIN);
  std::filesystem::remove_all(directory.Path() + "/sub");
  EXPECT_TRUE(IsReadable(waiter.Descriptor()));
  EXPECT_EQ(waiter.Acquire(), 0);
  SocketLock third(path);
  EXPECT_EQ(third.Acquire(), EAGAIN);
}

TEST_F(SocketLockTest, FileReplacedAndHeld_WaiterWatchesTheNewOne) {
  SocketLock holder(path);
  ASSERT_EQ(holder.Acquire(), 0);
  SocketLock waiter(path);
  ASSERT_EQ(waiter.Acquire(), EAGAIN);
  std::filesystem::remove(path);
  SocketLock newHolder(path);
  ASSERT_EQ(newHolder.Acquire(), 0);
  ASSERT_EQ(waiter.Acquire(), EAGAIN);
  newHolder.Release();
  EXPECT_TRUE(IsReadable(waiter.Descriptor()));
  EXPECT_EQ(waiter.Acquire(), 0);
}

TEST_F(SocketLockTest, PlantedLink_NotFollowed) {
  std::filesystem::create_directory(directory.Path() + "/sub");
  const std::string target = directory.Path() + "/target";
  std::filesystem::create_symlink(target, path);
  SocketLock lock(path);
  EXPECT_EQ(lock.Acquire(), ELOOP);
  EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(SocketLockTest, FileInPlaceOfTheDirectory_Told) {
  tests::WriteText(directory.Path() + "/sub", "");
  SocketLock lock(path);
  EXPECT_EQ(lock.Acquire(), ENOTDIR);
}

TEST_F(SocketLockTest, TakenAndReleasedOften_NoDescriptorLeft) {
  const auto before = tests::OpenDescriptors();
  {
    SocketLock holder(path);
    SocketLock waiter(path);
    for (int round = 0; round < 10; ++round) {
      ASSERT_EQ(holder.Acquire(), 0);
      ASSERT_EQ(waiter.Acquire(), EAGAIN);
      holder.Release();
      ASSERT_EQ(waiter.Acquire(), 0);
      waiter.Release();
    }
  }
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

}  // namespace
}  // namespace platform_host
