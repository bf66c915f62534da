// A session that gets no memory still tells the client that it has failed.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <new>
#include <string>
#include <string_view>

#include "lumo_connector/LumoConnector.h"
#include "platform/host/config/HostConfig.h"
#include "support/FileContents.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

/// Refuses every allocation of the session's thread.
std::atomic<bool> refusing{false};

bool IsSessionThread() {
  char name[16] = "";
  return ::pthread_getname_np(::pthread_self(), name, sizeof name) == 0 &&
         std::string_view(name) == "LumoConnector";
}

void* Allocate(std::size_t size) {
  void* memory = nullptr;
  if (!refusing || !IsSessionThread()) memory = std::malloc(std::max<std::size_t>(size, 1));
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
    refusing = false;
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
  refusing = true;
  connector.Start();
  ASSERT_EQ(told.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(told.get(), SessionStatus::kFailed);
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kFailed);
  ::unsetenv(platform_host::HostConfig::kPathVariable);
}

}  // namespace
}  // namespace lumo_connector
