#include "platform/host/config/ValueChecks.h"

#include <gmock/gmock.h>

#include <vector>

namespace platform_host {
namespace {

TEST(ValueChecks, RefusedValue_TargetUntouched) {
  std::string text = "before";
  std::uint16_t port = 7;
  std::chrono::seconds seconds(9);
  EXPECT_TRUE(TakePath("relative", text));
  EXPECT_TRUE(TakeName("", text));
  EXPECT_TRUE(TakeHost("a b", text));
  EXPECT_TRUE(TakePort(0, port));
  EXPECT_TRUE(TakeSeconds(4, {1, 3}, seconds));
  EXPECT_EQ(text, "before");
  EXPECT_EQ(port, 7);
  EXPECT_EQ(seconds, std::chrono::seconds(9));
}

TEST(ValueChecks, ValueInRange_Taken) {
  EXPECT_EQ(CheckRange(1, {1, 3}), std::nullopt);
  EXPECT_EQ(CheckRange(3, {1, 3}), std::nullopt);
}

TEST(ValueChecks, ValueOutOfRange_RangeNamed) {
  EXPECT_EQ(CheckRange(0, {1, 3}), Refusal("must be from 1 to 3"));
  EXPECT_EQ(CheckRange(4, {1, 3}), Refusal("must be from 1 to 3"));
}

TEST(ValueChecks, Names_BlanksAndLettersOfAnyScript) {
  std::string text;
  EXPECT_EQ(TakeName("a b \xC3\xA4", text), std::nullopt);
  EXPECT_EQ(text, "a b \xC3\xA4");
}

TEST(ValueChecks, VisibleAscii_IsToken) {
  const std::vector<std::string> tokens = {"a", "!~",
                                           "abc.DEF-_+/==", std::string(kMaxTokenBytes, 'x')};
  for (const auto& token : tokens) EXPECT_TRUE(IsToken(token)) << token;
}

TEST(ValueChecks, AnythingElse_NoToken) {
  const std::vector<std::string> texts = {"",
                                          " ",
                                          "a b",
                                          "a\n",
                                          "\r",
                                          "a\tb",
                                          std::string("a\0", 2),
                                          "\x7F",
                                          "\x80",
                                          std::string(kMaxTokenBytes + 1, 'x')};
  for (const auto& text : texts) EXPECT_FALSE(IsToken(text)) << text;
}

}  // namespace
}  // namespace platform_host
