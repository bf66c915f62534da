// The container update: download, installation, and what is reported of it.
#include <atomic>
#include <utility>

#include "tests/support/AtLogLine.h"
#include "tests/support/UpdateHandlerTest.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::FakeContainerConnection;
using tests::Join;
using tests::Lines;
using tests::LinesOfAccess;
using tests::LinesOfDownload;
using tests::LinesOfReport;

const std::string kSuccess = "STATUS_CODE_SUCCESS";
const std::string kMarkerLine = "info: Update Notification sent to other applications";
const std::string kDownloadCall = "0||old|t1|http://u1";

class ContainerUpdate : public tests::UpdateHandlerTest {
 protected:
  // What a container update logs whose first attempt logs `attempt` and whose second one succeeds.
  static Lines LinesOfSecondTry(const Lines& attempt) {
    return Join({tests::kUpdateStarted,
                 attempt,
                 tests::kRetrying,
                 LinesOfDownload(),
                 {kMarkerLine},
                 LinesOfReport(kSuccess)});
  }
};

TEST_F(ContainerUpdate, GoodContainer_InstalledToldAndReported) {
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(
      LinesOfWork(1, 1),
      Join({tests::kUpdateStarted, LinesOfDownload(), {kMarkerLine}, LinesOfReport(kSuccess)}));
  EXPECT_THAT(exchange->Downloads(), ElementsAre(kDownloadCall));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("a container"));
  EXPECT_EQ(tests::ReadText(collaborators.notificationFile), "1");
  EXPECT_THAT(exchange->Reports(), ElementsAre("0||t2|http://u2"));
  EXPECT_THAT(containerHandler->Requests(), ElementsAre("enable retries", "enable retries"));
}

TEST_F(ContainerUpdate, ReasonOperationAndInstalledId_SentAsGiven) {
  Make();
  EXPECT_TRUE(handler->StartContainerUpdate(RENEWAL_REASON_UNKNOWNCA, "an operation", "an id"));
  (void)LinesOfWork(1, 1);
  EXPECT_THAT(exchange->Downloads(), ElementsAre("3|an operation|an id|t1|http://u1"));
}

TEST_F(ContainerUpdate, NothingNew_SuccessReportedForInstalledId) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kNoNewContainer)});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfAccess(tests::kDownloadOperation),
                                     {"info: No new TrustStore Container available."},
                                     LinesOfReport(kSuccess)}));
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|old|t2|http://u2"));
  EXPECT_THAT(containerHandler->Containers(), IsEmpty());
  EXPECT_FALSE(MarkerExists());
}

TEST_F(ContainerUpdate, FailedDownload_TriedAgain) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed),
                           FakeContainerConnection::Brings(kExchangeSuccess, "second")});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), LinesOfSecondTry(LinesOfAccess(tests::kDownloadOperation)));
  EXPECT_THAT(exchange->Downloads(), ElementsAre(kDownloadCall, kDownloadCall));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("second"));
}

TEST_F(ContainerUpdate, EmptyContainer_TriedAgain) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeSuccess),
                           FakeContainerConnection::Brings(kExchangeSuccess, "second")});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1),
            LinesOfSecondTry(Join({LinesOfAccess(tests::kDownloadOperation),
                                   {"error: Received an empty TrustStore Container!"}})));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("second"));
}

TEST_F(ContainerUpdate, RestOfFailedAttempt_NotInstalled) {
  collaborators.retryInterval = kForEver;
  exchange->PlanDownloads({[](std::string& container) {
    container = "half";
    return kExchangeFailed;
  }});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  (void)LinesOfWork(1, 0);
  EXPECT_THAT(containerHandler->Containers(), IsEmpty());
}

TEST_F(ContainerUpdate, NextAttempt_BeginsWithNothing) {
  const auto fails = [](std::string& container) {
    EXPECT_EQ(container, "");
    container = "half";
    return kExchangeFailed;
  };
  exchange->PlanDownloads({fails, fails, FakeContainerConnection::Brings(kNoNewContainer)});
  Make();
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  EXPECT_EQ(exchange->Downloads().size(), 3U);
}

TEST_F(ContainerUpdate, NoToken_ToldAndTriedAgain) {
  collaborators.retryInterval = kForEver;
  backend.SetTokenFailure(tests::kDownloadOperation, 3);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->StopProcessing(true);
  EXPECT_EQ(LinesOfWork(1, 0), Join({tests::kUpdateStarted,
                                     {"error: Failed to get the Token for "
                                      "'RUNA-TruststoreUpdate.CORequestTSC', status=3"},
                                     tests::kRetrying,
                                     tests::kStopBegins,
                                     tests::kProcessingStopped,
                                     tests::kStopEnds}));
  EXPECT_THAT(exchange->Downloads(), IsEmpty());
}

TEST_F(ContainerUpdate, NoUrl_ToldAndTriedAgain) {
  collaborators.retryInterval = kForEver;
  backend.SetUrlFailure(tests::kDownloadOperation, 2);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->StopProcessing(true);
  EXPECT_EQ(LinesOfWork(1, 0), Join({tests::kUpdateStarted,
                                     {"info: Got Token for 'RUNA-TruststoreUpdate.CORequestTSC'",
                                      "error: Failed to get the URL for "
                                      "'RUNA-TruststoreUpdate.CORequestTSC', status=2"},
                                     tests::kRetrying,
                                     tests::kStopBegins,
                                     tests::kProcessingStopped,
                                     tests::kStopEnds}));
  EXPECT_THAT(exchange->Downloads(), IsEmpty());
}

// Token and URL are asked for anew in each attempt: what failed once may work now.
TEST_F(ContainerUpdate, TokenThatComesLater_Used) {
  backend.SetTokenFailure(tests::kDownloadOperation, 2);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying, 2));
  backend.SetToken(tests::kDownloadOperation, "later");
  (void)LinesOfWork(1, 1);
  EXPECT_THAT(exchange->Downloads(), ElementsAre("0||old|later|http://u1"));
}

TEST_F(ContainerUpdate, EveryVerificationResult_ReportedAsItIs) {
  Make();
  for (unsigned result = 0; result <= 255; ++result) {
    std::filesystem::remove(collaborators.notificationFile);
    containerHandler->AnswerVerification(static_cast<ResponseStatus>(result));
    EXPECT_TRUE(Start());
    (void)LinesOfWork(result + 1, result + 1);
    EXPECT_EQ(exchange->Reports().back(), std::to_string(result) + "||t2|http://u2");
    EXPECT_EQ(MarkerExists(), result == 0) << result;
  }
}

TEST_F(ContainerUpdate, RefusedContainer_ReportedAndNotTold) {
  containerHandler->AnswerVerification(kRevokedOrSignatureWrong);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted, LinesOfDownload(),
                                     LinesOfReport("STATUS_CODE_CERT_DECODE_ERROR")}));
}

TEST_F(ContainerUpdate, MarkerThatCannotBeWritten_ToldAndSuccessReported) {
  std::filesystem::create_directory(collaborators.notificationFile);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 1),
            Join({tests::kUpdateStarted,
                  LinesOfDownload(),
                  {"error: Error sending Update Notification to other applications!",
                   "info: The marker file was not written: Is a directory"},
                  LinesOfReport(kSuccess)}));
}

TEST_F(ContainerUpdate, NoConnection_WaitsForFirstUsableState) {
  Make(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  handler->ConnectionStateChange(false);
  EXPECT_TRUE(Logs(tests::kDownloadWaits, 2));
  EXPECT_THAT(exchange->Downloads(), IsEmpty());
  handler->ConnectionStateChange(true);
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     tests::kDownloadWaits,
                                     tests::kDownloadWaits,
                                     LinesOfDownload(),
                                     {kMarkerLine},
                                     LinesOfReport(kSuccess)}));
}

// After the look at the connection, before the wait for it.
TEST_F(ContainerUpdate, ConnectionBetweenLookAndWait_NotMissed) {
  Make(false);
  const tests::AtLogLine change("Container Download is waiting for correct Connection state...",
                                [this] { handler->ConnectionStateChange(true); });
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !handler->IsContainerUpdateOngoing(); }));
  EXPECT_TRUE(change.IsDone());
  EXPECT_THAT(exchange->Downloads(), ElementsAre(kDownloadCall));
}

// The line tells what is so already: whoever reads it finds nothing under way.
TEST_F(ContainerUpdate, LineOfItsEnd_LoggedAfterwards) {
  Make();
  handler->StopProcessing(true);
  std::atomic<bool> ongoing{true};
  const tests::AtLogLine end("Container Update ended.",
                             [&] { ongoing = handler->IsContainerUpdateOngoing(); });
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([&] { return end.IsDone(); }));
  EXPECT_FALSE(ongoing);
}

TEST_F(ContainerUpdate, ConnectionLostDuringDownload_NextAttemptWaits) {
  exchange->PlanDownloads({[this](std::string& /*container*/) {
                             handler->ConnectionStateChange(false);
                             return kExchangeFailed;
                           },
                           FakeContainerConnection::Brings(kExchangeSuccess, "second")});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  EXPECT_EQ(exchange->Downloads().size(), 1U);
  handler->ConnectionStateChange(true);
  EXPECT_EQ(LinesOfWork(1, 1), Join({tests::kUpdateStarted,
                                     LinesOfAccess(tests::kDownloadOperation),
                                     tests::kRetrying,
                                     tests::kDownloadWaits,
                                     LinesOfDownload(),
                                     {kMarkerLine},
                                     LinesOfReport(kSuccess)}));
}

TEST_F(ContainerUpdate, SecondStart_RefusedWhileOneIsUnderWay) {
  Make(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  EXPECT_FALSE(handler->StartContainerUpdate(RENEWAL_REASON_EMPTYTS, "", ""));
  EXPECT_EQ(log.Lines().back(), "debug: Container Update already active.");
  handler->ConnectionStateChange(true);
  (void)LinesOfWork(1, 1);
  EXPECT_THAT(exchange->Downloads(), ElementsAre(kDownloadCall));
  EXPECT_TRUE(Start());
  (void)LinesOfWork(2, 2);
}

// The update counts as under way until its report has ended.
TEST_F(ContainerUpdate, Ongoing_UntilReportHasEnded) {
  bool ongoing = false;
  exchange->PlanReports({[&] {
    EXPECT_TRUE(Logs({kUpdateEnded}));
    ongoing = handler->IsContainerUpdateOngoing();
    return kExchangeSuccess;
  }});
  Make();
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  EXPECT_TRUE(ongoing);
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
}

TEST_F(ContainerUpdate, RetriesDisabledDuringDownload_DownloadErrorReported) {
  exchange->PlanDownloads({[this](std::string& /*container*/) {
    handler->DisableUpdateRetries();
    return kExchangeFailed;
  }});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_EQ(
      LinesOfWork(1, 1),
      Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation),
            tests::kRetriesDisabled, tests::kFinal, LinesOfReport("STATUS_CODE_DOWNLOAD_ERROR")}));
  EXPECT_TRUE(handler->IsUpdateRetryDisabled());
  EXPECT_THAT(containerHandler->Requests(),
              ElementsAre("enable retries", "disable retries", "enable retries"));
}

TEST_F(ContainerUpdate, RetriesDisabledWhileItWaitsForConnection_FirstFailureIsFinal) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
  Make(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  handler->DisableUpdateRetries();
  handler->ConnectionStateChange(true);
  EXPECT_EQ(LinesOfWork(1, 1),
            Join({tests::kUpdateStarted, tests::kDownloadWaits, tests::kRetriesDisabled,
                  LinesOfAccess(tests::kDownloadOperation), tests::kFinal,
                  LinesOfReport("STATUS_CODE_DOWNLOAD_ERROR")}));
}

TEST_F(ContainerUpdate, RetriesDisabledDuringWait_EndsAtOnceWithoutReport) {
  collaborators.retryInterval = kForEver;
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  EXPECT_EQ(LinesOfWork(1, 0),
            Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation), tests::kRetrying,
                  tests::kRetriesDisabled}));
  EXPECT_THAT(containerHandler->Containers(), IsEmpty());
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

TEST_F(ContainerUpdate, RetriesDisabledDuringGoodDownload_Installed) {
  exchange->PlanDownloads({[this](std::string& container) {
    handler->DisableUpdateRetries();
    container = "good";
    return kExchangeSuccess;
  }});
  Make();
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("good"));
}

TEST_F(ContainerUpdate, RetriesDisabledBefore_AllowedAgainByStart) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed),
                           FakeContainerConnection::Brings(kExchangeSuccess, "second")});
  Make();
  handler->DisableUpdateRetries();
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  EXPECT_FALSE(handler->IsUpdateRetryDisabled());
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("second"));
  EXPECT_THAT(containerHandler->Requests(),
              ElementsAre("disable retries", "enable retries", "enable retries"));
}

// A change that comes while the container handler is told of another one is told last.
TEST_F(ContainerUpdate, RetriesDisabledWhileItStarts_ToldLast) {
  Make(false);
  containerHandler->AtRetriesChange([this] {
    containerHandler->AtRetriesChange(nullptr);
    handler->DisableUpdateRetries();
  });
  EXPECT_TRUE(Start());
  EXPECT_THAT(containerHandler->Requests(),
              ElementsAre("disable retries", "enable retries", "disable retries"));
}

}  // namespace
}  // namespace truststore_update_client
