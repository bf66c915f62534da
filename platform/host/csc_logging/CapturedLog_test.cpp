#include "platform/host/csc_logging/CapturedLog.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "csc_logging/CSCLogging.h"

namespace platform_host {
namespace {

using csc_logging::CSCLogging;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(CapturedLog, LinesOfEachLevel_KeptInOrderWithLevelName) {
  const CapturedLog log;
  CSCLogging::LogVerbose("one");
  CSCLogging::LogDebug("two");
  CSCLogging::LogInfo("three");
  CSCLogging::LogWarning("four");
  CSCLogging::LogError("five");
  EXPECT_THAT(log.Lines(), ElementsAre("verbose: one", "debug: two", "info: three", "warning: four",
                                       "error: five"));
}

TEST(CapturedLog, LinesFromLevel_LowerOnesLeftOut) {
  const CapturedLog log;
  CSCLogging::LogInfo("low");
  CSCLogging::LogWarning("at the level");
  CSCLogging::LogError("above");
  EXPECT_THAT(log.Lines(LogLevel::kWarning), ElementsAre("warning: at the level", "error: above"));
}

TEST(CapturedLog, TextWithControlBytes_KeptUnchanged) {
  const CapturedLog log;
  const std::string text("a\nb\0c", 5);
  CSCLogging::LogInfo(text);
  ASSERT_EQ(log.Records().size(), 1U);
  EXPECT_EQ(log.Records()[0].text, text);
  EXPECT_EQ(log.Records()[0].level, LogLevel::kInfo);
}

TEST(CapturedLog, TextWithToken_KeptUnchanged) {
  const CapturedLog log;
  CSCLogging::LogDebug("Authorization: Bearer secret");
  EXPECT_THAT(log.Lines(), ElementsAre("debug: Authorization: Bearer secret"));
}

TEST(CapturedLog, Entry_TextOfEntryKept) {
  const CapturedLog log;
  csc_logging::CSCLogEntry entry;
  entry << "status " << std::uint8_t{10};
  CSCLogging::LogError(entry);
  EXPECT_THAT(log.Lines(), ElementsAre("error: status 10"));
}

TEST(CapturedLog, Clear_LaterLinesOnly) {
  CapturedLog log;
  CSCLogging::LogInfo("before");
  log.Clear();
  CSCLogging::LogInfo("after");
  EXPECT_THAT(log.Lines(), ElementsAre("info: after"));
}

TEST(CapturedLog, Nested_NewestReceivesThenOuterAgain) {
  const CapturedLog outer;
  {
    const CapturedLog inner;
    CSCLogging::LogInfo("inside");
    EXPECT_THAT(inner.Lines(), ElementsAre("info: inside"));
  }
  CSCLogging::LogInfo("outside");
  EXPECT_THAT(outer.Lines(), ElementsAre("info: outside"));
}

TEST(CapturedLog, EndedOutOfOrder_OtherGoesOn) {
  auto first = std::make_unique<CapturedLog>();
  const CapturedLog second;
  first.reset();
  CSCLogging::LogInfo("still here");
  EXPECT_THAT(second.Lines(), ElementsAre("info: still here"));
}

TEST(CapturedLog, InitLoggingMeanwhile_StillCaptures) {
  const CapturedLog log;
  CSCLogging::InitLogging("TU");
  CSCLogging::LogDebug("caught");
  EXPECT_THAT(log.Lines(), ElementsAre("debug: caught"));
}

TEST(CapturedLog, ManyThreads_EveryLineKeptInOrderOfItsThread) {
  constexpr std::size_t kThreads = 4;
  constexpr int kLines = 200;
  const CapturedLog log;
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < kThreads; ++index) {
    threads.emplace_back([index] {
      for (int line = 0; line < kLines; ++line) {
        CSCLogging::LogInfo(std::to_string(index) + ":" + std::to_string(line));
      }
    });
  }
  for (auto& thread : threads) thread.join();

  std::vector<int> next(kThreads, 0);
  for (const auto& record : log.Records()) {
    const auto index = static_cast<std::size_t>(record.text[0] - '0');
    EXPECT_EQ(record.text.substr(2), std::to_string(next[index]++));
  }
  EXPECT_THAT(next, ::testing::Each(kLines));
}

TEST(CapturedLog, NothingLogged_Empty) {
  const CapturedLog log;
  EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace platform_host
