#include "tests/doubles/FakeRecords.h"

#include "support/FileContents.h"

namespace tests {

using truststore_update_client::RecordState;

int FakeRecords::StoreFile(const std::string& key, const std::string& path) const {
  std::string bytes;
  if (key == failStoreOf || support::ReadFile(path, 100, bytes) != 0) return 1;
  records[key] = bytes;
  stored.push_back(key + "=" + bytes);
  return 0;
}

int FakeRecords::LoadFile(const std::string& key, const std::string& path) const {
  std::string bytes;
  if (ReadRecord(key, bytes) != RecordState::kPresent) return 1;
  return support::ReplaceFile(path, bytes, 0644);
}

int FakeRecords::UnstoreFile(const std::string& key) const {
  return records.erase(key) == 1 ? 0 : 1;
}

RecordState FakeRecords::ReadRecord(const std::string& key, std::string& bytes) const {
  bytes.clear();
  if (unreadable) return RecordState::kUnreadable;
  const auto record = records.find(key);
  if (record == records.end()) return RecordState::kMissing;
  bytes = record->second;
  return RecordState::kPresent;
}

}  // namespace tests
