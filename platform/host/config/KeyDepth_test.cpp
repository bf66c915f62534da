#include "platform/host/config/KeyDepth.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace platform_host {
namespace {

/// `count` dots, each with a part of a key before it.
std::string Dots(std::size_t count) {
  std::string key;
  for (std::size_t index = 0; index < count; ++index) key += "a.";
  return key;
}

const std::string kMost = Dots(kMaxDots);
const std::string kTooMany = Dots(kMaxDots + 1);

TEST(FindDeepKey, NoStatementAboveLimit_None) {
  const std::vector<std::string> texts = {
      "",
      kMost + "a = 1",
      "[" + kMost + "a]\n" + kMost + "a = 1\n",
      "x = \"" + kTooMany + "\"",
      "x = '" + kTooMany + "'\n" + kMost + "a = ''",
      "x = \"\"\"" + kTooMany + "\n" + kTooMany + "\"\"\"\n",
      "x = '''" + kTooMany + "\n" + kTooMany + "'''\n",
      "x = '''''''" + kMost,
      "x = \"\\\"" + kTooMany + "\"",
      "x = \"\"\"\\\"\"\"" + kTooMany + "\"\"\"",
      "x = '\\' # " + kTooMany + "\n",
      "# " + kTooMany + "\n# '\n# \"\n",
      "\"" + kTooMany + "\".b = 1",
      "x = [\n" + kMost + "\n]\n" + kMost,
      "]\n" + kMost + "\n}\n" + kMost,
      "x = \"open " + kTooMany,
      "x = '''open " + kTooMany,
      "x = \"\\",
      "x = \"\"\"\\",
  };
  for (const auto& text : texts) EXPECT_EQ(FindDeepKey(text), std::nullopt) << text;
}

struct Refusal {
  std::string text;
  std::size_t line;
};

TEST(FindDeepKey, StatementAboveLimit_ItsLine) {
  const std::vector<Refusal> cases = {
      {kTooMany + "a = 1", 1},
      {"\n\n[" + kTooMany + "a]\n", 3},
      {"[[" + kTooMany + "a]]\n", 1},
      {"\"x\"." + kMost + "a = 1", 1},
      {"'x'." + kMost + "a = 1", 1},
      {"x = 1.0 # comment\n" + kTooMany, 2},
      {"x = \"\\\"\" # comment\r\n" + kTooMany, 2},
      {"x = '\\'\n" + kTooMany, 2},
      {"x = \"\"\n" + kTooMany, 2},
      {"x = ''\n" + kTooMany, 2},
      {"x = \"\"\"two\nlines\\\n\"\"\"\n" + kTooMany, 4},
      {"x = '''two\nlines\\'''\n" + kTooMany, 3},
      {"x = \"\"\"quotes\"\"\"\"\"\n" + kTooMany, 2},
      {"x = '''quotes'''''\n" + kTooMany, 2},
      {"x = '''quotes''''" + kTooMany, 1},
      {"x = {" + kTooMany + "a = 1}", 1},
      {"x = [\n{" + kMost + "a = 1},\n{a.a = 1}]", 3},
      {"x = [{\n" + kMost + "\n}, # ]\n.]", 4},
      {"x = \"open\n" + kTooMany, 2},
  };
  for (const auto& one : cases) EXPECT_EQ(FindDeepKey(one.text), one.line) << one.text;
}

}  // namespace
}  // namespace platform_host
