#include "platform/host/ara_per/Database.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <future>
#include <utility>
#include <vector>

#include "support/FileContents.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using ara::per::KvsType;
using ara::per::StorageError;
using Bytes = std::vector<std::uint8_t>;
namespace fs = std::filesystem;

class DatabaseAt : public ::testing::Test {
 protected:
  /// The value of `key` as text: "bytes NN..", "number N" or "none".
  static std::string TextOf(const Database& database, const std::string& key) {
    const auto value = database.Find(key);
    if (!value) return "none";
    if (const auto* number = value->GetUnsignedShort()) return "number " + std::to_string(*number);
    const auto* bytes = value->GetBinary();
    return "bytes " + std::string(bytes->begin(), bytes->end());
  }

  static KvsType BytesOf(const std::string& text) {
    return KvsType(Bytes(text.begin(), text.end()));
  }
  static KvsType Number(std::uint16_t number) { return KvsType(number); }

  void Run(const std::string& sql) const {
    sqlite3* db = nullptr;
    ASSERT_EQ(::sqlite3_open(path.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(::sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    ::sqlite3_close(db);
  }

  /// Writes of this process behind `size` fail from now on.
  static bool LimitFileSize(std::uintmax_t size) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{size, size};
    return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }

  [[nodiscard]] std::string OpeningFailure() const {
    try {
      const Database database(path);
      return "opened";
    } catch (const DamagedDatabase& damage) {
      return std::string("damaged: ") + damage.what();
    } catch (const StorageError& error) {
      return error.what();
    }
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/Port.db";
};

TEST_F(DatabaseAt, FreshFile_NoKeys) {
  const Database database(path);
  EXPECT_EQ(TextOf(database, "a"), "none");
}

TEST_F(DatabaseAt, ValuesOfEachType_KeptAcrossOpenings) {
  const std::string binary("x\0\xFF", 3);
  Database(path).Commit({{"bytes", BytesOf(binary)},
                         {"empty", BytesOf("")},
                         {"zero", Number(0)},
                         {"most", Number(65535)}});
  const Database database(path);
  EXPECT_EQ(TextOf(database, "bytes"), "bytes " + binary);
  EXPECT_EQ(TextOf(database, "empty"), "bytes ");
  EXPECT_EQ(TextOf(database, "zero"), "number 0");
  EXPECT_EQ(TextOf(database, "most"), "number 65535");
}

TEST_F(DatabaseAt, KeysOfAnyBytes_EachItsOwn) {
  const std::vector<std::string> keys = {
      "", "a", "A", "a ", std::string("a\0", 2), std::string("a\0b", 3), "\xFF", "\xC3\xA4", "'"};
  Database database(path);
  for (const auto& key : keys) database.Commit({{key, BytesOf(key)}});
  for (const auto& key : keys) EXPECT_EQ(TextOf(database, key), "bytes " + key);
}

TEST_F(DatabaseAt, Replaced_TypeMayChange) {
  Database database(path);
  database.Commit({{"a", Number(1)}});
  database.Commit({{"a", BytesOf("x")}});
  EXPECT_EQ(TextOf(database, "a"), "bytes x");
}

TEST_F(DatabaseAt, Removed_Gone) {
  Database database(path);
  database.Commit({{"a", Number(1)}, {"b", Number(2)}});
  database.Commit({{"a", std::nullopt}, {"missing", std::nullopt}});
  EXPECT_EQ(TextOf(database, "a"), "none");
  EXPECT_EQ(TextOf(database, "b"), "number 2");
}

TEST_F(DatabaseAt, CommitOfAnother_NotSeenBetweenReads) {
  Database writer(path);
  writer.Commit({{"a", Number(1)}, {"a-size", Number(1)}});
  const Database reader(path);
  EXPECT_EQ(TextOf(reader, "a"), "number 1");
  writer.Commit({{"a", Number(2)}, {"a-size", Number(2)}});
  EXPECT_EQ(TextOf(reader, "a-size"), "number 1");
  EXPECT_EQ(TextOf(Database(path), "a-size"), "number 2");
}

TEST_F(DatabaseAt, CommitAfterCommitOfAnother_BothKept) {
  Database first(path);
  Database second(path);
  EXPECT_EQ(TextOf(first, "a"), "none");
  second.Commit({{"a", Number(1)}});
  first.Commit({{"b", Number(2)}});
  EXPECT_EQ(TextOf(first, "a"), "number 1");
  EXPECT_EQ(TextOf(first, "b"), "number 2");
}

TEST_F(DatabaseAt, ProcessKilledAfterCommit_Kept) {
  tests::ChildProcess child([this]() noexcept {
    Database database(path);
    database.Commit({{"a", Number(7)}});
    return ::kill(::getpid(), SIGKILL);
  });
  EXPECT_EQ(child.Wait(), -1);
  EXPECT_EQ(TextOf(Database(path), "a"), "number 7");
}

TEST_F(DatabaseAt, DiskFull_ThrowsAndNothingHalfKept) {
  Database(path).Commit({{"a", Number(1)}, {"a-size", Number(1)}});
  tests::ChildProcess child([this]() noexcept {
    Database database(path);
    if (!LimitFileSize(0)) return 2;
    try {
      database.Commit({{"a", BytesOf(std::string(100000, 'x'))}, {"a-size", Number(2)}});
    } catch (const DamagedDatabase&) {
      return 3;
    } catch (const StorageError&) {
      return TextOf(database, "a") == "number 1" ? 0 : 4;
    }
    return 1;
  });
  EXPECT_EQ(child.Wait(), 0);
  const Database database(path);
  EXPECT_EQ(TextOf(database, "a"), "number 1");
  EXPECT_EQ(TextOf(database, "a-size"), "number 1");
}

TEST_F(DatabaseAt, DiskFull_OpenedAndRead) {
  Database(path).Commit({{"a", Number(1)}});
  tests::ChildProcess child([this]() noexcept {
    if (!LimitFileSize(0)) return 2;
    return TextOf(Database(path), "a") == "number 1" ? 0 : 1;
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(DatabaseAt, DiskFull_ValuesOfSameLengthCommitted) {
  Database(path).Commit({{"a", BytesOf("old")}, {"a-size", Number(3)}});
  tests::ChildProcess child([this]() noexcept {
    if (!LimitFileSize(std::max(fs::file_size(path), fs::file_size(path + "-journal")))) return 2;
    Database(path).Commit({{"a", BytesOf("new")}, {"a-size", Number(3)}});
    return TextOf(Database(path), "a") == "bytes new" ? 0 : 1;
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(DatabaseAt, KilledAmongPagesOfCommit_NextOpeningHoldsOldValues) {
  Database(path).Commit({{"a", BytesOf("old")}, {"b", Number(1)}});
  const auto size = fs::file_size(path);
  tests::ChildProcess child([this]() noexcept {
    Database database(path);
    ::signal(SIGXFSZ, SIG_DFL);
    const rlimit pages{5 * 4096, 5 * 4096};
    const rlimit noCore{0, 0};
    if (::setrlimit(RLIMIT_CORE, &noCore) != 0 || ::setrlimit(RLIMIT_FSIZE, &pages) != 0) return 2;
    database.Commit({{"a", BytesOf(std::string(50000, 'x'))}, {"b", Number(2)}});
    return 0;
  });
  EXPECT_EQ(child.Wait(), -1);
  ASSERT_GT(fs::file_size(path), size);
  const Database database(path);
  EXPECT_EQ(TextOf(database, "a"), "bytes old");
  EXPECT_EQ(TextOf(database, "b"), "number 1");
  EXPECT_EQ(fs::file_size(path), size);
}

TEST_F(DatabaseAt, ReaderInTheWay_CommitWaitsForIt) {
  Database database(path);
  sqlite3* reader = nullptr;
  ASSERT_EQ(::sqlite3_open(path.c_str(), &reader), SQLITE_OK);
  const char* const read = "BEGIN; SELECT * FROM record";
  ASSERT_EQ(::sqlite3_exec(reader, read, nullptr, nullptr, nullptr), SQLITE_OK);
  auto commit = std::async(std::launch::async, [&] { database.Commit({{"a", Number(1)}}); });
  ::sqlite3_exec(reader, "COMMIT", nullptr, nullptr, nullptr);
  ::sqlite3_close(reader);
  commit.get();
  EXPECT_EQ(TextOf(Database(path), "a"), "number 1");
}

TEST_F(DatabaseAt, FileRemovedWhileOpen_ReadsGoOn) {
  Database(path).Commit({{"a", Number(1)}});
  const Database database(path);
  fs::remove(path);
  EXPECT_EQ(TextOf(database, "a"), "number 1");
}

TEST_F(DatabaseAt, ValueOfUnknownType_Damaged) {
  const std::vector<std::string> values = {"2, x'00'", "0, 5",  "1, x'00'",
                                           "1, 65536", "1, -1", "1, 'text'"};
  for (const auto& value : values) {
    { const Database database(path); }
    Run("INSERT INTO record VALUES ('a', " + value + ")");
    EXPECT_EQ(OpeningFailure(), "damaged: " + path + ": key a holds no value of a known type");
    fs::remove(path);
  }
}

TEST_F(DatabaseAt, OtherLayout_Damaged) {
  const std::string layout = "damaged: " + path + ": layout ";
  const std::string table = "damaged: " + path + ": holds another table of records";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"PRAGMA user_version = 2", layout + "2 is not known"},
      {"PRAGMA user_version = 0", layout + "0 is not known"},
      {"PRAGMA user_version = -1", layout + "-1 is not known"},
      {"DROP TABLE record", table},
      {"DROP TABLE record; CREATE TABLE record (a)", table},
      {"ALTER TABLE record RENAME COLUMN value TO content", table},
      {"ALTER TABLE record RENAME TO records", table},
      {"DROP TABLE record; CREATE VIEW record AS SELECT 1", table},
  };
  for (const auto& [sql, failure] : cases) {
    { const Database database(path); }
    Run(sql);
    EXPECT_EQ(OpeningFailure(), failure) << sql;
    fs::remove(path);
  }
}

TEST_F(DatabaseAt, FormatOfLaterTimes_Damaged) {
  { const Database database(path); }
  const support::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  constexpr off_t kSchemaFormat = 44;
  ASSERT_EQ(::pwrite(file.Get(), "\0\0\0\x09", 4, kSchemaFormat), 4);
  EXPECT_EQ(OpeningFailure(), "damaged: " + path + ": unsupported file format");
}

TEST_F(DatabaseAt, NoRegularFile_Damaged) {
  fs::create_directory(path);
  EXPECT_EQ(OpeningFailure(), "damaged: " + path + ": is no regular file");
  fs::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(OpeningFailure(), "damaged: " + path + ": is no regular file");
  fs::remove(path);
  fs::create_symlink("nowhere", path);
  EXPECT_EQ(OpeningFailure(), "damaged: " + path + ": is no regular file");
}

TEST_F(DatabaseAt, DirectoryInPlaceOfJournal_Damaged) {
  { const Database database(path); }
  fs::remove(path + "-journal");
  fs::create_directory(path + "-journal");
  EXPECT_EQ(OpeningFailure(), "damaged: " + path + "-journal: is no regular file");
}

TEST_F(DatabaseAt, MissingDirectory_Throws) {
  const std::string missing = directory.Path() + "/missing/Port.db";
  try {
    const Database database(missing);
    FAIL() << "opened";
  } catch (const StorageError& error) {
    EXPECT_EQ(std::string(error.what()), missing + ": unable to open database file");
  }
}

TEST_F(DatabaseAt, NoDatabase_Damaged) {
  ASSERT_EQ(support::ReplaceFile(path, std::string(5000, 'x'), 0600), 0);
  EXPECT_EQ(OpeningFailure(), "damaged: " + path + ": file is not a database");
}

TEST_F(DatabaseAt, EmptyFile_FreshDatabase) {
  ASSERT_EQ(support::ReplaceFile(path, "", 0600), 0);
  EXPECT_EQ(OpeningFailure(), "opened");
}

TEST_F(DatabaseAt, CutOff_Damaged) {
  Database(path).Commit({{"a", BytesOf(std::string(50000, 'x'))}});
  ASSERT_EQ(::truncate(path.c_str(), 20000), 0);
  EXPECT_THAT(OpeningFailure(), ::testing::StartsWith("damaged: " + path + ": "));
}

TEST_F(DatabaseAt, BytesInsideOverwritten_Damaged) {
  Database::Changes changes;
  for (int index = 0; index < 1000; ++index) {
    changes.insert_or_assign("key" + std::to_string(index), Number(1));
  }
  Database(path).Commit(changes);
  const support::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  const std::string garbage(3000, '\xA5');
  ASSERT_EQ(::pwrite(file.Get(), garbage.data(), garbage.size(), 8192 + 8), 3000);
  EXPECT_THAT(OpeningFailure(), ::testing::StartsWith("damaged: " + path + ": "));
}

TEST_F(DatabaseAt, SetAside_FilesRenamedTogetherOlderOnesGone) {
  for (const auto* name : {"", "-shm", "-journal"}) {
    ASSERT_EQ(support::ReplaceFile(path + name, "new", 0600), 0);
    ASSERT_EQ(support::ReplaceFile(path + ".damaged" + name, "old", 0600), 0);
  }
  ASSERT_EQ(support::ReplaceFile(path + ".damaged-wal", "old", 0600), 0);
  EXPECT_EQ(SetDatabaseAside(path), 0);
  std::string contents;
  for (const auto* name : {"", "-shm", "-journal"}) {
    EXPECT_FALSE(fs::exists(path + name));
    EXPECT_EQ(support::ReadFile(path + ".damaged" + name, 10, contents), 0);
    EXPECT_EQ(contents, "new");
  }
  EXPECT_FALSE(fs::exists(path + ".damaged-wal"));
}

TEST_F(DatabaseAt, SetAsideDirectory_InPlaceOfOlderOneOfAnyKind) {
  fs::create_directories(path + "/inside");
  fs::create_directories(path + ".damaged/older");
  EXPECT_EQ(SetDatabaseAside(path), 0);
  EXPECT_TRUE(fs::exists(path + ".damaged/inside"));
  EXPECT_FALSE(fs::exists(path + ".damaged/older"));
  ASSERT_EQ(support::ReplaceFile(path, "new", 0600), 0);
  EXPECT_EQ(SetDatabaseAside(path), 0);
  EXPECT_TRUE(fs::is_regular_file(path + ".damaged"));
}

TEST_F(DatabaseAt, SetAsideNothing_Succeeds) {
  EXPECT_EQ(SetDatabaseAside(path), 0);
}

TEST_F(DatabaseAt, SetAsideImpossible_ErrnoAndAllStands) {
  const std::string longest = directory.Path() + "/" + std::string(240, 'n');
  ASSERT_EQ(support::ReplaceFile(longest, "new", 0600), 0);
  ASSERT_EQ(support::ReplaceFile(longest + "-journal", "new", 0600), 0);
  EXPECT_EQ(SetDatabaseAside(longest), ENAMETOOLONG);
  EXPECT_TRUE(fs::exists(longest));
  EXPECT_TRUE(fs::exists(longest + "-journal"));
}

}  // namespace
}  // namespace platform_host
