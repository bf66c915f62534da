// ara::per: records that last as long as the process.
#include "ara/per/KeyValueStorage.h"

#include <exception>
#include <map>
#include <optional>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "support/Mutex.h"

namespace ara::per {
namespace {

using Records = std::map<std::string, KvsType>;
using Changes = std::map<std::string, std::optional<KvsType>>;  // nothing: the key is removed

/// The stores of all ports.
class Stores {
 public:
  static Stores& OfProcess() {
    static Stores stores;
    return stores;
  }

  Records Read(const std::string& port) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return stores[port];
  }

  /// All of `changes` or none: whoever reads meanwhile waits.
  void Apply(const std::string& port, const Changes& changes) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    Records changed = stores[port];
    for (const auto& [key, value] : changes) {
      changed.erase(key);
      if (value) changed.emplace(key, *value);
    }
    stores[port].swap(changed);
  }

 private:
  support::Mutex mutex;
  std::map<std::string, Records> stores GUARDED_BY(mutex);
};

}  // namespace

/// What was there at the opening, and what this object has changed since.
class KeyValueStorage::Impl {
 public:
  explicit Impl(std::string portName)
      : port(std::move(portName)), records(Stores::OfProcess().Read(port)) {}

  void Change(const std::string& key, const std::optional<KvsType>& value) {
    changes.insert_or_assign(key, value);
    records.erase(key);
    if (value) records.emplace(key, *value);
  }

  void Commit() {
    Stores::OfProcess().Apply(port, changes);
    changes.clear();
  }

  const std::string port;
  Records records;
  Changes changes;
  bool failed = false;
};

KeyValueStorage::KeyValueStorage(const std::string& portName)
    : impl(std::make_unique<Impl>(portName)) {}

KeyValueStorage::~KeyValueStorage() {
  if (impl->failed) return;
  try {
    impl->Commit();
  } catch (const std::exception&) {
    csc_logging::CSCLogging::LogError("other_platform: records were not kept");
  }
}

bool KeyValueStorage::HasKey(const std::string& key) const {
  return impl->records.count(key) != 0;
}

KvsType KeyValueStorage::GetValue(const std::string& key) const {
  const auto found = impl->records.find(key);
  if (found != impl->records.end()) return found->second;
  impl->failed = true;
  throw StorageError("there is no key '" + key + "'");
}

void KeyValueStorage::SetValue(const std::string& key, const KvsType& value) {
  impl->Change(key, value);
}

void KeyValueStorage::RemoveKey(const std::string& key) {
  impl->Change(key, std::nullopt);
}

void KeyValueStorage::SyncToStorage() {
  impl->Commit();
}

}  // namespace ara::per
