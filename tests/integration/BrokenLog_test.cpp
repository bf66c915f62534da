// A unit whose log nobody reads any more.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "csc_logging/CSCLogging.h"
#include "signal_handler/SignalHandler.h"
#include "support/UniqueFd.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using csc_logging::CSCLogging;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr unsigned kDeadlineS = 60;

/// Leads standard error into a pipe that nobody reads.
void BreakStandardError() {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) std::abort();
  ::close(ends[0]);
  ::close(ends[1]);
}

/// Logs lines, ends itself by SIGTERM, and returns 0 when it was told.
int LogAndEnd() {
  ::alarm(kDeadlineS);
  BreakStandardError();
  CSCLogging::InitLogging("TU");
  tests::EventLog events;
  const signal_handler::SignalHandler handler([&events] { events.Add("terminated"); });
  for (int line = 0; line < 100; ++line) CSCLogging::LogInfo("a line");
  ::kill(::getpid(), SIGTERM);
  return events.WaitFor("terminated") ? 0 : 1;
}

TEST(BrokenLog, StandardErrorWithoutReader_EndsInOrderAndHearsOfNoBrokenPipe) {
  const tests::TemporaryDirectory directory;
  const std::string file = directory.Path() + "/log";
  const std::string config = directory.Path() + "/host-platform.toml";
  tests::WriteText(config, "[logging]\nsinks = [\"stderr\", \"file:" + file + "\"]\n");
  tests::ChildProcess unit([&] {
    ::setenv("TSUC_HOST_CONFIG", config.c_str(), 1);
    return LogAndEnd();
  });
  EXPECT_EQ(unit.Wait(), 0);
  const std::string log = tests::ReadText(file);
  EXPECT_THAT(log, HasSubstr("a line"));
  EXPECT_THAT(log, HasSubstr("SignalHandler: SIGTERM received."));
  EXPECT_THAT(log, Not(HasSubstr("SignalHandler: Signal 13 caught")));
}

}  // namespace
