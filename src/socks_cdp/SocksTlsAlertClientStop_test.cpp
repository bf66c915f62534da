// Starting and stopping a client at every moment, from every thread.
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "socks_cdp/SocksTlsAlertClientImpl.h"
#include "ssoa_socket/UnixStreamClientConnector.h"
#include "tests/doubles/FakeCommunicator.h"
#include "tests/doubles/FakeConnector.h"
#include "tests/support/AlertProxy.h"
#include "tests/support/NoMoreThreads.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitingThread.h"

namespace socks_cdp {
namespace {

using platform_host::LogLevel;
using std::chrono::hours;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using tests::AlertMessage;
using tests::AlertProxy;
using tests::SendAll;
using tests::WaitingThread;

class AlertClientStop : public ::testing::Test {
 protected:
  AlertClientStop() { Make(); }

  void Make() {
    client = std::make_unique<SocksTlsAlertClientImpl>(
        std::make_shared<ssoa_socket::UnixStreamClientConnector>(path, -1, "SocksTlsAlertClient"),
        hours(1));
  }

  /// Begins to listen. Returns the proxy's end of the connection.
  [[nodiscard]] support::UniqueFd Connect(SocksTlsAlertClientCallbackIf& told) {
    EXPECT_EQ(client->StartListening(&told), kListeningStarted);
    return proxy.AcceptListener();
  }

  /// Whether the client can be destroyed without a wait for anything of the test.
  [[nodiscard]] bool EndsInTime() {
    WaitingThread<bool> end([this] {
      client.reset();
      return true;
    });
    return end.Ends();
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/socket";
  const AlertProxy proxy{path};
  tests::RecordingAlertCallback callback;
  platform_host::CapturedLog log;
  std::unique_ptr<SocksTlsAlertClientImpl> client;
};

/// Holds every call of a callback until it is opened.
class Gate {
 public:
  void Pass() { const std::lock_guard<std::mutex> held(closed); }
  std::mutex closed;
};

TEST_F(AlertClientStop, NeverStarted_Nothing) {
  client->StopListening();
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(AlertClientStop, StartedTwice_TheFirstCallbackStays) {
  const auto connection = Connect(callback);
  tests::RecordingAlertCallback other;
  EXPECT_EQ(client->StartListening(&other), kAlreadyListening);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48)));
  EXPECT_THAT(callback.events.WaitForCount(1), ElementsAre("48 id"));
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(other.events.Texts(), IsEmpty());
}

TEST_F(AlertClientStop, WhileReading_TheConnectionEndsAndNobodyIsTold) {
  const auto connection = Connect(callback);
  client->StopListening();
  client->StopListening();
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(callback.events.Texts(), IsEmpty());
}

TEST_F(AlertClientStop, InTheMiddleOfAMessage_Ends) {
  const auto connection = Connect(callback);
  ASSERT_TRUE(SendAll(connection.Get(), "\2"));
  client->StopListening();
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_TRUE(EndsInTime());
}

TEST_F(AlertClientStop, StartedAgain_TheNewCallbackIsTold) {
  const auto first = Connect(callback);
  client->StopListening();
  tests::RecordingAlertCallback second;
  const auto connection = Connect(second);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48)));
  EXPECT_TRUE(second.events.WaitFor("48 id"));
  EXPECT_TRUE(EndsInTime());
}

TEST_F(AlertClientStop, DuringTheReconnectPause_EndsAtOnce) {
  std::atomic<int> attempts{0};
  client = std::make_unique<SocksTlsAlertClientImpl>(
      std::make_shared<tests::FakeConnector>([&]() -> tests::FakeConnector::Communicator {
        ++attempts;
        return nullptr;
      }),
      hours(1));
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  ASSERT_TRUE(tests::Eventually([&] { return attempts == 1; }));
  EXPECT_TRUE(EndsInTime());
  EXPECT_EQ(attempts, 1);
}

TEST_F(AlertClientStop, BetweenConnectingAndKeepingTheConnection_ItIsDisconnected) {
  const auto connection = std::make_shared<tests::FakeCommunicator>(AlertMessage("id", 48));
  SocksTlsAlertClientImpl* stopped = nullptr;
  client = std::make_unique<SocksTlsAlertClientImpl>(
      std::make_shared<tests::FakeConnector>([&]() -> tests::FakeConnector::Communicator {
        stopped->StopListening();
        return connection;
      }),
      hours(1));
  stopped = client.get();
  ASSERT_EQ(client->StartListening(&callback), kListeningStarted);
  EXPECT_TRUE(tests::Eventually([&] { return !connection->IsOpen(); }));
  EXPECT_TRUE(EndsInTime());
  EXPECT_EQ(connection->Written(), "");
  EXPECT_THAT(callback.events.Texts(), IsEmpty());
}

TEST_F(AlertClientStop, FromInsideTheCallback_NoFurtherAlert) {
  tests::RecordingAlertCallback stopping([&stopped = *client] { stopped.StopListening(); });
  const auto connection = Connect(stopping);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("1", 48) + AlertMessage("2", 48)));
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(stopping.events.Texts(), ElementsAre("48 1"));
  EXPECT_THAT(log.Lines(LogLevel::kWarning), IsEmpty()) << "nothing is read any more";
}

TEST_F(AlertClientStop, FromInsideTheErrorCallback_NoNewConnection) {
  tests::RecordingAlertCallback stopping([&stopped = *client] { stopped.StopListening(); });
  { const auto connection = Connect(stopping); }
  ASSERT_TRUE(stopping.events.WaitFor("error"));
  EXPECT_TRUE(EndsInTime());
  EXPECT_FALSE(proxy.AcceptWaiting().IsOpen());
}

TEST_F(AlertClientStop, StartFromInsideTheCallback_RefusedWhetherStoppedOrNot) {
  std::array<unsigned int, 2> results{};
  tests::RecordingAlertCallback starting([&, &used = *client] {
    results[0] = used.StartListening(&callback);
    used.StopListening();
    results[1] = used.StartListening(&callback);
  });
  const auto connection = Connect(starting);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48)));
  ASSERT_TRUE(tests::IsAtEnd(connection.Get()));
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(results, ElementsAre(kAlreadyListening, kAlreadyListening));
}

TEST_F(AlertClientStop, StoppedInsideACallbackThatGoesOn_DoesNotWaitForIt) {
  Gate gate;
  tests::RecordingAlertCallback waiting([&gate] { gate.Pass(); });
  gate.closed.lock();
  const auto connection = Connect(waiting);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("1", 48) + AlertMessage("2", 48)));
  ASSERT_TRUE(waiting.events.WaitFor("48 1"));
  client->StopListening();
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  gate.closed.unlock();
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(waiting.events.Texts(), ElementsAre("48 1"));
}

TEST_F(AlertClientStop, StartedAgainDuringACallback_JoinsTheOldThreadFirst) {
  Gate gate;
  tests::RecordingAlertCallback waiting([&gate] { gate.Pass(); });
  gate.closed.lock();
  const auto connection = Connect(waiting);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("1", 48) + AlertMessage("2", 48)));
  ASSERT_TRUE(waiting.events.WaitFor("48 1"));
  client->StopListening();
  WaitingThread<unsigned int> start([this] { return client->StartListening(&callback); });
  ASSERT_TRUE(start.Waits());
  EXPECT_FALSE(start.HasEnded());
  EXPECT_FALSE(proxy.AcceptWaiting().IsOpen()) << "nobody listens beside the old thread";
  gate.closed.unlock();
  EXPECT_EQ(start.Get(), kListeningStarted);
  const auto second = proxy.AcceptListener();
  ASSERT_TRUE(SendAll(second.Get(), AlertMessage("3", 48)));
  EXPECT_TRUE(callback.events.WaitFor("48 3"));
  EXPECT_THAT(waiting.events.Texts(), ElementsAre("48 1"));
}

TEST_F(AlertClientStop, StoppedWhileAStartWaitsForTheOldThread_TheThirdWaitsToo) {
  Gate gate;
  tests::RecordingAlertCallback waiting([&gate] { gate.Pass(); });
  gate.closed.lock();
  const auto connection = Connect(waiting);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("1", 48)));
  ASSERT_TRUE(waiting.events.WaitFor("48 1"));
  client->StopListening();
  tests::RecordingAlertCallback second;
  WaitingThread<unsigned int> secondStart([&] { return client->StartListening(&second); });
  ASSERT_TRUE(secondStart.Waits());
  EXPECT_EQ(client->StartListening(&callback), kAlreadyListening);
  client->StopListening();
  WaitingThread<unsigned int> thirdStart([this] { return client->StartListening(&callback); });
  ASSERT_TRUE(thirdStart.Waits());
  gate.closed.unlock();
  EXPECT_EQ(secondStart.Get(), kListeningStarted);
  EXPECT_EQ(thirdStart.Get(), kListeningStarted);
  const auto third = proxy.AcceptListener();
  ASSERT_TRUE(SendAll(third.Get(), AlertMessage("3", 48)));
  EXPECT_TRUE(callback.events.WaitFor("48 3"));
  EXPECT_THAT(second.events.Texts(), IsEmpty());
}

TEST_F(AlertClientStop, TwoStartsAtOnce_OneListens) {
  for (int round = 0; round < 20; ++round) {
    WaitingThread<unsigned int> first([this] { return client->StartListening(&callback); });
    WaitingThread<unsigned int> second([this] { return client->StartListening(&callback); });
    const std::array<unsigned int, 2> results{first.Get(), second.Get()};
    EXPECT_THAT(results, UnorderedElementsAre(kListeningStarted, kAlreadyListening));
    client->StopListening();
  }
}

TEST_F(AlertClientStop, NoThreadToBeHad_OneLineAndIdle) {
  {
    const tests::NoMoreThreads full;
    EXPECT_EQ(client->StartListening(&callback), kListeningFailed);
  }
  EXPECT_THAT(log.Lines(LogLevel::kInfo),
              ElementsAre("error: SocksTlsAlertClient: The listening thread cannot be started"));
  const auto connection = Connect(callback);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("id", 48)));
  EXPECT_TRUE(callback.events.WaitFor("48 id"));
}

TEST_F(AlertClientStop, ListeningThread_NamedAndWithoutSignals) {
  std::array<char, 16> name{};
  sigset_t blocked{};
  tests::RecordingAlertCallback remembering([&] {
    ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  });
  const auto connection = Connect(remembering);
  ASSERT_TRUE(SendAll(connection.Get(), AlertMessage("1", 48)));
  EXPECT_TRUE(remembering.events.WaitFor("48 1"));
  EXPECT_TRUE(EndsInTime());
  EXPECT_STREQ(name.data(), "TlsAlerts");
  EXPECT_EQ(::sigismember(&blocked, SIGTERM), 1);
}

/// A proxy that sends alerts to whoever connects, as fast as they are taken.
class Flood {
 public:
  explicit Flood(const AlertProxy& proxy) : thread([this, &proxy] { Run(proxy); }) {}
  ~Flood() {
    stopping = true;
    thread.join();
  }
  Flood(const Flood&) = delete;
  Flood& operator=(const Flood&) = delete;

 private:
  void Run(const AlertProxy& proxy) {
    const std::string alerts = AlertMessage("one", 48) + AlertMessage("two", 46);
    while (!stopping) {
      const support::UniqueFd connection = proxy.AcceptWaiting();
      if (!connection.IsOpen()) std::this_thread::yield();
      while (!stopping && connection.IsOpen() && SendAll(connection.Get(), alerts)) {
      }
    }
  }

  std::atomic<bool> stopping{false};
  std::thread thread;
};

TEST_F(AlertClientStop, DestroyedInAFlood_NothingComesAfterwards) {
  const auto descriptors = tests::OpenDescriptors().size();
  {
    const Flood flood(proxy);
    for (int round = 0; round < 5; ++round) {
      Make();
      auto told = std::make_unique<tests::RecordingAlertCallback>();
      ASSERT_EQ(client->StartListening(told.get()), kListeningStarted);
      ASSERT_TRUE(told->events.WaitFor("46 two"));
      ASSERT_TRUE(EndsInTime());
      told.reset();  // a sanitizer sees whoever comes too late
    }
  }
  client.reset();
  EXPECT_EQ(tests::OpenDescriptors().size(), descriptors);
}

TEST_F(AlertClientStop, StartedAndStoppedBySeveralInAFlood_OrderlyInTheEnd) {
  const Flood flood(proxy);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([this, i] {
      for (int round = 0; round < 30; ++round) {
        if (i == 0) client->StopListening();
        if (i != 0) static_cast<void>(client->StartListening(&callback));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  client->StopListening();
  EXPECT_EQ(client->StartListening(&callback), kListeningStarted);
  EXPECT_TRUE(callback.events.WaitFor("46 two"));
  EXPECT_TRUE(EndsInTime());
  EXPECT_THAT(log.Lines(LogLevel::kWarning), Each(testing::HasSubstr("from a closed socket")));
}

}  // namespace
}  // namespace socks_cdp
