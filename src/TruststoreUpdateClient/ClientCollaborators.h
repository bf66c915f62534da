/// What the client's core is made of, so that tests can put other objects in its place. Used on the
/// main thread.
#ifndef TRUSTSTOREUPDATECLIENT_CLIENTCOLLABORATORS_H
#define TRUSTSTOREUPDATECLIENT_CLIENTCOLLABORATORS_H

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "TruststoreUpdateClient/UpdateHandlerIf.h"
#include "csa_common/MqttConnectionCbIf.h"
#include "csa_common/MqttConnectionIf.h"
#include "csa_common/TlsAlertsCbIf.h"
#include "csa_common/TlsAlertsIf.h"
#include "lumo_connector/LumoConnector.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterIf.h"

namespace truststore_update_client {

/// How to make each collaborator. One that cannot be made is null, or an std::exception. By
/// default: the unit's own.
struct ClientCollaborators {
  using Connector = std::shared_ptr<lumo_connector::LumoConnector>;
  using Codes = std::vector<tls_alert_if::ETlsAlertCode>;

  ClientCollaborators();

  std::function<std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>()> lifecycle;
  std::function<Connector(lumo_connector::LumoSessionCallbackIf*)> connector;
  std::function<std::shared_ptr<csa_common::TlsAlertsIf>(const Codes&, csa_common::TlsAlertsCbIf*)>
      tlsAlerts;
  std::function<std::shared_ptr<UpdateHandlerIf>(const Connector&)> updateHandler;
  std::function<std::shared_ptr<csa_common::MqttConnectionIf>(const Connector&,
                                                              csa_common::MqttConnectionCbIf*)>
      mqttConnection;

  /// The time of the unit.
  std::function<std::chrono::system_clock::time_point()> now;

  /// Waits for the second between two looks at whether the workers have ended.
  std::function<void()> pauseForSecond;
};

}  // namespace truststore_update_client

#endif
