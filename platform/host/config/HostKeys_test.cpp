#include "platform/host/config/HostKeys.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace platform_host {
namespace {

TEST(HostKeys, UnknownTable_None) {
  EXPECT_EQ(HostKeys("log"), nullptr);
  EXPECT_EQ(HostKeys(""), nullptr);
}

TEST(HostKeys, LimitsLeftOut_Defaults) {
  const auto result = HostConfig::Parse("[limits]\n", "f");
  ASSERT_TRUE(result.Ok());
  EXPECT_EQ(result.Value().limits.responseBytes, 16777216U);
  EXPECT_EQ(result.Value().limits.duration, std::chrono::seconds(120));
}

TEST(HostKeys, LimitsAtTheirBounds_Taken) {
  const auto least = HostConfig::Parse("[limits]\nresponse_bytes = 1\nexchange_s = 1\n", "f");
  ASSERT_TRUE(least.Ok());
  EXPECT_EQ(least.Value().limits.responseBytes, 1U);
  EXPECT_EQ(least.Value().limits.duration, std::chrono::seconds(1));
  const auto most =
      HostConfig::Parse("[limits]\nresponse_bytes = 1073741824\nexchange_s = 3600\n", "f");
  ASSERT_TRUE(most.Ok());
  EXPECT_EQ(most.Value().limits.responseBytes, 1073741824U);
  EXPECT_EQ(most.Value().limits.duration, std::chrono::seconds(3600));
}

TEST(HostKeys, LimitOutOfRange_FileLineAndKeyNamed) {
  struct Case {
    std::string line;
    std::string failure;
  };
  const std::string bytes = "limits.response_bytes: must be from 1 to 1073741824";
  const std::string seconds = "limits.exchange_s: must be from 1 to 3600";
  const std::vector<Case> cases = {
      {"response_bytes = 0", bytes},          {"response_bytes = -1", bytes},
      {"response_bytes = 1073741825", bytes}, {"exchange_s = 0", seconds},
      {"exchange_s = -1", seconds},           {"exchange_s = 3601", seconds},
  };
  for (const auto& one : cases) {
    const auto result = HostConfig::Parse("[limits]\n" + one.line + "\n", "f");
    ASSERT_FALSE(result.Ok()) << one.line;
    EXPECT_EQ(result.Failure().Text(), "f:2: " + one.failure);
  }
}

HostConfig WithSocket(const std::string& path) {
  const auto result = HostConfig::Parse("[control]\nsocket = \"" + path + "\"\n", "f");
  EXPECT_TRUE(result.Ok()) << (result.Ok() ? "" : result.Failure().Text());
  return result.Ok() ? result.Value() : HostConfig{};
}

TEST(HostKeys, ControlLeftOut_DefaultSocket) {
  EXPECT_EQ(HostConfig{}.controlSocket, "/run/truststore-update-client/control.sock");
}

TEST(HostKeys, ControlSocket_TakenUpToItsBound) {
  EXPECT_EQ(WithSocket("/s").controlSocket, "/s");
  const std::string longest = "/" + std::string(kMaxSocketPathBytes - 1, 'x');
  EXPECT_EQ(WithSocket(longest).controlSocket, longest);
}

TEST(HostKeys, UnusableControlSocket_FileLineAndKeyNamed) {
  struct Case {
    std::string path;
    std::string reason;
  };
  const std::vector<Case> cases = {
      {"", "must be an absolute path"},
      {"control.sock", "must be an absolute path"},
      {"/run/a\\u0000b", "must be an absolute path"},
      {"/" + std::string(kMaxSocketPathBytes, 'x'), "must have at most 107 bytes"},
  };
  for (const auto& one : cases) {
    const auto result = HostConfig::Parse("[control]\nsocket = \"" + one.path + "\"\n", "f");
    ASSERT_FALSE(result.Ok()) << one.path;
    EXPECT_EQ(result.Failure().Text(), "f:2: control.socket: " + one.reason);
  }
}

}  // namespace
}  // namespace platform_host
