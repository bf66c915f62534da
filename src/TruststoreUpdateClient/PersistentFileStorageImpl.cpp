#include "TruststoreUpdateClient/PersistentFileStorageImpl.h"

#include <cerrno>
#include <exception>
#include <vector>

#include "ara/exec/ApplicationClient.h"
#include "ara/per/KeyValueStorage.h"
#include "csc_logging/CSCLogging.h"
#include "support/FileContents.h"

namespace truststore_update_client {

using ara::per::KeyValueStorage;
using ara::per::KvsType;
using csc_logging::CSCLogging;

namespace {

constexpr mode_t kFileMode = 0644;

std::string SizeKey(const std::string& key) {
  return key + "-size";
}

}  // namespace

PersistentFileStorageImpl::PersistentFileStorageImpl()
    : portName("FileStoragePort"), logger("PersistantFileStorage") {
  ara::exec::ApplicationClient client;
  // The platform has logged a failure, and records do not depend on it.
  (void)client.ReportApplicationState(ara::exec::ApplicationState::kRunning);
}

int PersistentFileStorageImpl::StoreFile(const std::string& key, const std::string& path) const {
  try {
    std::string bytes;
    const int error = support::ReadFile(path, kMaxFileBytes, bytes);
    if (error == EFBIG) {
      CSCLogging::LogError(logger.SubLog("File is too big!"));
      return 1;
    }
    if (error != 0) {
      LogFailure("Cannot read file ", path, support::ErrorText(error));
      return 1;
    }
    WriteRecord(key, bytes);
  } catch (const std::exception& exception) {
    LogFailure("Cannot store key ", key, exception.what());
    return 1;
  }
  CSCLogging::LogInfo(logger.SubEntry() << "Stored file '" << path << "' with key '" << key << "'");
  return 0;
}

int PersistentFileStorageImpl::LoadFile(const std::string& key, const std::string& path) const {
  std::string bytes;
  const RecordState state = ReadRecord(key, bytes);
  if (state == RecordState::kMissing) LogNotFound(key);
  if (state != RecordState::kPresent) return 1;
  const int error = support::ReplaceFile(path, bytes, kFileMode);
  if (error != 0) {
    LogFailure("Cannot write file ", path, support::ErrorText(error));
    return 1;
  }
  return 0;
}

int PersistentFileStorageImpl::UnstoreFile(const std::string& key) const {
  try {
    if (RemoveRecord(key)) return 0;
    LogNotFound(key);
  } catch (const std::exception& exception) {
    LogFailure("Cannot remove key ", key, exception.what());
  }
  return 1;
}

RecordState PersistentFileStorageImpl::ReadRecord(const std::string& key,
                                                  std::string& bytes) const {
  bytes.clear();
  try {
    return ReadRecordOrThrow(key, bytes);
  } catch (const std::exception& exception) {
    LogFailure("Cannot read key ", key, exception.what());
    return RecordState::kUnreadable;
  }
}

void PersistentFileStorageImpl::WriteRecord(const std::string& key,
                                            const std::string& bytes) const {
  KeyValueStorage storage(portName);
  storage.SetValue(key, KvsType(std::vector<std::uint8_t>(bytes.begin(), bytes.end())));
  storage.SetValue(SizeKey(key), KvsType(static_cast<std::uint16_t>(bytes.size())));
  storage.SyncToStorage();
}

RecordState PersistentFileStorageImpl::ReadRecordOrThrow(const std::string& key,
                                                         std::string& bytes) const {
  const KeyValueStorage storage(portName);
  if (!storage.HasKey(key) || !storage.HasKey(SizeKey(key))) return RecordState::kMissing;
  const KvsType sizeValue = storage.GetValue(SizeKey(key));
  const KvsType value = storage.GetValue(key);
  const std::uint16_t* size = sizeValue.GetUnsignedShort();
  const std::vector<std::uint8_t>* buffer = value.GetBinary();
  if (size != nullptr && *size > kMaxFileBytes) {
    CSCLogging::LogError(logger.SubLog("File is too big!"));
    return RecordState::kDamaged;
  }
  if (size == nullptr || buffer == nullptr || buffer->size() != *size) {
    LogFailure("Cannot read key ", key, "its size is not that of its value");
    return RecordState::kDamaged;
  }
  bytes.assign(buffer->begin(), buffer->end());
  return RecordState::kPresent;
}

bool PersistentFileStorageImpl::RemoveRecord(const std::string& key) const {
  KeyValueStorage storage(portName);
  if (!storage.HasKey(key) || !storage.HasKey(SizeKey(key))) return false;
  CSCLogging::LogInfo(logger.SubEntry() << "Removing key '" << key << "'");
  storage.RemoveKey(key);
  storage.RemoveKey(SizeKey(key));
  storage.SyncToStorage();
  return true;
}

void PersistentFileStorageImpl::LogNotFound(const std::string& key) const {
  CSCLogging::LogError(logger.SubEntry() << "Key '" << key << "' was not found in the storage");
}

void PersistentFileStorageImpl::LogFailure(std::string_view what, const std::string& name,
                                           std::string_view reason) const {
  CSCLogging::LogError(logger.SubEntry() << what << "'" << name << "': " << reason);
}

}  // namespace truststore_update_client
