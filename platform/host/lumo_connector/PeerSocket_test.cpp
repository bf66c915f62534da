#include "platform/host/lumo_connector/PeerSocket.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <vector>

#include "tests/support/LoopbackPeer.h"
#include "tests/support/ProcessUse.h"

namespace platform_host {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

/// A peer, and as much time as the deadline of tests.
class Connecting : public ::testing::Test {
 protected:
  [[nodiscard]] Connected<PeerSocket> To(const std::string& host, std::uint16_t port,
                                         seconds left = tests::kDeadline) const {
    return ConnectTo(host, port,
                     ConnectWait(&steady_clock::now, steady_clock::now() + left, stop.Get()));
  }

  /// The failure of connecting; status 0 when it does not fail.
  [[nodiscard]] static ConnectFailure FailureOf(const Connected<PeerSocket>& result) {
    const auto* failure = std::get_if<ConnectFailure>(&result);
    return failure == nullptr ? ConnectFailure{0, ""} : *failure;
  }

  tests::LoopbackPeer peer;
  const support::UniqueFd stop{::eventfd(0, EFD_CLOEXEC)};
};

TEST_F(Connecting, PeerListens_ConnectedAndAddressTold) {
  const auto result = To("127.0.0.1", peer.Port());
  ASSERT_TRUE(std::holds_alternative<PeerSocket>(result)) << FailureOf(result).reason;
  const auto& socket = std::get<PeerSocket>(result);
  EXPECT_EQ(socket.address, "127.0.0.1:" + std::to_string(peer.Port()));
  EXPECT_NE(::fcntl(socket.descriptor.Get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(::fcntl(socket.descriptor.Get(), F_GETFD) & FD_CLOEXEC, 0);
  const auto accepted = peer.Accept();
  ASSERT_TRUE(tests::SendAll(socket.descriptor.Get(), "hello"));
  EXPECT_EQ(tests::ReadUpTo(accepted.Get(), 5), "hello");
}

TEST_F(Connecting, ByName_Connected) {
  EXPECT_EQ(FailureOf(To("localhost", peer.Port())).reason, "");
}

TEST_F(Connecting, NobodyListens_Refused) {
  const auto port = peer.Port();
  peer.Close();
  const auto failure = FailureOf(To("127.0.0.1", port));
  EXPECT_EQ(failure.status, ECONNREFUSED);
  EXPECT_EQ(failure.reason, "Connection refused");
}

TEST_F(Connecting, NoSuchName_NotResolved) {
  const auto failure = FailureOf(To(std::string(64, 'x') + "..", peer.Port()));
  EXPECT_EQ(failure.status, EHOSTUNREACH);
  EXPECT_EQ(failure.reason, "the name cannot be resolved: Name or service not known");
}

TEST_F(Connecting, UnusableName_Invalid) {
  const std::vector<std::string> names = {"", std::string("127.0.0.1\0.example", 18)};
  for (const auto& name : names) {
    const auto failure = FailureOf(To(name, peer.Port()));
    EXPECT_EQ(failure.status, EINVAL);
    EXPECT_EQ(failure.reason, "no usable host name");
  }
}

TEST_F(Connecting, NoTimeLeft_TimedOut) {
  EXPECT_EQ(FailureOf(To("127.0.0.1", peer.Port(), seconds(0))).status, ETIMEDOUT);
}

TEST_F(Connecting, Stopped_Canceled) {
  ::eventfd_write(stop.Get(), 1);
  EXPECT_EQ(FailureOf(To("127.0.0.1", peer.Port())).status, ECANCELED);
}

TEST_F(Connecting, Failures_LeaveNoDescriptor) {
  const auto before = tests::OpenDescriptors();
  EXPECT_NE(FailureOf(To("127.0.0.1", 1)).status, 0);
  EXPECT_NE(FailureOf(To("127.0.0.1", peer.Port(), seconds(0))).status, 0);
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

}  // namespace
}  // namespace platform_host
