#include "support/FileContents.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/support/TemporaryDirectory.h"

namespace support {
namespace {

class FileContents : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return directory.Path() + "/" + name; }

  std::string Read(const std::string& name) const {
    std::string contents;
    EXPECT_EQ(0, ReadFile(Path(name), 1000, contents)) << name;
    return contents;
  }

  std::size_t FilesInDirectory() const {
    const std::filesystem::directory_iterator entries(directory.Path());
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

  const tests::TemporaryDirectory directory;
};

TEST_F(FileContents, Replace_MakesAFileOfTheGivenMode) {
  const mode_t before = ::umask(0077);
  EXPECT_EQ(0, ReplaceFile(Path("a"), std::string_view("x\0y\n", 4), 0644));
  ::umask(before);
  EXPECT_EQ(std::string("x\0y\n", 4), Read("a"));
  struct stat status {};
  ASSERT_EQ(0, ::stat(Path("a").c_str(), &status));
  EXPECT_EQ(S_IFREG | 0644U, status.st_mode);
}

TEST_F(FileContents, Replace_PutsShorterContentsInPlaceOfLonger) {
  ASSERT_EQ(0, ReplaceFile(Path("a"), "long contents", 0644));
  EXPECT_EQ(0, ReplaceFile(Path("a"), "", 0644));
  EXPECT_EQ("", Read("a"));
  EXPECT_EQ(1U, FilesInDirectory());
}

TEST_F(FileContents, ReplaceWithoutDirectory_FailsWithItsErrno) {
  EXPECT_EQ(ENOENT, ReplaceFile(Path("missing/a"), "x", 0644));
  EXPECT_EQ("No such file or directory", ErrorText(ENOENT));
}

TEST_F(FileContents, ReplaceOfWhatIsNoFile_IsRefused) {
  ASSERT_EQ(0, ::mkdir(Path("folder").c_str(), 0755));
  ASSERT_EQ(0, ::mkfifo(Path("pipe").c_str(), 0600));
  EXPECT_EQ(EISDIR, ReplaceFile(Path("folder"), "x", 0644));
  ASSERT_EQ(0, ::symlink("/dev/null", Path("link").c_str()));
  EXPECT_EQ(EINVAL, ReplaceFile(Path("pipe"), "x", 0644));
  EXPECT_EQ(EINVAL, ReplaceFile(Path("link"), "x", 0644));
  EXPECT_EQ(3U, FilesInDirectory());
}

TEST_F(FileContents, ReplaceOfALink_LeavesWhatItLedToAlone) {
  ASSERT_EQ(0, ReplaceFile(Path("target"), "kept", 0644));
  ASSERT_EQ(0, ::symlink(Path("target").c_str(), Path("link").c_str()));
  EXPECT_EQ(0, ReplaceFile(Path("link"), "new", 0644));
  EXPECT_EQ("kept", Read("target"));
  EXPECT_EQ("new", Read("link"));
}

TEST_F(FileContents, ReplaceThatCannotWriteAll_KeepsTheOldFileAndLeavesNothingBehind) {
  ASSERT_EQ(0, ReplaceFile(Path("a"), "old", 0644));
  struct rlimit before {};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit small { 1000, before.rlim_max };
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
  EXPECT_EQ(EFBIG, ReplaceFile(Path("a"), std::string(2000, 'x'), 0644));
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ("old", Read("a"));
  EXPECT_EQ(1U, FilesInDirectory());
}

TEST_F(FileContents, ReadAtItsLimit_GivesAllAndOneByteMoreNothing) {
  ASSERT_EQ(0, ReplaceFile(Path("a"), "12345", 0644));
  std::string contents = "old";
  EXPECT_EQ(0, ReadFile(Path("a"), 5, contents));
  EXPECT_EQ("12345", contents);
  EXPECT_EQ(EFBIG, ReadFile(Path("a"), 4, contents));
  EXPECT_EQ("", contents);
}

TEST_F(FileContents, ReadOfAnEndlessFile_EndsAtTheLimit) {
  std::string contents;
  EXPECT_EQ(EFBIG, ReadFile("/dev/zero", 200000, contents));
}

TEST_F(FileContents, ReadOfAFileThatTellsNoSize_GivesAll) {
  std::string contents;
  EXPECT_EQ(0, ReadFile("/proc/self/status", 100000, contents));
  EXPECT_EQ(0U, contents.rfind("Name:", 0));
}

TEST_F(FileContents, ReadOfWhatIsNoFile_FailsWithItsErrno) {
  std::string contents = "old";
  EXPECT_EQ(ENOENT, ReadFile(Path("missing"), 10, contents));
  EXPECT_EQ("", contents);
  EXPECT_EQ(EISDIR, ReadFile("/proc", 10, contents));
}

TEST_F(FileContents, ReadOfAPipeThatNobodyWritesTo_DoesNotBlock) {
  ASSERT_EQ(0, ::mkfifo(Path("pipe").c_str(), 0600));
  std::string contents;
  EXPECT_EQ(0, ReadFile(Path("pipe"), 10, contents));
  EXPECT_EQ("", contents);
}

TEST_F(FileContents, ReadOfAPipeWithAWriter_WaitsForAll) {
  int ends[2];
  ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
  const UniqueFd reader(ends[0]);
  std::thread writer([end = ends[1]] {
    const UniqueFd owner(end);
    EXPECT_EQ(0, WriteAll(owner.Get(), std::string(200000, 'x')));
  });
  std::string contents;
  EXPECT_EQ(0, ReadFile("/dev/fd/" + std::to_string(reader.Get()), 1000000, contents));
  writer.join();
  EXPECT_EQ(std::string(200000, 'x'), contents);
}

TEST_F(FileContents, SyncOfAMissingDirectory_FailsWithItsErrno) {
  EXPECT_EQ(0, SyncDirectory(directory.Path()));
  EXPECT_EQ(ENOENT, SyncDirectory(Path("missing")));
}

TEST(WriteAll, FullDevice_FailsWithItsErrno) {
  const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(ENOSPC, WriteAll(full.Get(), "x"));
}

}  // namespace
}  // namespace support
