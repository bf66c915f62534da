#include "ara/per/KeyValueStorage.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/host/config/HostConfig.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/work_lock/WorkLock.h"
#include "support/FileContents.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace ara::per {
namespace {

using platform_host::HostConfig;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

const std::string kPort = "FileStoragePort";

class Storage : public ::testing::Test {
 protected:
  Storage() { Configure("[persistency]\ndirectory = \"" + records + "\"\n"); }
  ~Storage() override { ::unsetenv(HostConfig::kPathVariable); }

  void Configure(const std::string& text) const {
    ASSERT_EQ(support::ReplaceFile(configPath, text, 0600), 0);
    ::setenv(HostConfig::kPathVariable, configPath.c_str(), 1);
  }

  static void Set(KeyValueStorage& storage, const std::string& key, std::uint16_t number) {
    storage.SetValue(key, KvsType(number));
  }

  /// The number under `key` in a storage opened anew, -1 when there is none.
  static int Number(const std::string& key, const std::string& port = kPort) {
    const KeyValueStorage storage(port);
    return storage.HasKey(key) ? *storage.GetValue(key).GetUnsignedShort() : -1;
  }

  template <typename Action>
  static std::string FailureOf(Action action) {
    try {
      action();
    } catch (const StorageError& error) {
      return error.what();
    }
    return "none";
  }

  const tests::TemporaryDirectory directory;
  const std::string records = directory.Path() + "/records";
  const std::string configPath = directory.Path() + "/host.toml";
  const std::string databasePath = records + "/FileStoragePort.db";
  const platform_host::CapturedLog log;
};

TEST_F(Storage, FreshUnit_EmptyStoreMade) {
  EXPECT_EQ(Number("a"), -1);
  EXPECT_TRUE(fs::exists(databasePath));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Storage, Synced_KeptWithType) {
  {
    KeyValueStorage storage(kPort);
    storage.SetValue("id", KvsType(std::vector<std::uint8_t>{1, 0, 255}));
    Set(storage, "id-size", 3);
    storage.SyncToStorage();
  }
  const KeyValueStorage storage(kPort);
  EXPECT_THAT(*storage.GetValue("id").GetBinary(), ElementsAre(1, 0, 255));
  EXPECT_EQ(storage.GetValue("id").GetUnsignedShort(), nullptr);
  EXPECT_EQ(*storage.GetValue("id-size").GetUnsignedShort(), 3);
  EXPECT_EQ(storage.GetValue("id-size").GetBinary(), nullptr);
}

TEST_F(Storage, ClosedWithoutSync_KeptToo) {
  {
    KeyValueStorage storage(kPort);
    Set(storage, "a", 1);
  }
  EXPECT_EQ(Number("a"), 1);
}

TEST_F(Storage, WrittenNotSynced_SeenByItselfOnly) {
  KeyValueStorage storage(kPort);
  Set(storage, "a", 1);
  EXPECT_TRUE(storage.HasKey("a"));
  EXPECT_EQ(*storage.GetValue("a").GetUnsignedShort(), 1);
  EXPECT_EQ(Number("a"), -1);
}

TEST_F(Storage, RemovedNotSynced_GoneForItselfOnly) {
  {
    KeyValueStorage storage(kPort);
    Set(storage, "a", 1);
  }
  KeyValueStorage storage(kPort);
  storage.RemoveKey("a");
  storage.RemoveKey("never there");
  EXPECT_FALSE(storage.HasKey("a"));
  EXPECT_EQ(Number("a"), 1);
  storage.SyncToStorage();
  EXPECT_EQ(Number("a"), -1);
}

TEST_F(Storage, ProcessKilledBeforeSync_NothingKept) {
  tests::ChildProcess child([] {
    KeyValueStorage storage(kPort);
    Set(storage, "a", 1);
    Set(storage, "a-size", 1);
    return ::kill(::getpid(), SIGKILL);
  });
  EXPECT_EQ(child.Wait(), -1);
  EXPECT_EQ(Number("a"), -1);
  EXPECT_EQ(Number("a-size"), -1);
}

TEST_F(Storage, MissingKey_Throws) {
  const KeyValueStorage storage(kPort);
  EXPECT_EQ(FailureOf([&] { static_cast<void>(storage.GetValue("a")); }), "there is no key a");
}

TEST_F(Storage, ClosedAfterFailure_WritesDropped) {
  {
    KeyValueStorage storage(kPort);
    Set(storage, "a", 1);
    EXPECT_THROW(static_cast<void>(storage.GetValue("missing")), StorageError);
  }
  EXPECT_EQ(Number("a"), -1);
}

TEST_F(Storage, SyncAfterFailure_ThrowsAndNothingKept) {
  {
    KeyValueStorage storage(kPort);
    Set(storage, "a", 1);
    EXPECT_THROW(static_cast<void>(storage.GetValue("missing")), StorageError);
    EXPECT_EQ(FailureOf([&] { storage.SyncToStorage(); }),
              "an earlier operation failed: nothing of this is kept");
  }
  EXPECT_EQ(Number("a"), -1);
}

TEST_F(Storage, SyncTwice_EachItsOwnTransaction) {
  KeyValueStorage storage(kPort);
  Set(storage, "a", 1);
  storage.SyncToStorage();
  Set(storage, "b", 2);
  storage.SyncToStorage();
  storage.SyncToStorage();
  EXPECT_EQ(Number("a"), 1);
  EXPECT_EQ(Number("b"), 2);
}

TEST_F(Storage, TwoOpenInOneThread_NeitherWaitsForTheOther) {
  KeyValueStorage first(kPort);
  KeyValueStorage second(kPort);
  EXPECT_FALSE(first.HasKey("a"));
  Set(first, "a", 1);
  Set(second, "b", 2);
  second.SyncToStorage();
  first.SyncToStorage();
  EXPECT_EQ(Number("a"), 1);
  EXPECT_EQ(Number("b"), 2);
}

TEST_F(Storage, ClosedByAnotherMeanwhile_ReadsWhatWasThereAtOpening) {
  const KeyValueStorage reader(kPort);
  {
    KeyValueStorage writer(kPort);
    Set(writer, "a", 1);
  }
  EXPECT_FALSE(reader.HasKey("a"));
  EXPECT_EQ(Number("a"), 1);
}

TEST_F(Storage, PortNames_EachAStoreOfItsOwnInside) {
  const std::vector<std::string> ports = {"A", "a", "../A", "/A", "", "A.db"};
  std::uint16_t number = 0;
  for (const auto& port : ports) {
    KeyValueStorage storage(port);
    Set(storage, "n", ++number);
  }
  number = 0;
  for (const auto& port : ports) EXPECT_EQ(Number("n", port), ++number) << port;
  EXPECT_TRUE(fs::exists(records + "/%2E.%2FA.db"));
}

TEST_F(Storage, DamagedDatabase_SetAsideWithErrorLineAndFreshOneBegun) {
  fs::create_directories(records);
  ASSERT_EQ(support::ReplaceFile(databasePath, std::string(5000, 'x'), 0600), 0);
  {
    KeyValueStorage storage(kPort);
    EXPECT_FALSE(storage.HasKey("a"));
    Set(storage, "a", 1);
  }
  EXPECT_EQ(Number("a"), 1);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libara_per: damaged database set aside, a new one begins: " +
                          databasePath + ": file is not a database"));
  std::string contents;
  EXPECT_EQ(support::ReadFile(databasePath + ".damaged", 10000, contents), 0);
  EXPECT_EQ(contents, std::string(5000, 'x'));
}

TEST_F(Storage, DirectoryInPlaceOfDatabase_SetAsideToo) {
  fs::create_directories(databasePath + "/inside");
  EXPECT_EQ(Number("a"), -1);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libara_per: damaged database set aside, a new one begins: " +
                          databasePath + ": is no regular file"));
  EXPECT_TRUE(fs::exists(databasePath + ".damaged/inside"));
}

TEST_F(Storage, DamagedAndCannotBeSetAside_Throws) {
  const std::string port(240, 'n');
  const std::string path = records + "/" + port + ".db";
  fs::create_directories(records);
  ASSERT_EQ(support::ReplaceFile(path, std::string(5000, 'x'), 0600), 0);
  EXPECT_EQ(FailureOf([&] { const KeyValueStorage storage(port); }), path + ": File name too long");
}

TEST_F(Storage, DirectoryCannotBeMade_Throws) {
  ASSERT_EQ(support::ReplaceFile(records, "in the way", 0600), 0);
  EXPECT_EQ(FailureOf([] { const KeyValueStorage storage(kPort); }),
            records + "/work.lock: Not a directory");
}

TEST_F(Storage, BrokenConfiguration_ThrowsAndNothingMade) {
  const std::string broken = directory.Path() + "/broken.toml";
  ASSERT_EQ(support::ReplaceFile(broken, "[persistency]\ndir = \"" + records + "\"\n", 0600), 0);
  ::setenv(HostConfig::kPathVariable, broken.c_str(), 1);
  EXPECT_EQ(FailureOf([] { const KeyValueStorage storage(kPort); }),
            broken + ":2: persistency.dir: unknown key");
  EXPECT_FALSE(fs::exists(records));
}

TEST_F(Storage, DiskFullAtClosing_ErrorLineAndNothingKept) {
  tests::ChildProcess child([this] {
    {
      KeyValueStorage storage(kPort);
      storage.SetValue("a", KvsType(std::vector<std::uint8_t>(100000)));
      ::signal(SIGXFSZ, SIG_IGN);
      const rlimit nothing{200, 200};
      if (::setrlimit(RLIMIT_FSIZE, &nothing) != 0) return 2;
    }
    const auto lines = log.Lines();
    return lines.size() == 1 && lines[0].find("error: libara_per: writes are lost at closing: " +
                                              databasePath) == 0
               ? 0
               : 1;
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(Number("a"), -1);
}

TEST_F(Storage, DiskFullAtSync_ThrowsAndNothingKept) {
  tests::ChildProcess child([] {
    KeyValueStorage storage(kPort);
    storage.SetValue("a", KvsType(std::vector<std::uint8_t>(100000)));
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit nothing{200, 200};
    if (::setrlimit(RLIMIT_FSIZE, &nothing) != 0) return 2;
    return FailureOf([&] { storage.SyncToStorage(); }) == "none" ? 1 : 0;
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(Number("a"), -1);
}

TEST_F(Storage, ManyThreads_ValueAndItsCompanionNeverPart) {
  std::atomic<bool> done{false};
  {
    KeyValueStorage storage(kPort);
    Set(storage, "a", 0);
    Set(storage, "a-size", 0);
  }
  std::thread reader([&done] {
    while (!done) {
      const KeyValueStorage storage(kPort);
      EXPECT_EQ(*storage.GetValue("a").GetUnsignedShort(),
                *storage.GetValue("a-size").GetUnsignedShort());
    }
  });
  for (std::uint16_t round = 1; round <= 50; ++round) {
    KeyValueStorage storage(kPort);
    Set(storage, "a", round);
    Set(storage, "a-size", round);
  }
  done = true;
  reader.join();
  EXPECT_EQ(Number("a"), 50);
}

TEST_F(Storage, DamageFoundByManyThreads_OneFreshDatabaseForAll) {
  fs::create_directories(records);
  ASSERT_EQ(support::ReplaceFile(databasePath, std::string(5000, 'x'), 0600), 0);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (std::uint16_t index = 0; index < 4; ++index) {
    threads.emplace_back([index, &ready] {
      ++ready;
      while (ready < 4) std::this_thread::yield();
      KeyValueStorage storage(kPort);
      Set(storage, std::to_string(index), index);
    });
  }
  for (auto& thread : threads) thread.join();
  for (int index = 0; index < 4; ++index) EXPECT_EQ(Number(std::to_string(index)), index);
  EXPECT_THAT(log.Lines(), ElementsAre(StartsWith("error: libara_per: damaged database")));
}

}  // namespace
}  // namespace ara::per
