/// Persistent records in memory, for tests of what stands on them.
#ifndef TESTS_DOUBLES_FAKERECORDS_H
#define TESTS_DOUBLES_FAKERECORDS_H

#include <map>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/PersistentFileStorageIf.h"

namespace tests {

/// Keeps records as PersistentFileStorageIf tells, by real files; fails on request. One thread.
class FakeRecords : public truststore_update_client::PersistentFileStorageIf {
 public:
  [[nodiscard]] int StoreFile(const std::string& key, const std::string& path) const override;
  [[nodiscard]] int LoadFile(const std::string& key, const std::string& path) const override;
  [[nodiscard]] int UnstoreFile(const std::string& key) const override;
  [[nodiscard]] truststore_update_client::RecordState ReadRecord(const std::string& key,
                                                                 std::string& bytes) const override;

  mutable std::map<std::string, std::string> records;
  mutable std::vector<std::string>
      stored;               ///< "KEY=BYTES" of every StoreFile that succeeded, oldest first
  std::string failStoreOf;  ///< StoreFile of this key fails
  bool unreadable = false;  ///< ReadRecord and LoadFile fail
};

}  // namespace tests

#endif
