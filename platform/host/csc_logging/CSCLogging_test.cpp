#include "csc_logging/CSCLogging.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/host/config/HostConfig.h"
#include "platform/host/csc_logging/LineFormat.h"
#include "platform/host/csc_logging/LogSinks.h"
#include "support/FileContents.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using csc_logging::CSCLogging;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr const char* kTime = "20..-..-..T..:..:..[.]...Z ";

/// Runs with a configuration of its own; standard error is caught.
class Logging : public ::testing::Test {
 protected:
  ~Logging() override {
    ::unsetenv(HostConfig::kPathVariable);
    ::unsetenv("JOURNAL_STREAM");
    ReplaceLogSinks({}, LogLevel::kError);
  }

  void Configure(const std::string& text) const {
    ASSERT_EQ(support::ReplaceFile(configPath, text, 0600), 0);
    ::setenv(HostConfig::kPathVariable, configPath.c_str(), 1);
  }

  /// What `action` writes to standard error.
  template <typename Action>
  static std::string ErrorOutputOf(Action action) {
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
  }

  [[nodiscard]] std::string LogFile() const {
    std::string contents;
    EXPECT_EQ(support::ReadFile(logPath, 1 << 20, contents), 0);
    return contents;
  }

  const tests::TemporaryDirectory directory;
  const std::string configPath = directory.Path() + "/host.toml";
  const std::string logPath = directory.Path() + "/unit.log";
};

TEST_F(Logging, NamedConfigurationMissing_ToldAndStandardErrorFromInfo) {
  ::setenv(HostConfig::kPathVariable, (directory.Path() + "/missing").c_str(), 1);
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogDebug("unseen");
    CSCLogging::LogInfo("seen");
  });
  EXPECT_THAT(output,
              MatchesRegex(std::string(kTime) + "warning TU libaralog: " + directory.Path() +
                           "/missing: No such file or directory: every default holds\n" + kTime +
                           "info TU seen\n"));
}

TEST_F(Logging, LongApplicationId_FourCharacters) {
  Configure("");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("LONGER");
    CSCLogging::LogInfo("x");
  });
  EXPECT_THAT(output, MatchesRegex(std::string(kTime) + "info LONG x\n"));
}

TEST_F(Logging, ConfiguredFile_OnlyThere) {
  Configure("[logging]\nsinks = [\"file:" + logPath + "\"]\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogWarning("to the file");
  });
  EXPECT_EQ(output, "");
  EXPECT_THAT(LogFile(), MatchesRegex(std::string(kTime) + "warning TU to the file\n"));
}

TEST_F(Logging, TwoSinks_BothReceive) {
  Configure("[logging]\nsinks = [\"stderr\", \"file:" + logPath + "\"]\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogError("twice");
  });
  EXPECT_THAT(output, MatchesRegex(std::string(kTime) + "error TU twice\n"));
  EXPECT_THAT(LogFile(), MatchesRegex(std::string(kTime) + "error TU twice\n"));
}

TEST_F(Logging, ConfiguredLevel_LowerLinesDropped) {
  Configure("[logging]\nlevel = \"warning\"\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogVerbose("a");
    CSCLogging::LogDebug("b");
    CSCLogging::LogInfo("c");
    CSCLogging::LogWarning("d");
    CSCLogging::LogError("e");
  });
  EXPECT_THAT(output, MatchesRegex(std::string(kTime) + "warning TU d\n" + kTime + "error TU e\n"));
}

TEST_F(Logging, LowestLevel_EveryLine) {
  Configure("[logging]\nlevel = \"verbose\"\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogVerbose("a");
  });
  EXPECT_THAT(output, MatchesRegex(std::string(kTime) + "verbose TU a\n"));
}

TEST_F(Logging, BrokenConfiguration_StandardErrorAndOneErrorLine) {
  Configure("[logging]\nlevel = \"debug\"\nsinks = [\"stdout\"]\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogDebug("unseen");
  });
  EXPECT_THAT(output, MatchesRegex(std::string(kTime) + "error TU libaralog: " + configPath +
                                   ":3: logging.sinks: each must be \"stderr\", \"dlt\", "
                                   "or \"file:\" and a path\n"));
}

TEST_F(Logging, FileCannotBeOpened_OthersGoOnAndTell) {
  const std::string missing = directory.Path() + "/missing/log";
  Configure("[logging]\nsinks = [\"file:" + missing + "\", \"file:" + logPath + "\"]\n");
  const std::string output = ErrorOutputOf([] { CSCLogging::InitLogging("TU"); });
  EXPECT_EQ(output, "");
  EXPECT_THAT(LogFile(), MatchesRegex(std::string(kTime) +
                                      "error TU libaralog: cannot open log "
                                      "file " +
                                      missing + ": No such file or directory\n"));
}

TEST_F(Logging, NoSinkLeft_StandardErrorTells) {
  const std::string missing = directory.Path() + "/missing/log";
  Configure("[logging]\nsinks = [\"file:" + missing + "\"]\n");
  const std::string output = ErrorOutputOf([] { CSCLogging::InitLogging("TU"); });
  EXPECT_THAT(output,
              MatchesRegex(std::string(kTime) + "error TU libaralog: cannot open log file " +
                           missing + ": No such file or directory\n"));
}

TEST_F(Logging, DltCannotBegin_OthersGoOnAndTell) {
  ::setenv("DLT_PIPE_DIR", (directory.Path() + "/missing").c_str(), 1);
  Configure("[logging]\nsinks = [\"dlt\", \"file:" + logPath + "\"]\n");
  const std::string output = ErrorOutputOf([] { CSCLogging::InitLogging("TU"); });
  ::unsetenv("DLT_PIPE_DIR");
  EXPECT_EQ(output, "");
  EXPECT_THAT(
      LogFile(),
      MatchesRegex(std::string(kTime) +
                   "error TU libaralog: cannot log to DLT: libdlt cannot make its pipe in " +
                   directory.Path() + "/missing\n"));
}

TEST_F(Logging, EmptySinkList_StandardError) {
  Configure("[logging]\nsinks = []\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogInfo("somewhere at least");
  });
  EXPECT_THAT(output, HasSubstr("info TU somewhere at least\n"));
}

TEST_F(Logging, JournalOnStandardError_PriorityPrefix) {
  Configure("");
  const std::string output = ErrorOutputOf([] {
    struct stat status {};
    ASSERT_EQ(::fstat(STDERR_FILENO, &status), 0);
    ::setenv("JOURNAL_STREAM",
             (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
    CSCLogging::InitLogging("TU");
    CSCLogging::LogError("for the journal");
  });
  EXPECT_EQ(output, "<3>TU for the journal\n");
}

/// As the client logs a request that it has sent.
constexpr const char* kRequestLine = "Sent request\nAuthorization: Bearer s3cr:t\r\nHost: a\n";
constexpr const char* kShownRequest =
    R"(Sent request\x0aAuthorization: Bearer ***\x0d\x0aHost: a\x0a)"
    "\n";

TEST_F(Logging, LineWithToken_NoSinkWritesIt) {
  Configure("[logging]\nlevel = \"debug\"\nsinks = [\"stderr\", \"file:" + logPath + "\"]\n");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogDebug(kRequestLine);
  });
  EXPECT_THAT(output, EndsWith(kShownRequest));
  EXPECT_THAT(LogFile(), EndsWith(kShownRequest));
}

TEST_F(Logging, TokenWhereTheLineIsCut_NoPartOfIt) {
  Configure("");
  const std::string output = ErrorOutputOf([] {
    CSCLogging::InitLogging("TU");
    CSCLogging::LogInfo(std::string(kLineLimit - 60, 'x') + " Bearer " + std::string(9000, 's'));
  });
  EXPECT_THAT(output, EndsWith("x Bearer ***\n"));
}

/// Each statement runs in a fresh process, in which nothing has been logged before.
class LoggingDeathTest : public ::testing::Test {
 protected:
  LoggingDeathTest() { ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

TEST_F(LoggingDeathTest, BeforeInitLogging_StandardErrorFromInfo) {
  EXPECT_EXIT(
      {
        CSCLogging::LogDebug("unseen");
        CSCLogging::LogInfo("seen");
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), MatchesRegex(std::string(kTime) + "info - seen\n"));
}

TEST_F(LoggingDeathTest, TokenBeforeInitLogging_NotWrittenEither) {
  EXPECT_EXIT(
      {
        CSCLogging::LogInfo("Bearer secret");
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), MatchesRegex(std::string(kTime) + "info - Bearer [*][*][*]\n"));
}

/// Logs from the very last destructor of its process.
struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { CSCLogging::LogError("last words"); }
};

TEST_F(LoggingDeathTest, StaticDestructor_StillLogs) {
  EXPECT_EXIT(
      {
        static const LogsWhenDestroyed last;
        CSCLogging::LogInfo("first");
        std::exit(0);
      },
      ::testing::ExitedWithCode(0),
      MatchesRegex(std::string(kTime) + "info - first\n" + kTime + "error - last words\n"));
}

}  // namespace
}  // namespace platform_host
