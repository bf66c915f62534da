#include "ini_file_reader/IniParser.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace ini_file_reader {
namespace {

using Fault = IniParser::Fault;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

/// A parser that is asked for "a" and "b", after `text` in pieces of `step` bytes.
struct Parsed {
  explicit Parsed(const std::string& text, std::size_t step = std::string::npos) {
    for (std::string_view rest = text; fault == Fault::kNone && !rest.empty();) {
      fault = parser.Feed(rest.substr(0, step));
      rest.remove_prefix(std::min(step, rest.size()));
    }
    if (fault == Fault::kNone) fault = parser.Finish();
  }

  const Settings wanted{{"a", ""}, {"b", ""}};
  IniParser parser{wanted};
  Fault fault = Fault::kNone;
};

struct ValueCase {
  std::string text;
  std::string valueOfA;
};

TEST(IniParser, Line_ValueOfKey) {
  const std::vector<ValueCase> cases = {
      {"a=1", "1"},
      {"a=1\n", "1"},
      {" a = 1 \n", "1"},
      {"\ta\v=\f1\r\n", "1"},
      {"a = high value", "highvalue"},
      {" = a\na=2", "2"},
      {"a=b=c", "b=c"},
      {"a==", "="},
      {"a=", ""},
      {"a", "a"},
      {" a ", "a"},
      {"a=1\na=2", "1"},
      {"a=\na=2", ""},
      {"a\na=2", "a"},
      {"#a=1\na=2", "2"},
      {" # a=1\na=2", "2"},
      {"a=#1", "#1"},
      {"[a]\na=2", "2"},
      {"[section]\na=1\n[other]\na=2", "1"},
      {"a=[1]", "[1]"},
      {"[a]=1]\na=2", "2"},
      {std::string("a=1\0002", 5), std::string("1\0002", 3)},
      {"a=" + std::string(kMaxLineLength - 2, 'x'), std::string(kMaxLineLength - 2, 'x')},
  };
  for (const auto& [text, valueOfA] : cases) {
    SCOPED_TRACE(text);
    for (const std::size_t step : {std::size_t{1}, std::size_t{3}, text.size()}) {
      const Parsed parsed(text, step);
      EXPECT_EQ(parsed.fault, Fault::kNone);
      EXPECT_THAT(parsed.parser.Values(), UnorderedElementsAre(Pair("a", valueOfA)));
    }
  }
}

TEST(IniParser, LineOfAnotherKind_NoValue) {
  const std::vector<std::string> cases = {
      "",      "\n",          " \t\r\n", "#",    "#a=1",  " #a=1", "[a]",
      "[]",    " [ a = 1 ] ", "[a=1]",   "c=1",  "=a",    "=",     "A=1",
      "aa=1",  "[a]b=c",      "[a=1",    "]a=1", "a[]=1", "a#=1",  std::string("a\0=1", 4),
      "\\a=1", "\"a\"=1",     "a:1",
  };
  for (const std::string& text : cases) {
    SCOPED_TRACE(text);
    const Parsed parsed(text);
    EXPECT_EQ(parsed.fault, Fault::kNone);
    EXPECT_THAT(parsed.parser.Values(), IsEmpty());
  }
}

TEST(IniParser, BracketOnlyInFront_NoHeaderButPair) {
  const Settings wanted{{"[a]b", ""}, {"[", ""}};
  IniParser parser(wanted);
  ASSERT_EQ(parser.Feed("[a]b=c\n[\n"), Fault::kNone);
  EXPECT_THAT(parser.Values(), UnorderedElementsAre(Pair("[a]b", "c"), Pair("[", "[")));
}

TEST(IniParser, EmptyKeyWanted_ValueOfIt) {
  const Settings wanted{{"", ""}};
  IniParser parser(wanted);
  ASSERT_EQ(parser.Feed("=1\n"), Fault::kNone);
  EXPECT_THAT(parser.Values(), UnorderedElementsAre(Pair("", "1")));
}

TEST(IniParser, EveryKindOfLine_Counted) {
  EXPECT_EQ(Parsed("").parser.Lines(), 0);
  EXPECT_EQ(Parsed("\n").parser.Lines(), 1);
  EXPECT_EQ(Parsed("a=1").parser.Lines(), 1);
  EXPECT_EQ(Parsed("a=1\n").parser.Lines(), 1);
  EXPECT_EQ(Parsed("a=1\n\n").parser.Lines(), 2);
  EXPECT_EQ(Parsed("a=1\n ").parser.Lines(), 2);
  EXPECT_EQ(Parsed("#\n[s]\n\na=1\nb\nc=2\n").parser.Lines(), 6);
}

struct FaultCase {
  std::string text;
  Fault fault;
};

TEST(IniParser, BadText_FirstFault) {
  const std::string tooLong(kMaxLineLength + 1, 'x');
  const std::vector<FaultCase> cases = {
      {tooLong, Fault::kLineTooLong},
      {tooLong + "\n", Fault::kLineTooLong},
      {"a=1\n" + tooLong, Fault::kLineTooLong},
      {"#" + tooLong, Fault::kLineTooLong},
      {std::string(kMaxLineLength + 1, ' '), Fault::kLineTooLong},
      {std::string(kMaxLineLength + 1, '\0'), Fault::kLineTooLong},
      {std::string(kMaxLineLength, 'x') + "\r\n", Fault::kLineTooLong},
      {"\xC3" + tooLong, Fault::kLineTooLong},
      {tooLong + "\n\xC3", Fault::kLineTooLong},
      {"\xC3", Fault::kNotAscii},
      {"\x80\n", Fault::kNotAscii},
      {"\xFF\n", Fault::kNotAscii},
      {"a=1\n#\xC3\xA4\n", Fault::kNotAscii},
      {"[\xC3]\n", Fault::kNotAscii},
      {"\xEF\xBB\xBF"
       "a=1\n",
       Fault::kNotAscii},
      {"\xC3\n" + tooLong, Fault::kNotAscii},
  };
  for (const auto& [text, fault] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Parsed(text).fault, fault);
    EXPECT_EQ(Parsed(text, 1).fault, fault);
  }
}

TEST(IniParser, HighestAscii_Accepted) {
  EXPECT_EQ(Parsed("a=\x7F\n").fault, Fault::kNone);
}

TEST(IniParser, LongestLine_Accepted) {
  EXPECT_EQ(Parsed(std::string(kMaxLineLength, 'x') + "\n").fault, Fault::kNone);
  EXPECT_EQ(Parsed(std::string(kMaxLineLength, 'x')).fault, Fault::kNone);
}

TEST(IniParser, LineThatNeverEnds_RefusedAtFirstByteTooMany) {
  const Settings wanted;
  IniParser parser(wanted);
  ASSERT_EQ(parser.Feed(std::string(kMaxLineLength, 'x')), Fault::kNone);
  EXPECT_EQ(parser.Feed("x"), Fault::kLineTooLong);
}

TEST(IniParser, LargestFile_Accepted) {
  EXPECT_EQ(Parsed(std::string(kMaxFileBytes, '\n')).fault, Fault::kNone);
  EXPECT_EQ(Parsed(std::string(kMaxFileBytes, '\n'), 1000).fault, Fault::kNone);
}

TEST(IniParser, OneByteAboveLargestFile_TooLarge) {
  EXPECT_EQ(Parsed(std::string(kMaxFileBytes + 1, '\n')).fault, Fault::kTooLarge);
  EXPECT_EQ(Parsed(std::string(kMaxFileBytes + 1, '\n'), 1000).fault, Fault::kTooLarge);
}

}  // namespace
}  // namespace ini_file_reader
