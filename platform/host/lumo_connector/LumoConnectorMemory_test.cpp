// What a lack of memory ends: a session, which still tells the client that it has failed; the
// exchange that needs it; never a thread.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>
#include <new>
#include <string>
#include <string_view>
#include <thread>

#include "lumo_connector/LumoConnector.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/lumo_connector/Exchanges.h"
#include "support/FileContents.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

/// Refuses every allocation of the threads with this name; null: of none.
std::atomic<const char*> refused{nullptr};

bool IsRefused() {
  const char* const thread = refused;
  char name[16] = "";
  return thread != nullptr && ::pthread_getname_np(::pthread_self(), name, sizeof name) == 0 &&
         std::string_view(name) == thread;
}

void* Allocate(std::size_t size) {
  void* memory = nullptr;
  if (!IsRefused()) memory = std::malloc(std::max<std::size_t>(size, 1));
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return Allocate(size);
}
void* operator new[](std::size_t size) {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace lumo_connector {
namespace {

class Listener : public LumoSessionCallbackIf {
 public:
  void LumoConnectorStatus(SessionStatus status) override {
    refused = nullptr;
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
  refused = "LumoConnector";
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
  ~ExchangeWithoutMemory() override { refused = nullptr; }

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
    refused = "Caller";
    result = Connect();
    refused = nullptr;
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
  refused = "LumoRelay";
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
  refused = "LumoRelay";
  const support::UniqueFd second(Connect().descriptor);
  EXPECT_TRUE(tests::IsAtEnd(second.Get()));
  refused = nullptr;
  const auto secondPeer = peer.Accept();
  const support::UniqueFd third(Connect().descriptor);
  const auto thirdPeer = peer.Accept();
  ASSERT_TRUE(tests::SendAll(thirdPeer.Get(), "b"));
  EXPECT_EQ(tests::ReadUpTo(third.Get(), 1), "b");
}

}  // namespace
}  // namespace lumo_connector
