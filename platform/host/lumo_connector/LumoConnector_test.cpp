#include "lumo_connector/LumoConnector.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/host/config/HostConfig.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "support/Mutex.h"
#include "tests/support/TemporaryDirectory.h"

namespace lumo_connector {
namespace {

using platform_host::HostConfig;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr seconds kDeadline(30);

/// Records the callbacks; can hold one until the test lets it go.
class Listener : public LumoSessionCallbackIf {
 public:
  void LumoConnectorStatus(SessionStatus status) override EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    seen.push_back(status);
    thread = std::this_thread::get_id();
    changed.NotifyAll();
    while (held) changed.Wait(mutex);
    returned = true;
  }

  void Hold(bool hold) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    held = hold;
    changed.NotifyAll();
  }

  /// Waits for the first callback. Returns false after the deadline.
  bool WaitForCall() EXCLUDES(mutex) {
    const auto deadline = steady_clock::now() + kDeadline;
    const support::MutexLock lock(mutex);
    while (seen.empty()) {
      if (!changed.WaitUntil(mutex, deadline)) return !seen.empty();
    }
    return true;
  }

  std::vector<SessionStatus> Seen() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return seen;
  }

  std::thread::id Thread() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return thread;
  }

  bool Returned() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return returned;
  }

 private:
  support::Mutex mutex;
  support::ConditionVariable changed;
  std::vector<SessionStatus> seen GUARDED_BY(mutex);
  std::thread::id thread GUARDED_BY(mutex);
  bool held GUARDED_BY(mutex) = false;
  bool returned GUARDED_BY(mutex) = false;
};

class Session : public ::testing::Test {
 protected:
  Session() { ::setenv(HostConfig::kPathVariable, configPath.c_str(), 1); }
  ~Session() override { ::unsetenv(HostConfig::kPathVariable); }

  const tests::TemporaryDirectory directory;
  const std::string configPath = directory.Path() + "/host.toml";
  const platform_host::CapturedLog log;
  Listener listener;
};

TEST_F(Session, NoConfiguration_StartedOnThreadOfItsOwn) {
  LumoConnector connector(&listener);
  connector.Start();
  ASSERT_TRUE(listener.WaitForCall());
  EXPECT_THAT(listener.Seen(), ElementsAre(SessionStatus::kStarted));
  EXPECT_NE(listener.Thread(), std::this_thread::get_id());
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStarted);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Session, BrokenConfiguration_FailedWithOneErrorLine) {
  ASSERT_EQ(support::ReplaceFile(configPath, "[mqtt]\nport = \"x\"\n", 0600), 0);
  LumoConnector connector(&listener);
  connector.Start();
  ASSERT_TRUE(listener.WaitForCall());
  EXPECT_THAT(listener.Seen(), ElementsAre(SessionStatus::kFailed));
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kFailed);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: " + configPath +
                                       ":2: mqtt.port: must be an integer"));
}

TEST_F(Session, StatusInCallback_AlreadyThere) {
  struct Asker : LumoSessionCallbackIf {
    void LumoConnectorStatus(SessionStatus) override {
      seen.set_value(connector->GetSessionStatus());
    }
    LumoConnector* connector = nullptr;
    std::promise<SessionStatus> seen;
  } asker;
  LumoConnector connector(&asker);
  asker.connector = &connector;
  connector.Start();
  auto seen = asker.seen.get_future();
  ASSERT_EQ(seen.wait_for(kDeadline), std::future_status::ready);
  EXPECT_EQ(seen.get(), SessionStatus::kStarted);
}

TEST_F(Session, NotStarted_Stopped) {
  const LumoConnector connector(&listener);
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStopped);
}

TEST_F(Session, DestroyedWithoutStart_NoCallback) {
  { const LumoConnector connector(&listener); }
  EXPECT_THAT(listener.Seen(), IsEmpty());
}

TEST_F(Session, DestroyedInCallback_WaitsForIt) {
  listener.Hold(true);
  auto connector = std::make_unique<LumoConnector>(&listener);
  connector->Start();
  ASSERT_TRUE(listener.WaitForCall());
  auto destroyed = std::async(std::launch::async, [&] {
    connector.reset();
    return listener.Returned();
  });
  listener.Hold(false);
  EXPECT_TRUE(destroyed.get());
}

TEST_F(Session, Stop_StoppedAndNoFurtherCallback) {
  LumoConnector connector(&listener);
  connector.Start();
  ASSERT_TRUE(listener.WaitForCall());
  connector.Stop();
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStopped);
  EXPECT_THAT(listener.Seen(), ElementsAre(SessionStatus::kStarted));
}

TEST_F(Session, StopInCallback_ReturnsAfterIt) {
  listener.Hold(true);
  LumoConnector connector(&listener);
  connector.Start();
  ASSERT_TRUE(listener.WaitForCall());
  const auto stop = [&] {
    connector.Stop();
    return listener.Returned();
  };
  auto first = std::async(std::launch::async, stop);
  auto second = std::async(std::launch::async, stop);
  listener.Hold(false);
  EXPECT_TRUE(first.get());
  EXPECT_TRUE(second.get());
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStopped);
}

TEST_F(Session, StopTwice_Stopped) {
  LumoConnector connector(&listener);
  connector.Start();
  connector.Stop();
  connector.Stop();
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStopped);
}

TEST_F(Session, StartAfterStop_DoesNothing) {
  LumoConnector connector(&listener);
  connector.Stop();
  connector.Start();
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStopped);
  EXPECT_THAT(listener.Seen(), IsEmpty());
}

TEST_F(Session, StartTwice_OneCallback) {
  LumoConnector connector(&listener);
  connector.Start();
  ASSERT_TRUE(listener.WaitForCall());
  connector.Start();
  connector.Stop();
  EXPECT_THAT(listener.Seen(), ElementsAre(SessionStatus::kStarted));
}

TEST_F(Session, NobodyListens_StatusStillFollows) {
  LumoConnector connector(nullptr);
  connector.Start();
  const auto deadline = steady_clock::now() + kDeadline;
  while (connector.GetSessionStatus() != SessionStatus::kStarted) {
    ASSERT_LT(steady_clock::now(), deadline);
    std::this_thread::yield();
  }
  connector.Stop();
}

TEST_F(Session, CallbackThrows_LoggedAndStopStillWorks) {
  struct Thrower : LumoSessionCallbackIf {
    void LumoConnectorStatus(SessionStatus) override { throw std::runtime_error("no"); }
  } thrower;
  LumoConnector connector(&thrower);
  connector.Start();
  const auto deadline = steady_clock::now() + kDeadline;
  while (log.Lines().empty()) {
    ASSERT_LT(steady_clock::now(), deadline);
    std::this_thread::yield();
  }
  connector.Stop();
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libLumoConnectorShared: a callback threw an exception: no"));
}

TEST_F(Session, StartAndStopAtOnce_AtMostOneCallbackAndNoneAfterStop) {
  for (int round = 0; round < 300; ++round) {
    Listener own;
    LumoConnector connector(&own);
    const auto start = [&] { connector.Start(); };
    const auto stop = [&] {
      connector.Stop();
      return own.Seen().size();
    };
    std::thread starter(start);
    auto firstStop = std::async(std::launch::async, stop);
    const std::size_t seenBySecond = stop();
    const std::size_t seenByFirst = firstStop.get();
    starter.join();
    EXPECT_LE(seenByFirst, 1U);
    EXPECT_EQ(seenByFirst, seenBySecond);
    EXPECT_EQ(own.Seen().size(), seenByFirst);
    EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStopped);
  }
}

}  // namespace
}  // namespace lumo_connector
