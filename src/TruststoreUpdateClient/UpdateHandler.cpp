#include "TruststoreUpdateClient/UpdateHandler.h"

#include <cerrno>
#include <exception>
#include <utility>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/UpdateNotification.h"
#include "csc_logging/CSCLogging.h"
#include "support/FileContents.h"
#include "support/WorkerThread.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using lumo_connector::LumoConnector;

namespace {

// Null after a failure, which the constructor of the update handler logs.
template <typename Object>
std::shared_ptr<Object> Create(const std::shared_ptr<LumoConnector>& connector) {
  try {
    return std::make_shared<Object>(connector);
  } catch (const std::exception&) {
    return nullptr;
  }
}

UpdateHandler::Collaborators OnTheUnit(const std::shared_ptr<LumoConnector>& connector) {
  return {Create<ContainerHandler>(connector), Create<ContainerConnection>(connector), connector,
          development_tools::DevelopmentTools()};
}

// An exception that left a thread would end the process. What gets here could not even be logged.
template <typename Work>
void Contain(Work work) noexcept {
  try {
    work();
  } catch (...) {
  }
}

// Runs what `prepare` returns on a detached thread. False, logged, when that cannot be: a worker
// that was announced must not be waited for then.
template <typename Prepare>
bool StartWorker(const char* name, Prepare prepare) {
  try {
    support::StartThread(name, prepare()).detach();
    return true;
  } catch (const std::exception& exception) {
    Contain([&] {
      CSCLogging::LogError(CSCLogEntry()
                           << "Cannot start the thread " << name << ": " << exception.what());
    });
    return false;
  }
}

}  // namespace

UpdateHandler::UpdateHandler(const std::shared_ptr<LumoConnector>& connector)
    : UpdateHandler(OnTheUnit(connector)) {}

UpdateHandler::UpdateHandler(Collaborators given)
    : collaborators(std::move(given)),
      connectionRetryTestMode(collaborators.switches.has_value() &&
                              collaborators.switches->GetDevSwitchBool("ConnectionRetryTestMode")) {
  if (!collaborators.containerHandler) CSCLogging::LogError("Cannot create Containerhandler!");
  if (!collaborators.containerConnection) {
    CSCLogging::LogError("Cannot create ContainerConnection!");
  }
}

UpdateHandler::~UpdateHandler() {
  TerminateProcessing();
  activity->WaitUntilIdle();
}

void UpdateHandler::GetInstalledContainerId(std::string& id) {
  id.clear();
  if (collaborators.containerHandler) collaborators.containerHandler->GetInstalledContainerId(id);
}

std::uint32_t UpdateHandler::GetInstalledContainerTimestamp() const {
  return collaborators.containerHandler
             ? collaborators.containerHandler->GetInstalledContainerTimestamp()
             : 0;
}

ResponseStatus UpdateHandler::RemoveAllTrustStores() const {
  return collaborators.containerHandler ? collaborators.containerHandler->RemoveAllTrustStores()
                                        : kStoresNotRemoved;
}

void UpdateHandler::ConvertEpochTimestampToDatetime(unsigned int timestamp, std::string& text) {
  text.clear();
  if (collaborators.containerHandler) {
    collaborators.containerHandler->ConvertEpochTimestampToDatetime(timestamp, text);
  }
}

void UpdateHandler::SendUpdateNotificationToOtherApps(unsigned char value) const {
  const int error = WriteUpdateNotification(collaborators.notificationFile, value);
  if (error != 0) {
    CSCLogging::LogError("Error sending Update Notification to other applications!");
    Contain([&] {
      CSCLogging::LogInfo("The marker file was not written: " + support::ErrorText(error));
    });
    return;
  }
  CSCLogging::LogInfo(value != 0 ? "Update Notification sent to other applications"
                                 : "Update Notification cleared");
}

void UpdateHandler::UpdateDevContainer(const std::string& path) {
  std::string content;
  const int error = support::ReadFile(path, kMaxContainerFileBytes, content);
  if (error != 0) {
    CSCLogging::LogError("Failed to open '" + path + "'");
    if (error != ENOENT) {
      CSCLogging::LogInfo(std::string("The container file was not read: ") +
                          support::ErrorText(error));
    }
    return;
  }
  const ResponseStatus status = VerifyAndInstallContainer(content);
  CSCLogging::LogInfo("Send Update Status to the Device Platform: " + StatusName(status));
}

ResponseStatus UpdateHandler::VerifyAndInstallContainer(const std::string& container) {
  return collaborators.containerHandler
             ? collaborators.containerHandler->VerifyAndInstallContainer(container)
             : STATUS_CODE_UNEXPECTED_ERROR;
}

bool UpdateHandler::StartContainerUpdate(const RenewalReason& reason, const std::string& operation,
                                         const std::string& installedContainerId) {
  if (!activity->BeginContainerUpdate()) {
    CSCLogging::LogDebug("Container Update already active.");
    return false;
  }
  CSCLogging::LogDebug("Started Container Update.");
  if (StartWorker("ContainerUpdate", [&] {
        TellContainerHandlerOfRetries();
        return
            [this, shared = activity, request = Request{reason, operation, installedContainerId}] {
              Contain([&] { ContainerUpdateThread(request); });
              EndContainerUpdate(*shared);
            };
      })) {
    return true;
  }
  EndContainerUpdate(*activity);
  return false;
}

// `this` must not be used once `shared` says that the update has ended.
void UpdateHandler::EndContainerUpdate(UpdateActivity& shared) const {
  Contain([&] {
    if (collaborators.containerHandler) collaborators.containerHandler->DisableUpdateRetries(false);
  });
  shared.EndContainerUpdate();
  CSCLogging::LogDebug("Container Update ended.");
}

void UpdateHandler::StartStatusUpdate(ResponseStatus status) {
  StartStatusUpdate(status, "");
}

void UpdateHandler::StartStatusUpdate(ResponseStatus status, const std::string& containerId) {
  if (!activity->BeginStatusReport()) {
    CSCLogging::LogInfo("Status Report already active.");
    return;
  }
  if (!StartWorker("StatusReport", [&] {
        return [this, shared = activity, report = ReportOf(status, containerId)] {
          Contain([&] { StatusReportThread(report); });
          EndStatusUpdate(*shared);
        };
      })) {
    EndStatusUpdate(*activity);
  }
}

UpdateHandler::Report UpdateHandler::ReportOf(ResponseStatus status,
                                              const std::string& containerId) const {
  Report report{status, containerId};
  const bool failedEarly =
      status == STATUS_CODE_DOWNLOAD_ERROR || status == STATUS_CODE_PARSE_ERROR;
  if (containerId.empty() && failedEarly && collaborators.containerHandler) {
    collaborators.containerHandler->GetInstallingContainerId(report.containerId);
  }
  return report;
}

void UpdateHandler::EndStatusUpdate(UpdateActivity& shared) {
  shared.EndStatusReport();
  CSCLogging::LogDebug("Status Reporting ended.");
}

void UpdateHandler::StopProcessing(bool stop) {
  activity->SetProcessingStopped(stop);
  if (stop) CSCLogging::LogDebug("Stopping Container Update");
  TellContainerHandlerOfStop();
  if (!stop) return;
  StopRetryTimer();
  TriggerThread();
  activity->WaitUntilIdle();
  CSCLogging::LogDebug("Container Update stopped");
}

void UpdateHandler::TerminateProcessing() {
  activity->Terminate();
  if (collaborators.containerHandler) collaborators.containerHandler->TerminateProcessing();
  StopRetryTimer();
  TriggerThread();
}

void UpdateHandler::DisableUpdateRetries() {
  CSCLogging::LogInfo("Container update retries disabled");
  activity->DisableUpdateRetries();
  TellContainerHandlerOfRetries();
  StopRetryTimer();
}

// As below: a resume that overtakes a stop must not leave a handler that installs nothing.
void UpdateHandler::TellContainerHandlerOfStop() const {
  if (!collaborators.containerHandler) return;
  bool told = false;
  do {
    told = activity->IsStopRequested();
    collaborators.containerHandler->StopProcessing(told);
  } while (told != activity->IsStopRequested());
}

// Whoever is told last is told the present state, also when it changes meanwhile.
void UpdateHandler::TellContainerHandlerOfRetries() const {
  if (!collaborators.containerHandler) return;
  bool told = false;
  do {
    told = activity->IsUpdateRetryDisabled();
    collaborators.containerHandler->DisableUpdateRetries(told);
  } while (told != activity->IsUpdateRetryDisabled());
}

void UpdateHandler::ConnectionStateChange(bool connectingAllowed) {
  activity->SetConnectingAllowed(connectingAllowed);
  TriggerThread();
}

bool UpdateHandler::IsContainerUpdateOngoing() const {
  return activity->IsOngoing();
}

bool UpdateHandler::IsConnectingAllowed() const {
  return activity->IsConnectingAllowed();
}

bool UpdateHandler::IsProcessingStopped() const {
  return activity->IsProcessingStopped();
}

bool UpdateHandler::IsUpdateRetryDisabled() const {
  return activity->IsUpdateRetryDisabled();
}

void UpdateHandler::StopRetryTimer() {
  retryStops.Change();
}

void UpdateHandler::TriggerThread() {
  threadTriggers.Change();
}

}  // namespace truststore_update_client
