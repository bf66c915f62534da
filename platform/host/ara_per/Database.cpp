#include "platform/host/ara_per/Database.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string_view>
#include <system_error>
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

/// The layout of the database, as it stands in its header.
constexpr std::int64_t kLayout = 1;

/// SQLite keeps the text as it is given here: what another text made is not ours.
constexpr std::string_view kTable =
    "CREATE TABLE record"
    " (key TEXT PRIMARY KEY, type INTEGER NOT NULL, value NOT NULL) WITHOUT ROWID";

/// What SQLite keeps beside a database, by mode of its journal; only the last one is of our mode.
constexpr std::array kCompanions = {"-wal", "-shm", "-journal"};

// What the column "type" holds.
constexpr int kBinary = 0;
constexpr int kUnsignedShort = 1;

[[noreturn]] void ThrowFailure(sqlite3* db) {
  const char* path = ::sqlite3_db_filename(db, "main");
  const std::string text = std::string(path) + ": " + ::sqlite3_errmsg(db);
  const int code = ::sqlite3_errcode(db);
  // The statements are right and always the same: an error in one is the fault of the tables.
  const bool damaged = code == SQLITE_NOTADB || code == SQLITE_CORRUPT || code == SQLITE_ERROR;
  if (damaged) throw DamagedDatabase(text);
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

[[noreturn]] void ThrowDamage(sqlite3* db, const std::string& reason) {
  throw DamagedDatabase(std::string(::sqlite3_db_filename(db, "main")) + ": " + reason);
}

void CheckKind(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw DamagedDatabase(path + ": is no regular file");
  }
}

void CheckIntegrity(sqlite3* db) {
  Statement check(db, "PRAGMA quick_check(1)");
  if (check.Step() && check.Text(0) == "ok") return;
  ThrowDamage(db, check.Text(0));
}

std::int64_t NumberOf(sqlite3* db, std::string_view sql) {
  Statement query(db, sql);
  return query.Step() ? query.Number(0) : 0;
}

void MakeTable(sqlite3* db) {
  Execute(db, "BEGIN IMMEDIATE");
  Execute(db, kTable);
  Execute(db, "PRAGMA user_version = " + std::to_string(kLayout));
  Execute(db, "COMMIT");
}

/// Makes the table in a database that is empty.
void RequireTable(sqlite3* db) {
  const std::int64_t layout = NumberOf(db, "PRAGMA user_version");
  if (layout == 0 && NumberOf(db, "SELECT count(*) FROM sqlite_schema") == 0)
    MakeTable(db);
  else if (layout != kLayout)
    ThrowDamage(db, "layout " + std::to_string(layout) + " is not known");
  Statement query(db, "SELECT sql FROM sqlite_schema WHERE name = 'record'");
  if (!query.Step() || query.Text(0) != kTable) ThrowDamage(db, "holds another table of records");
}

/// The value in columns 1 (type) and 2 of a row, none when its type is unknown.
std::optional<KvsType> ValueIn(const Statement& row) {
  const std::int64_t type = row.Number(1);
  const std::int64_t number = row.Number(2);
  if (type == kBinary && row.Type(2) == SQLITE_BLOB) return KvsType(row.Bytes(2));
  if (type == kUnsignedShort && row.Type(2) == SQLITE_INTEGER && number >= 0 &&
      number <= std::numeric_limits<std::uint16_t>::max()) {
    return KvsType(static_cast<std::uint16_t>(number));
  }
  return std::nullopt;
}

std::map<std::string, KvsType> ReadAll(sqlite3* db) {
  std::map<std::string, KvsType> values;
  Statement row(db, "SELECT key, type, value FROM record");
  while (row.Step()) {
    const auto value = ValueIn(row);
    if (!value) ThrowDamage(db, "key " + row.Text(0) + " holds no value of a known type");
    values.insert_or_assign(row.Text(0), *value);
  }
  return values;
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

/// Renames `from` in place of `to`, whatever each of them is; without a `from` there is no `to` in
/// the end either. Returns 0 or an errno.
int Supersede(const std::string& from, const std::string& to) {
  std::error_code error;
  std::filesystem::remove_all(to, error);
  if (error) return error.value();
  return ::rename(from.c_str(), to.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

void Database::Closer::operator()(sqlite3* handle) const {
  ::sqlite3_close_v2(handle);
}

Database::Database(const std::string& path) {
  CheckKind(path);
  for (const auto* companion : kCompanions) CheckKind(path + companion);
  sqlite3* handle = nullptr;
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int result = ::sqlite3_open_v2(path.c_str(), &handle, kFlags, nullptr);
  db.reset(handle);
  if (result != SQLITE_OK) throw StorageError(path + ": " + ::sqlite3_errstr(result));
  ::sqlite3_busy_timeout(handle, kBusyWaitMilliseconds);
  // A journal that stays, its header cleared by each commit, keeps its blocks for the next one.
  // With FULL the journal is on the medium before a page is overwritten, and the pages are before
  // the header is cleared.
  Execute(handle, "PRAGMA journal_mode = PERSIST");
  Execute(handle, "PRAGMA synchronous = FULL");
  CheckIntegrity(handle);
  RequireTable(handle);
  values = ReadAll(handle);
}

Database::~Database() = default;

std::optional<KvsType> Database::Find(const std::string& key) const {
  const auto found = values.find(key);
  return found == values.end() ? std::nullopt : std::optional<KvsType>(found->second);
}

void Database::Commit(const Changes& changes) {
  try {
    Execute(db.get(), "BEGIN IMMEDIATE");
    for (const auto& [key, value] : changes) Apply(db.get(), key, value);
    auto written = ReadAll(db.get());
    Execute(db.get(), "COMMIT");
    values.swap(written);
  } catch (const StorageError&) {
    // Some failures have rolled back already; then there is nothing left to roll back.
    if (::sqlite3_get_autocommit(db.get()) == 0) Execute(db.get(), "ROLLBACK");
    throw;
  }
}

int SetDatabaseAside(const std::string& path) {
  const std::string directory = path.substr(0, path.rfind('/'));
  // What SQLite would apply to a database that it finds beside it goes first, and for good.
  for (const std::string companion : kCompanions) {
    const int error = Supersede(path + companion, path + ".damaged" + companion);
    if (error != 0) return error;
  }
  int error = support::SyncDirectory(directory);
  if (error == 0) error = Supersede(path, path + ".damaged");
  return error == 0 ? support::SyncDirectory(directory) : error;
}

}  // namespace platform_host
