#include "platform/host/lumo_connector/PlainStream.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>

#include "tests/support/LoopbackPeer.h"

namespace platform_host {
namespace {

using Outcome = StreamStep::Outcome;

/// Two ends of a stream: the tested one, and the peer's.
class Plain : public ::testing::Test {
 protected:
  Plain() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    stream = std::make_unique<PlainStream>(support::UniqueFd(ends[0]));
    peer = support::UniqueFd(ends[1]);
  }

  StreamStep Read() { return stream->Read(buffer.data(), buffer.size()); }

  std::array<char, 16> buffer{};
  std::unique_ptr<PlainStream> stream;
  support::UniqueFd peer;
};

TEST_F(Plain, NothingThere_WaitsForInput) {
  const auto step = Read();
  EXPECT_EQ(step.outcome, Outcome::kWait);
  EXPECT_EQ(step.events, POLLIN);
}

TEST_F(Plain, BytesThere_Moved) {
  ASSERT_TRUE(tests::SendAll(peer.Get(), "hello"));
  const auto step = Read();
  EXPECT_EQ(step.outcome, Outcome::kMoved);
  EXPECT_EQ(std::string(buffer.data(), step.bytes), "hello");
  EXPECT_FALSE(stream->HoldsBytes());
}

TEST_F(Plain, PeerClosed_EndAfterItsBytes) {
  ASSERT_TRUE(tests::SendAll(peer.Get(), "a"));
  peer = support::UniqueFd();
  EXPECT_EQ(Read().outcome, Outcome::kMoved);
  EXPECT_EQ(Read().outcome, Outcome::kEnd);
}

TEST_F(Plain, PeerFull_WaitsForRoom) {
  const std::string much(100000, 'x');
  StreamStep step{Outcome::kMoved, 0, 0, ""};
  while (step.outcome == Outcome::kMoved) step = stream->Write(much.data(), much.size());
  EXPECT_EQ(step.outcome, Outcome::kWait);
  EXPECT_EQ(step.events, POLLOUT);
}

TEST_F(Plain, PeerGone_WriteBrokenWithoutSignal) {
  peer = support::UniqueFd();
  const auto step = stream->Write("a", 1);
  EXPECT_EQ(step.outcome, Outcome::kBroken);
  EXPECT_EQ(step.reason, "Broken pipe");
}

TEST_F(Plain, EndWriting_PeerReadsTheEndAndMayStillWrite) {
  stream->EndWriting();
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  ASSERT_TRUE(tests::SendAll(peer.Get(), "late"));
  EXPECT_EQ(Read().bytes, 4U);
}

}  // namespace
}  // namespace platform_host
