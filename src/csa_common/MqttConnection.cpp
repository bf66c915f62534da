#include "csa_common/MqttConnection.h"

#include <utility>

#include "csc_logging/CSCLogging.h"

namespace csa_common {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

constexpr std::int32_t kConnected = 0;
constexpr std::int32_t kConnectionLost = 1;
constexpr std::int32_t kSubscriptionRefused = 1;
constexpr std::uint32_t kBytesFormat = 0;

bool IsConnectSuccess(std::int32_t status) {
  // Connected, under way, connected already.
  return status == 0 || status == 1 || status == 3;
}

bool IsSubscribeSuccess(std::int32_t status) {
  // Sent, queued until there is a session.
  return status == 0 || status == 3;
}

/// A line about a request; `end` stands after the topic.
CSCLogEntry RequestLine(const char* event, const std::string& topic, const char* end,
                        std::uint16_t requestId) {
  CSCLogEntry entry;
  entry << "MqttConnection: " << event << " to topic " << topic << end
        << ", Request ID:" << requestId;
  return entry;
}

}  // namespace

MqttConnection::MqttConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector,
                               MqttConnectionCbIf* callbackOwner)
    : connector(std::move(lumoConnector)), owner(callbackOwner) {}

unsigned int MqttConnection::Subscribe(const std::string& topic) {
  const lumo_connector::LumoPubSubResult result = connector->PubSubSubscribe(topic, true);
  if (IsSubscribeSuccess(result.status)) {
    CSCLogging::LogInfo(CSCLogEntry() << "MqttConnection: Subscribed to topic " << topic
                                      << ", status=" << result.status);
    return 0;
  }
  CSCLogging::LogError(CSCLogEntry()
                       << "MqttConnection: Failed to subscribe to topic " << topic
                       << ", status=" << result.status << ", Request ID:" << result.requestId);
  return 1;
}

unsigned int MqttConnection::Connect() {
  const std::int32_t status = connector->PubSubConnect(this);
  if (IsConnectSuccess(status)) {
    CSCLogging::LogInfo(CSCLogEntry()
                        << "MqttConnection: Connected to MQTT-CDP, result=" << status);
    return 0;
  }
  CSCLogging::LogError(CSCLogEntry()
                       << "MqttConnection: Failed to connect to MQTT-CDP, result=" << status);
  return 1;
}

std::int32_t MqttConnection::Disconnect() {
  return connector->PubSubDisconnect();
}

bool MqttConnection::CheckReceivedUpdate() {
  return receivedCount != 0;
}

std::string MqttConnection::GetReceivedMessage() {
  const support::MutexLock lock(queueLock);
  std::string oldest = std::move(receivedMessages.front());
  receivedMessages.erase(receivedMessages.begin());
  receivedCount = receivedMessages.size();
  return oldest;
}

std::int32_t MqttConnection::Publish(const std::string& topic, const std::string& payload,
                                     bool flag, unsigned int first, unsigned int second,
                                     std::string text) {
  const std::vector<std::uint8_t> bytes(payload.begin(), payload.end());
  return connector->PubSubPublish(topic, bytes, first, second, kBytesFormat, text, flag);
}

void MqttConnection::LumoPublishReceived(const std::string& topic,
                                         const std::vector<std::uint8_t>& payload,
                                         std::uint16_t messageId) {
  std::string message(payload.begin(), payload.end());
  CSCLogging::LogDebug(CSCLogEntry() << "MqttConnection: Message received for topic " << topic
                                     << ", message:" << message << ", messageId: " << messageId);
  if (BeginsToDrop(std::move(message))) {
    CSCLogging::LogWarning(CSCLogEntry() << "MqttConnection: Messages are dropped because "
                                         << kMessageLimit << " others wait");
  }
  if (owner != nullptr) owner->MQTTMessageReceivedCb();
}

bool MqttConnection::BeginsToDrop(std::string message) {
  const support::MutexLock lock(queueLock);
  if (receivedMessages.size() >= kMessageLimit) return !std::exchange(dropping, true);
  dropping = false;
  receivedMessages.push_back(std::move(message));
  receivedCount = receivedMessages.size();
  return false;
}

void MqttConnection::LumoPubSubConnectionState(std::int32_t state) {
  const std::int32_t before = connectionState;
  CSCLogging::LogDebug(CSCLogEntry() << "MqttConnection: Connection state has changed from "
                                     << before << " to " << state);
  if (state == kConnected && before == kConnectionLost && owner != nullptr)
    owner->MQTTResubscribeCb();
  connectionState = state;
}

void MqttConnection::LumoSubscribeAcknowledgeReceived(const std::string& topic, std::int32_t status,
                                                      std::uint16_t requestId) {
  CSCLogging::LogDebug(CSCLogEntry() << "MqttConnection: Subscribe acknowledged to topic " << topic
                                     << ", status " << status << " Request ID:" << requestId);
  if (status == kSubscriptionRefused && owner != nullptr) owner->MQTTSubscribeFailedCb();
}

void MqttConnection::LumoSubscribeFailed(const std::string& topic, std::uint16_t requestId) {
  CSCLogging::LogError(RequestLine("Subscribe", topic, " failed", requestId));
  if (owner != nullptr) owner->MQTTResubscribeCb();
}

void MqttConnection::LumoPublishAcknowledgeReceived(const std::string& topic,
                                                    std::uint16_t requestId) {
  CSCLogging::LogDebug(RequestLine("Publish acknowledged", topic, "", requestId));
}

void MqttConnection::LumoPublishFailed(const std::string& topic, std::uint16_t requestId) {
  CSCLogging::LogError(RequestLine("Publish", topic, " failed", requestId));
}

void MqttConnection::LumoUnsubscribeAcknowledgeReceived(const std::string& topic,
                                                        std::uint16_t requestId) {
  CSCLogging::LogDebug(RequestLine("Unsubscribe acknowledged", topic, "", requestId));
}

void MqttConnection::LumoUnsubscribeFailed(const std::string& topic, std::uint16_t requestId) {
  CSCLogging::LogError(RequestLine("Unsubscribe", topic, " failed", requestId));
}

void MqttConnection::LumoConnectorStatus(lumo_connector::SessionStatus status) {
  CSCLogging::LogDebug(CSCLogEntry() << "MqttConnection: Lumo-Connector status has changed to "
                                     << static_cast<std::uint32_t>(status));
}

}  // namespace csa_common
