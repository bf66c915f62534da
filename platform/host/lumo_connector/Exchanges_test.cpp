#include "platform/host/lumo_connector/Exchanges.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TestPki.h"

namespace platform_host {
namespace {

using lumo_connector::LumoSocketResult;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kOperation = "Download";

/// The connector's exchanges, a peer for them, and a clock that moves when the test says so.
class Exchanging : public ::testing::Test {
 protected:
  Exchanging() { config.services[kOperation].url = "http://localhost/"; }

  LumoSocketResult Connect() {
    return exchanges.Connect(config, kOperation, "127.0.0.1", peer.Port());
  }

  /// A stream; its far end is in `connection`.
  support::UniqueFd Open() {
    const auto result = Connect();
    EXPECT_EQ(result.status, 0) << result.text;
    connection = peer.Accept();
    return support::UniqueFd(result.descriptor);
  }

  [[nodiscard]] std::string Peer() const { return "127.0.0.1:" + std::to_string(peer.Port()); }
  [[nodiscard]] std::string ErrorLine(const std::string& reason) const {
    return "error: libLumoConnectorShared: cannot connect to " + Peer() +
           " for Download: " + reason;
  }

  HostConfig config;
  tests::LoopbackPeer peer;
  support::UniqueFd connection;
  const CapturedLog log;
  std::atomic<int> elapsed{0};
  const steady_clock::time_point begun = steady_clock::now();
  Exchanges exchanges{[this] { return begun + seconds(elapsed); }};
};

TEST_F(Exchanging, Stream_BytesBothWaysAndTheEnd) {
  const auto stream = Open();
  ASSERT_TRUE(tests::SendAll(stream.Get(), "request"));
  EXPECT_EQ(tests::ReadUpTo(connection.Get(), 7), "request");
  ASSERT_TRUE(tests::SendAll(connection.Get(), "answer"));
  connection = support::UniqueFd();
  EXPECT_EQ(tests::ReadToEnd(stream.Get()), "answer");
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(Exchanging, Stream_BlockingAndClosedOnExec) {
  const auto result = Connect();
  const support::UniqueFd stream(result.descriptor);
  EXPECT_EQ(result.peerAddress, Peer());
  EXPECT_EQ(result.text, "");
  EXPECT_EQ(::fcntl(stream.Get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(::fcntl(stream.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(Exchanging, OperationWithoutUrl_NotConfigured) {
  config.services["Other"].token = "t";
  for (const char* operation : {"Other", "Unknown"}) {
    const CapturedLog own;
    const auto result = exchanges.Connect(config, operation, "127.0.0.1", peer.Port());
    EXPECT_EQ(result.status, ENOENT);
    EXPECT_EQ(result.descriptor, -1);
    EXPECT_EQ(result.text, "the operation is not configured");
    EXPECT_THAT(own.Lines(),
                ElementsAre("error: libLumoConnectorShared: cannot connect to " + Peer() + " for " +
                            operation + ": the operation is not configured"));
  }
}

TEST_F(Exchanging, Refused_StatusTextAndOneLine) {
  peer.Close();
  const auto result = Connect();
  EXPECT_EQ(result.status, ECONNREFUSED);
  EXPECT_EQ(result.descriptor, -1);
  EXPECT_EQ(result.text, "Connection refused");
  EXPECT_THAT(log.Lines(), ElementsAre(ErrorLine("Connection refused")));
}

TEST_F(Exchanging, HttpsWithoutAnchors_NeverConnected) {
  config.services[kOperation].url = "https://localhost/";
  config.services[kOperation].caFile = "/nowhere/ca.pem";
  const auto result = Connect();
  EXPECT_EQ(result.status, ENOENT);
  EXPECT_THAT(log.Lines(),
              ElementsAre(ErrorLine("cannot read /nowhere/ca.pem: No such file or directory")));
}

TEST_F(Exchanging, PeerSilentInTheHandshake_TimedOut) {
  config.services[kOperation].url = "https://localhost/";
  config.services[kOperation].caFile = tests::PkiPath("tls/ca.pem");
  config.limits.duration = seconds(1);
  Exchanges real;
  const auto result = real.Connect(config, kOperation, "127.0.0.1", peer.Port());
  EXPECT_EQ(result.status, ETIMEDOUT);
  EXPECT_THAT(log.Lines(), ElementsAre(ErrorLine("timed out")));
}

TEST_F(Exchanging, PeerReset_EndForTheClient) {
  const auto stream = Open();
  const linger now{1, 0};
  ::setsockopt(connection.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  connection = support::UniqueFd();
  EXPECT_EQ(tests::ReadToEnd(stream.Get()), "");
  exchanges.Stop();
  EXPECT_THAT(log.Lines(), ElementsAre("debug: libLumoConnectorShared: " + Peer() +
                                       " for Download ended: Connection reset by peer"));
}

TEST_F(Exchanging, AnswerOneAboveTheLimit_CutWithOneWarning) {
  config.limits.responseBytes = 100000;
  const auto stream = Open();
  ASSERT_TRUE(tests::SendAll(connection.Get(), std::string(100001, 'x')));
  EXPECT_EQ(tests::ReadToEnd(stream.Get()).size(), 100000U);
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: closed " + Peer() +
                                       " for Download: the answer is longer than 100000 bytes"));
}

TEST_F(Exchanging, AnswerAtTheLimit_Whole) {
  config.limits.responseBytes = 100000;
  const auto stream = Open();
  ASSERT_TRUE(tests::SendAll(connection.Get(), std::string(100000, 'x')));
  connection = support::UniqueFd();
  EXPECT_EQ(tests::ReadToEnd(stream.Get()).size(), 100000U);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Exchanging, TimeOver_ClosedWithOneWarning) {
  const auto stream = Open();
  elapsed = 120;
  exchanges.CheckLimits();
  EXPECT_EQ(tests::ReadToEnd(stream.Get()), "");
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libLumoConnectorShared: closed " + Peer() +
                                       " for Download: it takes longer than 120 s"));
}

TEST_F(Exchanging, SlowAnswer_ClosedWithOneWarning) {
  const auto stream = Open();
  ASSERT_TRUE(tests::SendAll(connection.Get(), "HTTP"));
  EXPECT_EQ(tests::ReadUpTo(stream.Get(), 4), "HTTP");
  elapsed = 30;
  exchanges.CheckLimits();
  EXPECT_EQ(tests::ReadToEnd(stream.Get()), "");
  EXPECT_THAT(log.Lines(),
              ElementsAre("warning: libLumoConnectorShared: closed " + Peer() +
                          " for Download: less than 1024 bytes a second arrived over 30 s"));
}

TEST_F(Exchanging, Stop_EndsStreamsAndLaterConnects) {
  const auto stream = Open();
  exchanges.Stop();
  EXPECT_EQ(tests::ReadToEnd(stream.Get()), "");
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  const auto result = Connect();
  EXPECT_EQ(result.status, ECANCELED);
  EXPECT_EQ(result.descriptor, -1);
  EXPECT_THAT(log.Lines(), ElementsAre(ErrorLine("stopped")));
}

TEST_F(Exchanging, StopWhileConnectWaits_Canceled) {
  config.services[kOperation].url = "https://localhost/";
  config.services[kOperation].caFile = tests::PkiPath("tls/ca.pem");
  auto waiting = std::async(std::launch::async, [this] { return Connect(); });
  connection = peer.Accept();
  static_cast<void>(tests::ReadUpTo(connection.Get(), 5));
  exchanges.Stop();
  EXPECT_EQ(waiting.get().status, ECANCELED);
}

TEST_F(Exchanging, Exchanges_LeaveNoDescriptor) {
  const auto before = tests::OpenDescriptors();
  for (int round = 0; round < 50; ++round) {
    const auto stream = Open();
    ASSERT_TRUE(tests::SendAll(connection.Get(), "answer"));
    connection = support::UniqueFd();
    EXPECT_EQ(tests::ReadToEnd(stream.Get()), "answer");
  }
  exchanges.Stop();
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

TEST_F(Exchanging, NoDescriptorLeft_FailsAndGoesOnLater) {
  // UndefinedBehaviorSanitizer needs a descriptor to look at an object for the first time: a stream
  // that ends, and a failure with its line, come before there is none left.
  EXPECT_TRUE(Open().IsOpen());
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_NE(support::ErrorText(EMFILE), "");
  EXPECT_EQ(exchanges.Connect(config, "Unknown", "127.0.0.1", peer.Port()).status, ENOENT);
  const auto held = Open();
  const support::UniqueFd heldPeer = std::move(connection);
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
  std::vector<support::UniqueFd> fill;
  const rlimit few{static_cast<rlim_t>(tests::OpenDescriptors().size()) + 20, former.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  while (fill.empty() || fill.back().IsOpen()) fill.emplace_back(::open("/", O_RDONLY | O_CLOEXEC));
  std::vector<int> seen;
  for (int free = 0; free < 3; ++free) {
    seen.push_back(Connect().status);
    fill.pop_back();
  }
  fill.clear();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &former), 0);
  EXPECT_THAT(seen, ::testing::Each(EMFILE));
  EXPECT_TRUE(Open().IsOpen());
}

TEST_F(Exchanging, ClientThatNeverReads_OthersServed) {
  const auto idle = Open();
  const support::UniqueFd flood = std::move(connection);
  std::atomic<bool> done{false};
  std::thread flooding([&] {
    const std::string much(100000, 'x');
    while (!done && ::send(flood.Get(), much.data(), much.size(), MSG_DONTWAIT | MSG_NOSIGNAL) != 0)
      std::this_thread::yield();
  });
  const auto stream = Open();
  ASSERT_TRUE(tests::SendAll(connection.Get(), "answer"));
  EXPECT_EQ(tests::ReadUpTo(stream.Get(), 6), "answer");
  done = true;
  flooding.join();
}

TEST_F(Exchanging, ConnectStopAndCloseAtOnce_NothingHangsOrLeaks) {
  const auto before = tests::OpenDescriptors().size();
  for (int round = 0; round < 200; ++round) {
    Exchanges own;
    std::vector<std::thread> threads;
    for (int index = 0; index < 3; ++index) {
      threads.emplace_back([&] {
        const auto result = own.Connect(config, kOperation, "127.0.0.1", peer.Port());
        const support::UniqueFd stream(result.descriptor);
        EXPECT_TRUE(result.status == 0 || result.status == ECANCELED) << result.text;
        EXPECT_EQ(stream.IsOpen(), result.status == 0);
      });
    }
    threads.emplace_back([&] { own.Stop(); });
    own.Stop();
    for (auto& thread : threads) thread.join();
    peer = tests::LoopbackPeer();
  }
  EXPECT_EQ(tests::OpenDescriptors().size(), before);
}

}  // namespace
}  // namespace platform_host
