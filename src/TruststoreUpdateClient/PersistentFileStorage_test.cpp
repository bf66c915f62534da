#include "TruststoreUpdateClient/PersistentFileStorage.h"

#include <gmock/gmock.h>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/HostConfiguration.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;

// Answers each operation by a value of its own and remembers what it was asked.
class RecordingStorage : public PersistentFileStorageIf {
 public:
  int StoreFile(const std::string& key, const std::string& path) const override {
    calls.push_back("store " + key + " " + path);
    return 11;
  }
  int LoadFile(const std::string& key, const std::string& path) const override {
    calls.push_back("load " + key + " " + path);
    return 12;
  }
  int UnstoreFile(const std::string& key) const override {
    calls.push_back("unstore " + key);
    return 13;
  }
  RecordState ReadRecord(const std::string& key, std::string& bytes) const override {
    calls.push_back("read " + key);
    bytes = "bytes";
    return RecordState::kUnreadable;
  }

  mutable std::vector<std::string> calls;
};

TEST(PersistentFileStorage, EveryOperation_ForwardedWithItsAnswer) {
  const auto implementation = std::make_shared<RecordingStorage>();
  const PersistentFileStorage storage(implementation);
  std::string bytes;
  EXPECT_EQ(storage.StoreFile("a", "/b"), 11);
  EXPECT_EQ(storage.LoadFile("c", "/d"), 12);
  EXPECT_EQ(storage.UnstoreFile("e"), 13);
  EXPECT_EQ(storage.ReadRecord("f", bytes), RecordState::kUnreadable);
  EXPECT_EQ(bytes, "bytes");
  EXPECT_THAT(implementation->calls, ElementsAre("store a /b", "load c /d", "unstore e", "read f"));
}

TEST(PersistentFileStorage, Copy_SharesImplementation) {
  const auto implementation = std::make_shared<RecordingStorage>();
  const auto original = std::make_unique<PersistentFileStorage>(implementation);
  const PersistentFileStorage copy = *original;
  EXPECT_EQ(copy.UnstoreFile("a"), 13);
  EXPECT_THAT(implementation->calls, ElementsAre("unstore a"));
}

TEST(PersistentFileStorage, DefaultConstructor_StorageOfTheUnit) {
  const tests::HostConfiguration configuration;
  const platform_host::CapturedLog log;
  const std::string path = configuration.Directory() + "/record";
  tests::WriteText(path, "kept");
  EXPECT_EQ(PersistentFileStorage().StoreFile("key", path), 0);
  std::string bytes;
  EXPECT_EQ(PersistentFileStorage().ReadRecord("key", bytes), RecordState::kPresent);
  EXPECT_EQ(bytes, "kept");
}

}  // namespace
}  // namespace truststore_update_client
