// What JsonParser takes from the heap, for the texts that take most, and what it does when it gets
// nothing.
#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "json_parser/JsonParser.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/ReplacedNew.h"

namespace json_parser {
namespace {

constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

thread_local std::size_t allocated = 0;
thread_local std::size_t refusedFrom = kUnlimited;
thread_local std::size_t allocationsLeft = kUnlimited;

bool GrantsAndCounts(std::size_t size) {
  if (size >= refusedFrom || allocationsLeft == 0) return false;
  if (allocationsLeft != kUnlimited) --allocationsLeft;
  allocated += size;
  return true;
}

class JsonParserMemory : public ::testing::Test {
 protected:
  JsonParserMemory() { tests::SetAllocationRule(GrantsAndCounts); }
  ~JsonParserMemory() override { tests::SetAllocationRule(nullptr); }
};

using Lines = std::vector<std::string>;

constexpr std::size_t kTextBytes = 4U << 20U;
constexpr std::size_t kMostMemory = 120U << 20U;  // of 128 MiB, for all allocations together

// Refuses every allocation of `bytes` or more for the length of a scope.
class AllocationLimit {
 public:
  explicit AllocationLimit(std::size_t bytes) { refusedFrom = bytes; }
  ~AllocationLimit() { refusedFrom = kUnlimited; }
  AllocationLimit(const AllocationLimit&) = delete;
  AllocationLimit& operator=(const AllocationLimit&) = delete;
};

std::string Filled(const std::string& before, const std::string& piece, const std::string& after) {
  std::string text = before;
  while (text.size() + piece.size() + after.size() <= kTextBytes) text += piece;
  return text + after;
}

// Quadratic time anywhere would show as a test that never ends: the tokens are a million.
TEST_F(JsonParserMemory, HostileTextsOf4MiB_ReadWithinTheBound) {
  const std::string deep = "[[[[[[[[[[[[[[[";
  const std::string shallow = "]]]]]]]]]]]]]]]";
  const std::string texts[] = {
      Filled("{", "\"\":", "1}"),
      Filled("[", "[1]", "]"),
      Filled("{", "\"a\":[],", "\"a\":[]}"),
      Filled("[", "a:", "a]"),
      Filled("[", "a:", "a]:") + Filled("", "]", ""),
      Filled(deep, "[1]", shallow),
      Filled(deep, "a:", "a" + shallow),
      Filled(deep, "a:[],", "a" + shallow),
      Filled("", "a:[]", ""),
      Filled("", "[a:a]:", ""),
      Filled("", "\"\\\\\"", ""),
      std::string(kTextBytes, '['),
      std::string(kTextBytes, ':'),
      std::string(kTextBytes, '"'),
      std::string(kTextBytes, '\0'),
      Filled("{\"a\"", " ", ":1}"),
  };
  platform_host::CapturedLog log;
  for (const std::string& text : texts) {
    allocated = 0;
    const KeyValuePairs pairs = JsonParser(text).GetValuesForAllKeys();
    EXPECT_LE(allocated, kMostMemory) << text.substr(0, 40);
    EXPECT_GE(allocated, pairs.size() * sizeof(KeyValuePairs::Place)) << text.substr(0, 40);
  }
}

// Copied values would take the text's size for every level.
TEST_F(JsonParserMemory, NestedValues_AreNotCopied) {
  std::string text(kTextBytes, 'x');
  text.insert(0, R"({"a":{"a":{"a":{"a":{"a":{"a":{"a":{"a":")").append("\"}}}}}}}}");
  allocated = 0;
  const JsonParser parser(std::move(text));
  const KeyValuePairs pairs = parser.GetValuesForAllKeys();
  EXPECT_EQ(pairs.size(), 8U);
  EXPECT_EQ(pairs[7].value.size(), kTextBytes);
  EXPECT_LE(allocated, 4096U);
}

TEST_F(JsonParserMemory, NoneForTheTokens_MinusOneAndOneLine) {
  const platform_host::CapturedLog log;
  std::string text = Filled("[", "1,", "1]");
  const AllocationLimit limit(1U << 20U);
  const JsonParser parser(std::move(text));
  EXPECT_EQ(parser.GetParserStatus(), -1);
  EXPECT_TRUE(parser.GetValuesForAllKeys().empty());
  EXPECT_EQ(parser.GetSimpleTokenByIndex(0), "");
  EXPECT_EQ(log.Lines(),
            (Lines{"error: JsonParser: Error allocating memory for json tokens. Number of "
                   "tokens = 2097152"}));
}

TEST_F(JsonParserMemory, NoneForTheCopyOfTheText_MinusOneAndOneLine) {
  const platform_host::CapturedLog log;
  const std::string text = "\"" + std::string(5000, 'x') + "\"";
  const AllocationLimit limit(4096);
  const JsonParser parser(text);
  EXPECT_EQ(parser.GetParserStatus(), -1);
  EXPECT_EQ(
      log.Lines(),
      (Lines{"error: JsonParser: Error allocating memory for json text. Number of bytes = 5002"}));
}

TEST_F(JsonParserMemory, NoneForAValue_EmptyAndOneLine) {
  const platform_host::CapturedLog log;
  const JsonParser parser("[1,\"" + std::string(5000, 'x') + "\"]");
  const AllocationLimit limit(4096);
  EXPECT_EQ(parser.GetArrayValueByIndex(1), "");
  EXPECT_EQ(
      log.Lines(),
      (Lines{"error: JsonParser: Error allocating memory for a value. Number of bytes = 5000"}));
}

// Wherever memory ends, the document is whole or there is none: a list without pairs would pass for
// an empty container.
TEST_F(JsonParserMemory, EndsAtAnyAllocation_WholeDocumentOrMinusOne) {
  const platform_host::CapturedLog log;
  const std::string text = R"({"a":1,"b":{"c":2}})";
  for (std::size_t allocations = 0; allocations < 20; ++allocations) {
    allocationsLeft = allocations;
    const JsonParser parser(text);
    allocationsLeft = kUnlimited;
    EXPECT_EQ(parser.GetParserStatus(), parser.GetValuesForAllKeys().empty() ? -1 : 7);
    if (allocations == 19) {
      EXPECT_EQ(parser.GetValuesForAllKeys().size(), 3U);
    }
  }
}

}  // namespace
}  // namespace json_parser
