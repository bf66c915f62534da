/// The unit's persistent key-value storage: one store for each port name.
#ifndef ARA_PER_KEYVALUESTORAGE_H
#define ARA_PER_KEYVALUESTORAGE_H

#include <memory>
#include <stdexcept>
#include <string>

#include "ara/per/KvsType.h"

namespace ara::per {

/// Any failure of the storage: the medium, another process that holds it too long, a missing key.
class StorageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One opened store. What one object writes is one transaction: other objects, and the medium after
/// a power loss, see all of it or nothing. An object belongs to one thread; several objects may be
/// open at once, in several processes.
class KeyValueStorage {
 public:
  /// Opens the store of `portName`, which is made when it does not exist. Throws StorageError.
  explicit KeyValueStorage(const std::string& portName);

  /// Closes the store. Writes that SyncToStorage has not committed are committed now, unless an
  /// operation of this object has failed: then they are dropped. A failure is only logged: call
  /// SyncToStorage to learn of it.
  ~KeyValueStorage();
  KeyValueStorage(const KeyValueStorage&) = delete;
  KeyValueStorage& operator=(const KeyValueStorage&) = delete;

  /// Throws StorageError.
  [[nodiscard]] bool HasKey(const std::string& key) const;

  /// Throws StorageError, also when there is no such key.
  [[nodiscard]] KvsType GetValue(const std::string& key) const;

  /// Throws StorageError.
  void SetValue(const std::string& key, const KvsType& value);

  /// Removes `key` if it is there. Throws StorageError.
  void RemoveKey(const std::string& key);

  /// Commits everything written so far; when it returns, that survives a power loss. Throws
  /// StorageError, and nothing of the transaction is kept.
  void SyncToStorage();

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace ara::per

#endif
