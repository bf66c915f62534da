// What starts an update: the callbacks that record it, on any thread, and the handlers that decide,
// on the main thread.
#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/Protobuffers.h"
#include "TruststoreUpdateClient/TruststoreUpdateClient.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using lumo_connector::SessionStatus;

namespace {

constexpr auto kMissingTruststoreId = tls_alert_if::ETlsAlertCode{46};
constexpr auto kUnknownCa = tls_alert_if::ETlsAlertCode{48};

}  // namespace

void TruststoreUpdateClient::MqttInit() const {
  const unsigned int result = mqttConnection ? mqttConnection->Connect() : 1;
  if (result == 0) {
    CSCLogging::LogInfo("MQTT Initialized");
  } else {
    CSCLogging::LogError(CSCLogEntry() << "MQTT Connection FAILED! Result: " << result);
  }
}

void TruststoreUpdateClient::MqttSubscribe() const {
  if (mqttConnection && mqttConnection->Subscribe(MqttJobOperationTypeId) == 0) {
    CSCLogging::LogInfo("MQTT Subscribed successfully");
  } else {
    CSCLogging::LogError("MQTT Subscription FAILED!");
  }
}

void TruststoreUpdateClient::MQTTResubscribeCb() {
  resubscribeTime = now();
  mqttSubscribePending = true;
  CSCLogging::LogInfo("MQTT Re-Subscription request was received");
  SendTrigger();
}

void TruststoreUpdateClient::MQTTSubscribeFailedCb() {
  CSCLogging::LogInfo("MQTT Subscribtion failed");
  resubscribeTime = now() + kResubscribePause;
  mqttSubscribePending = true;
  SendTrigger();
}

void TruststoreUpdateClient::MQTTMessageReceivedCb() {
  mqttMessagePending = true;
  CSCLogging::LogInfo("MQTT Message was received");
  SendTrigger();
}

// A broker that sends without end keeps the process neither from ending nor from a state that it
// is to enter, before which the rest waits.
void TruststoreUpdateClient::HandleMqttMessages() {
  while (mqttConnection && !terminateRequested && mqttConnection->CheckReceivedUpdate()) {
    if (stateChangePending) {
      mqttMessagePending = true;
      return;
    }
    HandleMqttMessage(mqttConnection->GetReceivedMessage());
  }
}

void TruststoreUpdateClient::HandleMqttMessage(const std::string& message) {
  if (message.empty()) {
    CSCLogging::LogInfo("Empty message received via MQTT");
    return;
  }
  if (updateTriggered.exchange(true)) {
    CSCLogging::LogInfo("MQTT Message Ignored");
    return;
  }
  CSCLogging::LogInfo("Update notification received via MQTT");
  std::string received;
  Protobuffers().ParseMqttJobRequest(received, message);
  const std::string installed = InstalledContainerId();
  CSCLogging::LogInfo("Current Container ID: " + installed +
                      ", Received Container ID: " + received);
  if (received == installed) {
    CSCLogging::LogInfo("Container is up-to-date");
    if (const auto handler = Handler()) handler->StartStatusUpdate(STATUS_CODE_SUCCESS, installed);
    return;
  }
  CSCLogging::LogInfo(
      "Received Container ID is NOT matched. Update process triggered by MQTT signal");
  StartContainerUpdate(RENEWAL_REASON_JOB, "", installed);
}

void TruststoreUpdateClient::CheckForEmptyTruststore() {
  const auto handler = Handler();
  if (!handler) return;
  const std::string id = InstalledContainerId();
  if (!id.empty()) {
    std::string dateTime;
    handler->ConvertEpochTimestampToDatetime(handler->GetInstalledContainerTimestamp(), dateTime);
    CSCLogging::LogInfo("Currently installed container: " + id + "  Timestamp: " + dateTime);
    return;
  }
  if (updateTriggered) {
    CSCLogging::LogInfo("TrustStore is empty! TrustStore update process not started.");
    return;
  }
  // After a factory reset the store is empty on purpose: a job or an alert may still start another
  // update.
  if (!factoryReset) updateTriggered = true;
  CSCLogging::LogInfo("TrustStore is empty! Starting TrustStore update process.");
  StartContainerUpdate(RENEWAL_REASON_EMPTYTS, "", "");
}

void TruststoreUpdateClient::TlsAlertNotifyCb(std::string operation,
                                              tls_alert_if::ETlsAlertCode code) {
  CSCLogging::LogInfo(CSCLogEntry() << "Tls Alert " << static_cast<unsigned>(code)
                                    << " occurred with Operation " << operation);
  if (tlsAlertPending) {
    CSCLogging::LogInfo("Tls Alert ignored. Alert is already received and being handled.");
    return;
  }
  if (code != kMissingTruststoreId && code != kUnknownCa) return;
  AlertSeen& alert = code == kUnknownCa ? unknownCa : missingTruststoreId;
  alert.operation = std::move(operation);
  alert.seen = true;
  tlsAlertPending = true;
  SendTrigger();
}

void TruststoreUpdateClient::HandleTlsAlerts() {
  HandleTlsAlert(missingTruststoreId, "Missing Truststore Id");
  HandleTlsAlert(unknownCa, "Unknown CA");
}

void TruststoreUpdateClient::HandleTlsAlert(AlertSeen& alert, const char* name) {
  if (!alert.seen) return;
  alert.seen = false;
  if (updateTriggered.exchange(true)) {
    CSCLogging::LogInfo(CSCLogEntry() << "Tls Alert '" << name << "' Ignored");
    return;
  }
  const std::string id = InstalledContainerId();
  CSCLogging::LogInfo(CSCLogEntry() << "Tls Alert '" << name << "' Occurred");
  StartContainerUpdate(RENEWAL_REASON_UNKNOWNCA, alert.operation, id);
}

std::string TruststoreUpdateClient::InstalledContainerId() const {
  std::string id;
  if (const auto handler = Handler()) handler->GetInstalledContainerId(id);
  return id;
}

void TruststoreUpdateClient::StartContainerUpdate(RenewalReason reason,
                                                  const std::string& operation,
                                                  const std::string& installedContainerId) {
  // What keeps it from starting has been logged.
  if (const auto handler = Handler()) {
    (void)handler->StartContainerUpdate(reason, operation, installedContainerId);
  }
}

void TruststoreUpdateClient::PublishStatus(const std::string& topic, const std::string& message) {
  constexpr unsigned int kTimeToLive = 10;
  constexpr unsigned int kPriority = 20;
  if (mqttConnection &&
      mqttConnection->Publish(topic, message, true, kTimeToLive, kPriority, "none") == 0) {
    CSCLogging::LogInfo(" Successfully Published:" + message + "> To this topic==>" + topic);
  }
}

void TruststoreUpdateClient::LumoConnectorStatus(SessionStatus status) {
  const auto number = static_cast<unsigned>(status);
  if (status == SessionStatus::kStarted) {
    CSCLogging::LogInfo("LumoConnector Status OK");
  } else if (status == SessionStatus::kRejected) {
    CSCLogging::LogError(CSCLogEntry() << "LumoConnector Status Rejected=" << number);
    connectorRejected = true;
  } else {
    CSCLogging::LogError(CSCLogEntry() << "LumoConnectorStatus Failed=" << number);
  }
  sessionStatusReported = true;
  SendTrigger();
}

void TruststoreUpdateClient::LumoSCSessionStatus(lumo_connector::SCSessionStatus /*status*/) {}

void TruststoreUpdateClient::LumoSCInvocationURL(lumo_connector::SCUrlResult /*result*/) {}

void TruststoreUpdateClient::LumoSCActivationState(
    lumo_connector::SCActivationStateUpdate /*update*/) {}

void TruststoreUpdateClient::LumoSCConnectionState(lumo_connector::SCConnectionStateUpdate update) {
  if (terminateRequested || update.transactionTypeId != ConnectionStateTransactionTypeId) return;
  CSCLogging::LogDebug(CSCLogEntry()
                       << "Connection state notification, new state: " << unsigned{update.state});
  connectionState = update.state;
  const bool connected = !IsConnectingAllowed();
  if (connected) SendTrigger();
  if (const auto handler = Handler()) handler->ConnectionStateChange(connected);
}

void TruststoreUpdateClient::ProcessLifecycleAdapterEnterState(State state, unsigned int sequence) {
  if (state != State::kOn && state != State::kPrepSD) {
    CSCLogging::LogError(static_cast<unsigned>(state) == 0
                             ? "Incorrect state change request!"
                             : "Default: Incorrect state change request!");
    return;
  }
  const bool suspend = state == State::kPrepSD;
  CSCLogging::LogDebug(suspend ? "Preparing for shutdown request received."
                               : "Resume request received.");
  suspended = suspend;
  if (const auto handler = Handler()) handler->StopProcessing(suspend);
  {
    const support::MutexLock lock(stateMutex);
    requestedState = state;
    requestedSequence = sequence;
    stateChangePending = true;
  }
  SendTrigger();
}

// Triggered at once, so that the main loop tells that it waits for the workers; and again when they
// have ended.
void TruststoreUpdateClient::ProcessLifecycleAdapterTerminate() {
  CSCLogging::LogDebug("Termination signal received");
  terminateRequested = true;
  SendTrigger();
  if (const auto handler = Handler()) {
    handler->TerminateProcessing();
    handler->StopProcessing(true);
  }
  SendTrigger();
}

int TruststoreUpdateClient::ProcessLifecycleAdapterGetHealthStatus() {
  CSCLogging::LogDebug("Get Health Status called.");
  return 0;
}

}  // namespace truststore_update_client
