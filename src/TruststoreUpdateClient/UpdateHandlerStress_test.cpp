// Starts, stops, connection changes and ends of the handler at every instant of its workers' way.
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/LogSinks.h"
#include "tests/support/UpdateHandlerTest.h"

namespace truststore_update_client {
namespace {

using tests::FakeContainerConnection;

constexpr int kTurns = 40;

// Counts a call while it is under way.
class UnderWay {
 public:
  explicit UnderWay(std::atomic<int>& counted) : count(counted) { EXPECT_EQ(count++, 0); }
  ~UnderWay() { --count; }
  UnderWay(const UnderWay&) = delete;
  UnderWay& operator=(const UnderWay&) = delete;

 private:
  std::atomic<int>& count;
};

// Keeps no line, and acts while the first of one text is logged: the thread that logs it has
// looked, and does not wait yet.
class ActingSink : public platform_host::LogSink {
 public:
  ActingSink(std::string awaited, std::function<void()> acts)
      : line(std::move(awaited)), act(std::move(acts)) {}

  void Write(platform_host::LogLevel /*level*/, std::string_view text) noexcept override {
    if (text == line && !hasActed.exchange(true)) act();
  }

 private:
  const std::string line;
  const std::function<void()> act;
  std::atomic<bool> hasActed{false};
};

class UpdateHandlerInstant : public tests::UpdateHandlerTest {
 protected:
  UpdateHandlerInstant() { collaborators.retryInterval = kForEver; }

  // Whether everything ends when `act` happens just before a worker waits.
  [[nodiscard]] bool EndsBy(const std::string& line, const std::function<void()>& start,
                            const std::function<void()>& act) const {
    const auto sink = std::make_shared<ActingSink>(line, act);
    platform_host::BeginLogCapture(sink);
    start();
    const bool ends = tests::Eventually([this] { return !handler->IsContainerUpdateOngoing(); });
    handler->TerminateProcessing();
    platform_host::EndLogCapture(sink.get());
    return ends;
  }

  const std::function<void()> update = [this] { EXPECT_TRUE(Start()); };
  const std::function<void()> report = [this] {
    handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  };
  const std::function<void()> connect = [this] { handler->ConnectionStateChange(true); };
  const std::function<void()> terminate = [this] { handler->TerminateProcessing(); };
  const std::function<void()> disableRetries = [this] { handler->DisableUpdateRetries(); };
};

TEST_F(UpdateHandlerInstant, ConnectionJustBeforeWait_NotMissed) {
  Make(false);
  EXPECT_TRUE(
      EndsBy("Container Download is waiting for correct Connection state...", update, connect));
  EXPECT_EQ(exchange->Reports().size(), 1U);
  Make(false);
  EXPECT_TRUE(EndsBy("Status Update is waiting for correct Connection state...", report, connect));
  EXPECT_EQ(exchange->Reports().size(), 2U);
}

TEST_F(UpdateHandlerInstant, TerminationJustBeforeWaitForConnection_NotMissed) {
  Make(false);
  EXPECT_TRUE(
      EndsBy("Container Download is waiting for correct Connection state...", update, terminate));
  Make(false);
  EXPECT_TRUE(
      EndsBy("Status Update is waiting for correct Connection state...", report, terminate));
  EXPECT_THAT(exchange->Downloads(), ::testing::IsEmpty());
  EXPECT_THAT(exchange->Reports(), ::testing::IsEmpty());
}

TEST_F(UpdateHandlerInstant, EndJustBeforeWaitForNextAttempt_NotMissed) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  for (const auto& act : {terminate, disableRetries}) {
    for (const auto& start : {update, report}) {
      Make();
      EXPECT_TRUE(EndsBy("Retrying in 30 seconds...", start, act));
    }
  }
  EXPECT_EQ(exchange->Downloads().size(), 2U);
  EXPECT_EQ(exchange->Reports().size(), 2U);
}

class UpdateHandlerStress : public tests::UpdateHandlerTest {
 protected:
  // Every other download, report and installation fails; never are two of a kind under way.
  void PlanMixedOutcomes() {
    exchange->PlanDownloads({[this](std::string& container) {
      const UnderWay download(downloading);
      container = "a container";
      return ++calls % 2 == 0 ? kExchangeSuccess : kExchangeFailed;
    }});
    exchange->PlanReports({[this] {
      const UnderWay report(reporting);
      return ++calls % 2 == 0 ? kExchangeSuccess : kExchangeFailed;
    }});
    containerHandler->AtVerification([this] {
      const UnderWay verification(verifying);
      containerHandler->AnswerVerification(++calls % 2 == 0 ? kInstalled : kNotParsed);
    });
  }

  void PlanFailures() {
    exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
    exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  }

  void StartBoth() {
    EXPECT_TRUE(Start());
    handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  }

  // Lets the workers run for a while, of another length each time.
  void LetRun() {
    for (auto left = random() % 200; left > 0; --left) std::this_thread::yield();
  }

  // So that the lines of the next turn can be counted.
  void AwaitLastLines(int updates) {
    EXPECT_TRUE(Logs({kUpdateEnded}, updates));
    EXPECT_EQ(Count(kUpdateEnded), updates);
    log.Clear();
  }

  std::mt19937 random;
  std::atomic<int> calls{0};
  std::atomic<int> downloading{0};
  std::atomic<int> reporting{0};
  std::atomic<int> verifying{0};
};

TEST_F(UpdateHandlerStress, ConnectionAtAnyInstant_NeitherWorkerMissesIt) {
  for (int turn = 1; turn <= kTurns; ++turn) {
    Make(false);
    handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
    LetRun();
    EXPECT_TRUE(Start());
    LetRun();
    handler->ConnectionStateChange(true);
    EXPECT_TRUE(tests::Eventually([this] { return !handler->IsContainerUpdateOngoing(); }));
    AwaitLastLines(1);
  }
}

TEST_F(UpdateHandlerStress, StopAtAnyInstant_NothingUnderWayAfterwards) {
  PlanMixedOutcomes();
  for (int turn = 0; turn < kTurns; ++turn) {
    Make(turn % 4 != 0);
    StartBoth();
    LetRun();
    handler->StopProcessing(true);
    EXPECT_FALSE(handler->IsContainerUpdateOngoing());
    EXPECT_EQ(downloading + reporting + verifying, 0);
    handler->StopProcessing(false);
    AwaitLastLines(1);
  }
}

TEST_F(UpdateHandlerStress, DisabledRetriesAtAnyInstant_EverythingEnds) {
  collaborators.retryInterval = kForEver;
  PlanFailures();
  for (int turn = 0; turn < kTurns; ++turn) {
    Make();
    StartBoth();
    LetRun();
    handler->DisableUpdateRetries();
    EXPECT_TRUE(tests::Eventually([this] { return !handler->IsContainerUpdateOngoing(); }));
    AwaitLastLines(1);
  }
}

TEST_F(UpdateHandlerStress, DestructionAtAnyInstant_NothingUnderWayAfterwards) {
  PlanMixedOutcomes();
  for (int turn = 0; turn < kTurns; ++turn) {
    Make(turn % 4 != 0);
    StartBoth();
    LetRun();
    handler.reset();
    EXPECT_EQ(downloading + reporting + verifying, 0);
    const int before = calls;
    AwaitLastLines(1);
    EXPECT_EQ(calls, before);
  }
}

// The workers' last steps are those that the handler may be gone in.
TEST_F(UpdateHandlerStress, DestructionWhileWorkersEnd_NothingUsedAfterwards) {
  for (int turn = 0; turn < kTurns; ++turn) {
    Make();
    EXPECT_TRUE(Start());
    while (handler->IsContainerUpdateOngoing()) std::this_thread::yield();
    handler.reset();
  }
}

TEST_F(UpdateHandlerStress, EverythingFromSeveralThreads_EndsByTermination) {
  constexpr int kRequests = 50;
  PlanMixedOutcomes();
  const std::vector<std::function<void(bool)>> requests = {
      [this](bool on) { handler->StopProcessing(on); },
      [this](bool on) { handler->ConnectionStateChange(on); },
      [this](bool on) { on ? handler->DisableUpdateRetries() : handler->StopProcessing(false); }};
  for (unsigned turn = 0; turn < kTurns / 4; ++turn) {
    Make();
    std::vector<std::thread> threads;
    for (const auto& request : requests) {
      threads.emplace_back([&request, chance = std::mt19937(turn)]() mutable {
        for (int i = 0; i < kRequests; ++i) request(chance() % 2 == 0);
      });
    }
    int started = 0;
    for (int i = 0; i < kRequests; ++i) {
      started += Start() ? 1 : 0;
      handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
      LetRun();
    }
    handler->TerminateProcessing();
    for (std::thread& thread : threads) thread.join();
    handler.reset();
    EXPECT_EQ(downloading + reporting + verifying, 0);
    AwaitLastLines(started);
  }
}

}  // namespace
}  // namespace truststore_update_client
