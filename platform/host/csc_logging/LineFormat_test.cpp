#include "platform/host/csc_logging/LineFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace platform_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr std::size_t kAmple = 1000;

struct Case {
  std::string text;
  std::string escaped;
};

TEST(EscapeLine, PrintableText_Unchanged) {
  const std::vector<std::string> texts = {
      "",
      "plain ASCII ~!\"\\",
      "<3>looks like a priority",
      "\xC2\xA0 first after the C1 controls",
      "Stra\xC3\x9F"
      "e",
      "\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80",
      "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF",
      "\\x0a as it was sent",
  };
  for (const auto& text : texts) EXPECT_EQ(EscapeLine(text, kAmple), text);
}

TEST(EscapeLine, ControlOrNoUtf8_EscapedByteByByte) {
  const std::vector<Case> cases = {
      {"a\nb", "a\\x0ab"},
      {"a\r\nb", "a\\x0d\\x0ab"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"\x1b[2J", "\\x1b[2J"},
      {"\t", "\\x09"},
      {"\x1f \x7f", "\\x1f \\x7f"},
      {"\xC2\x9B", "\\xc2\\x9b"},  // C1: control sequence introducer
      {"\xC2\x80 \xC2\x9F", "\\xc2\\x80 \\xc2\\x9f"},
      {"\x80", "\\x80"},           // a continuation alone
      {"\xC0\xAF", "\\xc0\\xaf"},  // overlong
      {"\xC1\xBF", "\\xc1\\xbf"},
      {"\xE0\x9F\xBF", "\\xe0\\x9f\\xbf"},
      {"\xF0\x8F\xBF\xBF", "\\xf0\\x8f\\xbf\\xbf"},
      {"\xED\xA0\x80", "\\xed\\xa0\\x80"},  // a surrogate
      {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"\xF5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
      {"\xFF", "\\xff"},
      {"\xC3", "\\xc3"},  // cut off
      {"\xE2\x82", "\\xe2\\x82"},
      {"\xF0\x9F\x98", "\\xf0\\x9f\\x98"},
      {"\xC3\n", "\\xc3\\x0a"},  // the line feed is not swallowed
      {"\xE2\x82\n", "\\xe2\\x82\\x0a"},
  };
  for (const auto& one : cases) EXPECT_EQ(EscapeLine(one.text, kAmple), one.escaped);
}

TEST(EscapeLine, AtLimit_Whole) {
  EXPECT_EQ(EscapeLine("0123456789", 10), "0123456789");
}

TEST(EscapeLine, OneAboveLimit_CutAndMarked) {
  EXPECT_EQ(EscapeLine("0123456789X", 10), "0123 [cut]");
}

TEST(EscapeLine, CutInsideCharacter_WholeCharacterLeftOut) {
  EXPECT_EQ(EscapeLine("012\xC3\x9F"
                       "4567890",
                       10),
            "012 [cut]");
}

TEST(EscapeLine, CutInsideEscape_WholeEscapeLeftOut) {
  EXPECT_EQ(EscapeLine("01\n34567890", 10), "01 [cut]");
}

TEST(FormatLine, EachLevel_TimeLevelApplicationText) {
  const system_clock::time_point time{milliseconds(1720177323004)};
  EXPECT_EQ(FormatLine(LogLevel::kVerbose, "TU", "text", time),
            "2024-07-05T11:02:03.004Z verbose TU text\n");
  EXPECT_EQ(FormatLine(LogLevel::kError, "TU", "a\nb", time),
            "2024-07-05T11:02:03.004Z error TU a\\x0ab\n");
}

TEST(FormatLine, LongestText_LineAtLimit) {
  const std::string front = "1970-01-01T00:00:00.000Z info TU ";
  const std::string text(kLineLimit - front.size() - 1, 'x');
  EXPECT_EQ(FormatLine(LogLevel::kInfo, "TU", text, {}), front + text + "\n");
}

TEST(FormatLine, OneByteMore_LineAtLimitCut) {
  const std::string front = "1970-01-01T00:00:00.000Z info TU ";
  const std::string line =
      FormatLine(LogLevel::kInfo, "TU", std::string(kLineLimit - front.size(), 'x'), {});
  EXPECT_EQ(line.size(), kLineLimit);
  EXPECT_EQ(line.substr(line.size() - 8), "x [cut]\n");
}

TEST(FormatJournalLine, EachLevel_PriorityOfSyslog) {
  EXPECT_EQ(FormatJournalLine(LogLevel::kVerbose, "TU", "t"), "<7>TU t\n");
  EXPECT_EQ(FormatJournalLine(LogLevel::kDebug, "TU", "t"), "<7>TU t\n");
  EXPECT_EQ(FormatJournalLine(LogLevel::kInfo, "TU", "t"), "<6>TU t\n");
  EXPECT_EQ(FormatJournalLine(LogLevel::kWarning, "TU", "t"), "<4>TU t\n");
  EXPECT_EQ(FormatJournalLine(LogLevel::kError, "TU", "t\n<2>forged"), "<3>TU t\\x0a<2>forged\n");
}

}  // namespace
}  // namespace platform_host
