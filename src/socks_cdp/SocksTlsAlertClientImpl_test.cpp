#include "socks_cdp/SocksTlsAlertClientImpl.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "ssoa_socket/UnixStreamClientConnector.h"
#include "tests/doubles/FakeCommunicator.h"
#include "tests/doubles/FakeConnector.h"
#include "tests/support/AlertProxy.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"

namespace socks_cdp {
namespace {

using platform_host::LogLevel;
using std::chrono::hours;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::AlertMessage;
using tests::AlertProxy;
using tests::SendAll;

/// A client that listens to a proxy of the test. Its pause is longer than any test.
class AlertClient : public ::testing::Test {
 protected:
  AlertClient() { proxy.emplace(path); }

  /// Begins to listen. Returns the proxy's end of the connection.
  [[nodiscard]] support::UniqueFd Connect() {
    EXPECT_EQ(client.StartListening(&callback), kListeningStarted);
    return proxy->AcceptListener();
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/socket";
  std::optional<AlertProxy> proxy;
  tests::RecordingAlertCallback callback;
  platform_host::CapturedLog log;
  SocksTlsAlertClientImpl client{
      std::make_shared<ssoa_socket::UnixStreamClientConnector>(path, -1, "SocksTlsAlertClient"),
      hours(1)};
};

TEST_F(AlertClient, Alert_TextAndCode) {
  const auto connection = Connect();
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("operation", 48)));
  EXPECT_THAT(callback.events.WaitForCount(1), ElementsAre("48 operation"));
}

TEST_F(AlertClient, Alert_WithoutOperation) {
  const auto connection = Connect();
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("", 46)));
  EXPECT_THAT(callback.events.WaitForCount(1), ElementsAre("46 "));
}

TEST_F(AlertClient, Alert_LongestOperation) {
  const auto connection = Connect();
  const std::string longest = std::string(65533, 'x') + "\n\xff";
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage(longest, 48)));
  EXPECT_THAT(callback.events.WaitForCount(1), ElementsAre("48 " + longest));
}

TEST_F(AlertClient, Alerts_BackToBackInOrder) {
  const auto connection = Connect();
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("first", 48) + AlertMessage("second", 46)));
  EXPECT_THAT(callback.events.WaitForCount(2), ElementsAre("48 first", "46 second"));
}

TEST_F(AlertClient, Alert_ByteByByte) {
  const auto connection = Connect();
  for (const char byte : AlertMessage("id", 48)) {
    ASSERT_TRUE(SendAll(connection.Get(), std::string(1, byte)));
  }
  EXPECT_THAT(callback.events.WaitForCount(1), ElementsAre("48 id"));
}

TEST_F(AlertClient, EveryCode_PassedOn) {
  const auto connection = Connect();
  std::string messages;
  std::vector<std::string> expected;
  for (unsigned code = 0; code <= UINT8_MAX; ++code) {
    messages += AlertMessage("id", static_cast<std::uint8_t>(code));
    expected.push_back(std::to_string(code) + " id");
  }
  ASSERT_TRUE(SendAll(connection.Get(), messages));
  EXPECT_EQ(callback.events.WaitForCount(256), expected);
}

TEST_F(AlertClient, MessageCutAnywhere_OneErrorNoAlertAndANewConnection) {
  const std::string message = AlertMessage("id", 48);
  auto connection = Connect();
  for (std::size_t size = 0; size < message.size(); ++size) {
    ASSERT_TRUE(SendAll(connection.Get(), message.substr(0, size)));
    connection = support::UniqueFd();
    connection = proxy->AcceptListener();
  }
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("after", 48)));
  ASSERT_TRUE(callback.events.WaitFor("48 after"));
  EXPECT_THAT(callback.events.Texts(),
              ElementsAre("error", "error", "error", "error", "error", "error", "48 after"));
}

TEST_F(AlertClient, OtherTypes_OneErrorNothingSkippedAndANewConnection) {
  auto connection = Connect();
  for (const char type : {'\0', '\1', '\3', '\xff'}) {
    ASSERT_TRUE(SendAll(connection.Get(), type + AlertMessage("x", 48)));
    EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
    connection = proxy->AcceptListener();
  }
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("after", 48)));
  ASSERT_TRUE(callback.events.WaitFor("48 after"));
  EXPECT_THAT(callback.events.Texts(), ElementsAre("error", "error", "error", "error", "48 after"));
}

TEST_F(AlertClient, AlertThenCut_BothTold) {
  auto connection = Connect();
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48) + "\2"));
  connection = support::UniqueFd();
  EXPECT_THAT(callback.events.WaitForCount(2), ElementsAre("48 id", "error"));
}

TEST_F(AlertClient, EveryLine) {
  log.Clear();
  auto connection = Connect();
  ASSERT_TRUE(SendAll(connection.Get(), "\3"));
  connection = proxy->AcceptListener();
  client.StopListening();
  ASSERT_TRUE(tests::IsAtEnd(connection.Get()));
  const std::vector<std::string> lines = log.Lines(LogLevel::kDebug);
  const auto opened = [&lines](std::size_t at) {
    return lines.at(at).substr(lines[at].rfind(' '));
  };
  ASSERT_GE(lines.size(), 8U);
  EXPECT_THAT(
      std::vector<std::string>(lines.begin(), lines.begin() + 8),
      ElementsAre("debug: SocksTlsAlertClient: Try to EstablishConnection to socks-cdp",
                  "debug: SocksTlsAlertClientConnector: Connection opened. Socket:" + opened(1),
                  "debug: SocksTlsAlertClient: Connection established to socks-cdp",
                  "debug: SocksTlsAlertClientCommunicator: Closing socket:" + opened(1),
                  "debug: SocksTlsAlertClient: Try to EstablishConnection to socks-cdp",
                  "debug: SocksTlsAlertClientConnector: Connection opened. Socket:" + opened(5),
                  "debug: SocksTlsAlertClient: Connection established to socks-cdp",
                  "debug: SocksTlsAlertClientCommunicator: Closing socket:" + opened(5)));
}

TEST_F(AlertClient, NobodyToTell_AlertsAreReadAllTheSame) {
  ASSERT_EQ(client.StartListening(nullptr), kListeningStarted);
  auto connection = proxy->AcceptListener();
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48) + "\3"));
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
}

TEST_F(AlertClient, CallbackThrows_OneLineAndTheNextAlertComes) {
  int calls = 0;
  tests::RecordingAlertCallback throwing([&calls] {
    ++calls;
    if (calls == 1) throw std::runtime_error("the reason");
    if (calls == 2) throw 42;
  });
  {
    ASSERT_EQ(client.StartListening(&throwing), kListeningStarted);
    const auto connection = proxy->AcceptListener();
    ASSERT_TRUE(SendAll(connection.Get(),
                        AlertMessage("1", 48) + AlertMessage("2", 48) + AlertMessage("3", 48)));
    ASSERT_TRUE(throwing.events.WaitFor("48 3"));
    client.StopListening();
    ASSERT_EQ(client.StartListening(nullptr), kListeningStarted) << "joins the listening before";
  }
  EXPECT_THAT(
      log.Lines(LogLevel::kError),
      ElementsAre("error: SocksTlsAlertClient: The callback threw an exception: the reason",
                  "error: SocksTlsAlertClient: The callback threw an exception of unknown kind"));
}

TEST_F(AlertClient, ManyConnections_NothingLeftOpen) {
  auto connection = Connect();
  const auto before = tests::OpenDescriptors();
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(SendAll(connection.Get(), "\3"));
    ASSERT_TRUE(tests::IsAtEnd(connection.Get()));
    connection = support::UniqueFd();
    connection = proxy->AcceptListener();
  }
  EXPECT_EQ(tests::OpenDescriptors().size(), before.size());
}

TEST_F(AlertClient, NoProxyAtFirst_AskedAgainAfterThePause) {
  proxy.reset();
  SocksTlsAlertClientImpl patient(
      std::make_shared<ssoa_socket::UnixStreamClientConnector>(path, -1, "SocksTlsAlertClient"),
      milliseconds(1));
  log.Clear();
  ASSERT_EQ(patient.StartListening(&callback), kListeningStarted);
  const std::string failed = "error: SocksTlsAlertClientConnector: Connection failed, code:  -1";
  ASSERT_TRUE(tests::Eventually([&] { return log.Lines(LogLevel::kError).size() >= 3; }));
  EXPECT_THAT(log.Lines(LogLevel::kError), ::testing::Each(failed));
  const AlertProxy late(path);
  const auto connection = late.AcceptListener();
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48)));
  EXPECT_THAT(callback.events.WaitForCount(1), ElementsAre("48 id"));
}

/// Connections of a made-up proxy.
class MadeUpProxy : public ::testing::Test {
 protected:
  /// A client whose pause is longer than any test.
  [[nodiscard]] std::unique_ptr<SocksTlsAlertClientImpl> Client(
      std::function<tests::FakeConnector::Communicator(int attempt)> establish) {
    const auto connector =
        std::make_shared<tests::FakeConnector>([this, establish] { return establish(++attempts); });
    return std::make_unique<SocksTlsAlertClientImpl>(connector, hours(1));
  }

  std::atomic<int> attempts{0};
  tests::RecordingAlertCallback callback;
  platform_host::CapturedLog log;
};

/// Takes so much of what is written.
class FakeWrites : public tests::FakeCommunicator {
 public:
  explicit FakeWrites(std::ptrdiff_t countTaken) : FakeCommunicator(""), count(countTaken) {}
  using FakeCommunicator::Write;
  [[nodiscard]] std::ptrdiff_t Write(const std::vector<unsigned char>& /*data*/) const override {
    return count;
  }

 private:
  const std::ptrdiff_t count;
};

TEST_F(MadeUpProxy, RequestNotTaken_ConnectsAgainAtOnceAndTellsNobody) {
  const auto refusing = std::make_shared<FakeWrites>(-1);
  const auto partial = std::make_shared<FakeWrites>(0);
  const auto client = Client([&](int attempt) -> tests::FakeConnector::Communicator {
    if (attempt == 1) return refusing;
    if (attempt == 2) return partial;
    return nullptr;
  });
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  EXPECT_TRUE(tests::Eventually([this] { return attempts == 3; }));
  EXPECT_FALSE(refusing->IsOpen());
  EXPECT_FALSE(partial->IsOpen());
  EXPECT_EQ(partial->ReadCalls(), 0U);
  EXPECT_THAT(callback.events.Texts(), IsEmpty());
}

TEST_F(MadeUpProxy, LostConnection_ConnectsAgainAtOnce) {
  const auto client = Client([](int attempt) -> tests::FakeConnector::Communicator {
    if (attempt > 3) return nullptr;
    return std::make_shared<tests::FakeCommunicator>(AlertMessage(std::to_string(attempt), 48));
  });
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  EXPECT_TRUE(tests::Eventually([this] { return attempts == 4; }));
  EXPECT_THAT(callback.events.Texts(),
              ElementsAre("48 1", "error", "48 2", "error", "48 3", "error"));
}

TEST_F(MadeUpProxy, LostConnection_ToldFirstThenDisconnected) {
  const auto connection = std::make_shared<tests::FakeCommunicator>("\3");
  std::atomic<bool> wasOpen{false};
  tests::RecordingAlertCallback looking([&] { wasOpen = connection->IsOpen(); });
  const auto client = Client([&](int attempt) { return attempt == 1 ? connection : nullptr; });
  ASSERT_EQ(client->StartListening(&looking), kListeningStarted);
  EXPECT_TRUE(tests::Eventually([this] { return attempts == 2; }));
  EXPECT_TRUE(wasOpen);
  EXPECT_FALSE(connection->IsOpen());
  EXPECT_THAT(looking.events.Texts(), ElementsAre("error"));
}

TEST_F(MadeUpProxy, FailedAttempt_NobodyIsToldAndThePauseKept) {
  const auto client = Client([](int /*attempt*/) { return nullptr; });
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  ASSERT_TRUE(tests::Eventually([this] { return attempts == 1; }));
  client->StopListening();
  EXPECT_EQ(client->StartListening(&callback), kListeningStarted);
  ASSERT_TRUE(tests::Eventually([this] { return attempts == 2; }));
  EXPECT_THAT(callback.events.Texts(), IsEmpty());
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: SocksTlsAlertClient: Try to EstablishConnection to socks-cdp",
                          "debug: SocksTlsAlertClient: Try to EstablishConnection to socks-cdp"));
}

TEST_F(MadeUpProxy, ExceptionWhileListening_OneLineAndThePauseKept) {
  const auto client =
      Client([](int /*attempt*/) -> tests::FakeConnector::Communicator { throw std::bad_alloc(); });
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  EXPECT_TRUE(tests::Eventually([this] { return !log.Lines(LogLevel::kError).empty(); }));
  client->StopListening();
  EXPECT_EQ(attempts, 1);
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: SocksTlsAlertClient: Listening failed, trying again later"));
}

/// Has no memory for what is to be read.
class ThrowingReads : public tests::FakeCommunicator {
 public:
  ThrowingReads() : FakeCommunicator("") {}
  [[nodiscard]] std::vector<unsigned char> ReadNBytes(unsigned long /*count*/) const override {
    throw std::bad_alloc();
  }
};

TEST_F(MadeUpProxy, ExceptionWhileReading_TheConnectionIsDropped) {
  const auto connection = std::make_shared<ThrowingReads>();
  const auto client = Client([&](int /*attempt*/) { return connection; });
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  EXPECT_TRUE(tests::Eventually([&] { return !connection->IsOpen(); }));
  EXPECT_EQ(attempts, 1);
  EXPECT_THAT(callback.events.Texts(), IsEmpty());
}

/// A clock that only its readings move on: its next reading is the next of its times, and after the
/// last of them the last again. Belongs to one thread at a time.
class ReadClock {
 public:
  explicit ReadClock(std::vector<milliseconds> timesToTell) : times(std::move(timesToTell)) {}

  [[nodiscard]] std::chrono::steady_clock::time_point Read() {
    if (next < times.size()) time = times[next++];
    return std::chrono::steady_clock::time_point(time);
  }

  /// What the last reading told.
  [[nodiscard]] milliseconds Time() const { return time; }

 private:
  const std::vector<milliseconds> times;
  std::size_t next = 0;
  milliseconds time{0};
};

TEST_F(MadeUpProxy, FailedAttempts_TenSecondsApartAndNotAMillisecondLess) {
  // The waits themselves take the rest of ten seconds: a millisecond or two.
  ReadClock clock({milliseconds(500), milliseconds(10498), milliseconds(10499), milliseconds(10500),
                   milliseconds(20000), milliseconds(29999), milliseconds(31000)});
  std::vector<milliseconds> attemptTimes;
  std::promise<void> ended;
  SocksTlsAlertClientImpl* stopped = nullptr;
  SocksTlsAlertClientImpl client(
      std::make_shared<tests::FakeConnector>([&]() -> tests::FakeConnector::Communicator {
        attemptTimes.push_back(clock.Time());
        if (attemptTimes.size() < 3) return nullptr;
        stopped->StopListening();
        ended.set_value();
        return nullptr;
      }),
      SocksTlsAlertClientImpl::kReconnectPause, [&clock] { return clock.Read(); });
  stopped = &client;
  ASSERT_EQ(client.StartListening(&callback), kListeningStarted);
  EXPECT_EQ(ended.get_future().wait_for(tests::kDeadline), std::future_status::ready);
  client.StopListening();
  EXPECT_THAT(attemptTimes, ElementsAre(milliseconds(0), milliseconds(10500), milliseconds(31000)));
}

TEST(AlertClientPause, UnlessATestShortensIt_TenSeconds) {
  EXPECT_EQ(SocksTlsAlertClientImpl::kReconnectPause, std::chrono::seconds(10));
}

}  // namespace
}  // namespace socks_cdp
