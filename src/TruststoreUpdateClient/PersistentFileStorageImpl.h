/// Small files in the unit's key-value storage. Used through PersistentFileStorage; any thread,
/// nothing is cached.
#ifndef TRUSTSTOREUPDATECLIENT_PERSISTENTFILESTORAGEIMPL_H
#define TRUSTSTOREUPDATECLIENT_PERSISTENTFILESTORAGEIMPL_H

#include <cstdint>
#include <string>
#include <string_view>

#include "TruststoreUpdateClient/PersistentFileStorageIf.h"
#include "csc_logging/CSCSubLogger.h"

namespace truststore_update_client {

/// Keeps a file as two values: its bytes under the caller's key, and their number under the key
/// followed by "-size". A record that lacks either counts as missing.
class PersistentFileStorageImpl : public PersistentFileStorageIf {
 public:
  /// The largest file that is kept or restored.
  static constexpr std::uint16_t kMaxFileBytes = 100;

  /// Reports to execution management that the application is running.
  PersistentFileStorageImpl();

  [[nodiscard]] int StoreFile(const std::string& key, const std::string& path) const override;
  [[nodiscard]] int LoadFile(const std::string& key, const std::string& path) const override;
  [[nodiscard]] int UnstoreFile(const std::string& key) const override;
  [[nodiscard]] RecordState ReadRecord(const std::string& key, std::string& bytes) const override;

 private:
  void WriteRecord(const std::string& key, const std::string& bytes) const;
  [[nodiscard]] RecordState ReadRecordOrThrow(const std::string& key, std::string& bytes) const;
  [[nodiscard]] bool RemoveRecord(const std::string& key) const;
  void LogNotFound(const std::string& key) const;
  void LogFailure(std::string_view what, const std::string& name, std::string_view reason) const;

  std::string portName;
  csc_logging::CSCSubLogger logger;
};

}  // namespace truststore_update_client

#endif
