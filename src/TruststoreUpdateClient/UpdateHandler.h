/// Carries out one update: so far from a container file. Owned by the client; main thread.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATEHANDLER_H
#define TRUSTSTOREUPDATECLIENT_UPDATEHANDLER_H

#include <cstddef>
#include <memory>
#include <string>

#include "TruststoreUpdateClient/ContainerHandlerIf.h"
#include "TruststoreUpdateClient/UpdateHandlerIf.h"
#include "lumo_connector/LumoConnector.h"

namespace truststore_update_client {

/// The largest container file that is read: twenty times a container of every CA that the web
/// knows.
inline constexpr std::size_t kMaxContainerFileBytes = std::size_t{128} * 1024 * 1024;

/// Hands containers to a ContainerHandler.
class UpdateHandler : public UpdateHandlerIf {
 public:
  /// Over the unit's trust store; the handler of containers shares `connector`.
  explicit UpdateHandler(const std::shared_ptr<lumo_connector::LumoConnector>& connector);

  /// Over another container handler, for tests. Null: every update fails.
  explicit UpdateHandler(std::shared_ptr<ContainerHandlerIf> handler);

  [[nodiscard]] ResponseStatus RemoveAllTrustStores() const override;
  void UpdateDevContainer(const std::string& path) override;

 private:
  [[nodiscard]] ResponseStatus VerifyAndInstallContainer(const std::string& container);

  const std::shared_ptr<ContainerHandlerIf> containerHandler;
};

}  // namespace truststore_update_client

#endif
