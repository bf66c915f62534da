/// Carries out one update at a time: waits for the connection, downloads the container, has it
/// installed, reports the result, and tries again what failed. Owned by the client.
///
/// The work is done by two detached threads, "ContainerUpdate" and "StatusReport", at most one of
/// each. Other threads as UpdateHandlerIf tells.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATEHANDLER_H
#define TRUSTSTOREUPDATECLIENT_UPDATEHANDLER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "TruststoreUpdateClient/ChangeSignal.h"
#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/ContainerConnection.h"
#include "TruststoreUpdateClient/ContainerHandlerIf.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "TruststoreUpdateClient/UpdateActivity.h"
#include "TruststoreUpdateClient/UpdateHandlerIf.h"
#include "lumo_connector/LumoConnector.h"

namespace truststore_update_client {

/// The largest container file that is read: twenty times a container of every CA that the web
/// knows.
inline constexpr std::size_t kMaxContainerFileBytes = std::size_t{128} * 1024 * 1024;

/// Between two attempts to download, or to report. There is no limit on their number.
inline constexpr std::chrono::seconds kRetryInterval{30};

/// How long a tester has to break the unit's way to the backend, in the retry test mode.
inline constexpr std::chrono::seconds kConnectionTestPause{5};

/// Whatever is missing fails the operations that need it. What ends early by a stop is not
/// reported.
class UpdateHandler : public UpdateHandlerIf {
 public:
  /// What an update handler stands on.
  struct Collaborators {
    std::shared_ptr<ContainerHandlerIf> containerHandler;
    std::shared_ptr<ContainerConnection> containerConnection;
    std::shared_ptr<lumo_connector::LumoConnector> connector;
    std::optional<development_tools::DevelopmentTools> switches = std::nullopt;  ///< none: all off
    std::string notificationFile = UpdateNotificationFileName;
    std::chrono::milliseconds retryInterval = kRetryInterval;
    std::chrono::milliseconds testPause = kConnectionTestPause;
  };

  /// Over the unit's trust store; shares `connector` with the objects that it makes.
  explicit UpdateHandler(const std::shared_ptr<lumo_connector::LumoConnector>& connector);

  /// Over other collaborators, for tests. Null ones are logged as those that could not be made.
  explicit UpdateHandler(Collaborators given);

  /// Ends what is under way, and waits for that.
  ~UpdateHandler() override;
  UpdateHandler(const UpdateHandler&) = delete;
  UpdateHandler& operator=(const UpdateHandler&) = delete;

  void GetInstalledContainerId(std::string& id) override;
  [[nodiscard]] std::uint32_t GetInstalledContainerTimestamp() const override;
  [[nodiscard]] ResponseStatus RemoveAllTrustStores() const override;
  void ConvertEpochTimestampToDatetime(unsigned int timestamp, std::string& text) override;
  void SendUpdateNotificationToOtherApps(unsigned char value) const override;
  void ConnectionStateChange(bool connectingAllowed) override;
  void UpdateDevContainer(const std::string& path) override;
  [[nodiscard]] bool IsContainerUpdateOngoing() const override;
  bool StartContainerUpdate(const RenewalReason& reason, const std::string& operation,
                            const std::string& installedContainerId) override;
  void StartStatusUpdate(ResponseStatus status) override;
  void StartStatusUpdate(ResponseStatus status, const std::string& containerId) override;
  void StopProcessing(bool stop) override;
  void TerminateProcessing() override;

  /// A failed download or report is final: a wait for the next attempt ends at once, and what fails
  /// from now on is not tried again, until the next container update starts. Any thread.
  void DisableUpdateRetries();

  [[nodiscard]] bool IsConnectingAllowed() const;
  [[nodiscard]] bool IsProcessingStopped() const;
  [[nodiscard]] bool IsUpdateRetryDisabled() const;

 private:
  // What the backend is asked for in one update.
  struct Request {
    RenewalReason reason;
    std::string operation;
    std::string installedContainerId;
  };

  // What the backend is told of one update.
  struct Report {
    ResponseStatus status;
    std::string containerId;
  };

  // What the connector gave for one operation of the backend.
  struct Access {
    std::string token;
    std::string url;
  };

  // What a worker does after an attempt.
  enum class Next : std::uint8_t { kTryAgain, kGoOn, kEnd };

  void ContainerUpdateThread(const Request& request);
  void UpdateContainer(const Request& request);
  [[nodiscard]] Next TryDownload(std::string& container, const Request& request);
  [[nodiscard]] unsigned int DownloadContainer(std::string& container, const Request& request,
                                               std::uint64_t retryStopsSeen);
  [[nodiscard]] unsigned int RequestContainer(std::string& container, const Request& request,
                                              std::uint64_t retryStopsSeen);
  void InstallContainer(const std::string& container);
  [[nodiscard]] ResponseStatus VerifyAndInstallContainer(const std::string& container);
  void EndContainerUpdate(UpdateActivity& shared) const;

  [[nodiscard]] Report ReportOf(ResponseStatus status, const std::string& containerId) const;
  void StatusReportThread(const Report& report);
  [[nodiscard]] Next TryReport(const Report& report, bool& testDone, std::uint64_t retryStopsSeen);
  [[nodiscard]] bool SendReport(const Report& report, const Access& access) const;
  static void EndStatusUpdate(UpdateActivity& shared);

  [[nodiscard]] bool GetAccess(const std::string& operationTypeId, Access& access) const;
  [[nodiscard]] bool EndsByStop() const;
  void WaitForConnection(const char* line) const;
  [[nodiscard]] Next WaitForRetry(std::uint64_t retryStopsSeen) const;
  void StopRetryTimer();
  void TriggerThread();
  void TellContainerHandlerOfStop() const;
  void TellContainerHandlerOfRetries() const;

  const Collaborators collaborators;
  const bool connectionRetryTestMode;
  bool containerRetryTestDone = false;  // used by the container update only
  const std::shared_ptr<UpdateActivity> activity = std::make_shared<UpdateActivity>();
  ChangeSignal retryStops;
  ChangeSignal threadTriggers;
};

}  // namespace truststore_update_client

#endif
