#include "ini_file_reader/IniFileReader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "ini_file_reader/IniParser.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Deadline.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace ini_file_reader {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class IniFile : public ::testing::Test {
 protected:
  [[nodiscard]] int Read(const std::string& text) {
    tests::WriteText(path, text);
    return reader.ReadIniFile(path, settings);
  }

  /// That nothing was read, for this reason, and nothing changed.
  void ExpectUnreadable(int result, const std::string& reason) const {
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.Lines(),
                ElementsAre("error: IniFileReader: Reading file " + path + " failed: " + reason));
    EXPECT_THAT(*settings, UnorderedElementsAre(Pair("a", "old"), Pair("b", "old")));
  }

  /// As ExpectUnreadable, for what the file holds.
  void ExpectFault(int result, const std::string& reason) const {
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.Lines(), ElementsAre("error: IniFileReader: Incorrect format. " + reason,
                                         "error: IniFileReader: Error reading file " + path));
    EXPECT_THAT(*settings, UnorderedElementsAre(Pair("a", "old"), Pair("b", "old")));
  }

  const tests::TemporaryDirectory directory;
  std::string path = directory.Path() + "/settings.ini";
  const std::shared_ptr<Settings> settings =
      std::make_shared<Settings>(Settings{{"a", "old"}, {"b", "old"}});
  IniFileReader reader;
  const platform_host::CapturedLog log;
};

TEST_F(IniFile, KeyInFile_ValueOfFile) {
  EXPECT_EQ(Read("[section]\n a = new \nother=1\n"), 3);
  EXPECT_THAT(*settings, UnorderedElementsAre(Pair("a", "new"), Pair("b", "old")));
  EXPECT_THAT(log.Lines(), ElementsAre("debug: IniFileReader: Settings read from file " + path));
}

TEST_F(IniFile, KeyWithoutValue_Empty) {
  EXPECT_EQ(Read("a=\n"), 1);
  EXPECT_EQ(settings->at("a"), "");
}

TEST_F(IniFile, KeyWithoutSeparator_ItsOwnValue) {
  EXPECT_EQ(Read("a\n"), 1);
  EXPECT_EQ(settings->at("a"), "a");
}

TEST_F(IniFile, CommentsAndHeadersOnly_CountedAndNothingSet) {
  EXPECT_EQ(Read("# a=1\n[a]\n[b=2]\n#\n"), 4);
  EXPECT_THAT(*settings, UnorderedElementsAre(Pair("a", "old"), Pair("b", "old")));
}

TEST_F(IniFile, Empty_NoLines) {
  EXPECT_EQ(Read(""), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("debug: IniFileReader: Settings read from file " + path));
}

TEST_F(IniFile, LastLineWithoutEnd_Read) {
  EXPECT_EQ(Read("a=1\nb=2"), 2);
  EXPECT_THAT(*settings, UnorderedElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(IniFile, ManyBlocks_AllRead) {
  std::string text;
  for (int line = 0; line < 1000; ++line) text += "# " + std::string(98, 'x') + "\n";
  EXPECT_EQ(Read(text + "a=1\n"), 1001);
  EXPECT_EQ(settings->at("a"), "1");
}

TEST_F(IniFile, LongestLine_Read) {
  EXPECT_EQ(Read("a=" + std::string(kMaxLineLength - 2, 'x') + "\n"), 1);
  EXPECT_EQ(settings->at("a"), std::string(kMaxLineLength - 2, 'x'));
}

TEST_F(IniFile, LineTooLongAfterValues_NothingSet) {
  const int result = Read("a=new\nb=" + std::string(kMaxLineLength - 1, 'x') + "\n");
  ExpectFault(result, "Line too long.");
}

TEST_F(IniFile, NotAsciiAfterValues_NothingSet) {
  ExpectFault(Read("a=new\nb=new\n# f\xC3\xBCr\n"), "Non-ASCII character in file.");
}

TEST_F(IniFile, LargestFile_Read) {
  EXPECT_EQ(Read("a=1" + std::string(kMaxFileBytes - 3, '\n')), int{kMaxFileBytes} - 3);
  EXPECT_EQ(settings->at("a"), "1");
}

TEST_F(IniFile, FileTooLarge_NothingSet) {
  ExpectFault(Read("a=1" + std::string(kMaxFileBytes - 2, '\n')), "File too large.");
}

TEST_F(IniFile, LineOfGigabytes_RefusedAtItsBegin) {
  tests::WriteText(path, "");
  std::filesystem::resize_file(path, 10ULL << 30);
  ExpectFault(reader.ReadIniFile(path, settings), "Line too long.");
}

TEST_F(IniFile, Missing_Unreadable) {
  ExpectUnreadable(reader.ReadIniFile(path, settings), "No such file or directory");
}

TEST_F(IniFile, Directory_Unreadable) {
  path = directory.Path();
  ExpectUnreadable(reader.ReadIniFile(path, settings), "Is a directory");
}

TEST_F(IniFile, Device_Unreadable) {
  path = "/dev/zero";
  ExpectUnreadable(reader.ReadIniFile(path, settings), "Invalid argument");
}

TEST_F(IniFile, PipeWithoutWriter_UnreadableAtOnce) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  int result = 0;
  EXPECT_TRUE(tests::EndsInTime([&] { result = reader.ReadIniFile(path, settings); },
                                [&] { ::close(::open(path.c_str(), O_RDWR | O_CLOEXEC)); }));
  ExpectUnreadable(result, "Invalid argument");
}

TEST_F(IniFile, NoPermission_Unreadable) {
  constexpr uid_t kNobody = 65534;
  tests::WriteText(path, "a=1\n");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  const uid_t user = ::geteuid();
  if (user == 0) {  // who may read every file
    ASSERT_EQ(::seteuid(kNobody), 0);
  }
  const int result = reader.ReadIniFile(path, settings);
  ASSERT_EQ(::seteuid(user), 0);
  ExpectUnreadable(result, "Permission denied");
}

// The memory of this process as a file: it opens as a regular one, and reading fails.
TEST_F(IniFile, ReadError_Unreadable) {
  path = "/proc/self/mem";
  ExpectUnreadable(reader.ReadIniFile(path, settings), "Input/output error");
}

}  // namespace
}  // namespace ini_file_reader
