#include "TruststoreUpdateClient/CommonNamePattern.h"

#include <gtest/gtest.h>

namespace truststore_update_client {
namespace {

bool Matches(std::string_view commonName) {
  return MatchesPrefixPattern(commonName, TARGET_COMMON_NAME);
}

TEST(CommonNamePattern, PrefixAndAnythingAfterIt_Matches) {
  for (const char* name : {"KALVIRON", "KALVIRONx", "KALVIRON TSC Signer 1", "KALVIRON.*",
                           "KALVIRON \t\x01", "KALVIRON \xC3\xA4 \xE2\x80\xA7 \xE2\x80\xAA"}) {
    EXPECT_TRUE(Matches(name)) << name;
  }
}

TEST(CommonNamePattern, AnythingElse_DoesNotMatch) {
  for (const char* name : {"", "K", "KALVIRO", "kalviron", "xKALVIRON", " KALVIRON", "OTHER Signer",
                           "KALVIR0N", "\nKALVIRON"}) {
    EXPECT_FALSE(Matches(name)) << name;
  }
}

TEST(CommonNamePattern, LineTerminatorAfterThePrefix_DoesNotMatch) {
  for (const char* name : {"KALVIRON\n", "KALVIRON\r", "KALVIRON a\nb", "KALVIRON\r\n",
                           "KALVIRON\xE2\x80\xA8", "KALVIRON a\xE2\x80\xA9 b"}) {
    EXPECT_FALSE(Matches(name)) << name;
  }
}

TEST(CommonNamePattern, NulAfterThePrefix_IsACharacterLikeOthers) {
  EXPECT_TRUE(Matches(std::string_view("KALVIRON\0x", 10)));
  EXPECT_FALSE(Matches(std::string_view("KALVIRON\0\n", 10)));
}

// A matcher that recurses once a character needs more than the 8 MiB of a main thread's stack here.
TEST(CommonNamePattern, NameOfAMillionCharacters_IsMatchedWithoutRecursion) {
  const std::string longName = "KALVIRON" + std::string(1'000'000, 'x');
  EXPECT_TRUE(Matches(longName));
  EXPECT_FALSE(Matches(longName + "\n"));
}

}  // namespace
}  // namespace truststore_update_client
