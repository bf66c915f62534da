#include "json_parser/KeyValuePairs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "json_parser/JsonParser.h"

namespace json_parser {
namespace {

KeyValuePairs PairsOf(const std::string& text) {
  return JsonParser(text).GetValuesForAllKeys();
}

TEST(KeyValuePairs, DefaultConstructed_Empty) {
  const KeyValuePairs pairs;
  EXPECT_TRUE(pairs.empty());
  EXPECT_EQ(pairs.size(), 0U);
  EXPECT_TRUE(pairs.begin() == pairs.end());
}

TEST(KeyValuePairs, Places_GiveTheTextThere) {
  const auto document = std::make_shared<const std::string>("key=value");
  const auto places = std::make_shared<const std::vector<KeyValuePairs::Place>>(
      std::vector<KeyValuePairs::Place>{{0, 3, 4, 5}, {9, 0, 0, 9}});
  const KeyValuePairs pairs(document, places);
  ASSERT_EQ(pairs.size(), 2U);
  EXPECT_FALSE(pairs.empty());
  EXPECT_EQ(pairs[0].key, "key");
  EXPECT_EQ(pairs[0].value, "value");
  EXPECT_EQ(pairs[1].key, "");
  EXPECT_EQ(pairs[1].value, "key=value");
}

TEST(KeyValuePairs, Loop_EveryPairInOrder) {
  std::string seen;
  for (const KeyValuePair& pair : PairsOf(R"({"a":1,"b":"x","a":2})"))
    seen += std::string(pair.key) + "=" + std::string(pair.value) + ";";
  EXPECT_EQ(seen, "a=1;b=x;a=2;");
}

TEST(KeyValuePairs, StandardAlgorithms_Work) {
  const KeyValuePairs pairs = PairsOf(R"({"a":1,"b":2})");
  const auto found = std::find_if(pairs.begin(), pairs.end(),
                                  [](const KeyValuePair& pair) { return pair.key == "b"; });
  ASSERT_NE(found, pairs.end());
  EXPECT_EQ((*found).value, "2");
  auto next = pairs.begin();
  EXPECT_EQ((*next++).key, "a");
  EXPECT_EQ((*next).key, "b");
}

// AddressSanitizer sees a view that outlives its text.
TEST(KeyValuePairs, ParserAndFirstCopyGone_ViewsStay) {
  KeyValuePairs last;
  {
    auto parser = std::make_unique<JsonParser>(
        std::string(R"({"key":"a value too long to be stored in place"})"));
    auto first = std::make_unique<KeyValuePairs>(parser->GetValuesForAllKeys());
    parser.reset();
    last = *first;
  }
  ASSERT_EQ(last.size(), 1U);
  EXPECT_EQ(last[0].key, "key");
  EXPECT_EQ(last[0].value, "a value too long to be stored in place");
}

}  // namespace
}  // namespace json_parser
