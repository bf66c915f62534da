#include "ara/per/KeyValueStorage.h"

#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "platform/host/ara_per/Database.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/files/Directories.h"
#include "platform/host/files/FileName.h"
#include "platform/host/work_lock/WorkLock.h"
#include "support/Mutex.h"

namespace ara::per {
namespace {

using csc_logging::CSCLogging;
using platform_host::Database;
using platform_host::Error;
using platform_host::HostConfig;
using platform_host::WorkLock;

const HostConfig& UsableConfig() {
  const auto& config = HostConfig::OfProcess();
  if (!config.Ok()) throw StorageError(config.Failure().Text());
  return config.Value();
}

WorkLock::Turn BeginWork(WorkLock& lock) {
  auto turn = lock.Begin(WorkLock::Purpose::kChange);
  if (!turn.Ok()) throw StorageError(turn.Failure().Text());
  return std::move(turn).Take();
}

/// Opening and setting aside exclude each other in this process: of two threads that find the same
/// damage, the second one must find the fresh database.
support::Mutex& OpeningMutex() {
  static auto* const mutex = new support::Mutex;
  return *mutex;
}

std::unique_ptr<Database> OpenDatabase(const std::string& path) {
  const support::MutexLock lock(OpeningMutex());
  try {
    return std::make_unique<Database>(path);
  } catch (const platform_host::DamagedDatabase& damage) {
    CSCLogging::LogError(std::string("libara_per: damaged database set aside, a new one begins: ") +
                         damage.what());
  }
  const int error = platform_host::SetDatabaseAside(path);
  if (error != 0) throw StorageError(Error::OfErrno(error).WithContext(path).Text());
  return std::make_unique<Database>(path);
}

}  // namespace

/// Keeps writes in memory until they are committed together, so that no transaction stays open
/// between two calls.
class KeyValueStorage::Impl {
 public:
  explicit Impl(const std::string& portName)
      : work(WorkLock::OfProcess(UsableConfig().WorkLockFile())) {
    const std::string& directory = UsableConfig().persistencyDirectory;
    const auto turn = BeginWork(work);
    const int error = platform_host::MakeDirectories(directory);
    if (error != 0) throw StorageError(Error::OfErrno(error).WithContext(directory).Text());
    database = OpenDatabase(directory + "/" + platform_host::FileNameOf(portName) + ".db");
  }

  /// Runs one operation; a failure voids the writes that are not committed.
  template <typename Operation>
  auto Run(Operation operation) {
    try {
      return operation();
    } catch (const StorageError&) {
      failed = true;
      throw;
    }
  }

  [[nodiscard]] std::optional<KvsType> Find(const std::string& key) const {
    const auto written = changes.find(key);
    return written != changes.end() ? written->second : database->Find(key);
  }

  void Write(const std::string& key, std::optional<KvsType> value) {
    changes.insert_or_assign(key, std::move(value));
  }

  void Commit() {
    if (failed) throw StorageError("an earlier operation failed: nothing of this is kept");
    if (changes.empty()) return;
    const auto turn = BeginWork(work);
    database->Commit(changes);
    changes.clear();
  }

  /// Whether closing has writes to commit.
  [[nodiscard]] bool HasWork() const { return !failed && !changes.empty(); }

 private:
  WorkLock& work;
  std::unique_ptr<Database> database;
  Database::Changes changes;
  bool failed = false;
};

KeyValueStorage::KeyValueStorage(const std::string& portName)
    : impl(std::make_unique<Impl>(portName)) {}

KeyValueStorage::~KeyValueStorage() {
  if (!impl->HasWork()) return;
  try {
    impl->Commit();
  } catch (const std::exception& error) {
    CSCLogging::LogError(std::string("libara_per: writes are lost at closing: ") + error.what());
  }
}

bool KeyValueStorage::HasKey(const std::string& key) const {
  return impl->Run([&] { return impl->Find(key).has_value(); });
}

KvsType KeyValueStorage::GetValue(const std::string& key) const {
  return impl->Run([&] {
    auto value = impl->Find(key);
    if (!value) throw StorageError("there is no key " + key);
    return *std::move(value);
  });
}

void KeyValueStorage::SetValue(const std::string& key, const KvsType& value) {
  impl->Run([&] { impl->Write(key, value); });
}

void KeyValueStorage::RemoveKey(const std::string& key) {
  impl->Run([&] { impl->Write(key, std::nullopt); });
}

void KeyValueStorage::SyncToStorage() {
  impl->Run([this] { impl->Commit(); });
}

}  // namespace ara::per
