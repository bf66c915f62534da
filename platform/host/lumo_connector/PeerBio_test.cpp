#include "platform/host/lumo_connector/PeerBio.h"

#include <gmock/gmock.h>
#include <openssl/bio.h>

#include <array>
#include <cerrno>
#include <memory>

#include "tests/support/LoopbackPeer.h"

namespace platform_host {
namespace {

/// A BIO over one end of a stream; the other end is the peer's.
class Bio : public ::testing::Test {
 protected:
  Bio() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    own = support::UniqueFd(ends[0]);
    peer = support::UniqueFd(ends[1]);
    state.descriptor = own.Get();
  }

  support::UniqueFd own;
  support::UniqueFd peer;
  PeerBioState state{-1};
  const std::unique_ptr<BIO, int (*)(BIO*)> bio{NewPeerBio(state), &::BIO_free};
  std::array<char, 16> buffer{};
};

TEST_F(Bio, Bytes_BothWays) {
  ASSERT_EQ(::BIO_write(bio.get(), "hello", 5), 5);
  EXPECT_EQ(tests::ReadUpTo(peer.Get(), 5), "hello");
  ASSERT_TRUE(tests::SendAll(peer.Get(), "you"));
  ASSERT_EQ(::BIO_read(bio.get(), buffer.data(), 16), 3);
  EXPECT_EQ(std::string(buffer.data(), 3), "you");
}

TEST_F(Bio, NothingToRead_ToBeTriedAgain) {
  EXPECT_LE(::BIO_read(bio.get(), buffer.data(), 16), 0);
  EXPECT_TRUE(BIO_should_read(bio.get()));
  EXPECT_EQ(state.error, EAGAIN);
}

TEST_F(Bio, AllowanceUsedUp_NothingReadUntilThereIsMore) {
  ASSERT_TRUE(tests::SendAll(peer.Get(), "you"));
  state.allowance = 2;
  ASSERT_EQ(::BIO_read(bio.get(), buffer.data(), 2), 2);
  EXPECT_LE(::BIO_read(bio.get(), buffer.data(), 16), 0);
  EXPECT_TRUE(BIO_should_read(bio.get()));
  EXPECT_EQ(state.error, EAGAIN);
  EXPECT_FALSE(state.ended);
  state.allowance = 1;
  EXPECT_EQ(::BIO_read(bio.get(), buffer.data(), 16), 1);
}

TEST_F(Bio, PeerFull_ToBeTriedAgain) {
  const std::string much(100000, 'x');
  while (::BIO_write(bio.get(), much.data(), 100000) > 0) {
  }
  EXPECT_TRUE(BIO_should_write(bio.get()));
}

TEST_F(Bio, PeerEnded_ToldAndFinal) {
  peer = support::UniqueFd();
  EXPECT_LE(::BIO_read(bio.get(), buffer.data(), 16), 0);
  EXPECT_FALSE(BIO_should_retry(bio.get()));
  EXPECT_TRUE(state.ended);
  EXPECT_EQ(state.error, 0);
}

TEST_F(Bio, PeerGone_WriteFailsWithoutSignal) {
  peer = support::UniqueFd();
  EXPECT_LE(::BIO_write(bio.get(), "a", 1), 0);
  EXPECT_FALSE(BIO_should_retry(bio.get()));
  EXPECT_EQ(state.error, EPIPE);
}

TEST_F(Bio, Success_ForgetsTheFailureBefore) {
  EXPECT_LE(::BIO_read(bio.get(), buffer.data(), 16), 0);
  ASSERT_EQ(::BIO_write(bio.get(), "a", 1), 1);
  EXPECT_EQ(state.error, 0);
  EXPECT_FALSE(BIO_should_retry(bio.get()));
}

TEST_F(Bio, Flush_Works) {
  EXPECT_EQ(BIO_flush(bio.get()), 1);
}

}  // namespace
}  // namespace platform_host
