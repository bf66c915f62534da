/// Carries out updates for the client. Implemented by UpdateHandler and by tests.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATEHANDLERIF_H
#define TRUSTSTOREUPDATECLIENT_UPDATEHANDLERIF_H

#include <string>

#include "TruststoreUpdateClient/UpdateEnums.h"

namespace truststore_update_client {

/// Called on the main thread. No operation throws; failures have been logged.
class UpdateHandlerIf {
 public:
  virtual ~UpdateHandlerIf() = default;

  /// Removes every installed trust store and the records of what was installed. Returns 0 or a
  /// failure.
  [[nodiscard]] virtual ResponseStatus RemoveAllTrustStores() const = 0;

  /// Verifies and installs the container in the file at `path`, and logs the resulting status.
  virtual void UpdateDevContainer(const std::string& path) = 0;
};

}  // namespace truststore_update_client

#endif
