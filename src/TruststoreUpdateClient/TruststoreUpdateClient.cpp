#include "TruststoreUpdateClient/TruststoreUpdateClient.h"

#include <exception>
#include <utility>

#include "TruststoreUpdateClient/Constants.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using lumo_connector::SessionStatus;
using std::chrono::seconds;

namespace {

constexpr const char* kVersion = "2.1.8-support-0.0.3";
constexpr const char* kComponentName = "truststore-update-client";
const ClientCollaborators::Codes kWatchedAlerts = {tls_alert_if::ETlsAlertCode{46},
                                                   tls_alert_if::ETlsAlertCode{48}};

// Subscribed this early: the wait is in whole seconds.
constexpr std::chrono::nanoseconds kDueWithin{999999999};

// Null after a failure, which the caller logs.
template <typename Factory, typename... Arguments>
auto Create(const Factory& factory, Arguments&&... arguments)
    -> decltype(factory(std::forward<Arguments>(arguments)...)) {
  try {
    return factory(std::forward<Arguments>(arguments)...);
  } catch (const std::exception&) {
    return nullptr;
  }
}

// What a handler throws must not end the main loop: the next trigger may be for another one.
template <typename Handler>
void Contain(const char* what, Handler handler) {
  try {
    handler();
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry() << what << " failed: " << exception.what());
  }
}

}  // namespace

TruststoreUpdateClient::TruststoreUpdateClient() : TruststoreUpdateClient(ClientCollaborators()) {}

TruststoreUpdateClient::TruststoreUpdateClient(ClientCollaborators given)
    : now(given.now), pauseForSecond(given.pauseForSecond) {
  CSCLogging::LogInfo("Trust Store Update Client started");
  CSCLogging::LogInfo(std::string("Trust Store Update Client version: ") + kVersion);
  CreateCollaborators(given);
}

TruststoreUpdateClient::~TruststoreUpdateClient() {
  if (lumoConnector) lumoConnector->Stop();
}

void TruststoreUpdateClient::CreateCollaborators(const ClientCollaborators& given) {
  CreateLifecycle(given);
  lumoConnector = Create(given.connector, static_cast<LumoSessionCallbackIf*>(this));
  if (!lumoConnector) {
    CSCLogging::LogError("Cannot create LumoConnector!");
    return;
  }
  LumoConnectorInit();
  if (terminateRequested) return;
  tlsAlerts = Create(given.tlsAlerts, kWatchedAlerts, static_cast<TlsAlertsCbIf*>(this));
  if (!tlsAlerts) {
    CSCLogging::LogError("Cannot create TlsAlerts!");
    return;
  }
  if (terminateRequested) return;
  const std::shared_ptr<UpdateHandlerIf> created = Create(given.updateHandler, lumoConnector);
  if (!created) {
    CSCLogging::LogError("Cannot create UpdateHandler!");
    return;
  }
  PublishUpdateHandler(created);
  if (terminateRequested) return;
  mqttConnection =
      Create(given.mqttConnection, lumoConnector, static_cast<MqttConnectionCbIf*>(this));
  if (!mqttConnection) CSCLogging::LogError("Cannot create MqttConnection!");
}

void TruststoreUpdateClient::CreateLifecycle(const ClientCollaborators& given) {
  lifecycleAdapter = Create(given.lifecycle);
  if (lifecycleAdapter) {
    lifecycleAdapter->Initialize(kComponentName, this, this);
  } else {
    CSCLogging::LogError("Cannot create ProcessLifecycleAdapter!");
  }
}

// State requests trigger, too: only the status itself ends the wait for it.
void TruststoreUpdateClient::LumoConnectorInit() {
  lumoConnector->Start();
  CSCLogging::LogInfo("Waiting for Lumo-Connector to start");
  do {
    WaitForTrigger(kNoTimeout);
  } while (!sessionStatusReported && !terminateRequested);
  sessionStatus = lumoConnector->GetSessionStatus();
  if (!CheckLumoConnectorStatus()) {
    CSCLogging::LogInfo("Lumo-Connector was started successfully.");
    return;
  }
  CSCLogging::LogError(CSCLogEntry() << "Lumo-Connector failed to start! SessionStatus="
                                     << static_cast<unsigned>(sessionStatus));
  if (sessionStatus == SessionStatus::kRejected) connectorRejected = true;
}

// A callback that found no handler has left its wish in the flags, which may change meanwhile.
void TruststoreUpdateClient::PublishUpdateHandler(const std::shared_ptr<UpdateHandlerIf>& created) {
  {
    const support::MutexLock lock(handlerMutex);
    updateHandler = created;
  }
  for (bool told = false; told != suspended;) {
    told = !told;
    created->StopProcessing(told);
  }
  if (terminateRequested) created->TerminateProcessing();
}

std::shared_ptr<UpdateHandlerIf> TruststoreUpdateClient::Handler() const {
  const support::MutexLock lock(handlerMutex);
  return updateHandler;
}

void TruststoreUpdateClient::Initialize(bool reset) {
  if (reset) ResetToFactory();
  SubscribeToConnectionState();
  MqttInit();
  if (const auto handler = Handler()) handler->SendUpdateNotificationToOtherApps(0);
}

void TruststoreUpdateClient::ResetToFactory() {
  CSCLogging::LogInfo("Truststore Update Client Factory Reset");
  if (!FactoryReset()) CSCLogging::LogError("Factory Reset failed!");
  factoryReset = true;
}

bool TruststoreUpdateClient::FactoryReset() const {
  const auto handler = Handler();
  return handler && handler->RemoveAllTrustStores() == STATUS_CODE_SUCCESS;
}

void TruststoreUpdateClient::SubscribeToConnectionState() {
  if (lumoConnector && lumoConnector->SubscribeTransactionTypeState(
                           ConnectionStateTransactionTypeId, this, 0) != 0) {
    return;
  }
  CSCLogging::LogError("Subscribe to connection state failed!");
}

void TruststoreUpdateClient::HandleDevContainer(const std::string& path, bool reset) {
  if (reset) ResetToFactory();
  if (const auto handler = Handler()) handler->UpdateDevContainer(path);
}

void TruststoreUpdateClient::Main() {
  CSCLogging::LogInfo("Truststore Update Client Ready");
  bool terminationTold = false;
  while (running) {
    if (terminateRequested) {
      AwaitWorkers(terminationTold);
      continue;
    }
    if (stateChangePending) {
      Contain("State change", [this] { ProcessStateChange(); });
    }
    if (connectorRejected) {
      CSCLogging::LogInfo(
          "Trust Store Update Client stopped due to Rejected Lumo-Connector State.");
      WaitForTrigger(kNoTimeout);
      continue;
    }
    if (!suspended) HandleTriggers();
    SubscribeWhenDue();
    if (running) WaitForTrigger(CalculateTimeout());
  }
  CSCLogging::LogInfo("Truststore Update Client Terminated.");
}

// Ends the main loop once no worker is at work.
void TruststoreUpdateClient::AwaitWorkers(bool& told) {
  CSCLogging::LogInfo(told ? "Waiting for the threads to stop..."
                           : "Handling Truststore Update Client termination request.");
  told = true;
  const auto handler = Handler();
  if (handler && handler->IsContainerUpdateOngoing()) {
    pauseForSecond();
  } else {
    running = false;
  }
}

void TruststoreUpdateClient::HandleTriggers() {
  if (checkEmptyTruststorePending.exchange(false)) {
    Contain("Check of the trust store", [this] { CheckForEmptyTruststore(); });
  }
  if (tlsAlertPending) {
    Contain("TLS alert", [this] { HandleTlsAlerts(); });
    tlsAlertPending = false;
  }
  if (mqttMessagePending.exchange(false)) {
    Contain("MQTT message", [this] { HandleMqttMessages(); });
  }
}

void TruststoreUpdateClient::SubscribeWhenDue() {
  if (!mqttSubscribePending || IsConnectingAllowed()) return;
  if (resubscribeTime.load() - now() > kDueWithin) return;
  mqttSubscribePending = false;
  CSCLogging::LogInfo("Handling MQTT subscription request.");
  Contain("MQTT subscription", [this] { MqttSubscribe(); });
}

int TruststoreUpdateClient::CalculateTimeout() const {
  const bool connected = !IsConnectingAllowed();
  if (stateChangePending || (checkEmptyTruststorePending && connected)) return 1;
  if (tlsAlertPending || mqttMessagePending) return 1;
  if (mqttSubscribePending && connected) return SecondsUntilSubscription();
  return kNoTimeout;
}

int TruststoreUpdateClient::SecondsUntilSubscription() const {
  const auto left =
      std::chrono::duration_cast<seconds>(resubscribeTime.load() - now()) + seconds(1);
  if (left < seconds(0)) {
    CSCLogging::LogWarning("MQTT Resubscribe has negative timeout.");
    return 1;
  }
  if (left >= seconds(kNoTimeout)) return kNoTimeout;
  return left == seconds(0) ? 1 : static_cast<int>(left.count());
}

void TruststoreUpdateClient::SendTrigger() {
  trigger.Raise();
}

void TruststoreUpdateClient::WaitForTrigger(int timeout) {
  if (timeout == kNoTimeout) {
    CSCLogging::LogDebug("Process timeout set to inf");
    trigger.Wait();
    return;
  }
  CSCLogging::LogDebug(CSCLogEntry() << "Process timeout set to: " << timeout << "s");
  trigger.WaitFor(seconds(timeout));
}

bool TruststoreUpdateClient::IsConnectingAllowed() const {
  const std::uint8_t state = connectionState;
  return state != 2 && state != 3;
}

bool TruststoreUpdateClient::CheckLumoConnectorStatus() const {
  return sessionStatus != SessionStatus::kStarted;
}

// Confirmed outside the lock: the request may change meanwhile, and is then pending again.
void TruststoreUpdateClient::ProcessStateChange() {
  State requested{};
  unsigned int sequence = 0;
  {
    const support::MutexLock lock(stateMutex);
    requested = requestedState;
    sequence = requestedSequence;
    stateChangePending = false;
  }
  EnterRequestedState(requested);
  if (lifecycleAdapter) lifecycleAdapter->StateChanged(requested, sequence);
}

void TruststoreUpdateClient::EnterRequestedState(State requested) {
  const bool same = requested == currentState;
  if (requested == State::kOn) {
    CSCLogging::LogInfo(same ? "Client already in kOn state." : "Resuming client.");
    if (!same) checkEmptyTruststorePending = true;
  } else if (requested == State::kPrepSD) {
    CSCLogging::LogInfo(same ? "Client already in kPrepSD state."
                             : "Prepararing client for shutdown.");
  } else {
    CSCLogging::LogError("Invalid state change request!");
    return;
  }
  currentState = requested;
}

}  // namespace truststore_update_client
