#include "platform/host/files/Directories.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "support/FileContents.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

class MakeDirectoriesIn : public ::testing::Test {
 protected:
  static unsigned ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
  }

  const tests::TemporaryDirectory directory;
  const std::string root = directory.Path();
};

TEST_F(MakeDirectoriesIn, SeveralMissing_MadeForEveryReaderWhateverUmask) {
  const mode_t before = ::umask(0077);
  EXPECT_EQ(MakeDirectories(root + "/a/b/c"), 0);
  ::umask(before);
  for (const auto* path : {"/a", "/a/b", "/a/b/c"}) {
    EXPECT_EQ(ModeOf(root + path), S_IFDIR | 0755U) << path;
  }
}

TEST_F(MakeDirectoriesIn, Present_ModeLeftAlone) {
  ASSERT_EQ(::mkdir((root + "/a").c_str(), 0700), 0);
  EXPECT_EQ(MakeDirectories(root + "/a"), 0);
  EXPECT_EQ(ModeOf(root + "/a"), S_IFDIR | 0700U);
}

TEST_F(MakeDirectoriesIn, TrailingOrDoubledSlashes_Ignored) {
  EXPECT_EQ(MakeDirectories(root + "//a///b//"), 0);
  EXPECT_EQ(ModeOf(root + "/a/b"), S_IFDIR | 0755U);
}

TEST_F(MakeDirectoriesIn, Root_Present) {
  EXPECT_EQ(MakeDirectories("/"), 0);
}

TEST_F(MakeDirectoriesIn, FileInTheWay_NotDirectory) {
  ASSERT_EQ(support::ReplaceFile(root + "/file", "", 0600), 0);
  EXPECT_EQ(MakeDirectories(root + "/file"), ENOTDIR);
  EXPECT_EQ(MakeDirectories(root + "/file/below"), ENOTDIR);
}

TEST_F(MakeDirectoriesIn, LinkToDirectory_Followed) {
  ASSERT_EQ(::mkdir((root + "/target").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("target", (root + "/link").c_str()), 0);
  EXPECT_EQ(MakeDirectories(root + "/link"), 0);
  EXPECT_EQ(MakeDirectories(root + "/link/a"), 0);
  EXPECT_EQ(ModeOf(root + "/target/a"), S_IFDIR | 0755U);
}

TEST_F(MakeDirectoriesIn, DanglingLink_NotDirectory) {
  ASSERT_EQ(::symlink("nowhere", (root + "/link").c_str()), 0);
  EXPECT_EQ(MakeDirectories(root + "/link"), ENOTDIR);
  EXPECT_EQ(MakeDirectories(root + "/link/a"), ENOTDIR);
}

TEST_F(MakeDirectoriesIn, NameTooLong_Fails) {
  EXPECT_EQ(MakeDirectories(root + "/" + std::string(256, 'a')), ENAMETOOLONG);
}

}  // namespace
}  // namespace platform_host
