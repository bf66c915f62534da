/// One store as an SQLite database: the only place that knows SQLite. For KeyValueStorage alone.
#ifndef PLATFORM_HOST_ARA_PER_DATABASE_H
#define PLATFORM_HOST_ARA_PER_DATABASE_H

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "ara/per/KeyValueStorage.h"
#include "ara/per/KvsType.h"

struct sqlite3;

namespace platform_host {

/// What stands at the path is no database of ours (any more): its bytes or its kind, not the medium
/// or another process, are at fault.
class DamagedDatabase : public ara::per::StorageError {
 public:
  using StorageError::StorageError;
};

/// An open database, with all of its values in memory: what was there when it was opened or last
/// committed to, whatever others commit meanwhile. No lock of SQLite's is held between two calls,
/// and Find and the destructor leave the file alone. An object belongs to one thread; several may
/// be open on one file. Failures are thrown as "PATH: reason"; waiting for a lock of SQLite's ends
/// after a few seconds.
///
/// Opening and reading write nothing to a database that exists, so they work on a full disk; a
/// commit of values as long as the old ones rewrites blocks that the files have already.
class Database {
 public:
  /// Values by key; none: the key is removed.
  using Changes = std::map<std::string, std::optional<ara::per::KvsType>>;

  /// Opens the database at `path`, made when it is missing, checks all of it and reads its values.
  /// Throws DamagedDatabase, also for a database of another layout and for a path that is no
  /// regular file (a link is none), or StorageError.
  explicit Database(const std::string& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// The value of `key`, none when there is no such key.
  [[nodiscard]] std::optional<ara::per::KvsType> Find(const std::string& key) const;

  /// Applies all of `changes` in one transaction, which survives a power loss when this returns.
  /// Throws StorageError; then none of them is applied.
  void Commit(const Changes& changes);

 private:
  struct Closer {
    void operator()(sqlite3* handle) const;
  };

  std::unique_ptr<sqlite3, Closer> db;
  std::map<std::string, ara::per::KvsType> values;
};

/// Renames what stands at `path`, of any kind, and its companions to PATH.damaged..., in place of
/// older ones. A power loss in between leaves the damaged database without its journal, never a
/// fresh one beside an old journal. Returns 0 or an errno. REQUIRES: no other process uses it, and
/// none of this process opens it meanwhile.
[[nodiscard]] int SetDatabaseAside(const std::string& path);

}  // namespace platform_host

#endif
