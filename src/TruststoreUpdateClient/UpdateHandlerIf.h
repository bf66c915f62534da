/// Carries out updates for the client. Implemented by UpdateHandler and by tests.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATEHANDLERIF_H
#define TRUSTSTOREUPDATECLIENT_UPDATEHANDLERIF_H

#include <cstdint>
#include <string>

#include "TruststoreUpdateClient/UpdateEnums.h"

namespace truststore_update_client {

/// ConnectionStateChange, IsContainerUpdateOngoing, StopProcessing, TerminateProcessing: any
/// thread. Everything else: the main thread; the starts return at once and leave the work to
/// threads of the handler. No operation throws anything but std::bad_alloc; failures have been
/// logged.
class UpdateHandlerIf {
 public:
  virtual ~UpdateHandlerIf() = default;

  /// The id of the installed container, empty when there is none.
  virtual void GetInstalledContainerId(std::string& id) = 0;

  /// The timestamp of the installed container in seconds since the epoch, 0 when there is none.
  [[nodiscard]] virtual std::uint32_t GetInstalledContainerTimestamp() const = 0;

  /// Removes every installed trust store and the records of what was installed. Returns 0 or a
  /// failure.
  [[nodiscard]] virtual ResponseStatus RemoveAllTrustStores() const = 0;

  /// Formats seconds since the epoch as local time, for log lines.
  virtual void ConvertEpochTimestampToDatetime(unsigned int timestamp, std::string& text) = 0;

  /// Tells other applications of the unit, by the marker file, whether this process has installed a
  /// trust store: `value` is 1 or 0.
  virtual void SendUpdateNotificationToOtherApps(unsigned char value) const = 0;

  /// Updates and reports wait while connecting is not allowed.
  virtual void ConnectionStateChange(bool connectingAllowed) = 0;

  /// Verifies and installs the container in the file at `path`, and logs the resulting status.
  virtual void UpdateDevContainer(const std::string& path) = 0;

  /// True while an update or a report is under way.
  [[nodiscard]] virtual bool IsContainerUpdateOngoing() const = 0;

  /// Starts an update for `reason`: download, installation, report. `operation` is the operation
  /// whose server could not be verified, if any. True when it was started; false when one is under
  /// way already or no thread could be made.
  virtual bool StartContainerUpdate(const RenewalReason& reason, const std::string& operation,
                                    const std::string& installedContainerId) = 0;

  /// Starts the report of `status`, unless one is under way, which drops this one. Names no
  /// container, but after a download or parse error the one that was being installed.
  virtual void StartStatusUpdate(ResponseStatus status) = 0;

  /// As above, about the container `containerId`; "" names none.
  virtual void StartStatusUpdate(ResponseStatus status, const std::string& containerId) = 0;

  /// True: ends the update and the report under way, unreported, and returns when they have ended,
  /// which takes as long as the exchange or installation step under way. Later ones end at once.
  /// False: allows new ones, unless TerminateProcessing was called.
  virtual void StopProcessing(bool stop) = 0;

  /// Has everything end as StopProcessing(true) does, for good, and does not wait for it.
  virtual void TerminateProcessing() = 0;
};

}  // namespace truststore_update_client

#endif
