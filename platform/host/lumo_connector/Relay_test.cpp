#include "platform/host/lumo_connector/Relay.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <utility>

#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/lumo_connector/PlainStream.h"
#include "tests/support/LoopbackPeer.h"

namespace platform_host {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;

/// Two ends of a stream.
std::pair<support::UniqueFd, support::UniqueFd> Ends() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {support::UniqueFd(ends[0]), support::UniqueFd(ends[1])};
}

/// A peer that has already been read: bytes without a descriptor that tells of them.
class BufferedStream : public PeerStream {
 public:
  explicit BufferedStream(support::UniqueFd idle) : socket(std::move(idle)) {}

  StreamStep Read(char* buffer, std::size_t) override {
    if (left == 0) return {StreamStep::Outcome::kWait, 0, POLLIN, ""};
    --left;
    *buffer = 'x';
    return {StreamStep::Outcome::kMoved, 1, 0, ""};
  }
  StreamStep Write(const char*, std::size_t size) override {
    return {StreamStep::Outcome::kMoved, size, 0, ""};
  }
  void EndWriting() override {}
  [[nodiscard]] bool HoldsBytes() const override { return left > 0; }
  [[nodiscard]] int Descriptor() const override { return socket.Get(); }

 private:
  const support::UniqueFd socket;
  int left = 200;
};

/// A relay whose clock moves when the test says so, with one exchange: `client` and `peer` are the
/// far ends of its two streams.
class Relaying : public ::testing::Test {
 protected:
  [[nodiscard]] std::unique_ptr<RelayedExchange> MakeExchange() {
    auto [clientFar, clientNear] = Ends();
    auto [peerFar, peerNear] = Ends();
    client = std::move(clientFar);
    peer = std::move(peerFar);
    return std::make_unique<RelayedExchange>(std::move(clientNear),
                                             std::make_unique<PlainStream>(std::move(peerNear)),
                                             "h:80 for A", GuardRails(ExchangeLimits{}, Now()));
  }

  [[nodiscard]] steady_clock::time_point Now() const {
    return steady_clock::time_point(seconds(elapsed));
  }

  std::atomic<int> elapsed{1000};
  support::UniqueFd client;
  support::UniqueFd peer;
  const CapturedLog log;
  Relay relay{[this] { return Now(); }};
};

TEST_F(Relaying, Added_BytesBothWays) {
  ASSERT_FALSE(relay.Add(MakeExchange()));
  ASSERT_TRUE(tests::SendAll(client.Get(), "request"));
  EXPECT_EQ(tests::ReadUpTo(peer.Get(), 7), "request");
  ASSERT_TRUE(tests::SendAll(peer.Get(), "answer"));
  EXPECT_EQ(tests::ReadUpTo(client.Get(), 6), "answer");
}

TEST_F(Relaying, PeerSpeaksFirst_Heard) {
  auto exchange = MakeExchange();
  ASSERT_TRUE(tests::SendAll(peer.Get(), "hello"));
  ASSERT_FALSE(relay.Add(std::move(exchange)));
  EXPECT_EQ(tests::ReadUpTo(client.Get(), 5), "hello");
}

TEST_F(Relaying, ClientCloses_PeerClosed) {
  ASSERT_FALSE(relay.Add(MakeExchange()));
  client = support::UniqueFd();
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  EXPECT_FALSE(tests::SendAll(peer.Get(), "late"));
}

TEST_F(Relaying, PeerCloses_ClientAtEnd) {
  ASSERT_FALSE(relay.Add(MakeExchange()));
  peer = support::UniqueFd();
  EXPECT_TRUE(tests::IsAtEnd(client.Get()));
}

TEST_F(Relaying, SeveralExchanges_EachItsOwn) {
  std::vector<std::pair<support::UniqueFd, support::UniqueFd>> all;
  for (int index = 0; index < 20; ++index) {
    ASSERT_FALSE(relay.Add(MakeExchange()));
    all.emplace_back(std::move(client), std::move(peer));
  }
  for (std::size_t index = 0; index < all.size(); ++index) {
    const std::string text = "request " + std::to_string(index);
    ASSERT_TRUE(tests::SendAll(all[index].first.Get(), text));
    EXPECT_EQ(tests::ReadUpTo(all[index].second.Get(), text.size()), text);
  }
}

TEST_F(Relaying, PeerThatWasReadAhead_DeliveredWithoutWaiting) {
  auto [clientFar, clientNear] = Ends();
  auto [peerFar, peerNear] = Ends();
  ASSERT_FALSE(relay.Add(std::make_unique<RelayedExchange>(
      std::move(clientNear), std::make_unique<BufferedStream>(std::move(peerNear)), "h:80 for A",
      GuardRails(ExchangeLimits{}, Now()))));
  EXPECT_EQ(tests::ReadUpTo(clientFar.Get(), 200).size(), 200U);
}

TEST_F(Relaying, TimeOver_Closed) {
  ASSERT_FALSE(relay.Add(MakeExchange()));
  elapsed += 120;
  relay.Wake();
  EXPECT_TRUE(tests::IsAtEnd(client.Get()));
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: closed h:80 for A: it "
                                       "takes longer than 120 s"));
}

TEST_F(Relaying, Stop_ClosesAndRefusesMore) {
  ASSERT_FALSE(relay.Add(MakeExchange()));
  relay.Stop();
  EXPECT_TRUE(tests::IsAtEnd(client.Get()));
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  const auto refused = relay.Add(MakeExchange());
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, ECANCELED);
  EXPECT_TRUE(tests::IsAtEnd(client.Get()));
}

TEST_F(Relaying, StopWithoutExchange_Returns) {
  relay.Stop();
  relay.Stop();
}

TEST_F(Relaying, StopFromSeveralThreadsAtOnce_EachReturns) {
  ASSERT_FALSE(relay.Add(MakeExchange()));
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) threads.emplace_back([this] { relay.Stop(); });
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(tests::IsAtEnd(client.Get()));
}

}  // namespace
}  // namespace platform_host
