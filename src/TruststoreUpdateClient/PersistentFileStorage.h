/// The facade through which the client keeps small files in the unit's persistent storage. Any
/// thread.
#ifndef TRUSTSTOREUPDATECLIENT_PERSISTENTFILESTORAGE_H
#define TRUSTSTOREUPDATECLIENT_PERSISTENTFILESTORAGE_H

#include <memory>
#include <string>

#include "TruststoreUpdateClient/PersistentFileStorageIf.h"

namespace truststore_update_client {

/// Forwards to an implementation that it shares. The operations are those of
/// PersistentFileStorageIf.
class PersistentFileStorage {
 public:
  /// Over the unit's key-value storage.
  PersistentFileStorage();

  /// Over `implementation`, which is not null.
  explicit PersistentFileStorage(std::shared_ptr<PersistentFileStorageIf> implementation);

  [[nodiscard]] int StoreFile(const std::string& key, const std::string& path) const;
  [[nodiscard]] int LoadFile(const std::string& key, const std::string& path) const;
  [[nodiscard]] int UnstoreFile(const std::string& key) const;
  [[nodiscard]] RecordState ReadRecord(const std::string& key, std::string& bytes) const;

 private:
  std::shared_ptr<PersistentFileStorageIf> impl;
};

}  // namespace truststore_update_client

#endif
