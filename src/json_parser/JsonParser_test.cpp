#include "json_parser/JsonParser.h"

#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"

namespace json_parser {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

constexpr const char* kInvalid = "error: JsonParser: Error parsing json file, jsmn error code -2";
constexpr const char* kIncomplete =
    "error: JsonParser: Error parsing json file, jsmn error code -3";

Pairs PairsOf(const std::string& text) {
  Pairs pairs;
  for (const KeyValuePair& pair : JsonParser(text).GetValuesForAllKeys())
    pairs.emplace_back(pair.key, pair.value);
  return pairs;
}

std::string Nested(int depth) {
  return std::string(static_cast<std::size_t>(depth), '[') +
         std::string(static_cast<std::size_t>(depth), ']');
}

class JsonParserFixture : public ::testing::Test {
 protected:
  platform_host::CapturedLog log;
};

using JsonParserStatus = JsonParserFixture;
using JsonParserFile = JsonParserFixture;
using JsonParserLimit = JsonParserFixture;

TEST_F(JsonParserStatus, ReadableText_NumberOfTokensAndNothingLogged) {
  const struct {
    std::string text;
    std::int32_t status;
  } cases[] = {
      {"{}", 1},
      {"[]", 1},
      {" {\"a\" : 1}\r\n\t", 3},
      {"\"text\"", 1},
      {"17", 1},
      {"[true,null,-1.5e3]", 4},
      {R"({"a":{"b":1},"c":"x"})", 7},
      {R"(["\"\\\/\b\f\n\r\t\u00e9"])", 2},
      {"[\"\xC3\xA9\"]", 2},
      {"[\"]\",\"{\",\"\"]", 4},
      {"{a:b}", 3},
      {"not json", 2},
      {"\\", 1},
      {"{}\0 behind the end: [[[ ]]] \""s, 1},
  };
  for (const auto& row : cases)
    EXPECT_EQ(JsonParser(row.text).GetParserStatus(), row.status) << row.text;
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(JsonParserStatus, TextWithoutTokens_ZeroAndNothingLogged) {
  for (const std::string& text : {""s, " \t\r\n"s, ":"s, ",,:"s, "\0{}"s}) {
    const JsonParser parser(text);
    EXPECT_EQ(parser.GetParserStatus(), 0) << text;
    EXPECT_TRUE(parser.GetValuesForAllKeys().empty()) << text;
  }
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(JsonParserStatus, InvalidText_MinusTwoAndOneLine) {
  for (const std::string& text :
       {"[}"s, "{]"s, "[\"\\x\"]"s, "[\"\\"s, "\"\\\0\""s, "[\"\\u12G4\"]"s, "]"s, "}"s, "[]]"s,
        "{}}"s, "[]:]"s, "{\"a\":[}]"s, "\x01"s, "[\x7F]"s, "[a\x80]"s, "\xEF\xBB\xBF{}"s}) {
    log.Clear();
    EXPECT_EQ(JsonParser(text).GetParserStatus(), -2) << ::testing::PrintToString(text);
    EXPECT_EQ(log.Lines(), Lines{kInvalid}) << ::testing::PrintToString(text);
  }
}

TEST_F(JsonParserStatus, IncompleteText_MinusThreeAndOneLine) {
  for (const std::string& text : {"{"s, "["s, "{\"a\":1"s, "[[]"s, "\""s, "[\"a"s, "[\"\\\""s,
                                  "\"\\u"s, "\"\\u12"s, "{\"a\"\0:1}"s, "\"a\0\""s}) {
    log.Clear();
    EXPECT_EQ(JsonParser(text).GetParserStatus(), -3) << ::testing::PrintToString(text);
    EXPECT_EQ(log.Lines(), Lines{kIncomplete}) << ::testing::PrintToString(text);
  }
}

TEST_F(JsonParserStatus, FailedParse_EveryQueryEmpty) {
  for (const char* const text :
       {"{\"a\":[\"x\"],\"b\":1", "[\"x\",\"y\"", "[\"x\",\"y\"]]", "[1}"}) {
    JsonParser parser{std::string(text)};
    EXPECT_LT(parser.GetParserStatus(), 0) << text;
    EXPECT_TRUE(parser.GetValuesForAllKeys().empty()) << text;
    EXPECT_EQ(parser.GetValueByKey("a"), "") << text;
    EXPECT_EQ(parser.GetArraySize(), 0) << text;
    EXPECT_EQ(parser.GetArrayValueByIndex(0), "") << text;
    EXPECT_EQ(parser.GetSimpleTokenByIndex(0), "") << text;
  }
}

TEST_F(JsonParserLimit, NestingOf16_Read) {
  EXPECT_EQ(JsonParser(Nested(16)).GetParserStatus(), 16);
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(kMaxNestingDepth, 16);
}

TEST_F(JsonParserLimit, NestingOf17_MinusTwoAndOneLine) {
  EXPECT_EQ(JsonParser(Nested(17)).GetParserStatus(), -2);
  EXPECT_EQ(log.Lines(), Lines{kInvalid});
}

// The tokenizer would call it incomplete, after a time that is quadratic in the depth.
TEST_F(JsonParserLimit, NestingOf17Unclosed_RefusedBeforeTokenizing) {
  EXPECT_EQ(JsonParser(std::string(17, '[')).GetParserStatus(), -2);
  EXPECT_EQ(JsonParser(std::string(16, '[')).GetParserStatus(), -3);
}

TEST_F(JsonParserLimit, TextAtTheLimit_Read) {
  EXPECT_EQ(JsonParser("[1,2]"s, 5).GetParserStatus(), 3);
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(JsonParserLimit, TextOneByteAboveTheLimit_MinusTwoAndOneLine) {
  EXPECT_EQ(JsonParser("[1,2] "s, 5).GetParserStatus(), -2);
  EXPECT_EQ(log.Lines(), Lines{kInvalid});
}

// Behind a NUL the text costs nothing but its memory. No caller can raise the limit, and offsets
// stay within 32 bits.
TEST_F(JsonParserLimit, LongestText_OneByteMoreIsRefusedWhateverTheCallerAllows) {
  std::string text(kMaxTextBytes, '\0');
  text[0] = '1';
  JsonParser atTheLimit(std::move(text), std::numeric_limits<std::size_t>::max());
  EXPECT_EQ(atTheLimit.GetParserStatus(), 1);
  EXPECT_EQ(
      JsonParser(std::string(kMaxTextBytes + 1, '\0'), std::numeric_limits<std::size_t>::max())
          .GetParserStatus(),
      -2);
  EXPECT_LE(kMaxTextBytes, std::size_t{std::numeric_limits<std::int32_t>::max()} - 1);
}

TEST(JsonParserPairs, NestedObject_ItsPairsFollowIt) {
  EXPECT_EQ(PairsOf(R"({"a": { "b": 1 }, "c": "x"})"),
            (Pairs{{"a", R"({ "b": 1 })"}, {"b", "1"}, {"c", "x"}}));
}

TEST(JsonParserPairs, EveryKindOfValue_RawText) {
  EXPECT_EQ(
      PairsOf(R"({"s":"a\/b","n":-1.5,"t":true,"u":null,"a":[ "x", {"k":[]} ],"e":"","o":{}})"),
      (Pairs{{"s", R"(a\/b)"},
             {"n", "-1.5"},
             {"t", "true"},
             {"u", "null"},
             {"a", R"([ "x", {"k":[]} ])"},
             {"k", "[]"},
             {"e", ""},
             {"o", "{}"}}));
}

TEST(JsonParserPairs, WhiteSpaceAroundTheColon_SamePair) {
  EXPECT_EQ(PairsOf("{\"a\"\n :\t\r\"b\"}"), (Pairs{{"a", "b"}}));
}

TEST(JsonParserPairs, ColonsAndCommasInsideStrings_AreText) {
  EXPECT_EQ(PairsOf(R"({"a:,}":":","}":","})"), (Pairs{{"a:,}", ":"}, {"}", ","}}));
}

TEST(JsonParserPairs, EscapedQuoteAndBackslash_StayInTheText) {
  EXPECT_EQ(PairsOf(R"({"a\"b":"c\\","\u0041":"\u0042"})"),
            (Pairs{{R"(a\"b)", R"(c\\)"}, {R"(\u0041)", R"(\u0042)"}}));
}

TEST(JsonParserPairs, KeyTwice_BothInOrder) {
  EXPECT_EQ(PairsOf(R"({"a":1,"a":2})"), (Pairs{{"a", "1"}, {"a", "2"}}));
}

TEST(JsonParserPairs, ObjectsInAnArray_TheirPairs) {
  EXPECT_EQ(PairsOf(R"([{"a":1},{"a":2}])"), (Pairs{{"a", "1"}, {"a", "2"}}));
}

TEST(JsonParserPairs, NothingThatIsAKey_None) {
  for (const char* const text :
       {"{}", "[]", R"(["a","b"])", R"([["a"],["b"]])", R"("a":1)", R"({"a"})", R"({"a":})",
        R"({"a",:1})", R"({"a"}:1)", "{a:1}", "[1:2]", R"({"a" "b"})"})
    EXPECT_EQ(PairsOf(text), Pairs{}) << text;
}

TEST(JsonParserPairs, TextsThatAreNoJson_PairsWhereAColonStandsBetween) {
  EXPECT_EQ(PairsOf(R"(["a":"b"])"), (Pairs{{"a", "b"}}));
  EXPECT_EQ(PairsOf(R"({"a":"b":"c"})"), (Pairs{{"a", "b"}, {"b", "c"}}));
  EXPECT_EQ(PairsOf(R"({"a"::b})"), (Pairs{{"a", "b"}}));
  EXPECT_EQ(PairsOf(R"(["a"]:1)"), (Pairs{{"a", "1"}}));
}

TEST(JsonParserPairs, BytesAndNumberOfPairs_SameForMovedAndCopiedText) {
  const std::string text = R"({"a":{"b":"c"}})";
  std::string moved = text;
  const KeyValuePairs pairs = JsonParser(std::move(moved)).GetValuesForAllKeys();
  ASSERT_EQ(pairs.size(), PairsOf(text).size());
  EXPECT_EQ(pairs[0].value, R"({"b":"c"})");
}

TEST(JsonParserKey, KeyTwice_FirstValue) {
  const JsonParser parser(R"({"x":{"a":1},"a":2})");
  EXPECT_EQ(parser.GetValueByKey("a"), "1");
  EXPECT_EQ(parser.GetValueByKey("x"), R"({"a":1})");
}

TEST(JsonParserKey, NotExactlyAKey_Empty) {
  const JsonParser parser(R"({"key":"value","e":""})");
  for (const std::string& key : {"ke"s, "key "s, "KEY"s, "value"s, ""s, "key\0"s})
    EXPECT_EQ(parser.GetValueByKey(key), "") << key;
}

TEST(JsonParserArray, ThreeElements_SizeAndRawText) {
  JsonParser parser(R"(["a", [ "b","c" ], 3])");
  EXPECT_EQ(parser.GetArraySize(), 3);
  EXPECT_EQ(parser.GetArraySize(), 3);
  EXPECT_EQ(parser.GetArrayValueByIndex(0), "a");
  EXPECT_EQ(parser.GetArrayValueByIndex(1), R"([ "b","c" ])");
  EXPECT_EQ(parser.GetArrayValueByIndex(2), "3");
}

TEST(JsonParserArray, NestedAndEmptyElements_CountedOnce) {
  JsonParser parser(R"([{"a":[1,2]},"",[],[[[]]],{}])");
  EXPECT_EQ(parser.GetArraySize(), 5);
  EXPECT_EQ(parser.GetArrayValueByIndex(0), R"({"a":[1,2]})");
  EXPECT_EQ(parser.GetArrayValueByIndex(1), "");
  EXPECT_EQ(parser.GetArrayValueByIndex(3), "[[[]]]");
  EXPECT_EQ(parser.GetArrayValueByIndex(4), "{}");
}

// No JSON: an element begins behind the end of the one before, not at it.
TEST(JsonParserArray, ElementsWithoutAComma_CountAsOne) {
  EXPECT_EQ(JsonParser("[[]1]").GetArraySize(), 1);
  EXPECT_EQ(JsonParser("[[] 1]").GetArraySize(), 2);
}

TEST(JsonParserArray, IndexOutOfRange_Empty) {
  const JsonParser parser(R"(["a","b"])");
  for (const std::int32_t index : {2, 3, -1, std::numeric_limits<std::int32_t>::max(),
                                   std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(parser.GetArrayValueByIndex(index), "") << index;
    EXPECT_EQ(parser.GetSimpleTokenByIndex(index), "") << index;
  }
}

TEST(JsonParserArray, RootIsNoArrayOrEmpty_NoElements) {
  for (const char* const text : {"", "{}", "[]", R"({"a":["b"]})", R"("a")", "1 [2]"}) {
    JsonParser parser{std::string(text)};
    EXPECT_EQ(parser.GetArraySize(), 0) << text;
    EXPECT_EQ(parser.GetArrayValueByIndex(0), "") << text;
  }
}

TEST(JsonParserSimpleToken, NestedDocument_StringsAndPrimitivesInOrder) {
  const JsonParser parser(R"({"a":[1,"x"],"b":{"c":null}})");
  const Lines expected = {"a", "1", "x", "b", "c", "null", ""};
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(parser.GetSimpleTokenByIndex(static_cast<std::int32_t>(i)), expected[i]) << i;
}

TEST(JsonParserSimpleToken, FirstToken_Excluded) {
  EXPECT_EQ(JsonParser("1").GetSimpleTokenByIndex(0), "");
  EXPECT_EQ(JsonParser("1 2").GetSimpleTokenByIndex(0), "2");
}

TEST_F(JsonParserFile, Readable_WholeContent) {
  const std::string path = ::testing::TempDir() + "/json_parser_file";
  const std::string content = "{\"a\":\0 \n\xFF}"s;
  std::ofstream(path, std::ios::binary) << content;
  EXPECT_EQ(JsonParser::ReadFileIntoString(path), content);
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(JsonParserFile, NotReadable_EmptyAndOneLine) {
  EXPECT_EQ(JsonParser::ReadFileIntoString("/nonexistent/container.json"), "");
  EXPECT_EQ(JsonParser::ReadFileIntoString("/"), "");
  EXPECT_EQ(log.Lines(), (Lines{"error: JsonParser: Error reading file /nonexistent/container.json",
                                "error: JsonParser: Error reading file /"}));
}

// A sparse file: it takes no room, and is refused by its size alone.
TEST_F(JsonParserFile, OneByteAboveTheLimit_EmptyAndOneLine) {
  const std::string path = ::testing::TempDir() + "/json_parser_long_file";
  std::ofstream(path, std::ios::binary).seekp(static_cast<std::streamoff>(kMaxTextBytes)).put(' ');
  EXPECT_EQ(JsonParser::ReadFileIntoString(path), "");
  EXPECT_EQ(log.Lines(), (Lines{"error: JsonParser: Error reading file " + path}));
}

}  // namespace
}  // namespace json_parser
