// Stop, termination and the end of the handler, with the workers at every point of their way.
#include <functional>
#include <utility>

#include "tests/support/UpdateHandlerTest.h"
#include "tests/support/WaitingThread.h"

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

const std::string kSuccess = "STATUS_CODE_SUCCESS";
const Lines kKillDownload = {
    "error: ***** Testability Option: Container Retry: Kill socks-sandbox now"};
const Lines kKillReport = {
    "error: ***** Testability Option: Status Report Retry: Kill socks-sandbox now"};

// How everything under way is brought to its end.
struct Ending {
  std::string name;
  std::string request;  // that the container handler hears
  Lines before;         // what it logs before the workers end
  Lines after;          // and afterwards
  std::function<void(std::unique_ptr<UpdateHandler>&)> end;
};

std::ostream& operator<<(std::ostream& stream, const Ending& ending) {
  return stream << ending.name;
}

Ending Stop() {
  return {"Stop", "stop", tests::kStopBegins, tests::kStopEnds,
          [](auto& handler) { handler->StopProcessing(true); }};
}

Ending Terminate() {
  return {"Terminate", "terminate", {}, {}, [](auto& handler) { handler->TerminateProcessing(); }};
}

Ending Destroy() {
  return {"Destroy", "terminate", {}, {}, [](auto& handler) { handler.reset(); }};
}

class UpdateHandlerEnding : public tests::UpdateHandlerTest,
                            public ::testing::WithParamInterface<Ending> {
 protected:
  UpdateHandlerEnding() { collaborators.retryInterval = kForEver; }

  void End() { GetParam().end(handler); }

  // Returns inside a call of a worker as soon as the ending has begun.
  void AwaitEnding() const { AwaitRequest(GetParam().request); }

  // What is logged when the workers find out one after the other, `more` lines after the ending.
  Lines Ended(const Lines& before, const Lines& more = tests::kProcessingStopped) const {
    return Join({before, GetParam().before, more, GetParam().after});
  }
};

INSTANTIATE_TEST_SUITE_P(Each, UpdateHandlerEnding,
                         ::testing::Values(Stop(), Terminate(), Destroy()),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(UpdateHandlerEnding, NothingUnderWay_ReturnsAtOnce) {
  Make();
  End();
  EXPECT_EQ(LinesOfWork(0, 0), Join({GetParam().before, GetParam().after}));
  EXPECT_THAT(containerHandler->Requests(), ::testing::Contains(GetParam().request));
}

TEST_P(UpdateHandlerEnding, UpdateWaitsForConnection_Ends) {
  Make(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  End();
  EXPECT_EQ(LinesOfWork(1, 0), Ended(Join({tests::kUpdateStarted, tests::kDownloadWaits})));
  EXPECT_THAT(exchange->Downloads(), IsEmpty());
}

TEST_P(UpdateHandlerEnding, ReportWaitsForConnection_Ends) {
  Make(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kReportWaits));
  End();
  EXPECT_EQ(LinesOfWork(0, 1), Ended(Join({LinesOfAttempt(kSuccess), tests::kReportWaits})));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

TEST_P(UpdateHandlerEnding, BothWaitForConnection_BothEnd) {
  Make(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kReportWaits));
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  End();
  EXPECT_EQ(LinesOfWork(1, 1), Ended(Join({LinesOfAttempt(kSuccess), tests::kReportWaits,
                                           tests::kUpdateStarted, tests::kDownloadWaits}),
                                     Join({tests::kProcessingStopped, tests::kProcessingStopped})));
}

TEST_P(UpdateHandlerEnding, UpdateWaitsForNextAttempt_Ends) {
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  End();
  EXPECT_EQ(LinesOfWork(1, 0),
            Ended(Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation),
                        tests::kRetrying})));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

TEST_P(UpdateHandlerEnding, ReportWaitsForNextAttempt_Ends) {
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying));
  End();
  EXPECT_EQ(LinesOfWork(0, 1),
            Ended(Join({LinesOfAttempt(kSuccess), tests::kSendingFailed, tests::kRetrying})));
  EXPECT_EQ(exchange->Reports().size(), 1U);
}

TEST_P(UpdateHandlerEnding, BothWaitForNextAttempt_BothEnd) {
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying));
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying, 2));
  End();
  EXPECT_EQ(LinesOfWork(1, 1).size(), Ended({}).size() + 11);
  EXPECT_EQ(Count(tests::kProcessingStopped.front()), 2);
}

TEST_P(UpdateHandlerEnding, DuringFailingDownload_EndsWithoutReport) {
  exchange->PlanDownloads({[this](std::string& /*container*/) {
    AwaitEnding();
    return kExchangeFailed;
  }});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !exchange->Downloads().empty(); }));
  End();
  EXPECT_EQ(LinesOfWork(1, 0),
            Ended(Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation)}),
                  Join({tests::kRetrying, tests::kProcessingStopped})));
  EXPECT_EQ(exchange->Downloads().size(), 1U);
}

TEST_P(UpdateHandlerEnding, DuringGoodDownload_NothingInstalled) {
  exchange->PlanDownloads({[this](std::string& container) {
    AwaitEnding();
    container = "too late";
    return kExchangeSuccess;
  }});
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !exchange->Downloads().empty(); }));
  End();
  EXPECT_EQ(LinesOfWork(1, 0),
            Ended(Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation)}),
                  {"info: TrustStore Container was downloaded successfully.",
                   tests::kProcessingStopped.front()}));
  EXPECT_THAT(containerHandler->Containers(), IsEmpty());
}

TEST_P(UpdateHandlerEnding, DuringInstallation_EndsUnreported) {
  containerHandler->AtVerification([this] { AwaitEnding(); });
  containerHandler->AnswerVerification(kProcessingStopped);
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !containerHandler->Containers().empty(); }));
  End();
  EXPECT_EQ(LinesOfWork(1, 1), Ended(Join({tests::kUpdateStarted, LinesOfDownload()})));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

TEST_P(UpdateHandlerEnding, InstalledAllTheSame_ToldToOtherApplications) {
  containerHandler->AtVerification([this] { AwaitEnding(); });
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !containerHandler->Containers().empty(); }));
  End();
  EXPECT_EQ(LinesOfWork(1, 1), Ended(Join({tests::kUpdateStarted, LinesOfDownload()}),
                                     {"info: Update Notification sent to other applications",
                                      tests::kProcessingStopped.front()}));
  EXPECT_EQ(tests::ReadText(collaborators.notificationFile), "1");
}

TEST_P(UpdateHandlerEnding, DuringFailingReport_NotSentAgain) {
  exchange->PlanReports({[this] {
    AwaitEnding();
    return kExchangeFailed;
  }});
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(tests::Eventually([this] { return !exchange->Reports().empty(); }));
  End();
  EXPECT_EQ(LinesOfWork(0, 1),
            Ended(LinesOfAttempt(kSuccess),
                  Join({tests::kSendingFailed, tests::kRetrying, tests::kProcessingStopped})));
  EXPECT_EQ(exchange->Reports().size(), 1U);
}

TEST_P(UpdateHandlerEnding, DuringPauseBeforeDownload_NothingSent) {
  collaborators.switches = RetryTestMode();
  Make();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(kKillDownload));
  End();
  EXPECT_EQ(
      LinesOfWork(1, 0),
      Ended(Join({tests::kUpdateStarted, LinesOfAccess(tests::kDownloadOperation), kKillDownload}),
            Join({tests::kRetrying, tests::kProcessingStopped})));
  EXPECT_THAT(exchange->Downloads(), IsEmpty());
}

TEST_P(UpdateHandlerEnding, DuringPauseBeforeReport_NothingSent) {
  collaborators.switches = RetryTestMode();
  Make();
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(kKillReport));
  End();
  EXPECT_EQ(LinesOfWork(0, 1), Ended(Join({LinesOfAttempt(kSuccess), kKillReport})));
  EXPECT_THAT(exchange->Reports(), IsEmpty());
}

// What is started after a stop ends before it does anything.
class StoppedUpdateHandler : public tests::UpdateHandlerTest {
 protected:
  StoppedUpdateHandler() { Make(); }

  void ExpectEverythingEnds() {
    const Lines before = log.Lines();
    EXPECT_TRUE(Start());
    EXPECT_EQ(LinesOfWork(1, 0), Join({before, tests::kUpdateStarted, tests::kProcessingStopped}));
    handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
    EXPECT_EQ(LinesOfWork(1, 1), Join({before, tests::kUpdateStarted, tests::kProcessingStopped,
                                       tests::kProcessingStopped}));
    EXPECT_THAT(exchange->Downloads(), IsEmpty());
    EXPECT_THAT(exchange->Reports(), IsEmpty());
  }
};

TEST_F(StoppedUpdateHandler, Stop_WorkersEndBeforeTheyConnect) {
  handler->StopProcessing(true);
  EXPECT_TRUE(handler->IsProcessingStopped());
  ExpectEverythingEnds();
}

TEST_F(StoppedUpdateHandler, Termination_WorkersEndBeforeTheyConnect) {
  handler->TerminateProcessing();
  EXPECT_TRUE(handler->IsProcessingStopped());
  ExpectEverythingEnds();
}

TEST_F(StoppedUpdateHandler, ResumeAfterTermination_StaysStopped) {
  handler->TerminateProcessing();
  handler->StopProcessing(true);
  handler->StopProcessing(false);
  EXPECT_TRUE(handler->IsProcessingStopped());
  ExpectEverythingEnds();
  EXPECT_THAT(containerHandler->Requests(),
              ElementsAre("terminate", "stop", "resume", "enable retries", "enable retries"));
}

TEST_F(StoppedUpdateHandler, Resume_LogsNothingAndAllowsNextUpdate) {
  handler->StopProcessing(true);
  handler->StopProcessing(false);
  EXPECT_FALSE(handler->IsProcessingStopped());
  EXPECT_EQ(log.Lines(), Join({tests::kStopBegins, tests::kStopEnds}));
  EXPECT_TRUE(Start());
  (void)LinesOfWork(1, 1);
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("a container"));
  EXPECT_THAT(containerHandler->Requests(),
              ElementsAre("stop", "resume", "enable retries", "enable retries"));
}

// A request that comes while the container handler is told of another one is told last.
TEST_F(StoppedUpdateHandler, ResumeWhileItStops_ToldLast) {
  containerHandler->AtStop([this] {
    containerHandler->AtStop(nullptr);
    handler->StopProcessing(false);
  });
  handler->StopProcessing(true);
  EXPECT_FALSE(handler->IsProcessingStopped());
  EXPECT_THAT(containerHandler->Requests(), ElementsAre("resume", "stop", "resume"));
}

TEST_F(StoppedUpdateHandler, ResumeAfterEndedUpdate_DoesNotRestartIt) {
  handler->ConnectionStateChange(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  handler->StopProcessing(true);
  handler->StopProcessing(false);
  handler->ConnectionStateChange(true);
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
  (void)LinesOfWork(1, 0);
  EXPECT_THAT(exchange->Downloads(), IsEmpty());
}

// A stop that has passed does not cut the waits of a later update.
TEST_F(StoppedUpdateHandler, EarlierStop_DoesNotShortenLaterWait) {
  collaborators.retryInterval = kForEver;
  exchange->PlanDownloads({FakeContainerConnection::Brings(kExchangeFailed)});
  Make();
  handler->StopProcessing(true);
  handler->StopProcessing(false);
  handler->DisableUpdateRetries();
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kRetrying));
  EXPECT_TRUE(Sleeps("ContainerUpdate"));
  EXPECT_EQ(exchange->Downloads().size(), 1U);
}

TEST_F(StoppedUpdateHandler, EarlierStop_DoesNotShortenLaterWaitOfReport) {
  collaborators.retryInterval = kForEver;
  exchange->PlanReports({FakeContainerConnection::Ends(kExchangeFailed)});
  Make();
  handler->StopProcessing(true);
  handler->StopProcessing(false);
  handler->StartStatusUpdate(STATUS_CODE_SUCCESS, "id");
  EXPECT_TRUE(Logs(tests::kRetrying));
  EXPECT_TRUE(Sleeps("StatusReport"));
  EXPECT_EQ(exchange->Reports().size(), 1U);
}

TEST_F(StoppedUpdateHandler, TerminationBeforeThreadRuns_UpdateEnds) {
  containerHandler->AtRetriesChange([this] { handler->TerminateProcessing(); });
  EXPECT_TRUE(Start());
  EXPECT_EQ(LinesOfWork(1, 0), Join({tests::kUpdateStarted, tests::kProcessingStopped}));
}

TEST_F(StoppedUpdateHandler, StopBeforeThreadRuns_WaitsForIt) {
  std::unique_ptr<tests::WaitingThread<bool>> stop;
  containerHandler->AtRetriesChange([&] {
    if (stop) return;
    stop = std::make_unique<tests::WaitingThread<bool>>([this] {
      handler->StopProcessing(true);
      return handler->IsContainerUpdateOngoing();
    });
    AwaitRequest("stop");
    EXPECT_TRUE(stop->Waits());
  });
  EXPECT_TRUE(Start());
  EXPECT_TRUE(stop->Ends());
  EXPECT_FALSE(stop->Get());
  EXPECT_EQ(LinesOfWork(1, 0), Join({{tests::kUpdateStarted.front()},
                                     tests::kStopBegins,
                                     {tests::kUpdateStarted.back()},
                                     tests::kProcessingStopped,
                                     tests::kStopEnds}));
}

TEST_F(StoppedUpdateHandler, StopDuringInstallation_ReturnsWhenItHasEnded) {
  ChangeSignal go;
  containerHandler->AtVerification([&] { go.WaitForChange(0); });
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !containerHandler->Containers().empty(); }));
  tests::WaitingThread<bool> stop([this] {
    handler->StopProcessing(true);
    return handler->IsContainerUpdateOngoing();
  });
  AwaitRequest("stop");
  EXPECT_TRUE(stop.Waits());
  EXPECT_FALSE(stop.HasEnded());
  EXPECT_EQ(Count(tests::kStopEnds.front()), 0);
  go.Change();
  EXPECT_TRUE(stop.Ends());
  EXPECT_FALSE(stop.Get());
}

TEST_F(StoppedUpdateHandler, Termination_DoesNotWait) {
  ChangeSignal go;
  containerHandler->AtVerification([&] { go.WaitForChange(0); });
  EXPECT_TRUE(Start());
  EXPECT_TRUE(tests::Eventually([this] { return !containerHandler->Containers().empty(); }));
  handler->TerminateProcessing();
  EXPECT_TRUE(handler->IsContainerUpdateOngoing());
  go.Change();
  (void)LinesOfWork(1, 1);
}

}  // namespace
}  // namespace truststore_update_client
