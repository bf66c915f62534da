/// The entry point through which a container becomes the unit's trust store. Implemented by
/// ContainerHandler and by tests.
#ifndef TRUSTSTOREUPDATECLIENT_CONTAINERHANDLERIF_H
#define TRUSTSTOREUPDATECLIENT_CONTAINERHANDLERIF_H

#include <cstdint>
#include <string>

#include "TruststoreUpdateClient/UpdateEnums.h"

namespace truststore_update_client {

/// One verification runs at a time, on one thread; every other operation may be called from any
/// thread meanwhile. None throws; failures have been logged.
class ContainerHandlerIf {
 public:
  virtual ~ContainerHandlerIf() = default;

  /// Verifies `container` and, when every check has passed, replaces the unit's trust stores by its
  /// bundles and records its id and timestamp. Returns one of the values of the second group of
  /// ResponseStatus. May block for as long as revocation checks take.
  [[nodiscard]] virtual ResponseStatus VerifyAndInstallContainer(const std::string& container) = 0;

  /// Returns kInstalled (0) or kStoresNotRemoved.
  [[nodiscard]] virtual ResponseStatus RemoveAllTrustStores() const = 0;

  /// The id of the container that is being installed, or was last: empty until its header has been
  /// read.
  virtual void GetInstallingContainerId(std::string& id) const = 0;

  /// The id of the installed container, empty when there is none.
  virtual void GetInstalledContainerId(std::string& id) const = 0;

  /// The timestamp of the installed container in seconds since the epoch, 0 when there is none.
  [[nodiscard]] virtual std::uint32_t GetInstalledContainerTimestamp() const = 0;

  /// True: the verification under way, and every later one, ends before it touches the trust
  /// stores, with kProcessingStopped, and revocation checks are not tried again; false allows
  /// installations and retries again.
  virtual void StopProcessing(bool stop) = 0;

  /// As StopProcessing(true), for good.
  virtual void TerminateProcessing() = 0;

  /// Formats seconds since the epoch as local time, for log lines.
  virtual void ConvertEpochTimestampToDatetime(std::uint32_t timestamp,
                                               std::string& text) const = 0;

  /// True: revocation checks are not tried again, and a wait for that ends at once. False allows it
  /// again, unless processing is stopped.
  virtual void DisableUpdateRetries(bool disable) const = 0;
};

}  // namespace truststore_update_client

#endif
