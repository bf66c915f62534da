#include "platform/host/ostra_tee/TrustStoreDirectory.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const std::string kBegin = "-----BEGIN CERTIFICATE-----\n";
const std::string kPem = kBegin + "AA==\n-----END CERTIFICATE-----\n";

class TrustStoreDirectoryOn : public ::testing::Test {
 protected:
  static unsigned ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
  }

  static std::set<std::string> NamesIn(const std::string& path) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path)) names.insert(entry.path().filename());
    return names;
  }

  static void Write(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_EQ(support::ReplaceFile(path, text, 0644), 0);
  }

  /// A file of `size` bytes that begins like a bundle; its holes cost nothing.
  static void WriteSparse(const std::string& path, std::size_t size) {
    Write(path, kBegin);
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(size)), 0);
  }

  const tests::TemporaryDirectory directory;
  const std::string root = directory.Path() + "/trust-store";
  const std::string installed = root + "/installed";
  WorkLock lock{directory.Path() + "/work.lock"};
  TrustStoreDirectory store{root, lock};
  const CapturedLog log;
  std::string pem;
};

TEST_F(TrustStoreDirectoryOn, FirstInstall_FilesForEveryReaderWhateverUmask) {
  const mode_t before = ::umask(0077);
  EXPECT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  ::umask(before);
  EXPECT_EQ(ModeOf(root), S_IFDIR | 0755U);
  EXPECT_EQ(ModeOf(installed), S_IFDIR | 0755U);
  EXPECT_EQ(ModeOf(installed + "/A.pem"), S_IFREG | 0644U);
}

TEST_F(TrustStoreDirectoryOn, Install_ExactTextAndNoTemporaryFile) {
  ASSERT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  ASSERT_EQ(store.InstallCertificateBundle("A", kPem + kPem), 0);
  EXPECT_THAT(NamesIn(installed), ElementsAre("A.pem"));
  ASSERT_EQ(support::ReadFile(installed + "/A.pem", 1000, pem), 0);
  EXPECT_EQ(pem, kPem + kPem);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, NameThatClimbs_StaysInDirectory) {
  ASSERT_EQ(store.InstallCertificateBundle("../../evil", kPem), 0);
  EXPECT_THAT(NamesIn(installed), ElementsAre("%2E.%2F..%2Fevil.pem"));
  EXPECT_THAT(NamesIn(directory.Path()), UnorderedElementsAre("trust-store", "work.lock"));
}

TEST_F(TrustStoreDirectoryOn, NameTooLong_ErrorLineAndNothingLeft) {
  const std::string name(300, 'n');
  EXPECT_NE(store.InstallCertificateBundle(name, kPem), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libtruststore: cannot install bundle " + name +
                                       ": " + installed + "/" + name + ".pem: File name too long"));
  EXPECT_THAT(NamesIn(installed), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, RemoveAll_OnlyFactoryLeft) {
  Write(root + "/factory/ZORA.pem", kPem);
  ASSERT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(NamesIn(root), ElementsAre("factory"));
  EXPECT_THAT(NamesIn(root + "/factory"), ElementsAre("ZORA.pem"));
}

TEST_F(TrustStoreDirectoryOn, RemoveAll_LeftoversOfPowerLossGone) {
  Write(installed + "/A.pem.Xy12Za", "half a bun");
  Write(root + "/removed/B.pem", kPem);
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(NamesIn(root), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, RemoveAllWithoutInstalled_LeftoversGoneToo) {
  Write(root + "/removed/B.pem", kPem);
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(NamesIn(root), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, InstalledIsLink_RemovalLeavesItsTarget) {
  Write(directory.Path() + "/elsewhere/precious", "x");
  fs::create_directories(root);
  fs::create_directory_symlink(directory.Path() + "/elsewhere", installed);
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(NamesIn(directory.Path() + "/elsewhere"), ElementsAre("precious"));
  EXPECT_THAT(NamesIn(root), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, SetAsideIsLink_RemovalLeavesItsTarget) {
  Write(directory.Path() + "/elsewhere/precious", "x");
  Write(installed + "/A.pem", kPem);
  fs::create_directory_symlink(directory.Path() + "/elsewhere", root + "/removed");
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(NamesIn(directory.Path() + "/elsewhere"), ElementsAre("precious"));
  EXPECT_THAT(NamesIn(root), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, LinkInsideInstalled_RemovalLeavesItsTarget) {
  Write(directory.Path() + "/elsewhere/precious", "x");
  fs::create_directories(installed);
  fs::create_directory_symlink(directory.Path() + "/elsewhere", installed + "/deeper");
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(NamesIn(directory.Path() + "/elsewhere"), ElementsAre("precious"));
}

TEST_F(TrustStoreDirectoryOn, InstalledIsLink_InstallRefused) {
  fs::create_directories(directory.Path() + "/elsewhere");
  fs::create_directories(root);
  fs::create_directory_symlink(directory.Path() + "/elsewhere", installed);
  EXPECT_NE(store.InstallCertificateBundle("A", kPem), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libtruststore: cannot install bundle A: " +
                                       installed + ": Not a directory"));
  EXPECT_THAT(NamesIn(directory.Path() + "/elsewhere"), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, BundleIsLink_InstallReplacesTheLink) {
  Write(directory.Path() + "/elsewhere", "precious");
  fs::create_directories(installed);
  fs::create_symlink(directory.Path() + "/elsewhere", installed + "/A.pem");
  EXPECT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  EXPECT_EQ(ModeOf(installed + "/A.pem"), S_IFREG | 0644U);
  ASSERT_EQ(support::ReadFile(directory.Path() + "/elsewhere", 100, pem), 0);
  EXPECT_EQ(pem, "precious");
}

TEST_F(TrustStoreDirectoryOn, DirectoryCannotBeMade_ErrorLines) {
  Write(root, "a file in the way");
  EXPECT_NE(store.InstallCertificateBundle("A", kPem), 0);
  EXPECT_NE(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libtruststore: cannot install bundle A: " + installed +
                              ": Not a directory",
                          "error: libtruststore: cannot remove the installed bundles: " + root +
                              "/removed: Not a directory"));
}

TEST_F(TrustStoreDirectoryOn, BundleMissing_NoLine) {
  EXPECT_NE(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_NE(store.ReadCertificateBundle(std::string(300, 'n'), pem), 0);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, ReadOnFreshMachine_NothingMade) {
  EXPECT_NE(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_THAT(NamesIn(directory.Path()), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, InstalledUnreadable_ErrorLineAndFactoryRead) {
  fs::create_directories(installed + "/A.pem");
  Write(root + "/factory/A.pem", kPem);
  EXPECT_EQ(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, kPem);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libtruststore: cannot read bundle A: " + installed +
                                       "/A.pem: Is a directory"));
}

TEST_F(TrustStoreDirectoryOn, BundleAtLimit_Read) {
  WriteSparse(installed + "/A.pem", TrustStoreDirectory::kBundleLimit);
  EXPECT_EQ(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem.size(), TrustStoreDirectory::kBundleLimit);
}

TEST_F(TrustStoreDirectoryOn, BundleAboveLimit_ErrorLineAndNotRead) {
  WriteSparse(installed + "/A.pem", TrustStoreDirectory::kBundleLimit + 1);
  EXPECT_NE(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, "");
  EXPECT_THAT(log.Lines(), ElementsAre("error: libtruststore: cannot read bundle A: " + installed +
                                       "/A.pem: File too large"));
}

TEST_F(TrustStoreDirectoryOn, InstallAtLimit_Installed) {
  EXPECT_EQ(
      store.InstallCertificateBundle("A", std::string(TrustStoreDirectory::kBundleLimit, 'x')), 0);
}

TEST_F(TrustStoreDirectoryOn, InstallAboveLimit_ErrorLineAndOldBundleStands) {
  ASSERT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  const std::string large(TrustStoreDirectory::kBundleLimit + 1, 'x');
  EXPECT_NE(store.InstallCertificateBundle("A", large), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libtruststore: cannot install bundle A: File too "
                                       "large"));
  EXPECT_EQ(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, kPem);
}

TEST_F(TrustStoreDirectoryOn, DiskFull_FailsAndOldBundleStands) {
  ASSERT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  tests::ChildProcess child([this] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{100, 100};
    if (::setrlimit(RLIMIT_FSIZE, &small) != 0) return 2;
    return store.InstallCertificateBundle("A", kPem + std::string(200, 'x')) != 0 ? 0 : 1;
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_THAT(NamesIn(installed), ElementsAre("A.pem"));
  EXPECT_EQ(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, kPem);
}

TEST_F(TrustStoreDirectoryOn, AnotherProcessAtWork_EachOperationFailsAndNothingChanges) {
  ASSERT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  const std::string path = directory.Path() + "/work.lock";
  WorkLock::Timing impatient;
  impatient.patience = WorkLock::Milliseconds(0);
  WorkLock other(path, impatient);
  TrustStoreDirectory waiting(root, other);
  EXPECT_NE(waiting.InstallCertificateBundle("B", kPem), 0);
  EXPECT_NE(waiting.RemoveAllTrustStores(), 0);
  EXPECT_NE(waiting.ReadCertificateBundle("A", pem), 0);
  const std::string reason = path + ": process " + std::to_string(::getpid()) + " is still at work";
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libtruststore: cannot install bundle B: " + reason,
                          "error: libtruststore: cannot remove the installed bundles: " + reason,
                          "error: libtruststore: cannot read bundle A: " + reason));
  EXPECT_THAT(NamesIn(installed), ElementsAre("A.pem"));
}

/// Two processes whose right to work ends with each operation.
class TwoTrustStoreDirectories : public TrustStoreDirectoryOn {
 protected:
  static WorkLock::Timing WithoutLease() {
    WorkLock::Timing timing;
    timing.lease = WorkLock::Milliseconds(0);
    return timing;
  }

  WorkLock firstLock{directory.Path() + "/work.lock", WithoutLease()};
  WorkLock secondLock{directory.Path() + "/work.lock", WithoutLease()};
  TrustStoreDirectory first{root, firstLock};
  TrustStoreDirectory second{root, secondLock};
};

TEST_F(TwoTrustStoreDirectories, RemovedByAnotherSince_InstallFailsAndItsStoreStands) {
  ASSERT_EQ(first.RemoveAllTrustStores(), 0);
  ASSERT_EQ(first.InstallCertificateBundle("A1", kPem), 0);
  ASSERT_EQ(second.RemoveAllTrustStores(), 0);
  ASSERT_EQ(second.InstallCertificateBundle("B1", kPem), 0);
  EXPECT_NE(first.InstallCertificateBundle("A2", kPem), 0);
  EXPECT_THAT(NamesIn(installed), ElementsAre("B1.pem"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: libtruststore: cannot install bundle A2: another "
                                       "process has begun a new store"));
}

TEST_F(TwoTrustStoreDirectories, RemovedByItselfAgain_Installs) {
  ASSERT_EQ(first.RemoveAllTrustStores(), 0);
  ASSERT_EQ(second.RemoveAllTrustStores(), 0);
  ASSERT_EQ(first.RemoveAllTrustStores(), 0);
  EXPECT_EQ(first.InstallCertificateBundle("A1", kPem), 0);
  EXPECT_NE(second.InstallCertificateBundle("B1", kPem), 0);
}

TEST_F(TwoTrustStoreDirectories, NeverRemoved_Installs) {
  ASSERT_EQ(second.RemoveAllTrustStores(), 0);
  EXPECT_EQ(first.InstallCertificateBundle("A1", kPem), 0);
  EXPECT_EQ(second.InstallCertificateBundle("B1", kPem), 0);
  EXPECT_THAT(NamesIn(installed), UnorderedElementsAre("A1.pem", "B1.pem"));
}

TEST_F(TrustStoreDirectoryOn, ReadersDuringChanges_WholeBundlesOrNone) {
  std::atomic<bool> done{false};
  std::thread reader([this, &done] {
    std::string seen;
    while (!done) {
      if (store.ReadCertificateBundle("A", seen) == 0) {
        EXPECT_EQ(seen, kPem + std::string(seen.size() - kPem.size(), seen.back()));
      }
    }
  });
  for (int round = 0; round < 50; ++round) {
    const auto size = static_cast<std::size_t>(round) * 1000 + 1;
    EXPECT_EQ(store.InstallCertificateBundle("A", kPem + std::string(size, 'x')), 0);
    if (round % 5 == 0) {
      EXPECT_EQ(store.RemoveAllTrustStores(), 0);
    }
  }
  done = true;
  reader.join();
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(TrustStoreDirectoryOn, ChangesOfManyThreads_AllSucceed) {
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([this, index] {
      for (int round = 0; round < 25; ++round) {
        EXPECT_EQ(store.InstallCertificateBundle(std::to_string(index), kPem), 0);
        if (index == 0) {
          EXPECT_EQ(store.RemoveAllTrustStores(), 0);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace platform_host
