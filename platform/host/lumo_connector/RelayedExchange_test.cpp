#include "platform/host/lumo_connector/RelayedExchange.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <deque>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/LoopbackPeer.h"

namespace platform_host {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Outcome = StreamStep::Outcome;

/// What the peer does, in the test's hands; outlives the stream.
struct Peer {
  std::deque<std::string> answers;                  ///< one a Read
  StreamStep after{Outcome::kWait, 0, POLLIN, ""};  ///< when there are no answers left
  std::string received;
  std::size_t room = 1U << 30U;                     ///< bytes that Write still takes
  StreamStep full{Outcome::kWait, 0, POLLOUT, ""};  ///< when there is no room left
  bool isWritingEnded = false;
  bool isClosed = false;
};

class FakeStream : public PeerStream {
 public:
  explicit FakeStream(Peer& scripted) : peer(scripted) {}
  ~FakeStream() override { peer.isClosed = true; }
  FakeStream(const FakeStream&) = delete;
  FakeStream& operator=(const FakeStream&) = delete;

  StreamStep Read(char* buffer, std::size_t size) override {
    if (peer.answers.empty()) return peer.after;
    std::string& answer = peer.answers.front();
    const std::size_t count = std::min(size, answer.size());
    std::memcpy(buffer, answer.data(), count);
    answer.erase(0, count);
    if (answer.empty()) peer.answers.pop_front();
    return {Outcome::kMoved, count, 0, ""};
  }
  StreamStep Write(const char* bytes, std::size_t size) override {
    if (peer.room == 0) return peer.full;
    const std::size_t count = std::min(size, peer.room);
    peer.received.append(bytes, count);
    peer.room -= count;
    return {Outcome::kMoved, count, 0, ""};
  }
  void EndWriting() override { peer.isWritingEnded = true; }
  [[nodiscard]] bool HoldsBytes() const override {
    return !peer.answers.empty() || peer.after.outcome != Outcome::kWait;
  }
  [[nodiscard]] int Descriptor() const override { return 1; }

 private:
  Peer& peer;
};

/// An exchange between a client's descriptor and a scripted peer, served by hand.
class Relayed : public ::testing::Test {
 protected:
  Relayed() {
    limits.responseBytes = std::size_t{1} << 30U;
    limits.duration = seconds(100);
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    client = support::UniqueFd(ends[0]);
    connectorEnd = support::UniqueFd(ends[1]);
  }

  RelayedExchange Make() {
    return {std::move(connectorEnd), std::make_unique<FakeStream>(peer), "h:80 for Download",
            GuardRails(limits, begun)};
  }

  void Serve(RelayedExchange& exchange, seconds after = seconds(0)) {
    exchange.Serve(*buffer, begun + after);
  }

  /// Serves, while the client reads, until the exchange is finished; what the client read.
  std::string ServeToEnd(RelayedExchange& exchange) {
    std::string text;
    while (!exchange.IsFinished()) {
      Serve(exchange);
      while (::poll(&wait, 1, 0) == 1 && wait.revents == POLLIN) {
        char byte[4096];
        const auto count = ::recv(client.Get(), byte, sizeof byte, 0);
        text.append(byte, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
      }
    }
    return text;
  }

  const GuardRails::TimePoint begun{seconds(1000)};
  ExchangeLimits limits;
  Peer peer;
  support::UniqueFd client;
  support::UniqueFd connectorEnd;
  pollfd wait{-1, POLLIN, 0};
  const std::unique_ptr<RelayBuffer> buffer = std::make_unique<RelayBuffer>();
  const CapturedLog log;
};

TEST_F(Relayed, Request_GivenToThePeer) {
  auto exchange = Make();
  ASSERT_TRUE(tests::SendAll(client.Get(), "GET"));
  Serve(exchange);
  EXPECT_EQ(peer.received, "GET");
  EXPECT_EQ(exchange.NeedsNow().client, POLLIN);
  EXPECT_EQ(exchange.NeedsNow().peer, POLLIN);
}

TEST_F(Relayed, RequestThatThePeerTakesSlowly_WaitsAndNothingMoreIsRead) {
  const std::string request(kRequestChunk + 1, 'x');
  peer.room = 1;
  auto exchange = Make();
  ASSERT_TRUE(tests::SendAll(client.Get(), request));
  Serve(exchange);
  EXPECT_EQ(exchange.NeedsNow().client, 0);
  EXPECT_EQ(exchange.NeedsNow().peer, POLLIN | POLLOUT);
  peer.room = request.size();
  Serve(exchange);
  EXPECT_EQ(peer.received, request);
  EXPECT_EQ(exchange.NeedsNow().peer, POLLIN);
}

TEST_F(Relayed, LongRequestWhileAnAnswerComes_GoneOnWith) {
  const std::string request(10 * kRequestChunk, 'x');
  const int room = 4 * 1024 * 1024;
  ::setsockopt(client.Get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  peer.answers = {"first", "second"};
  auto exchange = Make();
  ASSERT_TRUE(tests::SendAll(client.Get(), request));
  Serve(exchange);
  EXPECT_LT(peer.received.size(), request.size());
  EXPECT_TRUE(exchange.HasMore());
  Serve(exchange);
  EXPECT_EQ(peer.received, request);
  EXPECT_FALSE(exchange.HasMore());
}

TEST_F(Relayed, PeerThatTakesNoMore_StillHeard) {
  peer.room = 0;
  peer.full = {Outcome::kBroken, 0, 0, "Broken pipe"};
  peer.answers = {"413 too large"};
  peer.after = {Outcome::kEnd, 0, 0, ""};
  auto exchange = Make();
  ASSERT_TRUE(tests::SendAll(client.Get(), std::string(50000, 'x')));
  Serve(exchange);
  EXPECT_TRUE(exchange.IsFinished());
  EXPECT_EQ(tests::ReadUpTo(client.Get(), 13), "413 too large");
}

TEST_F(Relayed, ClientEndsWriting_PeerToldAndAnswerStillDelivered) {
  auto exchange = Make();
  ASSERT_TRUE(tests::SendAll(client.Get(), "GET"));
  ::shutdown(client.Get(), SHUT_WR);
  Serve(exchange);
  EXPECT_EQ(peer.received, "GET");
  EXPECT_TRUE(peer.isWritingEnded);
  EXPECT_EQ(exchange.NeedsNow().client, 0);
  peer.answers = {"answer"};
  Serve(exchange);
  EXPECT_EQ(tests::ReadUpTo(client.Get(), 6), "answer");
}

TEST_F(Relayed, ClientGone_Finished) {
  auto exchange = Make();
  peer.answers = {"answer"};
  client = support::UniqueFd();
  Serve(exchange);
  EXPECT_TRUE(exchange.IsFinished());
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Relayed, PeerEnds_RestDeliveredThenTheEnd) {
  peer.answers = {"first", "second"};
  peer.after = {Outcome::kEnd, 0, 0, ""};
  {
    auto exchange = Make();
    Serve(exchange);
    EXPECT_TRUE(exchange.IsFinished());
  }
  EXPECT_EQ(tests::ReadToEnd(client.Get()), "firstsecond");
  EXPECT_TRUE(peer.isClosed);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Relayed, PeerEndsWithRequestUnread_ClientSeesTheEndAndNoReset) {
  peer.room = 0;
  peer.answers = {"answer"};
  peer.after = {Outcome::kEnd, 0, 0, ""};
  {
    auto exchange = Make();
    ASSERT_TRUE(tests::SendAll(client.Get(), std::string(50000, 'x')));
    Serve(exchange);
    EXPECT_TRUE(exchange.IsFinished());
  }
  EXPECT_EQ(tests::ReadUpTo(client.Get(), 6), "answer");
  char byte = 0;
  EXPECT_EQ(::recv(client.Get(), &byte, 1, 0), 0);
}

TEST_F(Relayed, PeerEndsWhileTheClientWrites_ClientSeesTheEndAndNoReset) {
  peer.after = {Outcome::kEnd, 0, 0, ""};
  {
    auto exchange = Make();
    Serve(exchange);
    ASSERT_TRUE(exchange.IsFinished());
    EXPECT_TRUE(tests::SendAll(client.Get(), "more"));
  }
  char byte = 0;
  EXPECT_EQ(::recv(client.Get(), &byte, 1, 0), 0);
}

TEST_F(Relayed, PeerReset_EndWithOneDebugLine) {
  peer.answers = {"part"};
  peer.after = {Outcome::kBroken, 0, 0, "Connection reset by peer"};
  {
    auto exchange = Make();
    Serve(exchange);
  }
  EXPECT_EQ(tests::ReadToEnd(client.Get()), "part");
  EXPECT_THAT(log.Lines(), ElementsAre("debug: libLumoConnectorShared: h:80 for Download ended: "
                                       "Connection reset by peer"));
}

TEST_F(Relayed, PeerRefuses_EndWithOneWarning) {
  peer.after = {Outcome::kRefused, 0, 0, "it demands a client certificate"};
  auto exchange = Make();
  Serve(exchange);
  EXPECT_TRUE(exchange.IsFinished());
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: h:80 for Download ended: "
                                       "it demands a client certificate"));
}

TEST_F(Relayed, ClientThatReadsNothing_BoundedAndPeerNoLongerRead) {
  peer.answers.assign(100, std::string(kRelayChunk, 'x'));
  auto exchange = Make();
  Serve(exchange);
  EXPECT_EQ(exchange.NeedsNow().client, POLLIN | POLLOUT);
  EXPECT_EQ(exchange.NeedsNow().peer, 0);
  EXPECT_GT(peer.answers.size(), 80U);
  const auto left = peer.answers.size();
  Serve(exchange);
  EXPECT_EQ(peer.answers.size(), left);
}

TEST_F(Relayed, MuchToMove_OthersHaveTheirTurn) {
  wait.fd = client.Get();
  const int large = 4 * 1024 * 1024;
  ::setsockopt(connectorEnd.Get(), SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
  peer.answers.assign(100, "a");
  auto exchange = Make();
  Serve(exchange);
  EXPECT_EQ(peer.answers.size(), 92U);
  EXPECT_TRUE(exchange.HasMore());
}

TEST_F(Relayed, ManyShortPieces_HeldBackAfterTheFreeOnes) {
  const int large = 4 * 1024 * 1024;
  ::setsockopt(connectorEnd.Get(), SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
  peer.answers.assign(kFreeShortPieces + 3, std::string(kShortPiece - 1, 'a'));
  auto exchange = Make();
  for (std::size_t turn = 0; turn <= kFreeShortPieces; ++turn) Serve(exchange);
  EXPECT_EQ(peer.answers.size(), 2U);
  EXPECT_FALSE(exchange.HasMore());
  EXPECT_EQ(exchange.NeedsNow().peer, 0);
  ASSERT_EQ(exchange.NextCheck(), begun + kPieceHold);
  exchange.Serve(*buffer, begun + kPieceHold);
  EXPECT_EQ(peer.answers.size(), 1U);
}

TEST_F(Relayed, LongPieces_NeverHeldBack) {
  peer.answers.assign(kFreeShortPieces + 3, std::string(kShortPiece, 'a'));
  peer.after = {Outcome::kEnd, 0, 0, ""};
  wait.fd = client.Get();
  auto exchange = Make();
  EXPECT_EQ(ServeToEnd(exchange).size(), (kFreeShortPieces + 3) * kShortPiece);
}

TEST_F(Relayed, LongAnswer_WholeAndInOrder) {
  wait.fd = client.Get();
  std::string sent;
  for (int piece = 0; piece < 40; ++piece) {
    peer.answers.push_back(std::string(100000, static_cast<char>('A' + piece)));
    sent += peer.answers.back();
  }
  peer.after = {Outcome::kEnd, 0, 0, ""};
  auto exchange = Make();
  EXPECT_EQ(ServeToEnd(exchange), sent);
}

TEST_F(Relayed, AnswerOneAboveTheLimit_DeliveredUpToItAndOneWarning) {
  limits.responseBytes = 10;
  peer.answers = {"0123456789", "a"};
  {
    auto exchange = Make();
    Serve(exchange);
    EXPECT_TRUE(exchange.IsFinished());
    EXPECT_TRUE(peer.isClosed);
  }
  EXPECT_EQ(tests::ReadToEnd(client.Get()), "0123456789");
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: closed h:80 for Download: "
                                       "the answer is longer than 10 bytes"));
}

TEST_F(Relayed, AnswerAtTheLimit_Delivered) {
  limits.responseBytes = 10;
  peer.answers = {"0123456789"};
  peer.after = {Outcome::kEnd, 0, 0, ""};
  {
    auto exchange = Make();
    Serve(exchange);
  }
  EXPECT_EQ(tests::ReadToEnd(client.Get()), "0123456789");
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Relayed, LongAnswerAboveTheLimit_SlowClientGetsItAll) {
  wait.fd = client.Get();
  limits.responseBytes = 1000000;
  peer.answers.assign(20, std::string(kRelayChunk, 'x'));
  auto exchange = Make();
  EXPECT_EQ(ServeToEnd(exchange).size(), 1000000U);
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(Relayed, TimeOver_ClosedWithOneWarning) {
  auto exchange = Make();
  EXPECT_EQ(exchange.NextCheck(), begun + seconds(100));
  Serve(exchange, seconds(99));
  EXPECT_FALSE(exchange.IsFinished());
  Serve(exchange, seconds(100));
  EXPECT_TRUE(exchange.IsFinished());
  EXPECT_TRUE(peer.isClosed);
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: closed h:80 for Download: "
                                       "it takes longer than 100 s"));
}

TEST_F(Relayed, TimeOverWithRequestUnread_ClientSeesTheEndAndNoReset) {
  peer.room = 0;
  {
    auto exchange = Make();
    ASSERT_TRUE(tests::SendAll(client.Get(), std::string(50000, 'x')));
    Serve(exchange, seconds(100));
    EXPECT_TRUE(exchange.IsFinished());
  }
  char byte = 0;
  EXPECT_EQ(::recv(client.Get(), &byte, 1, 0), 0);
}

TEST_F(Relayed, TimeOverWhileDelivering_NoSecondWarning) {
  limits.responseBytes = 3000000;
  peer.answers.assign(40, std::string(kRelayChunk, 'x'));
  wait.fd = client.Get();
  auto exchange = Make();
  while (!peer.isClosed) {
    Serve(exchange);
    static_cast<void>(tests::ReadUpTo(client.Get(), 1000));
  }
  EXPECT_FALSE(exchange.IsFinished());
  Serve(exchange, seconds(100));
  EXPECT_TRUE(exchange.IsFinished());
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(Relayed, SlowAnswer_ClosedWithOneWarning) {
  peer.answers = {"H"};
  auto exchange = Make();
  Serve(exchange);
  Serve(exchange, seconds(29));
  EXPECT_FALSE(exchange.IsFinished());
  Serve(exchange, seconds(30));
  EXPECT_TRUE(exchange.IsFinished());
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: closed h:80 for Download: "
                                       "less than 1024 bytes a second arrived over 30 s"));
}

TEST_F(Relayed, SlowClient_NoSlowAnswer) {
  peer.answers.assign(100, std::string(kRelayChunk, 'x'));
  auto exchange = Make();
  Serve(exchange);
  Serve(exchange, seconds(99));
  EXPECT_FALSE(exchange.IsFinished());
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Relayed, Abandoned_Finished) {
  auto exchange = Make();
  exchange.Abandon();
  EXPECT_TRUE(exchange.IsFinished());
}

}  // namespace
}  // namespace platform_host
