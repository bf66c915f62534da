#include "tools/tsc/Files.h"

#include <sys/stat.h>

#include "tests/support/CommandTest.h"

namespace tsc {
namespace {

using Files = tests::CommandTest;

TEST_F(Files, FileWithAnyBytes_ReadWhole) {
  const std::string content("a\0b\n", 4);
  EXPECT_EQ(ReadWholeFile(Write("file", content)).Value(), content);
}

TEST_F(Files, MissingFile_ErrorNamesIt) {
  EXPECT_EQ(ReadWholeFile(Path("missing")).Failure().Text(),
            Path("missing") + ": No such file or directory");
}

TEST_F(Files, FileAtLimit_Read) {
  std::filesystem::resize_file(Write("file", ""), kMaxFileBytes);
  EXPECT_EQ(ReadWholeFile(Path("file")).Value().size(), kMaxFileBytes);
}

TEST_F(Files, FileAboveLimit_Refused) {
  std::filesystem::resize_file(Write("file", ""), kMaxFileBytes + 1);
  EXPECT_EQ(ReadWholeFile(Path("file")).Failure().Text(), Path("file") + ": File too large");
}

TEST_F(Files, FileAboveALimitOfItsOwn_Refused) {
  EXPECT_TRUE(ReadWholeFile(Write("file", "four"), 4).Ok());
  EXPECT_EQ(ReadWholeFile(Path("file"), 3).Failure().Text(), Path("file") + ": File too large");
}

TEST_F(Files, Replace_HasNewContentAndReadableByAll) {
  Write("file", "old and longer");
  EXPECT_EQ(ReplaceWholeFile(Path("file"), "new"), "");
  EXPECT_EQ(Read(Path("file")), "new");
  struct stat status {};
  ASSERT_EQ(::stat(Path("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST_F(Files, ReplaceInMissingFolder_ErrorNamesFile) {
  EXPECT_EQ(ReplaceWholeFile(Path("no/file"), "new"),
            Path("no/file") + ": No such file or directory");
}

}  // namespace
}  // namespace tsc
