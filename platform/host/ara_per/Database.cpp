#include "platform/host/ara_per/Database.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "support/FileContents.h"

namespace platform_host {
namespace {

using ara::per::KvsType;
using ara::per::StorageError;

/// How long a lock of SQLite's is waited for. Our own processes keep apart by WorkLock: this is for
/// a person who looks into the database meanwhile.
constexpr int kBusyWaitMilliseconds = 5000;

// What the column "type" holds.
constexpr int kBinary = 0;
constexpr int kUnsignedShort = 1;

[[noreturn]] void ThrowFailure(sqlite3* db) {
  const char* path = ::sqlite3_db_filename(db, "main");
  const std::string text = std::string(path) + ": " + ::sqlite3_errmsg(db);
  const int code = ::sqlite3_errcode(db);
  if (code == SQLITE_NOTADB || code == SQLITE_CORRUPT) throw DamagedDatabase(text);
  throw StorageError(text);
}

/// A prepared statement. Its values are bound from 1, its columns read from 0.
class Statement {
 public:
  Statement(sqlite3* database, std::string_view sql) : db(database) {
    const auto size = static_cast<int>(sql.size());
    if (::sqlite3_prepare_v2(db, sql.data(), size, &statement, nullptr) != SQLITE_OK) {
      ThrowFailure(db);
    }
  }
  ~Statement() { ::sqlite3_finalize(statement); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// The text lives as long as this object.
  void BindText(int index, const std::string& text) {
    Check(::sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC,
                                SQLITE_UTF8));
  }

  /// The bytes live as long as this object.
  void BindBytes(int index, const std::vector<std::uint8_t>& bytes) {
    // A null pointer would bind NULL in place of no bytes.
    const void* data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    Check(::sqlite3_bind_blob64(statement, index, data, bytes.size(), SQLITE_STATIC));
  }

  void BindNumber(int index, int number) { Check(::sqlite3_bind_int(statement, index, number)); }

  /// Returns whether there is a row.
  bool Step() {
    const int result = ::sqlite3_step(statement);
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) ThrowFailure(db);
    return false;
  }

  [[nodiscard]] int Type(int column) const { return ::sqlite3_column_type(statement, column); }
  [[nodiscard]] std::int64_t Number(int column) const {
    return ::sqlite3_column_int64(statement, column);
  }
  [[nodiscard]] std::vector<std::uint8_t> Bytes(int column) const {
    const auto* bytes = static_cast<const std::uint8_t*>(::sqlite3_column_blob(statement, column));
    const auto size = static_cast<std::size_t>(::sqlite3_column_bytes(statement, column));
    return bytes == nullptr ? std::vector<std::uint8_t>()
                            : std::vector<std::uint8_t>(bytes, bytes + size);
  }
  [[nodiscard]] std::string Text(int column) const {
    const auto bytes = Bytes(column);
    return {bytes.begin(), bytes.end()};
  }

 private:
  void Check(int result) {
    if (result != SQLITE_OK) ThrowFailure(db);
  }

  sqlite3* db;
  sqlite3_stmt* statement = nullptr;
};

void Execute(sqlite3* db, std::string_view sql) {
  Statement statement(db, sql);
  while (statement.Step()) {
  }
}

void CheckIntegrity(sqlite3* db) {
  Statement check(db, "PRAGMA quick_check(1)");
  if (check.Step() && check.Text(0) == "ok") return;
  throw DamagedDatabase(std::string(::sqlite3_db_filename(db, "main")) + ": " + check.Text(0));
}

void Apply(sqlite3* db, const std::string& key, const std::optional<KvsType>& value) {
  if (!value) {
    Statement remove(db, "DELETE FROM record WHERE key = ?");
    remove.BindText(1, key);
    remove.Step();
    return;
  }
  Statement insert(db, "INSERT OR REPLACE INTO record (key, type, value) VALUES (?, ?, ?)");
  insert.BindText(1, key);
  if (const auto* bytes = value->GetBinary()) {
    insert.BindNumber(2, kBinary);
    insert.BindBytes(3, *bytes);
  } else {
    insert.BindNumber(2, kUnsignedShort);
    insert.BindNumber(3, *value->GetUnsignedShort());
  }
  insert.Step();
}

/// Renames `from` in place of `to`; without a `from` there is no `to` in the end either.
int Supersede(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) == 0) return 0;
  if (errno != ENOENT) return errno;
  return ::unlink(to.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

void Database::Closer::operator()(sqlite3* handle) const {
  ::sqlite3_close_v2(handle);
}

Database::Database(const std::string& path) {
  sqlite3* handle = nullptr;
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int result = ::sqlite3_open_v2(path.c_str(), &handle, kFlags, nullptr);
  db.reset(handle);
  if (result != SQLITE_OK) throw StorageError(path + ": " + ::sqlite3_errstr(result));
  ::sqlite3_busy_timeout(handle, kBusyWaitMilliseconds);
  // The write-ahead log lets others commit while this state is read; with FULL every commit is on
  // the medium.
  Execute(handle, "PRAGMA journal_mode = WAL");
  Execute(handle, "PRAGMA synchronous = FULL");
  CheckIntegrity(handle);
  Execute(handle,
          "CREATE TABLE IF NOT EXISTS record"
          " (key TEXT PRIMARY KEY, type INTEGER NOT NULL, value NOT NULL) WITHOUT ROWID");
}

Database::~Database() = default;

std::optional<KvsType> Database::Find(const std::string& key) const {
  // The first read of a transaction fixes the state that all of its reads see.
  if (::sqlite3_get_autocommit(db.get()) != 0) Execute(db.get(), "BEGIN");
  Statement select(db.get(), "SELECT type, value FROM record WHERE key = ?");
  select.BindText(1, key);
  if (!select.Step()) return std::nullopt;
  const std::int64_t type = select.Number(0);
  const std::int64_t number = select.Number(1);
  if (type == kBinary && select.Type(1) == SQLITE_BLOB) return KvsType(select.Bytes(1));
  if (type == kUnsignedShort && select.Type(1) == SQLITE_INTEGER && number >= 0 &&
      number <= std::numeric_limits<std::uint16_t>::max()) {
    return KvsType(static_cast<std::uint16_t>(number));
  }
  throw StorageError(std::string(::sqlite3_db_filename(db.get(), "main")) + ": key " + key +
                     " holds no value of a known type");
}

void Database::Commit(const Changes& changes) {
  if (::sqlite3_get_autocommit(db.get()) == 0) Execute(db.get(), "COMMIT");
  try {
    Execute(db.get(), "BEGIN IMMEDIATE");
    for (const auto& [key, value] : changes) Apply(db.get(), key, value);
    Execute(db.get(), "COMMIT");
  } catch (const StorageError&) {
    // Some failures have rolled back already; then there is nothing left to roll back.
    if (::sqlite3_get_autocommit(db.get()) == 0) Execute(db.get(), "ROLLBACK");
    throw;
  }
}

int SetDatabaseAside(const std::string& path) {
  // The log first: SQLite would apply a log that it finds beside a fresh database.
  int error = Supersede(path + "-wal", path + ".damaged-wal");
  if (error == 0) error = Supersede(path + "-shm", path + ".damaged-shm");
  if (error == 0) error = Supersede(path + "-journal", path + ".damaged-journal");
  if (error == 0) error = Supersede(path, path + ".damaged");
  if (error != 0) return error;
  return support::SyncDirectory(path.substr(0, path.rfind('/')));
}

}  // namespace platform_host
