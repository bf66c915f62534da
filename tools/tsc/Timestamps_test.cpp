#include "tools/tsc/Timestamps.h"

#include <gtest/gtest.h>

namespace tsc {
namespace {

constexpr std::uint32_t kNow = 1700000000;

TEST(Timestamps, TextsOfEachForm_Read) {
  const struct {
    const char* text;
    std::uint32_t seconds;
  } cases[] = {
      {"now", kNow},
      {"0", 0},
      {"1767323045", 1767323045},
      {"4294967295", 4294967295},
      {"2026-01-02T03:04:05", 1767323045},
      {"2026-01-02T03:04:05Z", 1767323045},
      {"1970-01-01T00:00:00", 0},
      {"2024-02-29T23:59:59", 1709251199},
      {"2024-07-05T12:00:00", 1720180800},
      {"2106-02-07T06:28:15", 4294967295},
  };
  for (const auto& entry : cases) {
    EXPECT_EQ(ParseTimestamp(entry.text, kNow), entry.seconds) << entry.text;
  }
}

TEST(Timestamps, OtherTexts_Refused) {
  const char* const cases[] = {
      "",
      "Now",
      "now ",
      "-1",
      "+1",
      "1.5",
      "12x",
      " 12",
      "4294967296",
      "99999999999999999999",
      "2026-01-02",
      "2026-01-02 03:04:05",
      "2026-01-02T03:04",
      "2026-01-02T03:04:05z",
      "2026-01-02T03:04:05ZZ",
      "2026-01-02T03:04:05+01:00",
      " 2026-01-02T03:04:05",
      "2026-1-2T3:4:5",
      "2026-02-31T03:04:05",
      "2026-13-01T03:04:05",
      "2026-01-02T24:00:00",
      "2026-01-02T03:60:05",
      "2023-02-29T00:00:00",
      "1969-12-31T23:59:59",
      "2106-02-07T06:28:16",
  };
  for (const char* const text : cases) {
    EXPECT_FALSE(ParseTimestamp(text, kNow).has_value()) << text;
  }
}

TEST(Timestamps, Formatted_IsUtcAndReadAgain) {
  EXPECT_EQ(FormatTimestamp(1767323045), "2026-01-02T03:04:05");
  EXPECT_EQ(FormatTimestamp(0), "1970-01-01T00:00:00");
  EXPECT_EQ(FormatTimestamp(4294967295), "2106-02-07T06:28:15");
}

TEST(Timestamps, SecondsNow_IsAfterThisWasWritten) {
  EXPECT_GT(SecondsNow(), kNow);
}

}  // namespace
}  // namespace tsc
