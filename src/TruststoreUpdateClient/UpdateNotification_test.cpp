#include "TruststoreUpdateClient/UpdateNotification.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/UniqueFd.h"
#include "tests/doubles/ProtectedFiles.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;

class UpdateNotification : public ::testing::Test {
 protected:
  [[nodiscard]] mode_t Mode() const {
    struct stat status {};
    EXPECT_EQ(::stat(marker.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }

  const tests::TemporaryDirectory directory;
  const std::string marker = directory.Path() + "/marker";
  const std::string other = directory.Path() + "/other";
};

TEST_F(UpdateNotification, EveryValue_WholeContentInDecimal) {
  for (unsigned value = 0; value < 256; ++value) {
    EXPECT_EQ(WriteUpdateNotification(marker, static_cast<unsigned char>(value)), 0);
    EXPECT_EQ(tests::ReadText(marker), std::to_string(value));
  }
  EXPECT_THAT(tests::NamesIn(directory.Path()), ElementsAre("marker"));
}

TEST_F(UpdateNotification, LongerContent_Truncated) {
  tests::WriteText(marker, "0\nsomething much longer\n");
  EXPECT_EQ(WriteUpdateNotification(marker, 1), 0);
  EXPECT_EQ(tests::ReadText(marker), "1");
}

TEST_F(UpdateNotification, NewFile_ModeFollowsUmask) {
  const mode_t former = ::umask(027);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), 0);
  EXPECT_EQ(Mode(), 0640U);
  std::filesystem::remove(marker);
  ::umask(0);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), 0);
  ::umask(former);
  EXPECT_EQ(Mode(), 0666U);
}

TEST_F(UpdateNotification, ExistingFile_KeepsItsMode) {
  tests::WriteText(marker, "0");
  ASSERT_EQ(::chmod(marker.c_str(), 0604), 0);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), 0);
  EXPECT_EQ(Mode(), 0604U);
}

TEST_F(UpdateNotification, SymbolicLink_RefusedAndTargetUntouched) {
  tests::WriteText(other, "precious");
  std::filesystem::create_symlink(other, marker);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), ELOOP);
  EXPECT_EQ(tests::ReadText(other), "precious");
}

TEST_F(UpdateNotification, DanglingLink_RefusedAndNothingMade) {
  std::filesystem::create_symlink(other, marker);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), ELOOP);
  EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_F(UpdateNotification, HardLink_RefusedAndFileUntouched) {
  tests::WriteText(other, "precious");
  std::filesystem::create_hard_link(other, marker);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), EMLINK);
  EXPECT_EQ(tests::ReadText(other), "precious");
}

TEST_F(UpdateNotification, Directory_Refused) {
  std::filesystem::create_directory(marker);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), EISDIR);
  EXPECT_THAT(tests::NamesIn(marker), ElementsAre());
}

TEST_F(UpdateNotification, PipeWithoutReader_RefusedWithoutWait) {
  ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), ENXIO);
}

TEST_F(UpdateNotification, PipeWithReader_RefusedAndNothingWritten) {
  ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
  const support::UniqueFd reader(::open(marker.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(reader.IsOpen());
  EXPECT_EQ(WriteUpdateNotification(marker, 1), EINVAL);
  char byte = 0;
  EXPECT_EQ(::read(reader.Get(), &byte, 1), 0);
}

// To the superuser no file is read-only.
TEST_F(UpdateNotification, ReadOnlyFile_RefusedAndUntouched) {
  constexpr uid_t kNobody = 65534;
  tests::WriteText(marker, "0");
  ASSERT_EQ(::chmod(marker.c_str(), 0444), 0);
  ASSERT_EQ(::chmod(directory.Path().c_str(), 0755), 0);
  const uid_t user = ::geteuid();
  ASSERT_EQ(::seteuid(user == 0 ? kNobody : user), 0);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), EACCES);
  ASSERT_EQ(::seteuid(user), 0);
  EXPECT_EQ(tests::ReadText(marker), "0");
}

TEST_F(UpdateNotification, FileThatKernelProtects_WrittenAllTheSame) {
  tests::WriteText(marker, "1");
  const tests::ProtectedFiles protection;
  EXPECT_EQ(WriteUpdateNotification(marker, 0), 0);
  EXPECT_EQ(tests::ReadText(marker), "0");
}

TEST_F(UpdateNotification, NoRoom_Told) {
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
  const rlimit nothing{0, former.rlim_max};
  const auto formerAction = ::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &nothing), 0);
  const int error = WriteUpdateNotification(marker, 1);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &former), 0);
  ::signal(SIGXFSZ, formerAction);
  EXPECT_EQ(error, EFBIG);
}

TEST_F(UpdateNotification, NoDescriptorLeft_Told) {
  const tests::DescriptorLimit limit(tests::DescriptorLimit::Used());
  EXPECT_EQ(WriteUpdateNotification(marker, 1), EMFILE);
}

TEST_F(UpdateNotification, EveryOutcome_LeavesNoDescriptorOpen) {
  const auto before = tests::DescriptorLimit::Used();
  EXPECT_EQ(WriteUpdateNotification(marker, 1), 0);
  std::filesystem::create_hard_link(marker, other);
  EXPECT_EQ(WriteUpdateNotification(marker, 1), EMLINK);
  EXPECT_EQ(tests::DescriptorLimit::Used(), before);
}

TEST_F(UpdateNotification, MissingDirectory_Refused) {
  EXPECT_EQ(WriteUpdateNotification(directory.Path() + "/absent/marker", 1), ENOENT);
  EXPECT_THAT(tests::NamesIn(directory.Path()), ElementsAre());
}

TEST_F(UpdateNotification, EmptyPath_Refused) {
  EXPECT_EQ(WriteUpdateNotification("", 1), ENOENT);
}

}  // namespace
}  // namespace truststore_update_client
