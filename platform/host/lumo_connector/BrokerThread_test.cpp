#include "platform/host/lumo_connector/BrokerThread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <new>
#include <thread>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"

namespace lumo_connector {
namespace {

using platform_host::Error;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What the clients of one test do and have done, on whatever thread.
struct Script {
  tests::EventLog calls;
  std::atomic<bool> isThrowing{false};
};

/// Accepted at once; never hears anything.
class QuietClient : public MqttClientIf {
 public:
  explicit QuietClient(Script& testScript) : script(testScript) {}

  std::optional<Error> Connect() override {
    script.calls.Add("connect");
    if (script.isThrowing) throw std::bad_alloc();
    return std::nullopt;
  }
  Interest WaitsFor() override { return {-1, 0, !isServed}; }
  std::optional<Error> Serve(short /*events*/, MqttListenerIf& listener) override {
    if (!std::exchange(isServed, true)) listener.Accepted();
    return std::nullopt;
  }
  void Close() override { script.calls.Add("close"); }
  Sent Subscribe(const std::string& topic) override {
    script.calls.Add("subscribe " + topic);
    return {Sent::Outcome::kSent, 1};
  }
  Sent Publish(const std::string&, const std::vector<std::uint8_t>&) override {
    return {Sent::Outcome::kSent, 2};
  }

 private:
  Script& script;
  bool isServed = false;
};

class Threads : public ::testing::Test {
 protected:
  std::unique_ptr<BrokerSession> Session() {
    requests.Begin();
    return std::make_unique<BrokerSession>(
        platform_host::BrokerConfig{}, std::make_unique<QuietClient>(script),
        BrokerSession::Parties{states, events, requests, [] {}}, [] { return 0.0; });
  }

  const platform_host::CapturedLog log;
  Script script;
  CallbackThread callbacks;
  TransactionTypeStates states{callbacks};
  TopicEvents events{callbacks};
  TopicRequests requests{events};
  BrokerThread thread;
};

TEST_F(Threads, Started_ConnectsAndStopCloses) {
  thread.Start(Session());
  ASSERT_TRUE(script.calls.WaitFor("connect"));
  thread.Stop();
  EXPECT_THAT(script.calls.Texts(), ElementsAre("connect", "close"));
}

TEST_F(Threads, Woken_SendsWhatWaits) {
  thread.Start(Session());
  ASSERT_TRUE(tests::Eventually([&] { return !log.Lines().empty(); }));
  EXPECT_EQ(requests.Subscribe("job").requestId, 1);
  thread.Wake();
  EXPECT_TRUE(script.calls.WaitFor("subscribe job"));
}

TEST_F(Threads, StopBeforeStart_NoSession) {
  thread.Stop();
  thread.Start(Session());
  thread.Stop();
  EXPECT_THAT(script.calls.Texts(), IsEmpty());
}

TEST_F(Threads, StopOnTwoThreads_BothReturnAfterTheEnd) {
  thread.Start(Session());
  std::thread other([&] {
    thread.Stop();
    EXPECT_TRUE(script.calls.WaitFor("close"));
  });
  thread.Stop();
  EXPECT_TRUE(script.calls.WaitFor("close"));
  other.join();
}

TEST_F(Threads, OutOfMemory_OneLineAndAnotherTry) {
  script.isThrowing = true;
  thread.Start(Session());
  ASSERT_TRUE(script.calls.WaitFor("connect", 2));
  thread.Stop();
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: no connection to the broker "
                                       ":1883: std::bad_alloc"));
}

}  // namespace
}  // namespace lumo_connector
