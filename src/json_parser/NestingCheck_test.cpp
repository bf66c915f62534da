#include "json_parser/NestingCheck.h"

#include <gtest/gtest.h>

#include <string>

namespace json_parser {
namespace {

using namespace std::string_literals;

std::string Repeated(const std::string& piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += piece;
  return text;
}

TEST(NestingCheck, DepthAtTheLimit_Accepted) {
  for (const std::string& text : {
           "[[[]]]"s,
           "{\"a\":{\"b\":{}}}"s,
           "[{\"a\":[]}]"s,
           "[[[],[]],[[]]][[[]]]"s,
           "[[[\"[[[{{{\"]]]"s,
           "[[[\"\\\"[[[\"]]]"s,
           "[[[\"\\\\\"]]]"s,
           "[[[a[[[{{{]]]"s,
           "[[[a\"]]]"s,
           "[[[]]]\0[[[[[["s,
           "[[["s,
           ""s,
       })
    EXPECT_TRUE(IsNestingAcceptable(text, 3)) << ::testing::PrintToString(text);
}

TEST(NestingCheck, DepthAboveTheLimit_Refused) {
  for (const std::string& text : {
           "[[[[]]]]"s,
           "{{{{"s,
           "[{[{"s,
           "[[[]],[[[]]]]"s,
           "{\"a\":{\"b\":{\"c\":{}}}}"s,
           "[[[\"]]]\"[\"]]]\""s,
           "[[[\"\\\"]]]\"["s,
           "[[[\"\\\\\"["s,
           "[[[a]]]a[[[["s + "][[[["s,
           "[[[a\" [\"]"s,
           "[[[a[[ [\"]"s,
           "[[[a\t["s,
           "[[[a\r["s,
           "[[[a\n["s,
           "[[[a:["s,
           "[[[a,["s,
           "[[[\x80 ["s,
       })
    EXPECT_FALSE(IsNestingAcceptable(text, 3)) << ::testing::PrintToString(text);
}

// jsmn lets some of these pass, and from then on a depth counted from here would be too small by
// them.
TEST(NestingCheck, ClosingBracketWithoutAnOpenOne_Refused) {
  for (const std::string& text :
       {"]"s, "}"s, "[]]"s, "[]:]"s, "{}:}"s, "a]"s, "\"\"]"s, "[a:a]:]]]]"s})
    EXPECT_FALSE(IsNestingAcceptable(text, 3)) << text;
}

// The tokenizer compares the kinds of brackets; here it is only the depth that counts.
TEST(NestingCheck, BracketsOfDifferentKinds_LeftToTheTokenizer) {
  EXPECT_TRUE(IsNestingAcceptable("[}", 3));
  EXPECT_TRUE(IsNestingAcceptable("{[}]", 3));
}

TEST(NestingCheck, UnterminatedString_AcceptedWhereverItEnds) {
  for (const std::string& text : {"\""s, "\"\\"s, "\"\\\""s, "[\"[[[["s})
    EXPECT_TRUE(IsNestingAcceptable(text, 3)) << text;
}

TEST(NestingCheck, ManyFlatContainers_Accepted) {
  EXPECT_TRUE(IsNestingAcceptable("[" + Repeated("{},", 1000) + "[]]", 2));
}

}  // namespace
}  // namespace json_parser
