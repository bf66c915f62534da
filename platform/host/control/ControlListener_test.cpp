#include "platform/host/control/ControlListener.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "platform/host/config/HostKeys.h"
#include "platform/host/control/UnixAddress.h"
#include "tests/support/ControlPeer.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

/// While it lives, files are made with this umask.
class Umask {
 public:
  explicit Umask(mode_t mask) : former(::umask(mask)) {}
  ~Umask() { ::umask(former); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  const mode_t former;
};

class ControlListenerTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::unique_ptr<ControlListener> MustOpen() const {
    auto opened = ControlListener::Open(path);
    EXPECT_TRUE(opened.Ok()) << (opened.Ok() ? "" : opened.Failure().Text());
    return opened.Ok() ? std::move(opened).Take() : nullptr;
  }

  [[nodiscard]] std::string FailureToOpen() const {
    const auto opened = ControlListener::Open(path);
    return opened.Ok() ? "opened" : opened.Failure().Text();
  }

  const tests::TemporaryDirectory directory;
  std::string path = directory.Path() + "/control.sock";
};

TEST_F(ControlListenerTest, Open_ClientsAccepted) {
  const auto listener = MustOpen();
  EXPECT_FALSE(listener->Accept().IsOpen());
  EXPECT_EQ(errno, EAGAIN);
  const tests::ControlPeer client(path);
  EXPECT_EQ(client.ConnectError(), 0);
  EXPECT_TRUE(listener->Accept().IsOpen());
}

TEST_F(ControlListenerTest, AnyUmask_OwnerAlone) {
  for (const mode_t mask : {0U, 022U, 0277U, 0777U}) {
    const Umask umask(mask);
    const auto listener = MustOpen();
    struct stat status {};
    ASSERT_EQ(::lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFSOCK | 0600U) << std::oct << mask;
  }
}

TEST_F(ControlListenerTest, End_SocketRemoved) {
  MustOpen().reset();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ControlListenerTest, SocketOfAKilledProcess_Replaced) {
  const std::string aside = directory.Path() + "/aside";
  {
    // Its end leaves a socket that it no longer finds at its path.
    const auto killed = MustOpen();
    std::filesystem::rename(path, aside);
  }
  std::filesystem::rename(aside, path);
  ASSERT_EQ(tests::ControlPeer(path).ConnectError(), ECONNREFUSED);
  const auto listener = MustOpen();
  EXPECT_EQ(tests::ControlPeer(path).ConnectError(), 0);
}

TEST_F(ControlListenerTest, SocketAtWhichSomebodyListens_LeftAlone) {
  const auto first = MustOpen();
  EXPECT_TRUE(ControlListener::IsServed(path));
  EXPECT_EQ(FailureToOpen(), path + ": Address already in use");
  EXPECT_EQ(tests::ControlPeer(path).ConnectError(), 0);
}

TEST_F(ControlListenerTest, SocketAtWhichTooManyWait_LeftAlone) {
  const auto first = MustOpen();
  std::vector<tests::ControlPeer> waiting;
  for (int count = 0; count <= ControlListener::kBacklog; ++count) waiting.emplace_back(path);
  EXPECT_TRUE(ControlListener::IsServed(path));
  EXPECT_EQ(FailureToOpen(), path + ": Address already in use");
}

TEST_F(ControlListenerTest, NobodyListens_NotServed) {
  EXPECT_FALSE(ControlListener::IsServed(path));
  tests::WriteText(path, "precious");
  EXPECT_FALSE(ControlListener::IsServed(path));
  path += std::string(kMaxSocketPathBytes + 1 - path.size(), 'x');
  EXPECT_FALSE(ControlListener::IsServed(path));
}

TEST_F(ControlListenerTest, SocketOfAnotherKind_LeftAlone) {
  const support::UniqueFd other(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const UnixAddress address(path);
  ASSERT_EQ(::bind(other.Get(), address.Get(), UnixAddress::Size()), 0);
  EXPECT_EQ(FailureToOpen(), path + ": Protocol wrong type for socket");
  EXPECT_TRUE(std::filesystem::is_socket(path));
}

TEST_F(ControlListenerTest, SocketOfAnotherAtThePath_LeftAtTheEnd) {
  auto first = MustOpen();
  std::filesystem::remove(path);
  const auto second = MustOpen();
  first.reset();
  EXPECT_EQ(tests::ControlPeer(path).ConnectError(), 0);
}

TEST_F(ControlListenerTest, SomethingElseAtThePath_LeftAlone) {
  tests::WriteText(path, "precious");
  EXPECT_EQ(FailureToOpen(), path + ": File exists");
  EXPECT_EQ(tests::ReadText(path), "precious");
}

TEST_F(ControlListenerTest, LinkAtThePath_LeftAlone) {
  const std::string target = directory.Path() + "/target";
  std::filesystem::create_symlink(target, path);
  EXPECT_EQ(FailureToOpen(), path + ": File exists");
  EXPECT_TRUE(std::filesystem::is_symlink(path));
}

TEST_F(ControlListenerTest, NoDirectory_Told) {
  path = directory.Path() + "/missing/control.sock";
  EXPECT_EQ(FailureToOpen(), path + ": No such file or directory");
}

TEST_F(ControlListenerTest, LongestPath_Opened) {
  path += std::string(kMaxSocketPathBytes - path.size(), 'x');
  const auto listener = MustOpen();
  EXPECT_EQ(tests::ControlPeer(path).ConnectError(), 0);
}

TEST_F(ControlListenerTest, PathOneByteTooLong_Told) {
  path += std::string(kMaxSocketPathBytes + 1 - path.size(), 'x');
  EXPECT_EQ(FailureToOpen(), path + ": File name too long");
}

}  // namespace
}  // namespace platform_host
