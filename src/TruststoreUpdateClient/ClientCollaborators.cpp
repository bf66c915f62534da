#include "TruststoreUpdateClient/ClientCollaborators.h"

#include <cerrno>
#include <ctime>

#include "TruststoreUpdateClient/UpdateHandler.h"
#include "csa_common/MqttConnection.h"
#include "csa_common/TlsAlerts.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapter.h"

namespace truststore_update_client {

namespace {

void SleepForSecond() {
  timespec left{1, 0};
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace

ClientCollaborators::ClientCollaborators()
    : lifecycle(
          [] { return std::make_shared<process_lifecycle_adapter::ProcessLifecycleAdapter>(); }),
      connector([](lumo_connector::LumoSessionCallbackIf* callback) {
        return std::make_shared<lumo_connector::LumoConnector>(callback);
      }),
      tlsAlerts([](const Codes& codes, csa_common::TlsAlertsCbIf* callback) {
        return std::make_shared<csa_common::TlsAlerts>(codes, callback);
      }),
      updateHandler(
          [](const Connector& shared) { return std::make_shared<UpdateHandler>(shared); }),
      mqttConnection([](const Connector& shared, csa_common::MqttConnectionCbIf* callback) {
        return std::make_shared<csa_common::MqttConnection>(shared, callback);
      }),
      now(std::chrono::system_clock::now),
      pauseForSecond(SleepForSecond) {}

}  // namespace truststore_update_client
