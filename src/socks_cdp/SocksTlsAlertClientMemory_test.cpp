// What a lack of memory ends: a start, or a connection; never the listening, and never the process.
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "platform/host/csc_logging/CapturedLog.h"
#include "socks_cdp/SocksTlsAlertClientImpl.h"
#include "ssoa_socket/StreamCommunicator.h"
#include "tests/doubles/FakeConnector.h"
#include "tests/support/AlertProxy.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/ReplacedNew.h"

namespace socks_cdp {
namespace {

/// While it lives, the thread called `name` gets `first` allocations, and then `count` times none.
class MemoryShortage {
 public:
  MemoryShortage(const char* name, int first, int count) : whole(count) {
    tests::RefuseMemory(name, first, count);
  }
  ~MemoryShortage() { tests::GrantMemory(); }
  MemoryShortage(const MemoryShortage&) = delete;
  MemoryShortage& operator=(const MemoryShortage&) = delete;

  /// Whether it was felt.
  [[nodiscard]] bool HasCome() const { return tests::RefusalsLeft() < whole; }

 private:
  const int whole;
};

/// Hears one alert, and no more.
class OneAlert : public SocksTlsAlertClientCallbackIf {
 public:
  void SocksTlsAlertOccured(std::string operationId,
                            tls_alert_if::ETlsAlertCode /*code*/) override {
    events.Add(operationId);
    client->StopListening();
  }
  void SocksTlsAlertError() override {}

  SocksTlsAlertClientImpl* client = nullptr;
  tests::EventLog events;
};

constexpr const char* kOperation = "an operation that needs the heap";

/// Each connection brings one alert and ends.
class ClientWithoutMemory : public ::testing::Test {
 protected:
  ClientWithoutMemory() { ::pthread_getname_np(::pthread_self(), thread, sizeof thread); }

  [[nodiscard]] tests::FakeConnector::Communicator Connect() {
    tests::ConnectedPair pair = tests::MakeConnectedPair();
    EXPECT_TRUE(tests::SendAll(pair.theirs.Get(), alert));
    EXPECT_EQ(::shutdown(pair.theirs.Get(), SHUT_WR), 0);
    peer = std::move(pair.theirs);  // takes the request, and leaves the connection before
    return std::make_shared<ssoa_socket::StreamCommunicator>(std::move(pair.ours), -1,
                                                             "SocksTlsAlertClientCommunicator: ");
  }

  /// Listens until an alert is heard.
  void Listen() {
    OneAlert heard;
    SocksTlsAlertClientImpl client(
        std::make_shared<tests::FakeConnector>([this] { return Connect(); }),
        std::chrono::milliseconds(1));
    heard.client = &client;
    ASSERT_EQ(client.StartListening(&heard), kListeningStarted);
    EXPECT_TRUE(heard.events.WaitFor(kOperation));
  }

  char thread[16] = "";
  support::UniqueFd peer;
  const std::string alert = tests::AlertMessage(kOperation, 48);
  platform_host::CapturedLog log;
};

TEST_F(ClientWithoutMemory, AtAnyMomentOfListening_TheNextAlertIsHeard) {
  peer = support::UniqueFd(::dup(STDERR_FILENO));
  const auto descriptors = tests::OpenDescriptors().size();
  for (const int count : {1, 3, 10}) {
    bool hasCome = true;
    int first = 0;
    for (; hasCome; ++first) {
      SCOPED_TRACE(std::to_string(count) + " after " + std::to_string(first));
      const MemoryShortage shortage("TlsAlerts", first, count);
      Listen();
      ASSERT_FALSE(HasFailure());
      hasCome = shortage.HasCome();
    }
    EXPECT_GT(first, 1);
  }
  EXPECT_EQ(tests::OpenDescriptors().size(), descriptors);
}

TEST_F(ClientWithoutMemory, AtAnyMomentOfAStart_FailedAndStartedLater) {
  SocksTlsAlertClientImpl client(
      std::make_shared<tests::FakeConnector>([this] { return Connect(); }), std::chrono::hours(1));
  bool hasCome = true;
  int first = 0;
  for (; hasCome; ++first) {
    SCOPED_TRACE(first);
    const MemoryShortage shortage(thread, first, 1);
    const unsigned int status = client.StartListening(nullptr);
    hasCome = shortage.HasCome();
    EXPECT_EQ(status, hasCome ? kListeningFailed : kListeningStarted);
  }
  EXPECT_GT(first, 1);
}

}  // namespace
}  // namespace socks_cdp
