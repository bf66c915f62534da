/// A unit in memory for one cell of the table: the client's whole core with its own update handler,
/// verification, facade, MQTT and TLS alerts, on doubles of what the platform provides.
#ifndef TESTS_MATRIX_MATRIXUNIT_H
#define TESTS_MATRIX_MATRIXUNIT_H

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/HSM.h"
#include "TruststoreUpdateClient/TruststoreUpdateClient.h"
#include "TruststoreUpdateClient/UpdateHandler.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterImpl.h"
#include "tests/doubles/FakeAlertClient.h"
#include "tests/doubles/FakeAra.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/matrix/OutageBackend.h"
#include "tests/matrix/UpdateTable.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// The operation whose server an alert is about.
inline const std::string kAlertOperation = "FLEET-Shop.COOrder";

/// The lines of the cell's log with ids and status filled in.
[[nodiscard]] std::vector<std::string> FilledInLog(const UpdateCell& cell);

/// The name of the cell's status as the log tells it, or "-".
[[nodiscard]] std::string StatusNameOf(const UpdateCell& cell);

/// Lives from its start to its end in one test, on the test's thread; the client's main thread is
/// another. Waits for nothing longer than kDeadline; a wait in vain is a failure of the test.
class MatrixUnit {
 public:
  /// Starts the client. What its log says from now on counts. `updateCell` outlives it.
  explicit MatrixUnit(const UpdateCell& updateCell);

  /// Ends the client if End has not.
  ~MatrixUnit();
  MatrixUnit(const MatrixUnit&) = delete;
  MatrixUnit& operator=(const MatrixUnit&) = delete;

  /// Does what starts the update. An empty store has done so already.
  void Trigger();

  /// Waits until the update is where the cell's `at` says.
  void WaitForPoint();

  /// Ends the outage at that point, and waits until the report is accepted.
  void Recover();

  /// Has state management ask for kPrepSD, and waits until that is confirmed.
  void Suspend();

  /// Ends the outage, has state management ask for kOn, and sends a job when the unit is at work
  /// again; waits until that is handled.
  void Resume();

  /// Ends the client as a SIGTERM does, and waits for its end.
  void End();

  /// The log at info and above, oldest first, as "level: text".
  [[nodiscard]] std::vector<std::string> Log() const;

  /// What the marker file says.
  [[nodiscard]] std::string Marker() const;

  [[nodiscard]] const OutageBackend& Backend() const { return backend; }
  [[nodiscard]] const FakeTrustStore& TrustStore() const { return *trustStore; }
  [[nodiscard]] const FakeAra& Platform() const { return platform; }

  /// The id of the installed container as it is recorded; empty when there is none.
  [[nodiscard]] std::string RecordedId() const;

 private:
  /// Tells the backend when the container is installed.
  class Records;

  using Collaborators = truststore_update_client::ClientCollaborators;

  [[nodiscard]] bool BeginsEmpty() const { return cell.trigger == "empty"; }
  void InstallFormerContainer();
  void Start();
  [[nodiscard]] Collaborators MakeCollaborators();
  [[nodiscard]] std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
  MakeLifecycle();
  [[nodiscard]] std::shared_ptr<truststore_update_client::HSM> MakeFacade(
      const Collaborators::Connector& shared);
  [[nodiscard]] std::shared_ptr<truststore_update_client::UpdateHandlerIf> MakeUpdateHandler(
      const Collaborators::Connector& shared);
  void SendAlert(unsigned char code);

  /// Runs `stop`, which returns when the workers have ended, and lets the backend go on when they
  /// know.
  void StopBy(const std::function<void()>& stop);
  void WaitForLine(const std::string& pattern) const;

  const UpdateCell& cell;
  const TemporaryDirectory directory;
  platform_host::CapturedLog log;
  FakeAra platform;
  FakeLumoConnector connector;
  OutageBackend backend;
  const std::shared_ptr<FakeTrustStore> trustStore = std::make_shared<FakeTrustStore>();
  std::shared_ptr<Records> records;
  std::vector<std::string> alertCalls;

  // The client's; known here to have them do what the platform has them do.
  FakeAlertClient* alertClient = nullptr;
  std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterImpl> lifecycle;
  std::shared_ptr<truststore_update_client::HSM> facade;
  std::shared_ptr<truststore_update_client::UpdateHandler> updateHandler;

  std::unique_ptr<truststore_update_client::TruststoreUpdateClient> client;
  std::future<void> mainLoop;  ///< last: it uses the members above
};

}  // namespace tests

#endif
