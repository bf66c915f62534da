/// The application object: creates every long-lived collaborator, and decides on the main thread
/// when to update. `main` owns one.
///
/// The callbacks come on threads of those that call them: they record what happened and wake the
/// main thread. Of the rest, SendTrigger is for any thread, everything else for the main thread.
#ifndef TRUSTSTOREUPDATECLIENT_TRUSTSTOREUPDATECLIENT_H
#define TRUSTSTOREUPDATECLIENT_TRUSTSTOREUPDATECLIENT_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "TruststoreUpdateClient/ClientCollaborators.h"
#include "TruststoreUpdateClient/Trigger.h"
#include "TruststoreUpdateClient/UpdateHandlerIf.h"
#include "csa_common/MqttConnectionCbIf.h"
#include "csa_common/MqttConnectionIf.h"
#include "csa_common/TlsAlertsCbIf.h"
#include "csa_common/TlsAlertsIf.h"
#include "lumo_connector/LumoConnector.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterIf.h"
#include "support/Mutex.h"

namespace truststore_update_client {

/// A wait of this many seconds has no limit.
inline constexpr int kNoTimeout = 100000;

/// After a refused subscription, before the next one.
inline constexpr std::chrono::seconds kResubscribePause{60};

/// Creation failures are logged; objects that need what could not be created are left out, and
/// operations that need them fail. One update at most is started by a job, an alert or an empty
/// trust store in the life of the object; to try it again is the update handler's.
class TruststoreUpdateClient
    : public csa_common::MqttConnectionCbIf,
      public csa_common::TlsAlertsCbIf,
      public lumo_connector::LumoSessionCallbackIf,
      public process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf,
      public process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf,
      public lumo_connector::LumoServiceControllerCallbackIf {
 public:
  /// Creates the collaborators, starts the connector and waits for its first status. A termination
  /// meanwhile leaves out what is not created yet.
  TruststoreUpdateClient();

  /// As above, of other collaborators: for tests.
  explicit TruststoreUpdateClient(ClientCollaborators given);

  /// Ends every callback, then releases the collaborators.
  ~TruststoreUpdateClient() override;
  TruststoreUpdateClient(const TruststoreUpdateClient&) = delete;
  TruststoreUpdateClient& operator=(const TruststoreUpdateClient&) = delete;

  /// Connects the collaborators with the backend, after a factory reset if asked for. A failure is
  /// logged and keeps nothing else from working.
  void Initialize(bool factoryReset);

  /// Works until termination.
  void Main();

  /// Wakes the main loop, or lets its next wait return at once.
  void SendTrigger();

  /// Waits for a trigger, at most `timeout` seconds, or without limit for kNoTimeout.
  void WaitForTrigger(int timeout);

  /// How many seconds Main may wait now; kNoTimeout: until triggered.
  [[nodiscard]] int CalculateTimeout() const;

  /// Carries out and confirms the state that was requested last.
  void ProcessStateChange();

  /// The opposite of what it says: false when the backend can be reached. Its callers negate it.
  [[nodiscard]] bool IsConnectingAllowed() const;

  /// True when the session was not started, as told when the connector was.
  [[nodiscard]] bool CheckLumoConnectorStatus() const;

  /// Removes everything that was installed. True when nothing remains.
  [[nodiscard]] bool FactoryReset() const;

  /// Installs the container in the file at `path`, after a factory reset if asked for. A failed
  /// reset is logged and does not keep the container from being installed.
  void HandleDevContainer(const std::string& path, bool factoryReset);

  /// Publishes `message`, and logs it when that succeeded.
  void PublishStatus(const std::string& topic, const std::string& message);

  void MQTTMessageReceivedCb() override;
  void MQTTResubscribeCb() override;
  void MQTTSubscribeFailedCb() override;

  void LumoConnectorStatus(lumo_connector::SessionStatus status) override;

  /// Stops the workers and returns when they have ended.
  void ProcessLifecycleAdapterTerminate() override EXCLUDES(handlerMutex);

  /// Always healthy.
  [[nodiscard]] int ProcessLifecycleAdapterGetHealthStatus() override;

  /// To prepare for shutdown stops the workers and returns when they have ended. The main thread
  /// confirms the state.
  void ProcessLifecycleAdapterEnterState(process_lifecycle_adapter::ProcessState state,
                                         unsigned int sequence) override
      EXCLUDES(stateMutex, handlerMutex);

  /// These three do nothing.
  void LumoSCSessionStatus(lumo_connector::SCSessionStatus status) override;
  void LumoSCInvocationURL(lumo_connector::SCUrlResult result) override;
  void LumoSCActivationState(lumo_connector::SCActivationStateUpdate update) override;

  void LumoSCConnectionState(lumo_connector::SCConnectionStateUpdate update) override
      EXCLUDES(handlerMutex);

  /// Ignored while an earlier alert waits for the main thread.
  void TlsAlertNotifyCb(std::string operation, tls_alert_if::ETlsAlertCode code) override;

 private:
  using State = process_lifecycle_adapter::ProcessState;

  // An alert that the main thread has not seen yet. Written while no alert is pending, read while
  // one is: the pending flag hands it over.
  struct AlertSeen {
    bool seen = false;
    std::string operation;
  };

  void CreateCollaborators(const ClientCollaborators& given);
  void CreateLifecycle(const ClientCollaborators& given);
  void LumoConnectorInit();
  void PublishUpdateHandler(const std::shared_ptr<UpdateHandlerIf>& created) EXCLUDES(handlerMutex);
  [[nodiscard]] std::shared_ptr<UpdateHandlerIf> Handler() const EXCLUDES(handlerMutex);

  void ResetToFactory();
  void SubscribeToConnectionState();
  void MqttInit() const;
  void MqttSubscribe() const;

  void AwaitWorkers(bool& told);
  void HandleTriggers();
  void SubscribeWhenDue();
  [[nodiscard]] int SecondsUntilSubscription() const;
  void EnterRequestedState(State requested);

  void CheckForEmptyTruststore();
  void HandleTlsAlerts();
  void HandleTlsAlert(AlertSeen& alert, const char* name);
  void HandleMqttMessages();
  void HandleMqttMessage(const std::string& message);
  [[nodiscard]] std::string InstalledContainerId() const;
  void StartContainerUpdate(RenewalReason reason, const std::string& operation,
                            const std::string& installedContainerId);

  lumo_connector::SessionStatus sessionStatus = lumo_connector::SessionStatus::kStopped;
  bool factoryReset = false;
  State currentState = State::kOn;

  // A request counts once the workers have followed it: it becomes pending together with what it
  // says, and is taken so.
  std::atomic<bool> stateChangePending{false};
  support::Mutex stateMutex;
  State requestedState GUARDED_BY(stateMutex) = State::kOn;
  unsigned int requestedSequence GUARDED_BY(stateMutex) = 0;

  std::atomic<std::chrono::system_clock::time_point> resubscribeTime{};
  std::atomic<bool> sessionStatusReported{false};
  std::atomic<bool> checkEmptyTruststorePending{true};
  std::atomic<bool> mqttMessagePending{false};
  std::atomic<bool> mqttSubscribePending{true};
  std::atomic<bool> tlsAlertPending{false};
  std::atomic<bool> running{true};
  std::atomic<bool> suspended{false};
  std::atomic<bool> terminateRequested{false};
  std::atomic<bool> connectorRejected{false};
  std::atomic<bool> updateTriggered{false};
  std::atomic<std::uint8_t> connectionState{0};
  AlertSeen missingTruststoreId;
  AlertSeen unknownCa;

  const std::function<std::chrono::system_clock::time_point()> now;
  const std::function<void()> pauseForSecond;
  Trigger trigger;
  mutable support::Mutex handlerMutex;

  // Last, and so gone first, in this order backwards: the end of each waits for what it can still
  // call, which uses the members above.
  std::shared_ptr<UpdateHandlerIf> updateHandler GUARDED_BY(handlerMutex);
  std::shared_ptr<csa_common::TlsAlertsIf> tlsAlerts;
  std::shared_ptr<lumo_connector::LumoConnector> lumoConnector;
  std::shared_ptr<csa_common::MqttConnectionIf> mqttConnection;
  std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf> lifecycleAdapter;
};

}  // namespace truststore_update_client

#endif
