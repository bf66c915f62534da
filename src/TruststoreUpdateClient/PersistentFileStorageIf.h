/// Keeps small files in the unit's persistent storage. Implemented by PersistentFileStorageImpl,
/// and by tests.
#ifndef TRUSTSTOREUPDATECLIENT_PERSISTENTFILESTORAGEIF_H
#define TRUSTSTOREUPDATECLIENT_PERSISTENTFILESTORAGEIF_H

#include <string>

namespace truststore_update_client {

/// What a look at a record found.
enum class RecordState {
  kPresent,
  kMissing,
  kDamaged,     ///< there, but not what StoreFile keeps: it never will be readable
  kUnreadable,  ///< the storage failed: what it holds is unknown
};

/// Records are files' bytes under a key. Any thread; each operation opens the storage anew and
/// closes it on return. None throws. Those returning an int give 0 for success; every failure has
/// been logged.
class PersistentFileStorageIf {
 public:
  virtual ~PersistentFileStorageIf() = default;

  /// Keeps the bytes of the file at `path` under `key`. When it returns 0 they survive a power
  /// loss; when it fails, what was kept before stands.
  [[nodiscard]] virtual int StoreFile(const std::string& key, const std::string& path) const = 0;

  /// Writes the bytes kept under `key` to the file at `path`, replacing it.
  [[nodiscard]] virtual int LoadFile(const std::string& key, const std::string& path) const = 0;

  /// Removes what is kept under `key`.
  [[nodiscard]] virtual int UnstoreFile(const std::string& key) const = 0;

  /// Reads the bytes kept under `key` into `bytes`. A missing record is no error and not logged.
  [[nodiscard]] virtual RecordState ReadRecord(const std::string& key,
                                               std::string& bytes) const = 0;
};

}  // namespace truststore_update_client

#endif
