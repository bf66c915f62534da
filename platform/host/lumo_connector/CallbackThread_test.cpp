#include "platform/host/lumo_connector/CallbackThread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <stdexcept>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/RecordingListeners.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"

namespace lumo_connector {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Tells its name as often as it is asked to.
class Source : public CallbackSource {
 public:
  Source(std::string sourceName, tests::EventLog& log) : name(std::move(sourceName)), heard(log) {}

  bool TellNext() override {
    if (due == 0) return false;
    --due;
    heard.Add(name);
    gate.Pass();
    hasReturned = true;
    if (isThrowing) throw std::runtime_error("no");
    return true;
  }

  std::atomic<int> due{0};
  std::atomic<bool> isThrowing{false};
  std::atomic<bool> hasReturned{false};
  tests::Gate gate;

 private:
  const std::string name;
  tests::EventLog& heard;
};

class Callbacks : public ::testing::Test {
 protected:
  tests::EventLog heard;
  Source first{"first", heard};
  Source second{"second", heard};
  CallbackThread thread;
};

TEST_F(Callbacks, DueBeforeBegin_ToldWhenWoken) {
  second.due = 2;
  first.due = 1;
  thread.Begin({&first, &second});
  thread.Wake();
  EXPECT_THAT(heard.WaitForCount(3), ElementsAre("first", "second", "second"));
}

TEST_F(Callbacks, WokenBeforeBegin_ToldAfterIt) {
  first.due = 1;
  thread.Wake();
  thread.Begin({&first});
  EXPECT_THAT(heard.WaitForCount(1), ElementsAre("first"));
}

TEST_F(Callbacks, EarlierSourceDueMeanwhile_GoesFirst) {
  second.due = 2;
  second.gate.Close();
  thread.Begin({&first, &second});
  thread.Wake();
  ASSERT_THAT(heard.WaitForCount(1), ElementsAre("second"));
  first.due = 1;
  second.gate.Open();
  EXPECT_THAT(heard.WaitForCount(3), ElementsAre("second", "first", "second"));
}

TEST_F(Callbacks, Stop_WaitsForTheOneUnderWay) {
  first.due = 1;
  first.gate.Close();
  thread.Begin({&first});
  thread.Wake();
  ASSERT_THAT(heard.WaitForCount(1), ElementsAre("first"));
  auto hasReturned = std::async(std::launch::async, [&] {
    thread.Stop();
    return first.hasReturned.load();
  });
  first.gate.Open();
  EXPECT_TRUE(hasReturned.get());
}

TEST_F(Callbacks, Stop_DropsWhatWaits) {
  first.due = 1000000000;
  thread.Begin({&first});
  thread.Wake();
  ASSERT_GE(heard.WaitForCount(1).size(), 1U);
  EXPECT_TRUE(tests::EndsInTime([&] { thread.Stop(); }, [&] { first.due = 0; }));
  const int left = first.due;
  thread.Wake();
  EXPECT_EQ(first.due, left);
}

TEST_F(Callbacks, StopWithoutBegin_Returns) {
  thread.Stop();
  EXPECT_THAT(heard.Texts(), IsEmpty());
}

TEST_F(Callbacks, CallbackThrows_OneLineAndTheNextIsTold) {
  const platform_host::CapturedLog log;
  first.due = 1;
  first.isThrowing = true;
  second.due = 1;
  thread.Begin({&first, &second});
  thread.Wake();
  EXPECT_THAT(heard.WaitForCount(2), ElementsAre("first", "second"));
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libLumoConnectorShared: a callback threw an exception: no"));
}

}  // namespace
}  // namespace lumo_connector
