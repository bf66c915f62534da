// Updates and reports with collaborators that are missing or throw, without threads, and in the
// testers' mode that breaks the way to the backend on purpose.
#include <memory>
#include <stdexcept>

#include "tests/support/NoMoreThreads.h"
#include "tests/support/UpdateHandlerTest.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::FakeContainerConnection;
using tests::Join;
using tests::Lines;
using tests::LinesOfAccess;
using tests::LinesOfAttempt;
using tests::LinesOfDownload;
using tests::LinesOfReport;

const std::string kSuccess = "STATUS_CODE_SUCCESS";
const std::string kDownloadTest = "error: ***** Testability Option: Container Retry: ";
const std::string kReportTest = "error: ***** Testability Option: Status Report Retry: ";
const Lines kReportedUnexpected = LinesOfReport("STATUS_CODE_UNEXPECTED_ERROR");

[[noreturn]] void Throw() {
  throw std::runtime_error("boom");
}

// The reason that the system gives for a thread that it cannot make.
std::string NoThread(const std::string& name) {
  return "error: Cannot start the thread " + name + ": Resource temporarily unavailable";
}

class UpdateHandlerFailures : public tests::UpdateHandlerTest {};

TEST_F(UpdateHandlerFailures, NoCollaboratorAtAll_FailuresLogged) {
  handler = std::make_unique<UpdateHandler>(UpdateHandler::Collaborators{});
  EXPECT_THAT(log.Lines(), ElementsAre("error: Cannot create Containerhandler!",
                                       "error: Cannot create ContainerConnection!"));
  handler->StopProcessing(true);
  handler->StopProcessing(false);
  handler->DisableUpdateRetries();
  handler->TerminateProcessing();
  handler.reset();
}

TEST_F(UpdateHandlerFailures, NoContainerConnection_EveryAttemptFails) {
  collaborators.containerConnection = nullptr;
  collaborators.retryInterval = kForEver;
  Make();
  log.Clear();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  EXPECT_EQ(LinesOfWork(1, 0),
            Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation), tests::kRetrying,
                  tests::kRetriesDisabled}));
  log.Clear();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1),
            Join({LinesOfAttempt(kSuccess), tests::kSendingFailed, tests::kFinal}));
}

TEST_F(UpdateHandlerFailures, NoConnector_NoTokenForEither) {
  collaborators.connector = nullptr;
  collaborators.retryInterval = kForEver;
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  const std::string failed = "error: Failed to get the Token for '";
  EXPECT_EQ(LinesOfWork(1, 0), Join({tests::kUpdateStarted,
                                     {failed + tests::kDownloadOperation + "', status=0"},
                                     tests::kRetrying,
                                     tests::kRetriesDisabled}));
  log.Clear();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1),
            Join({{"info: Send Update Status to the Device Platform: " + kSuccess,
                   failed + tests::kReportOperation + "', status=0"},
                  tests::kFinal}));
}

TEST_F(UpdateHandlerFailures, NoContainerHandler_UnexpectedErrorReported) {
  collaborators.containerHandler = nullptr;
  Make();
  log.Clear();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1),
            Join({tests::kUpdateStarted, LinesOfDownload(), kReportedUnexpected}));
  handler->StartStatusUpdate(STATUS_CODE_DOWNLOAD_ERROR);
  (void)LinesOfWork(1, 2);
  EXPECT_THAT(exchange->Reports(), ElementsAre("9||t2|http://u2", "1||t2|http://u2"));
}

TEST_F(UpdateHandlerFailures, DownloadThrows_TriedAgain) {
  exchange->PlanDownloads({[](std::string&) -> unsigned { Throw(); },
                           FakeContainerConnection::Brings(kExchangeSuccess, "second")});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfAccess(tests::kDownloadOperation),
                                     {"error: Container Download failed: boom"},
                                     tests::kRetrying,
                                     LinesOfDownload(),
                                     {"info: Update Notification sent to other applications"},
                                     LinesOfReport(kSuccess)}));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("second"));
  EXPECT_THAT(containerHandler->Requests(), ElementsAre("enable retries", "enable retries"));
}

TEST_F(UpdateHandlerFailures, DownloadThrowsAndRetriesDisabled_DownloadErrorReported) {
  exchange->PlanDownloads({[this](std::string&) -> unsigned {
    handler->DisableUpdateRetries();
    Throw();
  }});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfAccess(tests::kDownloadOperation),
                                     tests::kRetriesDisabled,
                                     {"error: Container Download failed: boom"},
                                     tests::kFinal,
                                     LinesOfReport("STATUS_CODE_DOWNLOAD_ERROR")}));
  EXPECT_THAT(containerHandler->Containers(), IsEmpty());
}

TEST_F(UpdateHandlerFailures, InstallationThrows_UnexpectedErrorReported) {
  containerHandler->AtVerification(Throw);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfDownload(),
                                     {"error: Container Update failed: boom"},
                                     kReportedUnexpected}));
  EXPECT_FALSE(MarkerExists());
}

TEST_F(UpdateHandlerFailures, WhatIsNoErrorIsThrown_UpdateEnds) {
  containerHandler->AtVerification([] { throw 1; });
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 0), Join({tests::kUpdateStarted, LinesOfDownload()}));
  containerHandler->AtVerification(nullptr);
  EXPECT_TRUE(Start());
  (void)LinesOfWork(2, 1);
}

TEST_F(UpdateHandlerFailures, SendingThrows_TriedAgain) {
  exchange->PlanReports({[]() -> unsigned { Throw(); }, FakeContainerConnection::Ends(0)});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1), Join({LinesOfAttempt(kSuccess),
                                     {"error: Status Report failed: boom"},
                                     tests::kRetrying,
                                     LinesOfReport(kSuccess)}));
}

TEST_F(UpdateHandlerFailures, WhatIsNoErrorIsThrownBySending_ReportEnds) {
  exchange->PlanReports({[]() -> unsigned { throw 1; }, FakeContainerConnection::Ends(0)});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "lost");
  EXPECT_EQ(LinesOfWork(0, 1), LinesOfAttempt(kSuccess));
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  (void)LinesOfWork(0, 2);
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|lost|t2|http://u2", "0|id|t2|http://u2"));
}

TEST_F(UpdateHandlerFailures, SendingThrowsAndRetriesDisabled_Ends) {
  exchange->PlanReports({[]() -> unsigned { Throw(); }});
  Make();
  handler->DisableUpdateRetries();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1), Join({tests::kRetriesDisabled,
                                     LinesOfAttempt(kSuccess),
                                     {"error: Status Report failed: boom"},
                                     tests::kFinal}));
}

// The report ends before it has begun, and the next one is not kept from beginning.
TEST_F(UpdateHandlerFailures, QuestionForInstallingIdThrows_ReportEnds) {
  containerHandler->AtInstallingId(Throw);
  Make();
  handler->StartStatusUpdate(STATUS_CODE_DOWNLOAD_ERROR);
  EXPECT_THAT(log.Lines(), ElementsAre("error: Cannot start the thread StatusReport: boom",
                                       "debug: Status Reporting ended."));
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS);
  (void)LinesOfWork(0, 2);
  EXPECT_THAT(exchange->Reports(), ElementsAre("0||t2|http://u2"));
}

TEST_F(UpdateHandlerFailures, EnablingRetriesThrows_UpdateEnds) {
  containerHandler->AtRetriesChange(Throw);
  Make();
  EXPECT_FALSE(Start());
  EXPECT_THAT(log.Lines(), ElementsAre("debug: Started Container Update.",
                                       "error: Cannot start the thread ContainerUpdate: boom",
                                       "debug: Container Update ended."));
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
  containerHandler->AtRetriesChange(nullptr);
  EXPECT_TRUE(Start());
  (void)LinesOfWork(2, 1);
}

TEST_F(UpdateHandlerFailures, NoThreadForUpdate_ToldAndNextOneMayStart) {
  Make();
  {
    const tests::NoMoreThreads none;
    EXPECT_FALSE(Start());
  }
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: Started Container Update.", NoThread("ContainerUpdate"),
                          "debug: Container Update ended."));
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
  EXPECT_THAT(containerHandler->Requests(), ElementsAre("enable retries", "enable retries"));
  EXPECT_TRUE(Start());
  (void)LinesOfWork(2, 1);
}

TEST_F(UpdateHandlerFailures, NoThreadForReport_ToldAndNextOneMayStart) {
  Make();
  {
    const tests::NoMoreThreads none;
    handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "lost");
  }
  EXPECT_THAT(log.Lines(), ElementsAre(NoThread("StatusReport"), "debug: Status Reporting ended."));
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  (void)LinesOfWork(0, 2);
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|id|t2|http://u2"));
}

// In the testers' mode.
class ConnectionRetryTest : public tests::UpdateHandlerTest {
 protected:
  ConnectionRetryTest() {
    collaborators.switches = RetryTestMode();
    collaborators.testPause = std::chrono::milliseconds(1);
  }
};

TEST_F(ConnectionRetryTest, FirstDownloadOfProcess_TellsWhenToBreakAndMend) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed),
                           FakeContainerConnection::Brings(kExchangeSuccess, "second")});
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed),
                         FakeContainerConnection::Ends(kExchangeSuccess)});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(
      LinesOfWork(1, 1),
      Join(
          {tests::kUpdateStarted,
           LinesOfAccess(tests::kDownloadOperation),
           {kDownloadTest + "Kill socks-sandbox now", kDownloadTest + "Re-start socks-sandbox now"},
           tests::kRetrying,
           LinesOfDownload(),
           {"info: Update Notification sent to other applications"},
           LinesOfAttempt(kSuccess),
           {kReportTest + "Kill socks-sandbox now", kReportTest + "Re-start socks-sandbox now"},
           tests::kSendingFailed,
           tests::kRetrying,
           LinesOfReport(kSuccess)}));
}

TEST_F(ConnectionRetryTest, SecondUpdate_ReportsTestOnly) {
  Make();
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  log.Clear();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfDownload(),
                                     {"info: Update Notification sent to other applications"},
                                     LinesOfAttempt(kSuccess),
                                     {kReportTest + "Kill socks-sandbox now",
                                      kReportTest + "Re-start socks-sandbox now",
                                      "info: Update Status was sent successfully."}}));
}

TEST_F(ConnectionRetryTest, AttemptWithoutToken_TestIsStillToCome) {
  backend.SetTokenFailure(tests::kDownloadOperation, 2);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  EXPECT_EQ(Count(kDownloadTest + "Kill socks-sandbox now"), 0);
  backend.SetToken(tests::kDownloadOperation, "later");
  (void)LinesOfWork(1, 1);
  EXPECT_EQ(Count(kDownloadTest + "Kill socks-sandbox now"), 1);
}

TEST_F(ConnectionRetryTest, Pause_LastsAsLongAsTold) {
  collaborators.testPause = std::chrono::milliseconds(30);
  Make();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
}

// The report's pause comes before its wait for the connection, which the pause may have broken.
TEST_F(ConnectionRetryTest, ConnectionLostDuringPause_ReportWaits) {
  Make(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kReportWaits));
  handler->ConnectionStateChange(true);
  EXPECT_EQ(LinesOfWork(0, 1), Join({LinesOfAttempt(kSuccess),
                                     {kReportTest + "Kill socks-sandbox now"},
                                     tests::kReportWaits,
                                     {kReportTest + "Re-start socks-sandbox now",
                                      "info: Update Status was sent successfully."}}));
}

TEST_F(ConnectionRetryTest, SwitchesWithoutMode_NoTest) {
  const std::string file = directory.Path() + "/config.cfg";
  tests::WriteText(file, "ConnectionRetryTestMode = false\n");
  collaborators.switches = development_tools::DevelopmentTools(file);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfDownload(),
                                     {"info: Update Notification sent to other applications"},
                                     LinesOfReport(kSuccess)}));
}

}  // namespace
}  // namespace truststore_update_client
