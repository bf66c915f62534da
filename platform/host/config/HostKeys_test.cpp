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

}  // namespace
}  // namespace platform_host
