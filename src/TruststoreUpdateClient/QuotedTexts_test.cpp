#include "TruststoreUpdateClient/QuotedTexts.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> All(std::string_view text, bool& unterminated) {
  QuotedTexts texts(text);
  std::vector<std::string> all;
  for (std::string_view quoted; texts.Next(quoted);) all.emplace_back(quoted);
  unterminated = texts.IsUnterminated();
  return all;
}

TEST(QuotedTexts, ArrayOfStrings_GivesEachInOrder) {
  bool unterminated = true;
  EXPECT_THAT(All(R"(["ab", "", "c\/d"])", unterminated), ElementsAre("ab", "", "c\\/d"));
  EXPECT_FALSE(unterminated);
}

TEST(QuotedTexts, NoQuotes_GivesNothing) {
  for (const char* text : {"", "[]", "12", "null", "{ab}"}) {
    bool unterminated = true;
    EXPECT_THAT(All(text, unterminated), IsEmpty()) << text;
    EXPECT_FALSE(unterminated) << text;
  }
}

TEST(QuotedTexts, QuoteThatNothingCloses_EndsTheWalkAsUnterminated) {
  bool unterminated = false;
  EXPECT_THAT(All(R"(["ab", "c)", unterminated), ElementsAre("ab"));
  EXPECT_TRUE(unterminated);
}

TEST(QuotedTexts, TextBetweenPairs_IsNotLookedAt) {
  bool unterminated = true;
  EXPECT_THAT(All(R"(}x"a"{],"b"12)", unterminated), ElementsAre("a", "b"));
  EXPECT_FALSE(unterminated);
}

}  // namespace
}  // namespace truststore_update_client
