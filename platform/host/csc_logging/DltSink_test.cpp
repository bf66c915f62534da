#include "platform/host/csc_logging/DltSink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "csc_logging/CSCLogging.h"
#include "platform/host/csc_logging/DltContexts.h"
#include "support/UniqueFd.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr const char* kPipeVariable = "DLT_PIPE_DIR";

/// Begins each message of libdlt's to the DLT daemon; four bytes of its kind follow.
constexpr std::string_view kMessageMark = "DUH\1";
constexpr char kLogKind = 1;
constexpr char kContextKind = 4;

std::string IdAt(std::string_view message, std::size_t position) {
  const std::string id(message.substr(position, 4));
  return id.substr(0, id.find('\0'));
}

/// A log message as "LEVEL APPLICATION CONTEXT TEXT". Its first byte tells which of the three
/// fields of four bytes stand before the extended header.
std::string Shown(std::string_view message) {
  const auto fields = static_cast<unsigned char>(message.at(0));
  std::size_t position = 4;
  for (const unsigned flag : {4U, 8U, 16U}) position += (fields & flag) != 0 ? 4 : 0;
  const auto level = static_cast<unsigned char>(message.at(position)) >> 4U;
  const std::string_view text = message.substr(position + 16);
  return std::to_string(level) + " " + IdAt(message, position + 2) + " " +
         IdAt(message, position + 6) + " " + std::string(text.substr(0, text.size() - 1));
}

/// Stands in for the DLT daemon: the pipe that libdlt writes to. What writes to it is the statement
/// of a death test, in a process of its own, as libdlt's life is that of a process.
class DltPipe : public ::testing::Test {
 protected:
  DltPipe() {
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    // The statement's process has the folder of the test that waits for it.
    if (const char* folder = std::getenv(kPipeVariable)) {
      path = folder;
      return;
    }
    path = directory.emplace().Path();
    ::setenv(kPipeVariable, path.c_str(), 1);
    EXPECT_EQ(::mkfifo((path + "/dlt").c_str(), 0600), 0);
    daemon = support::UniqueFd(::open((path + "/dlt").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  }
  ~DltPipe() override {
    if (directory) ::unsetenv(kPipeVariable);
  }

  /// No DLT daemon any more, or yet.
  void RemoveDaemon() {
    std::filesystem::remove(path + "/dlt");
    daemon = support::UniqueFd();
  }

  /// Every message so far of one kind, without mark and kind.
  [[nodiscard]] std::vector<std::string> Messages(char kind) {
    std::string chunk(65536, '\0');
    for (ssize_t count; (count = ::read(daemon.Get(), chunk.data(), chunk.size())) > 0;) {
      received.append(chunk, 0, static_cast<std::size_t>(count));
    }
    std::vector<std::string> found;
    std::size_t begin = received.find(kMessageMark);
    while (begin != std::string::npos) {
      const std::size_t end = received.find(kMessageMark, begin + 1);
      const std::string message =
          received.substr(begin + 4, end == std::string::npos ? end : end - begin - 4);
      if (message.at(0) == kind) found.push_back(message.substr(4));
      begin = end;
    }
    return found;
  }

  [[nodiscard]] std::vector<std::string> Lines() {
    std::vector<std::string> lines;
    for (const auto& message : Messages(kLogKind)) lines.push_back(Shown(message));
    return lines;
  }

  std::optional<tests::TemporaryDirectory> directory;
  std::string path;
  support::UniqueFd daemon;
  std::string received;
};

using DltSinkDeathTest = DltPipe;

/// Ends the process as the client does, nothing said on standard error.
#define EXPECT_ENDS_IN_ORDER(statement) \
  EXPECT_EXIT(                          \
      {                                 \
        statement;                      \
        std::exit(0);                   \
      },                                \
      ::testing::ExitedWithCode(0), "^$")

TEST_F(DltSinkDeathTest, LinesOfEachLevel_ApplicationContextAndLevel) {
  EXPECT_ENDS_IN_ORDER({
    const auto sink = OpenDltSink("TU", LogLevel::kVerbose).Value();
    sink->Write(LogLevel::kVerbose, "StreamCommunicator");
    sink->Write(LogLevel::kDebug, "HSM: OCSP retries Enabled");
    sink->Write(LogLevel::kInfo, "Truststore Update Client Ready");
    sink->Write(LogLevel::kWarning, "libaralog: a");
    sink->Write(LogLevel::kError, "HttpConnection: Receive Timeout");
  });
  EXPECT_THAT(Lines(),
              ElementsAre("6 TU MAIN StreamCommunicator", "5 TU HSM HSM: OCSP retries Enabled",
                          "4 TU MAIN Truststore Update Client Ready", "3 TU HLOG libaralog: a",
                          "2 TU HTTP HttpConnection: Receive Timeout"));
}

TEST_F(DltSinkDeathTest, Begin_RegistersEveryContextAtTheLevel) {
  EXPECT_ENDS_IN_ORDER((void)OpenDltSink("TU", LogLevel::kWarning));
  const auto contexts = Messages(kContextKind);
  ASSERT_THAT(contexts, SizeIs(kDltContexts.size()));
  for (std::size_t index = 0; index < contexts.size(); ++index) {
    const std::string& message = contexts.at(index);
    EXPECT_EQ(IdAt(message, 0), "TU");
    EXPECT_EQ(IdAt(message, 4), kDltContexts.at(index).id);
    EXPECT_EQ(message.at(12), 3) << kDltContexts.at(index).id;
    EXPECT_THAT(message, HasSubstr(kDltContexts.at(index).description));
  }
}

TEST_F(DltSinkDeathTest, ControlCharactersAndBytesThatAreNoText_Escaped) {
  EXPECT_ENDS_IN_ORDER(OpenDltSink("TU", LogLevel::kInfo)
                           .Value()
                           ->Write(LogLevel::kInfo, std::string_view("a\nb\0c\x1b\xffü", 9)));
  EXPECT_THAT(Lines(), ElementsAre(R"(4 TU MAIN a\x0ab\x00c\x1b\xffü)"));
}

TEST_F(DltSinkDeathTest, LongestText_Whole) {
  EXPECT_ENDS_IN_ORDER(OpenDltSink("TU", LogLevel::kInfo)
                           .Value()
                           ->Write(LogLevel::kInfo, std::string(kDltTextLimit, 'x')));
  EXPECT_THAT(Lines(), ElementsAre("4 TU MAIN " + std::string(kDltTextLimit, 'x')));
}

TEST_F(DltSinkDeathTest, OneByteMore_CutAndMarked) {
  EXPECT_ENDS_IN_ORDER(OpenDltSink("TU", LogLevel::kInfo)
                           .Value()
                           ->Write(LogLevel::kInfo, std::string(kDltTextLimit + 1, 'x')));
  EXPECT_THAT(Lines(), ElementsAre("4 TU MAIN " + std::string(kDltTextLimit - 6, 'x') + " [cut]"));
}

TEST_F(DltSinkDeathTest, LineWithToken_NotWritten) {
  EXPECT_ENDS_IN_ORDER({
    ReplaceLogSinks({OpenDltSink("TU", LogLevel::kInfo).Value()}, LogLevel::kInfo);
    csc_logging::CSCLogging::LogInfo("HttpConnection: Authorization: Bearer s3cr:t");
  });
  EXPECT_THAT(Lines(), ElementsAre("4 TU HTTP HttpConnection: Authorization: Bearer ***"));
}

TEST_F(DltSinkDeathTest, SecondOpening_SameSink) {
  EXPECT_ENDS_IN_ORDER({
    const auto sink = OpenDltSink("TU", LogLevel::kInfo).Value();
    if (OpenDltSink("OTHR", LogLevel::kError).Value() != sink) std::abort();
  });
  EXPECT_THAT(Messages(kContextKind), SizeIs(kDltContexts.size()));
}

TEST_F(DltSinkDeathTest, LinksCanBePlanted_Refused) {
  ASSERT_EQ(::chmod(path.c_str(), 0777), 0);
  EXPECT_EXIT(
      {
        std::cerr << OpenDltSink("TU", LogLevel::kInfo).Failure().Text();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0),
      "^cannot log to DLT: anybody can plant a link in " + path + "$");
  EXPECT_FALSE(std::filesystem::exists(path + "/dltpipes"));
}

TEST_F(DltSinkDeathTest, NoFolderForThePipe_Refused) {
  std::filesystem::remove_all(path);
  EXPECT_ENDS_IN_ORDER(if (OpenDltSink("TU", LogLevel::kInfo).Ok()) std::abort());
}

/// libdlt must leave as it was what SIGPIPE does, and whether it is blocked.
void ExpectSignalsAsBefore() {
  struct sigaction action {};
  ::sigaction(SIGPIPE, nullptr, &action);
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  if (action.sa_handler != SIG_DFL || ::sigismember(&blocked, SIGPIPE) == 1) std::abort();
}

TEST_F(DltSinkDeathTest, DaemonEnds_NoSignalAndLinesGoOn) {
  daemon = support::UniqueFd();  // the statement's process has the only reader
  EXPECT_ENDS_IN_ORDER({
    ::signal(SIGPIPE, SIG_DFL);
    daemon = support::UniqueFd(::open((path + "/dlt").c_str(), O_RDWR | O_NONBLOCK));
    const auto sink = OpenDltSink("TU", LogLevel::kInfo).Value();
    ExpectSignalsAsBefore();
    sink->Write(LogLevel::kInfo, "before");
    RemoveDaemon();
    for (int line = 0; line < 3; ++line) sink->Write(LogLevel::kInfo, "after");
    ExpectSignalsAsBefore();
  });
}

TEST_F(DltSinkDeathTest, NoDaemon_EndsAllTheSame) {
  RemoveDaemon();
  EXPECT_ENDS_IN_ORDER(OpenDltSink("TU", LogLevel::kInfo).Value()->Write(LogLevel::kInfo, "lost"));
  EXPECT_TRUE(std::filesystem::is_empty(path + "/dltpipes"));
}

TEST_F(DltSinkDeathTest, DaemonReadsNothing_EveryLineReturns) {
  EXPECT_ENDS_IN_ORDER({
    const auto sink = OpenDltSink("TU", LogLevel::kInfo).Value();
    for (int line = 0; line < 2000; ++line) sink->Write(LogLevel::kInfo, std::string(1000, 'x'));
  });
  EXPECT_THAT(Lines(), Contains("4 TU MAIN " + std::string(1000, 'x')));
}

TEST_F(DltSinkDeathTest, ManyThreads_EveryLineArrives) {
  EXPECT_ENDS_IN_ORDER({
    const auto sink = OpenDltSink("TU", LogLevel::kInfo).Value();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&] {
        for (int line = 0; line < 100; ++line) sink->Write(LogLevel::kInfo, "HSM: a");
      });
    }
    for (auto& thread : threads) thread.join();
  });
  EXPECT_EQ(Lines(), std::vector<std::string>(400, "4 TU HSM HSM: a"));
}

/// Logs from the very last destructor of its process.
struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { sink->Write(LogLevel::kError, "HSM: last words"); }
  std::shared_ptr<LogSink> sink;
};

TEST_F(DltSinkDeathTest, LineBehindTheExitHandlers_StandardError) {
  EXPECT_EXIT(
      {
        static LogsWhenDestroyed last;
        last.sink = OpenDltSink("TU", LogLevel::kInfo).Value();
        last.sink->Write(LogLevel::kInfo, "first");
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), MatchesRegex("20[^ ]*Z error TU HSM: last words\n"));
  EXPECT_THAT(Lines(), ElementsAre("4 TU MAIN first"));
}

TEST_F(DltSinkDeathTest, Errno_Kept) {
  EXPECT_ENDS_IN_ORDER({
    const auto sink = OpenDltSink("TU", LogLevel::kInfo).Value();
    errno = ENOTTY;
    sink->Write(LogLevel::kInfo, "a");
    if (errno != ENOTTY) std::abort();
  });
}

}  // namespace
}  // namespace platform_host
