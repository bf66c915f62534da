#include "TruststoreUpdateClient/PersistentFileStorageImpl.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <thread>

#include "ara/per/KeyValueStorage.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/HostConfiguration.h"
#include "tests/support/NotifySocket.h"

namespace truststore_update_client {
namespace {

using ara::per::KeyValueStorage;
using ara::per::KvsType;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using tests::ReadText;
using tests::WriteText;
using Bytes = std::vector<std::uint8_t>;

const std::string kPort = "FileStoragePort";
const std::string kTooBig = "error: PersistantFileStorage: File is too big!";
const std::string kNotFound =
    "error: PersistantFileStorage: Key 'key' was not found in the storage";

std::string EveryByteValue() {
  std::string text("\0\r\n\xff;'\"%", 8);
  text.resize(PersistentFileStorageImpl::kMaxFileBytes, '\x80');
  return text;
}

// The storage of a unit on which nothing has been kept yet.
class FileStorage : public ::testing::Test {
 protected:
  std::string FileHolding(const std::string& text) const {
    WriteText(file, text);
    return file;
  }

  // Makes a record by other means than the code under test.
  static void Keep(const std::string& key, const KvsType& value) {
    KeyValueStorage storage(kPort);
    storage.SetValue(key, value);
    storage.SyncToStorage();
  }

  static bool Has(const std::string& key) { return KeyValueStorage(kPort).HasKey(key); }

  // What is kept under `key`; the log gets nothing of it.
  std::string Kept(const std::string& key) const {
    std::string bytes;
    const RecordState state = storage.ReadRecord(key, bytes);
    return state == RecordState::kPresent ? bytes : "(no record)";
  }

  const tests::HostConfiguration configuration;
  const std::string file = configuration.Directory() + "/file";
  const std::string restored = configuration.Directory() + "/restored";
  const PersistentFileStorageImpl storage;
  const platform_host::CapturedLog log;
};

TEST_F(FileStorage, Construction_ReportsRunning) {
  const tests::NotifySocket serviceManager(configuration.Directory() + "/notify");
  const PersistentFileStorageImpl another;
  EXPECT_EQ(serviceManager.Receive(), "READY=1");
  EXPECT_THAT(log.Lines(), ElementsAre("debug: libara_exec: application state running"));
}

TEST_F(FileStorage, Construction_StorageNotTouched) {
  EXPECT_FALSE(std::filesystem::exists(configuration.Persistency()));
}

TEST_F(FileStorage, Store_BytesAndTheirNumberKept) {
  EXPECT_EQ(storage.StoreFile("key", FileHolding("id 42")), 0);
  const KeyValueStorage records(kPort);
  EXPECT_THAT(records.GetValue("key").GetBinary(),
              ::testing::Pointee(Bytes{'i', 'd', ' ', '4', '2'}));
  EXPECT_THAT(records.GetValue("key-size").GetUnsignedShort(), ::testing::Pointee(5));
  EXPECT_THAT(log.Lines(), ElementsAre("info: PersistantFileStorage: Stored file '" + file +
                                       "' with key 'key'"));
}

TEST_F(FileStorage, EmptyFile_KeptAsNoBytesOfSizeZero) {
  EXPECT_EQ(storage.StoreFile("key", FileHolding("")), 0);
  const KeyValueStorage records(kPort);
  EXPECT_THAT(records.GetValue("key").GetBinary(), ::testing::Pointee(Bytes{}));
  EXPECT_THAT(records.GetValue("key-size").GetUnsignedShort(), ::testing::Pointee(0));
}

TEST_F(FileStorage, FilesUpToSizeLimit_RestoredByteForByte) {
  const std::string longest = EveryByteValue();
  ASSERT_THAT(longest, SizeIs(100));
  for (const std::string& text :
       {std::string(), longest.substr(0, 1), longest.substr(0, 99), longest}) {
    EXPECT_EQ(storage.StoreFile("key", FileHolding(text)), 0) << text.size();
    EXPECT_EQ(storage.LoadFile("key", restored), 0) << text.size();
    EXPECT_EQ(ReadText(restored), text);
  }
}

TEST_F(FileStorage, StoreAboveSizeLimit_RefusedAndRecordUnchanged) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("before")), 0);
  platform_host::CapturedLog lines;
  EXPECT_NE(storage.StoreFile("key", FileHolding(std::string(101, 'x'))), 0);
  EXPECT_THAT(lines.Lines(), ElementsAre(kTooBig));
  EXPECT_EQ(Kept("key"), "before");
}

TEST_F(FileStorage, StoreAboveSizeLimitFirst_StorageNotTouched) {
  EXPECT_NE(storage.StoreFile("key", FileHolding(std::string(101, 'x'))), 0);
  EXPECT_FALSE(std::filesystem::exists(configuration.Persistency()));
}

TEST_F(FileStorage, StoreMissingFile_FailsAndStorageNotTouched) {
  EXPECT_NE(storage.StoreFile("key", file), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("error: PersistantFileStorage: Cannot read file '" + file +
                                       "': No such file or directory"));
  EXPECT_FALSE(std::filesystem::exists(configuration.Persistency()));
}

TEST_F(FileStorage, StoreMissingFile_FormerRecordStands) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("before")), 0);
  std::filesystem::remove(file);
  EXPECT_NE(storage.StoreFile("key", file), 0);
  EXPECT_EQ(Kept("key"), "before");
}

TEST_F(FileStorage, StoreDirectory_FailsAndStorageNotTouched) {
  EXPECT_NE(storage.StoreFile("key", configuration.Directory()), 0);
  EXPECT_THAT(log.Lines(), SizeIs(1));
  EXPECT_FALSE(std::filesystem::exists(configuration.Persistency()));
}

TEST_F(FileStorage, StoreAgain_NewBytesOnly) {
  EXPECT_EQ(storage.StoreFile("key", FileHolding("a long text")), 0);
  EXPECT_EQ(storage.StoreFile("key", FileHolding("short")), 0);
  EXPECT_EQ(Kept("key"), "short");
}

TEST_F(FileStorage, TwoKeys_TwoRecords) {
  EXPECT_EQ(storage.StoreFile("truststore-container-id", FileHolding("id")), 0);
  EXPECT_EQ(storage.StoreFile("truststore-timestamp", FileHolding("1700000000")), 0);
  EXPECT_EQ(Kept("truststore-container-id"), "id");
  EXPECT_EQ(Kept("truststore-timestamp"), "1700000000");
}

TEST_F(FileStorage, OtherObject_SameRecords) {
  EXPECT_EQ(PersistentFileStorageImpl().StoreFile("key", FileHolding("kept")), 0);
  EXPECT_EQ(Kept("key"), "kept");
}

TEST_F(FileStorage, Load_FileReplacedAndReadableByAll) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("kept")), 0);
  WriteText(restored, "something longer than that");
  platform_host::CapturedLog lines;
  EXPECT_EQ(storage.LoadFile("key", restored), 0);
  EXPECT_EQ(ReadText(restored), "kept");
  struct stat status {};
  ASSERT_EQ(::stat(restored.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
  EXPECT_THAT(lines.Lines(), SizeIs(0));
}

TEST_F(FileStorage, LoadIntoMissingDirectory_Fails) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("kept")), 0);
  const std::string path = configuration.Directory() + "/absent/file";
  platform_host::CapturedLog lines;
  EXPECT_NE(storage.LoadFile("key", path), 0);
  EXPECT_THAT(lines.Lines(), ElementsAre("error: PersistantFileStorage: Cannot write file '" +
                                         path + "': No such file or directory"));
}

TEST_F(FileStorage, Unstore_BothValuesRemoved) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("kept")), 0);
  platform_host::CapturedLog lines;
  EXPECT_EQ(storage.UnstoreFile("key"), 0);
  EXPECT_FALSE(Has("key"));
  EXPECT_FALSE(Has("key-size"));
  EXPECT_THAT(lines.Lines(), ElementsAre("info: PersistantFileStorage: Removing key 'key'"));
}

TEST_F(FileStorage, Unstore_OtherRecordStands) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("kept")), 0);
  ASSERT_EQ(storage.StoreFile("key-2", FileHolding("other")), 0);
  EXPECT_EQ(storage.UnstoreFile("key"), 0);
  EXPECT_EQ(Kept("key-2"), "other");
}

TEST_F(FileStorage, UnstoreTwice_SecondNotFound) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding("kept")), 0);
  ASSERT_EQ(storage.UnstoreFile("key"), 0);
  platform_host::CapturedLog lines;
  EXPECT_NE(storage.UnstoreFile("key"), 0);
  EXPECT_THAT(lines.Lines(), ElementsAre(kNotFound));
}

TEST_F(FileStorage, ReadRecord_BytesWithoutALine) {
  ASSERT_EQ(storage.StoreFile("key", FileHolding(EveryByteValue())), 0);
  platform_host::CapturedLog lines;
  std::string bytes = "before";
  EXPECT_EQ(storage.ReadRecord("key", bytes), RecordState::kPresent);
  EXPECT_EQ(bytes, EveryByteValue());
  EXPECT_THAT(lines.Lines(), SizeIs(0));
}

// What the three reading operations make of a record that is not there as a whole.
class MissingRecord : public FileStorage {
 protected:
  void ExpectMissing() {
    std::string bytes = "before";
    EXPECT_EQ(storage.ReadRecord("key", bytes), RecordState::kMissing);
    EXPECT_EQ(bytes, "");
    EXPECT_THAT(log.Lines(), SizeIs(0));
    EXPECT_NE(storage.LoadFile("key", restored), 0);
    EXPECT_FALSE(std::filesystem::exists(restored));
    EXPECT_NE(storage.UnstoreFile("key"), 0);
    EXPECT_THAT(log.Lines(), ElementsAre(kNotFound, kNotFound));
  }
};

TEST_F(MissingRecord, NothingKept_NotFound) {
  ExpectMissing();
}

TEST_F(MissingRecord, ValueWithoutSize_NotFoundAndLeftAlone) {
  Keep("key", KvsType(Bytes{'a'}));
  ExpectMissing();
  EXPECT_TRUE(Has("key"));
}

TEST_F(MissingRecord, SizeWithoutValue_NotFoundAndLeftAlone) {
  Keep("key-size", KvsType(std::uint16_t{1}));
  ExpectMissing();
  EXPECT_TRUE(Has("key-size"));
}

// What is made of a record that nothing here has written.
class ForeignRecord : public FileStorage {
 protected:
  void ExpectUnreadable(const KvsType& value, const KvsType& size, const std::string& line) {
    Keep("key", value);
    Keep("key-size", size);
    WriteText(restored, "before");
    EXPECT_NE(storage.LoadFile("key", restored), 0);
    EXPECT_EQ(ReadText(restored), "before");
    std::string bytes = "before";
    EXPECT_EQ(storage.ReadRecord("key", bytes), RecordState::kDamaged);
    EXPECT_EQ(bytes, "");
    EXPECT_THAT(log.Lines(), ElementsAre(line, line));
  }

  const std::string mismatch =
      "error: PersistantFileStorage: Cannot read key 'key': its size is not that of its value";
};

TEST_F(ForeignRecord, SizeAboveLimit_TooBig) {
  ExpectUnreadable(KvsType(Bytes(101)), KvsType(std::uint16_t{101}), kTooBig);
}

TEST_F(ForeignRecord, SizeAboveLimitOfShortValue_TooBig) {
  ExpectUnreadable(KvsType(Bytes(1)), KvsType(std::uint16_t{65535}), kTooBig);
}

TEST_F(ForeignRecord, SizeAtLimit_Restored) {
  Keep("key", KvsType(Bytes(100, 'a')));
  Keep("key-size", KvsType(std::uint16_t{100}));
  EXPECT_EQ(storage.LoadFile("key", restored), 0);
  EXPECT_EQ(ReadText(restored), std::string(100, 'a'));
}

TEST_F(ForeignRecord, SizeBelowThatOfValue_Refused) {
  ExpectUnreadable(KvsType(Bytes(2)), KvsType(std::uint16_t{1}), mismatch);
}

TEST_F(ForeignRecord, SizeAboveThatOfValue_Refused) {
  ExpectUnreadable(KvsType(Bytes(2)), KvsType(std::uint16_t{3}), mismatch);
}

TEST_F(ForeignRecord, NumberInPlaceOfBytes_Refused) {
  ExpectUnreadable(KvsType(std::uint16_t{1}), KvsType(std::uint16_t{1}), mismatch);
}

TEST_F(ForeignRecord, BytesInPlaceOfSize_Refused) {
  ExpectUnreadable(KvsType(Bytes(1)), KvsType(Bytes(1)), mismatch);
}

// Every operation on a storage that cannot be opened.
void ExpectEveryOperationFails(const std::string& reason) {
  const tests::TemporaryDirectory directory;
  const std::string file = directory.Path() + "/file";
  WriteText(file, "before");
  const PersistentFileStorageImpl storage;
  const platform_host::CapturedLog log;
  std::string bytes = "before";
  EXPECT_NE(storage.StoreFile("key", file), 0);
  EXPECT_NE(storage.LoadFile("key", file), 0);
  EXPECT_NE(storage.UnstoreFile("key"), 0);
  EXPECT_EQ(storage.ReadRecord("key", bytes), RecordState::kUnreadable);
  const std::string prefix = "error: PersistantFileStorage: Cannot ";
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(prefix + "store key 'key': " + reason, prefix + "read key 'key': " + reason,
                  prefix + "remove key 'key': " + reason, prefix + "read key 'key': " + reason));
  EXPECT_EQ(ReadText(file), "before");
  EXPECT_EQ(bytes, "");
}

TEST(FailingFileStorage, BrokenConfiguration_EveryOperationFailsAndNothingIsMade) {
  const tests::HostConfiguration configuration("[persistency]\nfolder = \"/absent\"\n");
  ExpectEveryOperationFails(configuration.File() + ":2: persistency.folder: unknown key");
  EXPECT_THAT(tests::NamesIn(configuration.Directory()), ElementsAre("host.toml"));
}

TEST(FailingFileStorage, FileInPlaceOfDirectory_EveryOperationFailsAndItStands) {
  const tests::HostConfiguration configuration;
  WriteText(configuration.Persistency(), "not a directory");
  ExpectEveryOperationFails(configuration.Persistency() + "/work.lock: Not a directory");
  EXPECT_EQ(ReadText(configuration.Persistency()), "not a directory");
}

// While it lives, no file of this process grows beyond `bytes`: the medium is full.
class FullMedium {
 public:
  explicit FullMedium(rlim_t bytes) : formerHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &former);
    const rlimit limit{bytes, former.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullMedium() {
    ::setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, formerHandler);
  }
  FullMedium(const FullMedium&) = delete;
  FullMedium& operator=(const FullMedium&) = delete;

 private:
  void (*formerHandler)(int);
  rlimit former{};
};

// Each further key makes the database grow, until it meets the end of its medium.
TEST_F(FileStorage, MediumFullWhileStoring_EveryCompleteRecordStands) {
  constexpr std::size_t kEnough = 400;
  const std::string bytes(100, 'x');
  ASSERT_EQ(storage.StoreFile("key0", FileHolding(bytes)), 0);
  std::size_t stored = 1;
  {
    const FullMedium full(20000);
    while (stored < kEnough &&
           storage.StoreFile("key" + std::to_string(stored), FileHolding(bytes)) == 0) {
      ++stored;
    }
  }
  ASSERT_LT(stored, kEnough);
  for (std::size_t number = 0; number < stored; ++number) {
    EXPECT_EQ(Kept("key" + std::to_string(number)), bytes) << number;
  }
  const std::string failed = "key" + std::to_string(stored);
  EXPECT_THAT(log.Lines(platform_host::LogLevel::kError),
              ElementsAre(::testing::StartsWith("error: PersistantFileStorage: Cannot store key '" +
                                                failed + "': ")));
  std::string none;
  EXPECT_EQ(storage.ReadRecord(failed, none), RecordState::kMissing);
}

TEST_F(FileStorage, ThreadsWithTheirOwnKeys_EachFindsItsOwn) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&, name = std::to_string(number)] {
      WriteText(file + name, name);
      for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(storage.StoreFile(name, file + name), 0);
        EXPECT_EQ(Kept(name), name);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace truststore_update_client
