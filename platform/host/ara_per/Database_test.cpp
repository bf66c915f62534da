#include "platform/host/ara_per/Database.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
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
  Database reader(path);
  Database writer(path);
  writer.Commit({{"a", Number(1)}, {"a-size", Number(1)}});
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
  tests::ChildProcess child([this] {
    Database database(path);
    database.Commit({{"a", Number(7)}});
    return ::kill(::getpid(), SIGKILL);
  });
  EXPECT_EQ(child.Wait(), -1);
  EXPECT_EQ(TextOf(Database(path), "a"), "number 7");
}

TEST_F(DatabaseAt, DiskFull_ThrowsAndNothingHalfKept) {
  Database(path).Commit({{"a", Number(1)}, {"a-size", Number(1)}});
  tests::ChildProcess child([this] {
    Database database(path);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit nothing{0, 0};
    if (::setrlimit(RLIMIT_FSIZE, &nothing) != 0) return 2;
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

TEST_F(DatabaseAt, ValueOfUnknownType_Throws) {
  { const Database database(path); }
  Run("INSERT INTO record VALUES ('a', 2, x'00'), ('b', 0, 5), ('c', 1, x'00'), ('d', 1, 65536),"
      " ('e', 1, -1), ('f', 1, 'text')");
  const Database database(path);
  for (const auto* key : {"a", "b", "c", "d", "e", "f"}) {
    EXPECT_THROW(TextOf(database, key), StorageError) << key;
  }
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
  for (const auto* name : {"", "-wal", "-shm"}) {
    ASSERT_EQ(support::ReplaceFile(path + name, "new", 0600), 0);
    ASSERT_EQ(support::ReplaceFile(path + ".damaged" + name, "old", 0600), 0);
  }
  ASSERT_EQ(support::ReplaceFile(path + ".damaged-journal", "old", 0600), 0);
  EXPECT_EQ(SetDatabaseAside(path), 0);
  std::string contents;
  for (const auto* name : {"", "-wal", "-shm"}) {
    EXPECT_FALSE(fs::exists(path + name));
    EXPECT_EQ(support::ReadFile(path + ".damaged" + name, 10, contents), 0);
    EXPECT_EQ(contents, "new");
  }
  EXPECT_FALSE(fs::exists(path + ".damaged-journal"));
}

TEST_F(DatabaseAt, SetAsideNothing_Succeeds) {
  EXPECT_EQ(SetDatabaseAside(path), 0);
}

TEST_F(DatabaseAt, SetAsideImpossible_Errno) {
  ASSERT_EQ(support::ReplaceFile(path, "new", 0600), 0);
  fs::create_directories(path + ".damaged/in the way");
  EXPECT_EQ(SetDatabaseAside(path), EISDIR);
}

}  // namespace
}  // namespace platform_host
