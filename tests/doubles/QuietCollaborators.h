/// Collaborators of the client's core that do and log nothing, for tests that are about others.
#ifndef TESTS_DOUBLES_QUIETCOLLABORATORS_H
#define TESTS_DOUBLES_QUIETCOLLABORATORS_H

#include <memory>
#include <string>

#include "TruststoreUpdateClient/ClientCollaborators.h"

namespace tests {

class QuietLifecycle : public process_lifecycle_adapter::ProcessLifecycleAdapterIf {
 public:
  using Callback = process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf;
  using StateCallback = process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf;

  void Initialize(const std::string& /*name*/, Callback* /*callback*/) override {}
  void Initialize(const std::string& /*name*/, Callback* /*callback*/,
                  StateCallback* /*stateCallback*/) override {}
  void NotifyInit(const std::string& /*name*/, StateCallback* /*stateCallback*/) override {}
  void Configure(const ConfigParams& /*params*/) override {}
  void StateChanged(process_lifecycle_adapter::ProcessState /*state*/,
                    unsigned int /*sequence*/) override {}
};

class QuietAlerts : public csa_common::TlsAlertsIf {
 public:
  void CallbackInit(csa_common::TlsAlertsCbIf* /*callback*/) override {}
  [[nodiscard]] csa_common::TlsAlertInfo CheckAlerts() override { return {}; }
};

/// The unit's own, but for its life in the platform and its TLS alerts.
inline truststore_update_client::ClientCollaborators QuietCollaborators() {
  truststore_update_client::ClientCollaborators collaborators;
  collaborators.lifecycle = [] { return std::make_shared<QuietLifecycle>(); };
  collaborators.tlsAlerts = [](const auto& /*codes*/, auto* /*callback*/) {
    return std::make_shared<QuietAlerts>();
  };
  return collaborators;
}

}  // namespace tests

#endif
