#include "platform/host/config/HostConfig.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "support/FileContents.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

HostConfig MustParse(const std::string& text) {
  const auto result = HostConfig::Parse(text, "host.toml");
  EXPECT_TRUE(result.Ok()) << text << "\n" << (result.Ok() ? "" : result.Failure().Text());
  return result.Ok() ? result.Value() : HostConfig{};
}

std::string FailureOf(const std::string& text) {
  const auto result = HostConfig::Parse(text, "host.toml");
  return result.Ok() ? "accepted: " + text : result.Failure().Text();
}

TEST(HostConfigParse, EmptyText_Defaults) {
  const HostConfig config = MustParse("");
  EXPECT_EQ(config.logLevel, LogLevel::kInfo);
  EXPECT_TRUE(config.logToStandardError);
  EXPECT_FALSE(config.logToDlt);
  EXPECT_THAT(config.logFiles, IsEmpty());
  EXPECT_EQ(config.trustStoreDirectory, "/var/lib/truststore-update-client/trust-store");
  EXPECT_EQ(config.persistencyDirectory, "/var/lib/truststore-update-client/persistency");
}

TEST(HostConfigParse, DirectoriesAndLevel_Taken) {
  const HostConfig config = MustParse(
      "[logging]\nlevel = \"verbose\"\n"
      "[trust_store]\ndirectory = \"/a/trust\"\n[persistency]\ndirectory = \"/a/records\"\n");
  EXPECT_EQ(config.logLevel, LogLevel::kVerbose);
  EXPECT_EQ(config.trustStoreDirectory, "/a/trust");
  EXPECT_EQ(config.persistencyDirectory, "/a/records");
}

TEST(HostConfigParse, SinksWithoutStandardError_FilesOnly) {
  const HostConfig config = MustParse("[logging]\nsinks = [\"file:/var/log/a\", \"file:/b c\"]\n");
  EXPECT_FALSE(config.logToStandardError);
  EXPECT_THAT(config.logFiles, ElementsAre("/var/log/a", "/b c"));
}

TEST(HostConfigParse, Dlt_OnlyThere) {
  const HostConfig config = MustParse("[logging]\nsinks = [\"dlt\"]\n");
  EXPECT_TRUE(config.logToDlt);
  EXPECT_FALSE(config.logToStandardError);
  EXPECT_THAT(config.logFiles, IsEmpty());
}

TEST(HostConfigParse, SinksWithStandardError_Both) {
  const HostConfig config = MustParse("[logging]\nsinks = [\"file:/a\", \"stderr\"]\n");
  EXPECT_TRUE(config.logToStandardError);
  EXPECT_THAT(config.logFiles, ElementsAre("/a"));
}

TEST(HostConfigParse, EveryDocumentedKey_Accepted) {
  const std::vector<std::string> texts = {
      "# only a comment\n",
      "[logging]\nlevel = \"info\"\nsinks = [\"stderr\"]\n",
      "[logging]\nsinks = []\n",
      "[control]\nsocket = \"/run/control.sock\"\n",
      "[mqtt]\nhost = \"broker.example\"\nport = 1883\nclient_id = \"unit\"\nkeep_alive_s = 60\n"
      "ca_file = \"/c\"\ncert_file = \"/d\"\nkey_file = \"/e\"\nusername = \"u\"\n"
      "password_file = \"/p\"\n",
      "[limits]\nresponse_bytes = 16777216\nexchange_s = 120\n",
      "[service.\"RUNA-TruststoreUpdate.CORequestTSC\"]\nurl = \"https://h/p\"\n"
      "token_file = \"/t\"\nca_file = \"/c\"\ncert_file = \"/d\"\nkey_file = \"/e\"\n",
      "[service.A]\ntoken = \"t\"\nbundle = \"B\"\n[service.B]\n",
      "service = {}\n",
      "logging.level = \"error\"\n",
  };
  for (const auto& text : texts) MustParse(text);
}

struct Refusal {
  std::string text;
  std::string failure;
};

TEST(HostConfigParse, UnknownKeyOrWrongType_FileLineAndKeyNamed) {
  const std::string strings = "must be a string";
  const std::vector<Refusal> cases = {
      {"x = 1\n", "host.toml:1: x: unknown key"},
      {"\n\n[loging]\n", "host.toml:3: loging: unknown key"},
      {"[logging]\nlevels = \"info\"\n", "host.toml:2: logging.levels: unknown key"},
      {"[trust_store]\n\npath = \"/a\"\n", "host.toml:3: trust_store.path: unknown key"},
      {"[persistency]\ndir = \"/a\"\n", "host.toml:2: persistency.dir: unknown key"},
      {"[control]\nmode = 384\n", "host.toml:2: control.mode: unknown key"},
      {"[mqtt]\nqos = 1\n", "host.toml:2: mqtt.qos: unknown key"},
      {"[limits]\nbytes = 1\n", "host.toml:2: limits.bytes: unknown key"},
      {"[service.\"A.B\"]\nuri = \"x\"\n", "host.toml:2: service.\"A.B\".uri: unknown key"},
      {"[service]\nurl = \"x\"\n", "host.toml:2: service.\"url\": must be a table"},
      {"[\"service.*\"]\n", "host.toml:1: service.*: unknown key"},
      {"service = 1\n", "host.toml:1: service: must be a table"},
      {"logging = \"x\"\n", "host.toml:1: logging: must be a table"},
      {"[[mqtt]]\nport = 1\n", "host.toml:1: mqtt: must be a table"},
      {"[logging]\nlevel = 3\n", "host.toml:2: logging.level: " + strings},
      {"[logging]\nsinks = \"stderr\"\n", "host.toml:2: logging.sinks: must be a list of strings"},
      {"[logging]\nsinks = [\"stderr\", 1]\n",
       "host.toml:2: logging.sinks: must be a list of strings"},
      {"[trust_store]\ndirectory = true\n", "host.toml:2: trust_store.directory: " + strings},
      {"[persistency]\ndirectory = []\n", "host.toml:2: persistency.directory: " + strings},
      {"[mqtt]\nport = \"1883\"\n", "host.toml:2: mqtt.port: must be an integer"},
      {"[mqtt]\nport = 1.0\n", "host.toml:2: mqtt.port: must be an integer"},
      {"[limits]\nexchange_s = 2024-07-05\n", "host.toml:2: limits.exchange_s: must be an integer"},
      {"[service.A]\ntoken = 1\n", "host.toml:2: service.\"A\".token: " + strings},
  };
  for (const auto& one : cases) EXPECT_EQ(FailureOf(one.text), one.failure);
}

TEST(HostConfigParse, UnusableValue_FileLineAndKeyNamed) {
  const std::string sinks = "host.toml:2: logging.sinks: ";
  const std::string form = sinks + "each must be \"stderr\", \"dlt\", or \"file:\" and a path";
  const std::string path = "must be an absolute path";
  const std::vector<Refusal> cases = {
      {"[logging]\nlevel = \"INFO\"\n",
       "host.toml:2: logging.level: must be verbose, debug, info, warning or error"},
      {"[logging]\nsinks = [\"stdout\"]\n", form},
      {"[logging]\nsinks = [\"\"]\n", form},
      {"[logging]\nsinks = [\"DLT\"]\n", form},
      {"[logging]\nsinks = [\"dlt:TU\"]\n", form},
      {"[logging]\nsinks = [\"stderr\", \"file:log\"]\n", sinks + path},
      {"[logging]\nsinks = [\"file:\"]\n", sinks + path},
      {"[trust_store]\ndirectory = \"store\"\n", "host.toml:2: trust_store.directory: " + path},
      {"[trust_store]\ndirectory = \"\"\n", "host.toml:2: trust_store.directory: " + path},
      {"[persistency]\ndirectory = \"./p\"\n", "host.toml:2: persistency.directory: " + path},
      {"[persistency]\ndirectory = \"/a\\u0000b\"\n",
       "host.toml:2: persistency.directory: " + path},
  };
  for (const auto& one : cases) EXPECT_EQ(FailureOf(one.text), one.failure);
}

TEST(HostConfigParse, SyntaxError_FileAndLineNamed) {
  const std::vector<std::string> texts = {
      "\nlogging",  "\n[logging",       "\n[logging]]",  "\nx = ",        "\nx = \"open",
      "\nx = \xFF", "\nx = [1, 2",      "\nx = 1 y = 2", "\n[a]\n[a]",    "\nx = 1\nx = 2",
      "\n= 1",      "\nx = 2024-99-99", "\nx = 0x",      "\nx = \"\\q\"", "\nx = {a = 1,}",
  };
  for (const auto& text : texts) {
    EXPECT_THAT(FailureOf(text), ::testing::MatchesRegex("host.toml:[23]: .+")) << text;
  }
}

TEST(HostConfigParse, DeepNesting_SyntaxError) {
  EXPECT_THAT(FailureOf("x = " + std::string(30000, '[')), StartsWith("host.toml:1: "));
}

TEST(HostConfigParse, KeyOfManyParts_Refused) {
  std::string key = "a";
  while (key.size() + 4 < HostConfig::kSizeLimit) key += ".a";
  EXPECT_EQ(FailureOf(key + "=1"), "host.toml:1: more than 64 dots in a key");
  EXPECT_EQ(FailureOf("\n[" + key + "]"), "host.toml:2: more than 64 dots in a key");
}

TEST(HostConfigParse, DeepestKey_ReadAsAnyOther) {
  std::string key = "mqtt";
  for (int dots = 0; dots < 64; ++dots) key += ".a";
  EXPECT_EQ(FailureOf(key + " = 1"), "host.toml:1: mqtt.a: unknown key");
  EXPECT_EQ(FailureOf(key + ".a = 1"), "host.toml:1: more than 64 dots in a key");
}

TEST(HostConfigParse, ManyDotsInValue_Taken) {
  const std::string path = "/" + std::string(100, '.');
  EXPECT_EQ(MustParse("[trust_store]\ndirectory = \"" + path + "\"\n").trustStoreDirectory, path);
}

TEST(HostConfigParse, TextAtSizeLimit_Accepted) {
  MustParse(std::string(HostConfig::kSizeLimit, '\n'));
}

TEST(HostConfigParse, TextAboveSizeLimit_Refused) {
  EXPECT_EQ(FailureOf(std::string(HostConfig::kSizeLimit + 1, '\n')), "host.toml: File too large");
}

class HostConfigFile : public ::testing::Test {
 protected:
  ~HostConfigFile() override { ::unsetenv(HostConfig::kPathVariable); }

  void Write(const std::string& text) const {
    ASSERT_EQ(support::ReplaceFile(path, text, 0600), 0);
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/host.toml";
};

TEST_F(HostConfigFile, Missing_DefaultsAndItsPath) {
  const auto result = HostConfig::Load(path);
  ASSERT_TRUE(result.Ok());
  EXPECT_EQ(result.Value().missingFile, path);
  EXPECT_EQ(result.Value().trustStoreDirectory, HostConfig{}.trustStoreDirectory);
}

TEST_F(HostConfigFile, Present_Read) {
  Write("[logging]\nlevel = \"debug\"\n");
  const auto result = HostConfig::Load(path);
  ASSERT_TRUE(result.Ok());
  EXPECT_EQ(result.Value().missingFile, "");
  EXPECT_EQ(result.Value().logLevel, LogLevel::kDebug);
}

TEST_F(HostConfigFile, Broken_PathNamed) {
  Write("level = 1\n");
  const auto result = HostConfig::Load(path);
  ASSERT_FALSE(result.Ok());
  EXPECT_EQ(result.Failure().Text(), path + ":1: level: unknown key");
}

TEST_F(HostConfigFile, Directory_ReasonNamed) {
  const auto result = HostConfig::Load(directory.Path());
  ASSERT_FALSE(result.Ok());
  EXPECT_EQ(result.Failure().Text(), directory.Path() + ": Is a directory");
}

TEST_F(HostConfigFile, AboveSizeLimit_Refused) {
  Write(std::string(HostConfig::kSizeLimit + 1, '\n'));
  const auto result = HostConfig::Load(path);
  ASSERT_FALSE(result.Ok());
  EXPECT_EQ(result.Failure().Text(), path + ": File too large");
}

TEST_F(HostConfigFile, OfProcess_ReadOnceForEachPath) {
  Write("[logging]\nlevel = \"debug\"\n");
  ::setenv(HostConfig::kPathVariable, path.c_str(), 1);
  const auto& first = HostConfig::OfProcess();
  ASSERT_TRUE(first.Ok());
  Write("[logging]\nlevel = \"error\"\n");
  EXPECT_EQ(&HostConfig::OfProcess(), &first);
  EXPECT_EQ(first.Value().logLevel, LogLevel::kDebug);
}

TEST_F(HostConfigFile, OfProcess_OtherPathItsOwn) {
  Write("[logging]\nlevel = \"debug\"\n");
  ::setenv(HostConfig::kPathVariable, path.c_str(), 1);
  ASSERT_TRUE(HostConfig::OfProcess().Ok());
  const std::string missing = directory.Path() + "/other.toml";
  ::setenv(HostConfig::kPathVariable, missing.c_str(), 1);
  ASSERT_TRUE(HostConfig::OfProcess().Ok());
  EXPECT_EQ(HostConfig::OfProcess().Value().logLevel, LogLevel::kInfo);
}

TEST_F(HostConfigFile, OfProcess_ManyThreadsShareOne) {
  Write("[logging]\nlevel = \"debug\"\n");
  ::setenv(HostConfig::kPathVariable, path.c_str(), 1);
  std::vector<const Result<HostConfig>*> seen(8);
  std::vector<std::thread> threads;
  for (auto& one : seen) threads.emplace_back([&one] { one = &HostConfig::OfProcess(); });
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, ::testing::Each(seen[0]));
}

}  // namespace
}  // namespace platform_host
