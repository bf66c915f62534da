// What a lack of memory ends: a session, which still tells the client that it has failed; the
// exchange that needs it; never a thread.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include "lumo_connector/LumoConnector.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/lumo_connector/Exchanges.h"
#include "support/FileContents.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/ReplacedNew.h"
#include "tests/support/TemporaryDirectory.h"

namespace lumo_connector {
namespace {

class Listener : public LumoSessionCallbackIf {
 public:
  void LumoConnectorStatus(SessionStatus status) override {
    tests::GrantMemory();
    told.set_value(status);
  }

  std::promise<SessionStatus> told;
};

TEST(SessionWithoutMemory, BeforeCallback_FailedSessionTold) {
  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/a configuration of this test alone.toml";
  ASSERT_EQ(support::ReplaceFile(path, "[logging]\nlevel = \"info\"\n", 0600), 0);
  ::setenv(platform_host::HostConfig::kPathVariable, path.c_str(), 1);
  Listener listener;
  auto told = listener.told.get_future();
  LumoConnector connector(&listener);
  tests::RefuseMemory("LumoConnector");
  connector.Start();
  ASSERT_EQ(told.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(told.get(), SessionStatus::kFailed);
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kFailed);
  ::unsetenv(platform_host::HostConfig::kPathVariable);
}

/// An operation whose peer is the test.
class ExchangeWithoutMemory : public ::testing::Test {
 protected:
  ExchangeWithoutMemory() { config.services["Download"].url = "http://localhost/"; }
  ~ExchangeWithoutMemory() override { tests::GrantMemory(); }

  LumoSocketResult Connect() {
    return exchanges.Connect(config, "Download", "127.0.0.1", peer.Port());
  }

  platform_host::HostConfig config;
  const tests::LoopbackPeer peer;
  platform_host::Exchanges exchanges;
};

TEST_F(ExchangeWithoutMemory, WhileConnecting_StatusAndNothingThrown) {
  LumoSocketResult result;
  std::thread caller([&] {
    ::pthread_setname_np(::pthread_self(), "Caller");
    tests::RefuseMemory("Caller");
    result = Connect();
    tests::GrantMemory();
  });
  caller.join();
  EXPECT_EQ(result.status, ENOMEM);
  EXPECT_EQ(result.descriptor, -1);
}

TEST_F(ExchangeWithoutMemory, WhileRelaying_EndsAndTheNextOneWorks) {
  const support::UniqueFd first(Connect().descriptor);
  const auto firstPeer = peer.Accept();
  ASSERT_TRUE(tests::SendAll(first.Get(), "GET"));
  EXPECT_EQ(tests::ReadUpTo(firstPeer.Get(), 3), "GET");
  const support::UniqueFd second(Connect().descriptor);
  const auto secondPeer = peer.Accept();
  tests::RefuseMemory("LumoRelay");
  ASSERT_TRUE(tests::SendAll(second.Get(), "GET"));
  EXPECT_TRUE(tests::IsAtEnd(second.Get()));
  ASSERT_TRUE(tests::SendAll(firstPeer.Get(), "answer"));
  EXPECT_EQ(tests::ReadUpTo(first.Get(), 6), "answer");
}

TEST_F(ExchangeWithoutMemory, WhenTakenOver_EndsAndTheNextOneWorks) {
  const support::UniqueFd first(Connect().descriptor);
  const auto firstPeer = peer.Accept();
  ASSERT_TRUE(tests::SendAll(firstPeer.Get(), "a"));
  EXPECT_EQ(tests::ReadUpTo(first.Get(), 1), "a");
  tests::RefuseMemory("LumoRelay");
  const support::UniqueFd second(Connect().descriptor);
  EXPECT_TRUE(tests::IsAtEnd(second.Get()));
  tests::GrantMemory();
  const auto secondPeer = peer.Accept();
  const support::UniqueFd third(Connect().descriptor);
  const auto thirdPeer = peer.Accept();
  ASSERT_TRUE(tests::SendAll(thirdPeer.Get(), "b"));
  EXPECT_EQ(tests::ReadUpTo(third.Get(), 1), "b");
}

}  // namespace
}  // namespace lumo_connector
