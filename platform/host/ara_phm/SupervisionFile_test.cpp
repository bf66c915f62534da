#include "platform/host/ara_phm/SupervisionFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/UniqueFd.h"
#include "tests/support/Deadline.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kWhole =
    "instance-id=A\nsupervision-entity-id=1\ncheckpoint-id=2\nsupervision-cycle=50\n"
    "expected-alive-indications=5\n";

std::string Described(const SupervisionFile& file) {
  return file.instanceId + " " + std::to_string(file.supervisionEntityId) + " " +
         std::to_string(file.checkpointId) + " " + std::to_string(file.supervisionCycle) + " " +
         std::to_string(file.expectedAliveIndications);
}

std::string Parsed(const std::string& text) {
  const auto file = SupervisionFile::Parse(text);
  return file ? Described(*file) : "nothing";
}

/// The file with `line` in place of the one that begins with its key.
std::string With(const std::string& line) {
  const std::string key = line.substr(0, line.find('=') + 1);
  const auto begin = kWhole.find(key);
  return kWhole.substr(0, begin) + line + kWhole.substr(kWhole.find('\n', begin));
}

struct Case {
  std::string text;
  std::string parsed;
};

TEST(SupervisionFileParse, UsableTexts_ValuesRead) {
  const std::vector<Case> cases = {
      {kWhole, "A 1 2 50 5"},
      {kWhole.substr(0, kWhole.size() - 1), "A 1 2 50 5"},
      {"[health]\n# comment\n  #too\n\n" + kWhole, "A 1 2 50 5"},
      {"[a]b=c\n" + kWhole, "A 1 2 50 5"},
      {"other=1\nno equals sign\n" + kWhole, "A 1 2 50 5"},
      {With("instance-id= /unit / 1\r"), "/unit/1 1 2 50 5"},
      {With("instance-id=a=b"), "a=b 1 2 50 5"},
      {With("checkpoint-id=\t1 2"), "A 1 12 50 5"},
      {With("checkpoint-id=12x"), "A 1 12 50 5"},
      {With("checkpoint-id=65535"), "A 1 65535 50 5"},
      {With("checkpoint-id=65536"), "A 1 0 50 5"},
      {With("checkpoint-id=-1"), "A 1 65535 50 5"},
      {"checkpoint-id=7\n" + kWhole, "A 1 7 50 5"},
      {"instance-id\n" + kWhole, "instance-id 1 2 50 5"},
      {With("supervision-cycle=0"), "A 1 2 0 5"},
  };
  for (const auto& one : cases) EXPECT_EQ(Parsed(one.text), one.parsed) << one.text;
}

TEST(SupervisionFileParse, UnusableTexts_Nothing) {
  const std::vector<std::string> texts = {
      "",
      "\n\n",
      "[health]\n",
      "# " + kWhole,
      With("instance-id="),
      "instance-id=\n" + kWhole,
      With("supervision-entity-id="),
      With("checkpoint-id= "),
      With("checkpoint-id=x1"),
      With("checkpoint-id=99999999999999999999"),
      With("supervision-cycle=#5"),
      With("expected-alive-indications=five"),
      "supervision-cycle\n" + kWhole,
      "# \xC3\xA4\n" + kWhole,
      kWhole.substr(0, kWhole.find("checkpoint-id")),
      kWhole.substr(kWhole.find('\n') + 1),
  };
  for (const auto& text : texts) EXPECT_EQ(Parsed(text), "nothing") << text;
}

TEST(SupervisionFileParse, LineAtLimit_ReadAndOneMoreNot) {
  const std::string longest(SupervisionFile::kLineLimit, ' ');
  EXPECT_EQ(Parsed(longest + "\n" + kWhole), "A 1 2 50 5");
  EXPECT_EQ(Parsed(kWhole + longest), "A 1 2 50 5");
  EXPECT_EQ(Parsed(longest + " \n" + kWhole), "nothing");
  EXPECT_EQ(Parsed(kWhole + longest + " "), "nothing");
}

TEST(SupervisionFileParse, SizeAtLimit_ReadAndOneMoreNot) {
  const std::string lines(SupervisionFile::kSizeLimit - kWhole.size(), '\n');
  EXPECT_EQ(Parsed(kWhole + lines), "A 1 2 50 5");
  EXPECT_EQ(Parsed(kWhole + lines + "\n"), "nothing");
}

class SupervisionFilesOf : public ::testing::Test {
 protected:
  void Write(const std::string& name, const std::string& text) const {
    tests::WriteText(directory.Path() + "/" + name, text);
  }

  [[nodiscard]] std::vector<std::string> Read() const {
    std::vector<std::string> described;
    for (const auto& file : SupervisionFile::ReadAll(directory.Path())) {
      described.push_back(Described(file));
    }
    return described;
  }

  const tests::TemporaryDirectory directory;
};

TEST_F(SupervisionFilesOf, Directory_UsableOnesByName) {
  Write("b-phm.ini", With("instance-id=B"));
  Write("a-phm.ini", kWhole);
  Write("broken-phm.ini", "checkpoint-id=1\n");
  Write("c-phm.ini.bak", With("instance-id=C"));
  Write("phm.ini", With("instance-id=D"));
  EXPECT_THAT(Read(), ElementsAre("A 1 2 50 5", "B 1 2 50 5"));
}

TEST_F(SupervisionFilesOf, NoDirectory_Nothing) {
  EXPECT_THAT(SupervisionFile::ReadAll(directory.Path() + "/none"), IsEmpty());
}

TEST_F(SupervisionFilesOf, WhatIsNoFile_PassedOver) {
  const std::string pipe = directory.Path() + "/b-phm.ini";
  std::filesystem::create_directory(directory.Path() + "/a-phm.ini");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  support::UniqueFd writer(::open(pipe.c_str(), O_RDWR | O_CLOEXEC));
  std::filesystem::create_symlink("/none", directory.Path() + "/c-phm.ini");
  Write("d-phm.ini", kWhole);
  EXPECT_TRUE(tests::EndsInTime([&] { EXPECT_THAT(Read(), ElementsAre("A 1 2 50 5")); },
                                [&] { writer = support::UniqueFd(); }));
}

TEST_F(SupervisionFilesOf, LinkToFile_Read) {
  Write("elsewhere", kWhole);
  std::filesystem::create_symlink("elsewhere", directory.Path() + "/a-phm.ini");
  EXPECT_THAT(Read(), ElementsAre("A 1 2 50 5"));
}

TEST_F(SupervisionFilesOf, TooLargeFile_PassedOver) {
  Write("a-phm.ini", kWhole + std::string(SupervisionFile::kSizeLimit, '\n'));
  EXPECT_THAT(Read(), IsEmpty());
}

TEST_F(SupervisionFilesOf, AsManyAsLimit_AllReadAndOneMoreNot) {
  for (std::size_t index = 0; index < SupervisionFile::kCountLimit; ++index) {
    Write(std::to_string(100 + index) + "-phm.ini", With("instance-id=" + std::to_string(index)));
  }
  EXPECT_EQ(Read().size(), SupervisionFile::kCountLimit);
  Write("099-phm.ini", kWhole);
  const auto read = Read();
  EXPECT_EQ(read.size(), SupervisionFile::kCountLimit);
  EXPECT_EQ(read.front(), "A 1 2 50 5");
  EXPECT_EQ(read.back(), "62 1 2 50 5");
}

}  // namespace
}  // namespace platform_host
