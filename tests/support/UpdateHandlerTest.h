/// The fixture of the tests of UpdateHandler's two workers.
#ifndef TESTS_SUPPORT_UPDATEHANDLERTEST_H
#define TESTS_SUPPORT_UPDATEHANDLERTEST_H

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/UpdateHandler.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeContainerConnection.h"
#include "tests/doubles/FakeContainerHandler.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitingThread.h"

namespace tests {

using Lines = std::vector<std::string>;

inline const std::string kDownloadOperation = "RUNA-TruststoreUpdate.CORequestTSC";
inline const std::string kReportOperation = "RUNA-TruststoreUpdate.COReportTSCStatus";

/// All of `parts`, one after the other.
[[nodiscard]] inline Lines Join(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

/// What the connector's access to `operation` logs.
[[nodiscard]] inline Lines LinesOfAccess(const std::string& operation) {
  return {"info: Got Token for '" + operation + "'", "info: Got URL for '" + operation + "'"};
}

/// What a container update logs until it may connect.
inline const Lines kUpdateStarted = {"debug: Started Container Update.",
                                     "info: ContainerUpdateThread Started."};
inline const Lines kDownloadWaits = {
    "info: Container Download is waiting for correct Connection state..."};
inline const Lines kReportWaits = {
    "info: Status Update is waiting for correct Connection state..."};
inline const Lines kRetrying = {"error: Retrying in 30 seconds..."};
inline const Lines kProcessingStopped = {"error: Processing stopped!"};
inline const Lines kSendingFailed = {"error: Sending the Update Status failed"};
inline const Lines kRetriesDisabled = {"info: Container update retries disabled"};
inline const Lines kFinal = {"error: Stopping..."};
inline const Lines kStopBegins = {"debug: Stopping Container Update"};
inline const Lines kStopEnds = {"debug: Container Update stopped"};

/// What a download that brings a container logs.
[[nodiscard]] inline Lines LinesOfDownload() {
  return Join({LinesOfAccess(kDownloadOperation),
               {"info: TrustStore Container was downloaded successfully."}});
}

/// What an attempt to report `status` logs up to its sending.
[[nodiscard]] inline Lines LinesOfAttempt(const std::string& status) {
  return Join({{"info: Send Update Status to the Device Platform: " + status},
               LinesOfAccess(kReportOperation)});
}

/// What an accepted report of `status` logs.
[[nodiscard]] inline Lines LinesOfReport(const std::string& status) {
  return Join({LinesOfAttempt(status), {"info: Update Status was sent successfully."}});
}

/// A unit whose connector knows both operations, with a handler that may connect and that does not
/// wait before it tries again. Waits that a test is not about last longer than any test.
class UpdateHandlerTest : public ::testing::Test {
 protected:
  using UpdateHandler = truststore_update_client::UpdateHandler;

  static constexpr std::chrono::hours kForEver{1};

  UpdateHandlerTest() {
    ::alarm(static_cast<unsigned>(3 * kDeadline.count()));  // ends what waits for ever
    backend.SetToken(kDownloadOperation, "t1");
    backend.SetUrl(kDownloadOperation, "http://u1");
    backend.SetToken(kReportOperation, "t2");
    backend.SetUrl(kReportOperation, "http://u2");
    collaborators.containerHandler = containerHandler;
    collaborators.containerConnection = exchange;
    collaborators.connector = connector;
    collaborators.notificationFile = directory.Path() + "/marker";
    collaborators.retryInterval = std::chrono::milliseconds(0);
    collaborators.testPause = kForEver;
  }

  /// Ends the workers for good: their last lines come after the handler's end, and would be taken
  /// for those of the next test.
  ~UpdateHandlerTest() override {
    handler.reset();
    EXPECT_TRUE(Eventually([] {
      return ThreadsCalled("ContainerUpdate").empty() && ThreadsCalled("StatusReport").empty();
    }));
    ::alarm(0);
  }

  /// Makes the handler of `collaborators`, which may connect unless told otherwise.
  void Make(bool connectingAllowed = true) {
    handler = std::make_unique<UpdateHandler>(collaborators);
    handler->ConnectionStateChange(connectingAllowed);
  }

  bool Start() {
    return handler->StartContainerUpdate(truststore_update_client::RENEWAL_REASON_JOB, "", "old");
  }

  /// Switches as a tester sets them.
  [[nodiscard]] development_tools::DevelopmentTools RetryTestMode() const {
    const std::string file = directory.Path() + "/config.cfg";
    WriteText(file, "ConnectionRetryTestMode = true\n");
    return development_tools::DevelopmentTools(file);
  }

  [[nodiscard]] std::ptrdiff_t Count(const std::string& line) const {
    const Lines lines = log.Lines();
    return std::count(lines.begin(), lines.end(), line);
  }

  /// Whether the only of `line` was logged so often before the deadline.
  [[nodiscard]] bool Logs(const Lines& line, std::ptrdiff_t times = 1) const {
    return Eventually([&] { return Count(line.front()) >= times; });
  }

  /// Waits for the end of so many updates and reports. Returns what was logged, but for the lines
  /// that tell these ends: they have no order among the threads.
  [[nodiscard]] Lines LinesOfWork(std::ptrdiff_t updates, std::ptrdiff_t reports) const {
    EXPECT_TRUE(Logs({kUpdateEnded}, updates));
    EXPECT_TRUE(Logs({kReportEnded}, reports));
    EXPECT_TRUE(Eventually([this] { return !handler || !handler->IsContainerUpdateOngoing(); }));
    EXPECT_EQ(Count(kUpdateEnded), updates);
    EXPECT_EQ(Count(kReportEnded), reports);
    Lines lines = log.Lines();
    const auto isEnd = [](const auto& line) {
      return line == kUpdateEnded || line == kReportEnded;
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isEnd), lines.end());
    return lines;
  }

  /// Whether the thread of this name came to wait for something before the deadline.
  [[nodiscard]] static bool Sleeps(const std::string& name) {
    return Eventually([&] {
      const Ids ids = ThreadsCalled(name);
      return ids.size() == 1 && IsAsleep(ids.front());
    });
  }

  /// Returns once the handler has told the container handler `request`.
  void AwaitRequest(const std::string& request) const {
    EXPECT_TRUE(Eventually([&] {
      const Lines requests = containerHandler->Requests();
      return std::count(requests.begin(), requests.end(), request) > 0;
    }));
  }

  [[nodiscard]] bool MarkerExists() const {
    return std::filesystem::exists(collaborators.notificationFile);
  }

  using Ids = std::vector<pid_t>;

  // The threads of this process with this name; proc(5).
  static Ids ThreadsCalled(const std::string& name) {
    Ids ids;
    for (const std::string& id : NamesIn("/proc/self/task")) {
      std::ifstream file("/proc/self/task/" + id + "/comm");
      std::string found;
      if (std::getline(file, found) && found == name) ids.push_back(std::stoi(id));
    }
    return ids;
  }

  static inline const std::string kUpdateEnded = "debug: Container Update ended.";
  static inline const std::string kReportEnded = "debug: Status Reporting ended.";

  const TemporaryDirectory directory;
  FakeLumoConnector backend;
  const std::shared_ptr<lumo_connector::LumoConnector> connector =
      std::make_shared<lumo_connector::LumoConnector>(nullptr);
  const std::shared_ptr<FakeContainerHandler> containerHandler =
      std::make_shared<FakeContainerHandler>();
  const std::shared_ptr<FakeContainerConnection> exchange =
      std::make_shared<FakeContainerConnection>();
  UpdateHandler::Collaborators collaborators;
  platform_host::CapturedLog log;
  std::unique_ptr<UpdateHandler> handler;  ///< last: it uses the members above
};

}  // namespace tests

#endif
