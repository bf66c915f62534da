#include "platform/host/files/FileName.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace platform_host {
namespace {

struct Case {
  std::string name;
  std::string fileName;
};

TEST(FileNameOf, EachKindOfByte_KeptOrEncoded) {
  const std::vector<Case> cases = {
      {"ZORA", "ZORA"},
      {"Az09_-", "Az09_-"},
      {"a.b..c.", "a.b..c."},
      {".", "%2E"},
      {"..", "%2E."},
      {".hidden", "%2Ehidden"},
      {"../etc/passwd", "%2E.%2Fetc%2Fpasswd"},
      {"/abs", "%2Fabs"},
      {"a/b", "a%2Fb"},
      {"100%", "100%25"},
      {"%2F", "%252F"},
      {"", "%"},
      {std::string("a\0b", 3), "a%00b"},
      {" \n\x7f", "%20%0A%7F"},
      {"\xC3\xA4", "%C3%A4"},
      {"a\\b:c*", "a%5Cb%3Ac%2A"},
  };
  for (const auto& one : cases) EXPECT_EQ(FileNameOf(one.name), one.fileName);
}

TEST(FileNameOf, EveryNameOfUpToTwoBytes_DistinctAndInsideDirectory) {
  std::set<std::string> seen = {FileNameOf("")};
  std::size_t names = 1;
  const auto add = [&](const std::string& name) {
    const std::string fileName = FileNameOf(name);
    EXPECT_TRUE(seen.insert(fileName).second) << fileName;
    EXPECT_EQ(fileName.find('/'), std::string::npos);
    EXPECT_NE(fileName.at(0), '.');
    EXPECT_EQ(NameOfFile(fileName), name) << fileName;
    ++names;
  };
  for (int first = 0; first < 256; ++first) {
    add(std::string(1, static_cast<char>(first)));
    for (int second = 0; second < 256; ++second) {
      add({static_cast<char>(first), static_cast<char>(second)});
    }
  }
  EXPECT_EQ(seen.size(), names);
}

TEST(NameOfFile, EmptyName_FromPercentAlone) {
  EXPECT_EQ(NameOfFile("%"), "");
}

TEST(NameOfFile, LongName_WholeNameBack) {
  const std::string name = "../" + std::string(1000, '%') + "\xC3\xA4.pem";
  EXPECT_EQ(NameOfFile(FileNameOf(name)), name);
}

TEST(NameOfFile, FilesOfNoName_None) {
  const std::vector<std::string> fileNames = {
      "",     "%%",   "%4",     "a%",       "a%2",
      "%G0",  "%0G",  "%2f",    "%2",       "% 2F",
      "%41",  "a%2E", ".a",     "..",       "a b",
      "a/b",  "a:b",  "a~",     "\xC3\xA4", "a%2F%",
      "%25%", "a%5F", "%2E%2E", "%+1",      std::string("a\0b", 3),
  };
  for (const auto& fileName : fileNames) EXPECT_EQ(NameOfFile(fileName), std::nullopt) << fileName;
}

}  // namespace
}  // namespace platform_host
