// Stop, resume and the testers' pause while HSM checks for revocation.
#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "tests/support/Deadline.h"
#include "tests/support/HSMOcspTest.h"

namespace truststore_update_client {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::tests::HSMOcspTest;

// What main does to a validation at work on another thread, and when.
class HSMOcspStopTest : public HSMOcspTest {
 protected:
  // True once the line is logged after which nothing but the wait for the next check follows.
  bool HasBegunToWait() const {
    const auto lines = log.Lines();
    return std::count(lines.begin(), lines.end(), "error: Retrying in 3600 seconds...") > 0;
  }

  // Runs a validation of "p256-1" on a thread of its own, whose first check is not completed;
  // `request` runs here as soon as the wait for the next begins. Returns the validation's result.
  int ValidateAndThen(const std::function<void()>& request) {
    int result = -1;
    log.Clear();
    auto ended = std::async(std::launch::async, [this, &result] {
      result = hsm.X5COcspValidation(::tests::Chain("p256-1"));
    });
    const auto deadline = std::chrono::steady_clock::now() + ::tests::kDeadline;
    while (!HasBegunToWait() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    EXPECT_TRUE(HasBegunToWait());
    request();
    const bool inTime = ended.wait_for(::tests::kDeadline) == std::future_status::ready;
    EXPECT_TRUE(inTime) << "the wait went on";
    if (!inTime) hsm.DisableUpdateRetries(true);
    if (!inTime) hsm.StopRetryTimer();
    ended.wait();
    return result;
  }

  HSM hsm{Collaborators()};
};

TEST_F(HSMOcspStopTest, DisabledBefore_MakesOneAttemptOnly) {
  hsm.DisableUpdateRetries(true);
  responder->results = {3, 0};
  EXPECT_THAT(Validate(hsm, "p256-1", 1),
              ElementsAre("info: Got URL for '"s + kTop + "'", "info: OCSP Check 1 Failed.",
                          "error: OCSP check FAILED"));
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledDuringACheck_EndsTheLoopAfterIt) {
  responder->onCheck = [this] { hsm.DisableUpdateRetries(true); };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 1);
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledDuringAGoodCheck_LetsTheNextCertificateBeAskedFor) {
  responder->onCheck = [this] { hsm.DisableUpdateRetries(true); };
  (void)Validate(hsm, "p256-2", 0);
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledDuringAWait_EndsItWithoutAnotherAttempt) {
  responder->results = {3, 0};
  EXPECT_EQ(1, ValidateAndThen([this] { hsm.DisableUpdateRetries(true); }));
  EXPECT_EQ(1U, responder->questions.size());
  EXPECT_EQ("error: OCSP check FAILED", log.Lines().back());
}

TEST_F(HSMOcspStopTest, WaitCutShortWithoutDisabling_GoesOnWithTheNextAttempt) {
  responder->results = {3, 0};
  EXPECT_EQ(0, ValidateAndThen([this] { hsm.StopRetryTimer(); }));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, EnabledDuringAWait_LeavesTheCheckWaiting) {
  responder->results = {3, 0};
  EXPECT_EQ(0, ValidateAndThen([this] {
              hsm.DisableUpdateRetries(false);
              hsm.StopRetryTimer();
            }));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledAndEnabledDuringACheck_GoesOnWithTheNextAttempt) {
  responder->onCheck = [this] {
    hsm.DisableUpdateRetries(true);
    hsm.DisableUpdateRetries(false);
  };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 0);
  EXPECT_EQ(2U, responder->questions.size());
}

// The same as the update handler asks for it, whatever the handler in between makes of it.
class HSMOcspHandlerTest : public HSMOcspStopTest {
 protected:
  // Outlived by the fixture's facade.
  ContainerHandler handler{std::shared_ptr<HSM>(&hsm, [](HSM*) {}),
                           development_tools::DevelopmentTools("/nonexistent")};
};

TEST_F(HSMOcspHandlerTest, StopDuringAWait_EndsIt) {
  responder->results = {3, 0};
  EXPECT_EQ(1, ValidateAndThen([this] { handler.StopProcessing(true); }));
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, TerminationDuringAWait_EndsIt) {
  responder->results = {3, 0};
  EXPECT_EQ(1, ValidateAndThen([this] { handler.TerminateProcessing(); }));
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, ResumeDuringAWait_LeavesTheCheckToBeTriedAgain) {
  responder->results = {3, 0};
  EXPECT_EQ(0, ValidateAndThen([this] {
              handler.StopProcessing(false);
              hsm.StopRetryTimer();
            }));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, StopBeforeAndResumeDuringACheck_LeaveItToBeTriedAgain) {
  handler.StopProcessing(true);
  responder->onCheck = [this] { handler.StopProcessing(false); };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 0);  // the stop's flag on the timer ends the wait at once
  EXPECT_EQ(2U, responder->questions.size());
}

// An update that begins or ends beside a stop enables retries.
TEST_F(HSMOcspHandlerTest, StopThenEnabledDuringACheck_EndsTheLoopAfterIt) {
  responder->onCheck = [this] {
    handler.StopProcessing(true);
    handler.DisableUpdateRetries(false);
  };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 1);
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, TerminationThenEnabledDuringACheck_EndsTheLoopAfterIt) {
  responder->onCheck = [this] {
    handler.TerminateProcessing();
    handler.DisableUpdateRetries(false);
  };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 1);
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, DisabledThenResumedDuringACheck_EndsTheLoopAfterIt) {
  responder->onCheck = [this] {
    handler.DisableUpdateRetries(true);
    handler.StopProcessing(false);
  };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 1);
  EXPECT_EQ(1U, responder->questions.size());
}

class HSMOcspTestabilityTest : public HSMOcspTest {
 protected:
  HSM::Collaborators WithTestMode() {
    HSM::Collaborators collaborators = Collaborators();
    collaborators.switches = RetryTestMode();
    collaborators.ocspRetryInterval = std::chrono::seconds(0);
    collaborators.testabilityPause = std::chrono::milliseconds(0);
    return collaborators;
  }
};

TEST_F(HSMOcspTestabilityTest, FirstTwoPassesOfEachCheck_TellTheTesterWhatToDo) {
  HSM hsm(WithTestMode());
  responder->results = {3, 3, 0, 3, 0};
  const auto tell = [](const std::string& check, const std::string& action) {
    return "error: ***** Testability Option: OCSP " + check + " Retry: " + action +
           " socks-sandbox now";
  };
  EXPECT_THAT(Validate(hsm, "p256-2", 0),
              ElementsAre("info: Got URL for '"s + kTop + "'", tell("1", "Kill"),
                          "info: OCSP Check 1 Failed.", "error: Retrying in 0 seconds...",
                          "info: Got URL for '"s + kTop + "'", tell("1", "Re-start"),
                          "info: OCSP Check 1 Failed.", "error: Retrying in 0 seconds...",
                          "info: Got URL for '"s + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: Got URL for '"s + kBelow + "'", tell("2", "Kill"),
                          "info: OCSP Check 2 Failed.", "error: Retrying in 0 seconds...",
                          "info: Got URL for '"s + kBelow + "'", tell("2", "Re-start"),
                          "info: OCSP Check 2 Passed.", "info: All OCSP checks Passed"));
}

TEST_F(HSMOcspTestabilityTest, Pause_IsFiveSeconds) {
  EXPECT_EQ(std::chrono::seconds(5), FieldCollaborators().testabilityPause);
}

TEST_F(HSMOcspTestabilityTest, PauseOfAStoppedUpdate_IsNone) {
  HSM::Collaborators collaborators = WithTestMode();
  collaborators.testabilityPause = std::chrono::hours(1);
  HSM hsm(std::move(collaborators));
  onUrl = [&hsm] { hsm.DisableUpdateRetries(true); };
  (void)Validate(hsm, "p256-1", 0);  // returns at once: the test's own time limit is far shorter
}

TEST_F(HSMOcspTestabilityTest, FlagOfAnEarlierStop_DoesNotShortenThePause) {
  HSM::Collaborators collaborators = WithTestMode();
  collaborators.testabilityPause = std::chrono::milliseconds(20);
  HSM hsm(std::move(collaborators));
  hsm.StopRetryTimer();
  const auto begin = std::chrono::steady_clock::now();
  (void)Validate(hsm, "p256-1", 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
}

TEST_F(HSMOcspTestabilityTest, StopDuringThePause_EndsIt) {
  HSM::Collaborators collaborators = WithTestMode();
  collaborators.testabilityPause = std::chrono::hours(1);
  HSM hsm(std::move(collaborators));
  std::promise<void> begun;
  onUrl = [&begun] { begun.set_value(); };
  auto ended = std::async(std::launch::async,
                          [&hsm] { return hsm.X5COcspValidation(::tests::Chain("p256-1")); });
  begun.get_future().wait();
  hsm.DisableUpdateRetries(true);
  ASSERT_EQ(std::future_status::ready, ended.wait_for(::tests::kDeadline));
  EXPECT_EQ(0, ended.get());
}

}  // namespace
}  // namespace truststore_update_client
