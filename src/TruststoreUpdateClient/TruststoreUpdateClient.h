/// The application object: creates the long-lived collaborators and hears their callbacks. `main`
/// owns one.
///
/// Main thread, but for SendTrigger (any thread) and LumoConnectorStatus (the connector's threads).
#ifndef TRUSTSTOREUPDATECLIENT_TRUSTSTOREUPDATECLIENT_H
#define TRUSTSTOREUPDATECLIENT_TRUSTSTOREUPDATECLIENT_H

#include <atomic>
#include <memory>
#include <string>

#include "TruststoreUpdateClient/Trigger.h"
#include "TruststoreUpdateClient/UpdateHandlerIf.h"
#include "lumo_connector/LumoConnector.h"

namespace truststore_update_client {

/// A wait of this many seconds has no limit.
inline constexpr int kNoTimeout = 100000;

/// Creation failures are logged; objects that need what could not be created are left out, and
/// operations that need them fail.
class TruststoreUpdateClient : public lumo_connector::LumoSessionCallbackIf {
 public:
  /// Starts the connector and waits for its first status, then creates the update handler.
  TruststoreUpdateClient();

  /// Stops the connector first: no callback arrives while the members end.
  ~TruststoreUpdateClient() override;
  TruststoreUpdateClient(const TruststoreUpdateClient&) = delete;
  TruststoreUpdateClient& operator=(const TruststoreUpdateClient&) = delete;

  /// Wakes the thread in WaitForTrigger, or lets its next wait return at once.
  void SendTrigger();

  /// Waits for a trigger, at most `timeout` seconds, or without limit for kNoTimeout.
  void WaitForTrigger(int timeout);

  /// Removes everything that was installed. True when nothing remains.
  [[nodiscard]] bool FactoryReset() const;

  /// Installs the container in the file at `path`, after a factory reset if asked for. A failed
  /// reset is logged and does not keep the container from being installed.
  void HandleDevContainer(const std::string& path, bool factoryReset);

  /// Hears the connector's session state.
  void LumoConnectorStatus(lumo_connector::SessionStatus status) override;

 private:
  void CreateCollaborators();
  void LumoConnectorInit();

  std::shared_ptr<UpdateHandlerIf> updateHandler;
  std::shared_ptr<lumo_connector::LumoConnector> lumoConnector;
  lumo_connector::SessionStatus sessionStatus = lumo_connector::SessionStatus::kStopped;
  bool factoryResetDone = false;
  std::atomic<bool> connectorRejected{false};
  Trigger trigger;
};

}  // namespace truststore_update_client

#endif
