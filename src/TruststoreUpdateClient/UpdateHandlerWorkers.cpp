// The two workers of UpdateHandler: the container update and the status report.
#include <exception>

#include "TruststoreUpdateClient/UpdateHandler.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

namespace {

constexpr std::int32_t kAccessGranted = 1;

// A lack of memory costs the line, not the work that it tells of.
template <typename... Pieces>
void LogErrorOf(const Pieces&... pieces) noexcept {
  try {
    CSCLogEntry entry;
    (entry << ... << pieces);
    CSCLogging::LogError(entry);
  } catch (const std::exception&) {
  }
}

bool Granted(const char* what, const std::string& operationTypeId, std::int32_t status) {
  if (status == kAccessGranted) {
    CSCLogging::LogInfo(CSCLogEntry() << "Got " << what << " for '" << operationTypeId << "'");
    return true;
  }
  CSCLogging::LogError(CSCLogEntry() << "Failed to get the " << what << " for '" << operationTypeId
                                     << "', status=" << status);
  return false;
}

}  // namespace

void UpdateHandler::ContainerUpdateThread(const Request& request) {
  CSCLogging::LogInfo("ContainerUpdateThread Started.");
  try {
    UpdateContainer(request);
  } catch (const std::exception& exception) {
    LogErrorOf("Container Update failed: ", exception.what());
    StartStatusUpdate(STATUS_CODE_UNEXPECTED_ERROR);
  }
}

void UpdateHandler::UpdateContainer(const Request& request) {
  std::string container;
  Next next{};
  do {
    next = TryDownload(container, request);
  } while (next == Next::kTryAgain && !activity->IsUpdateRetryDisabled());
  if (next == Next::kEnd || EndsByStop()) return;
  if (next == Next::kGoOn) InstallContainer(container);
}

// Stops of the retry timer count from here: one that comes before the wait is not slept through,
// and one from before this attempt does not shorten it.
UpdateHandler::Next UpdateHandler::TryDownload(std::string& container, const Request& request) {
  const std::uint64_t retryStopsSeen = retryStops.Count();
  container.clear();
  WaitForConnection("Container Download is waiting for correct Connection state...");
  if (EndsByStop()) return Next::kEnd;
  const unsigned int result = DownloadContainer(container, request, retryStopsSeen);
  if (result == kExchangeSuccess) return Next::kGoOn;
  if (result == kNoNewContainer) {
    StartStatusUpdate(STATUS_CODE_SUCCESS, request.installedContainerId);
    return Next::kEnd;
  }
  const Next next = WaitForRetry(retryStopsSeen);
  if (next == Next::kEnd) StartStatusUpdate(STATUS_CODE_DOWNLOAD_ERROR);
  return next;
}

// A request that threw is one that failed: the update goes on with its next attempt.
unsigned int UpdateHandler::DownloadContainer(std::string& container, const Request& request,
                                              std::uint64_t retryStopsSeen) {
  unsigned int result = kExchangeFailed;
  try {
    result = RequestContainer(container, request, retryStopsSeen);
  } catch (const std::exception& exception) {
    LogErrorOf("Container Download failed: ", exception.what());
  }
  if (result == kNoNewContainer) CSCLogging::LogInfo("No new TrustStore Container available.");
  if (result != kExchangeSuccess) return result;
  if (container.empty()) {
    CSCLogging::LogError("Received an empty TrustStore Container!");
    return kExchangeFailed;
  }
  CSCLogging::LogInfo("TrustStore Container was downloaded successfully.");
  return kExchangeSuccess;
}

unsigned int UpdateHandler::RequestContainer(std::string& container, const Request& request,
                                             std::uint64_t retryStopsSeen) {
  Access access;
  if (!GetAccess(ContainerRequestOperationTypeId, access)) return kExchangeFailed;
  const bool test = connectionRetryTestMode && !containerRetryTestDone;
  if (test) {
    CSCLogging::LogError("***** Testability Option: Container Retry: Kill socks-sandbox now");
    retryStops.WaitForChange(retryStopsSeen, collaborators.testPause);
    if (activity->IsProcessingStopped()) return kExchangeFailed;
  }
  const unsigned int result = collaborators.containerConnection
                                  ? collaborators.containerConnection->GetContainer(
                                        container, request.reason, request.operation,
                                        request.installedContainerId, access.token, access.url)
                                  : kExchangeFailed;
  if (test) {
    CSCLogging::LogError("***** Testability Option: Container Retry: Re-start socks-sandbox now");
    containerRetryTestDone = true;
  }
  return result;
}

void UpdateHandler::InstallContainer(const std::string& container) {
  const ResponseStatus status = VerifyAndInstallContainer(container);
  if (status == STATUS_CODE_SUCCESS) SendUpdateNotificationToOtherApps(1);
  StartStatusUpdate(status);
}

// An attempt that threw is one that failed: what could not be reported is reported later.
void UpdateHandler::StatusReportThread(const Report& report) {
  bool testDone = false;
  Next next{};
  do {
    const std::uint64_t retryStopsSeen = retryStops.Count();
    try {
      next = TryReport(report, testDone, retryStopsSeen);
    } catch (const std::exception& exception) {
      LogErrorOf("Status Report failed: ", exception.what());
      next = WaitForRetry(retryStopsSeen);
    }
  } while (next == Next::kTryAgain && !activity->IsUpdateRetryDisabled());
}

UpdateHandler::Next UpdateHandler::TryReport(const Report& report, bool& testDone,
                                             std::uint64_t retryStopsSeen) {
  if (EndsByStop()) return Next::kEnd;
  CSCLogging::LogInfo("Send Update Status to the Device Platform: " + StatusName(report.status));
  Access access;
  if (!GetAccess(StatusReportOperationTypeId, access)) return WaitForRetry(retryStopsSeen);
  const bool test = connectionRetryTestMode && !testDone;
  if (test) {
    CSCLogging::LogError("***** Testability Option: Status Report Retry: Kill socks-sandbox now");
    retryStops.WaitForChange(retryStopsSeen, collaborators.testPause);
  }
  WaitForConnection("Status Update is waiting for correct Connection state...");
  if (EndsByStop()) return Next::kEnd;
  const bool sent = SendReport(report, access);
  if (test) {
    CSCLogging::LogError(
        "***** Testability Option: Status Report Retry: Re-start socks-sandbox now");
    testDone = true;
  }
  if (sent) {
    CSCLogging::LogInfo("Update Status was sent successfully.");
    return Next::kEnd;
  }
  CSCLogging::LogError("Sending the Update Status failed");
  return WaitForRetry(retryStopsSeen);
}

bool UpdateHandler::SendReport(const Report& report, const Access& access) const {
  return collaborators.containerConnection &&
         collaborators.containerConnection->SendUpdateStatus(
             report.status, report.containerId, access.token, access.url) == kExchangeSuccess;
}

bool UpdateHandler::GetAccess(const std::string& operationTypeId, Access& access) const {
  if (!collaborators.connector) return Granted("Token", operationTypeId, 0);
  lumo_connector::LumoTokenResult token = collaborators.connector->GetToken(operationTypeId);
  if (!Granted("Token", operationTypeId, token.status)) return false;
  lumo_connector::SCUrlResult url = collaborators.connector->GetInvocationUrl(operationTypeId);
  if (!Granted("URL", operationTypeId, url.status)) return false;
  access = {std::move(token.token), std::move(url.url)};
  return true;
}

bool UpdateHandler::EndsByStop() const {
  if (!activity->IsProcessingStopped()) return false;
  CSCLogging::LogError("Processing stopped!");
  return true;
}

// Counted before the look at what changes: no change slips in between.
void UpdateHandler::WaitForConnection(const char* line) const {
  for (;;) {
    const std::uint64_t seen = threadTriggers.Count();
    if (activity->IsConnectingAllowed() || activity->IsProcessingStopped()) return;
    CSCLogging::LogInfo(line);
    threadTriggers.WaitForChange(seen);
  }
}

UpdateHandler::Next UpdateHandler::WaitForRetry(std::uint64_t retryStopsSeen) const {
  if (activity->IsUpdateRetryDisabled()) {
    CSCLogging::LogError("Stopping...");
    return Next::kEnd;
  }
  LogErrorOf("Retrying in ", kRetryInterval.count(), " seconds...");
  retryStops.WaitForChange(retryStopsSeen, collaborators.retryInterval);
  return Next::kTryAgain;
}

}  // namespace truststore_update_client
