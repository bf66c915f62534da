#include "platform/host/config/LogLevel.h"

#include <gtest/gtest.h>

namespace platform_host {
namespace {

TEST(LogLevel, NameOfEach_FoundAgain) {
  for (const auto level : {LogLevel::kVerbose, LogLevel::kDebug, LogLevel::kInfo,
                           LogLevel::kWarning, LogLevel::kError}) {
    EXPECT_EQ(LogLevelOf(NameOf(level)), level);
  }
}

TEST(LogLevel, UnknownName_None) {
  for (const auto* name : {"", "Info", "info ", "warn", "fatal"}) {
    EXPECT_FALSE(LogLevelOf(name).has_value()) << name;
  }
}

}  // namespace
}  // namespace platform_host
