#include "TruststoreUpdateClient/PersistentFileStorage.h"

#include <utility>

#include "TruststoreUpdateClient/PersistentFileStorageImpl.h"

namespace truststore_update_client {

PersistentFileStorage::PersistentFileStorage()
    : PersistentFileStorage(std::make_shared<PersistentFileStorageImpl>()) {}

PersistentFileStorage::PersistentFileStorage(
    std::shared_ptr<PersistentFileStorageIf> implementation)
    : impl(std::move(implementation)) {}

int PersistentFileStorage::StoreFile(const std::string& key, const std::string& path) const {
  return impl->StoreFile(key, path);
}

int PersistentFileStorage::LoadFile(const std::string& key, const std::string& path) const {
  return impl->LoadFile(key, path);
}

int PersistentFileStorage::UnstoreFile(const std::string& key) const {
  return impl->UnstoreFile(key);
}

RecordState PersistentFileStorage::ReadRecord(const std::string& key, std::string& bytes) const {
  return impl->ReadRecord(key, bytes);
}

}  // namespace truststore_update_client
