// The report of an update's result to the backend.
#include <atomic>

#include "tests/support/AtLogLine.h"
#include "tests/support/UpdateHandlerTest.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::FakeContainerConnection;
using tests::Join;
using tests::Lines;
using tests::LinesOfAttempt;
using tests::LinesOfReport;

const std::string kSuccess = "STATUS_CODE_SUCCESS";
const std::string kSendLine = "info: Send Update Status to the Device Platform: ";

class StatusReport : public tests::UpdateHandlerTest {};

TEST_F(StatusReport, NamedContainer_ReportedOnce) {
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "installed");
  EXPECT_EQ(LinesOfWork(0, 1), LinesOfReport(kSuccess));
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|installed|t2|http://u2"));
  EXPECT_THAT(containerHandler->Requests(), IsEmpty());
}

TEST_F(StatusReport, NoContainerNamed_EmptyIdExceptAfterEarlyFailure) {
  containerHandler->SetInstalling("installing");
  Make();
  for (unsigned status = 0; status <= 16; ++status) {
    handler->StartStatusUpdate(static_cast<ResponseStatus>(status));
    (void)LinesOfWork(0, status + 1);
    const std::string id = status == 1 || status == 2 ? "installing" : "";
    EXPECT_EQ(exchange->Reports().back(), std::to_string(status) + "|" + id + "|t2|http://u2");
  }
}

TEST_F(StatusReport, EarlyFailureOfNamedContainer_NameStays) {
  containerHandler->SetInstalling("installing");
  Make();
  handler->StartStatusUpdate(STATUS_CODE_DOWNLOAD_ERROR, "named");
  (void)LinesOfWork(0, 1);
  EXPECT_THAT(exchange->Reports(), ElementsAre("1|named|t2|http://u2"));
}

TEST_F(StatusReport, NoContainerEverInstalling_EmptyId) {
  Make();
  handler->StartStatusUpdate(STATUS_CODE_PARSE_ERROR);
  (void)LinesOfWork(0, 1);
  EXPECT_THAT(exchange->Reports(), ElementsAre("2||t2|http://u2"));
}

TEST_F(StatusReport, StatusWithoutName_LoggedByItsNumber) {
  Make();
  handler->StartStatusUpdate(static_cast<ResponseStatus>(255), "id");
  EXPECT_EQ(LinesOfWork(0, 1), LinesOfReport("STATUS_CODE_255"));
}

TEST_F(StatusReport, SecondReport_DroppedWhileOneIsUnderWay) {
  Make(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "first");
  EXPECT_TRUE(Logs(tests::kReportWaits));
  handler->StartStatusUpdate(STATUS_CODE_STORAGE_ERROR, "second");
  EXPECT_EQ(log.Lines().back(), "info: Status Report already active.");
  handler->ConnectionStateChange(true);
  (void)LinesOfWork(0, 1);
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|first|t2|http://u2"));
}

// The update's own report is dropped, too; the one under way goes on.
TEST_F(StatusReport, UpdateEndsBesideIt_ItsReportIsDropped) {
  Make(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "first");
  EXPECT_TRUE(Logs(tests::kReportWaits));
  exchange->PlanReports({[this] {
    EXPECT_TRUE(Logs({kUpdateEnded}));
    return kExchangeSuccess;
  }});
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  handler->ConnectionStateChange(true);
  (void)LinesOfWork(1, 1);
  EXPECT_EQ(Count("info: Status Report already active."), 1);
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|first|t2|http://u2"));
}

TEST_F(StatusReport, FailedSending_ToldAndTriedAgain) {
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed),
                         FakeContainerConnection::Ends(255), FakeContainerConnection::Ends(0)});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  const Lines failed = Join({LinesOfAttempt(kSuccess), tests::kSendingFailed, tests::kRetrying});
  EXPECT_EQ(LinesOfWork(0, 1), Join({failed, failed, LinesOfReport(kSuccess)}));
  EXPECT_EQ(exchange->Reports().size(), 3U);
}

// Nothing was sent: the line that tells of a failed sending is not for these.
TEST_F(StatusReport, NoToken_TriedAgainWithoutLineOfFailedSending) {
  collaborators.retryInterval = kForEver;
  backend.SetTokenFailure(tests::kReportOperation, 3);
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  EXPECT_EQ(LinesOfWork(0, 1), Join({{kSendLine + kSuccess,
                                      "error: Failed to get the Token for "
                                      "'RUNA-TruststoreUpdate.COReportTSCStatus', status=3"},
                                     tests::kRetrying,
                                     tests::kRetriesDisabled}));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

TEST_F(StatusReport, NoUrl_TriedAgainWithoutLineOfFailedSending) {
  collaborators.retryInterval = kForEver;
  backend.SetUrlFailure(tests::kReportOperation, 2);
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  EXPECT_EQ(
      LinesOfWork(0, 1),
      Join({{kSendLine + kSuccess, "info: Got Token for 'RUNA-TruststoreUpdate.COReportTSCStatus'",
             "error: Failed to get the URL for "
             "'RUNA-TruststoreUpdate.COReportTSCStatus', status=2"},
            tests::kRetrying,
            tests::kRetriesDisabled}));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

TEST_F(StatusReport, TokenThatComesLater_Used) {
  backend.SetTokenFailure(tests::kReportOperation, 2);
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying, 2));
  backend.SetToken(tests::kReportOperation, "later");
  (void)LinesOfWork(0, 1);
  EXPECT_THAT(exchange->Reports(), ElementsAre("0|id|later|http://u2"));
}

TEST_F(StatusReport, NoConnection_WaitsForFirstUsableState) {
  Make(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kReportWaits));
  handler->ConnectionStateChange(false);
  EXPECT_TRUE(Logs(tests::kReportWaits, 2));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
  handler->ConnectionStateChange(true);
  EXPECT_EQ(LinesOfWork(0, 1), Join({LinesOfAttempt(kSuccess),
                                     tests::kReportWaits,
                                     tests::kReportWaits,
                                     {"info: Update Status was sent successfully."}}));
}

TEST_F(StatusReport, LineOfItsEnd_LoggedAfterwards) {
  Make();
  std::atomic<bool> ongoing{true};
  const tests::AtLogLine end("Status Reporting ended.",
                             [&] { ongoing = handler->IsContainerUpdateOngoing(); });
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(tests::Eventually([&] { return end.IsDone(); }));
  EXPECT_FALSE(ongoing);
}

TEST_F(StatusReport, RetriesDisabledBefore_OneAttempt) {
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  Make();
  handler->DisableUpdateRetries();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1), Join({tests::kRetriesDisabled, LinesOfAttempt(kSuccess),
                                     tests::kSendingFailed, tests::kFinal}));
  EXPECT_EQ(exchange->Reports().size(), 1U);
}

TEST_F(StatusReport, RetriesDisabledAndNoToken_Final) {
  backend.SetTokenFailure(tests::kReportOperation, 2);
  Make();
  handler->DisableUpdateRetries();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1), Join({tests::kRetriesDisabled,
                                     {kSendLine + kSuccess,
                                      "error: Failed to get the Token for "
                                      "'RUNA-TruststoreUpdate.COReportTSCStatus', status=2"},
                                     tests::kFinal}));
}

TEST_F(StatusReport, RetriesDisabledDuringSending_FailureIsFinal) {
  exchange->PlanReports({[this] {
    handler->DisableUpdateRetries();
    return kExchangeFailed;
  }});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_EQ(LinesOfWork(0, 1), Join({LinesOfAttempt(kSuccess), tests::kRetriesDisabled,
                                     tests::kSendingFailed, tests::kFinal}));
}

TEST_F(StatusReport, RetriesDisabledDuringWait_EndsAtOnce) {
  collaborators.retryInterval = kForEver;
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying));
  handler->DisableUpdateRetries();
  EXPECT_EQ(LinesOfWork(0, 1), Join({LinesOfAttempt(kSuccess), tests::kSendingFailed,
                                     tests::kRetrying, tests::kRetriesDisabled}));
  EXPECT_EQ(exchange->Reports().size(), 1U);
}

}  // namespace
}  // namespace truststore_update_client
