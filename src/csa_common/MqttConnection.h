/// The client's end of its message broker, over the connector's topics. Keeps what was received
/// until the main thread takes it, logs every event and tells the owner of three of them. The
/// callbacks come on the connector's thread, everything else on the main thread.
#ifndef CSA_COMMON_MQTTCONNECTION_H
#define CSA_COMMON_MQTTCONNECTION_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "csa_common/MqttConnectionCbIf.h"
#include "csa_common/MqttConnectionIf.h"
#include "lumo_connector/LumoConnector.h"
#include "support/Mutex.h"

namespace csa_common {

/// Outlives the connector's last callback: stop the connector, or at least disconnect, first.
class MqttConnection : public MqttConnectionIf,
                       public lumo_connector::LumoPubSubCallbackIf,
                       public lumo_connector::LumoSessionCallbackIf {
 public:
  /// Messages that wait for the owner, who takes none while the unit prepares its shutdown; of
  /// more, the newest are dropped.
  static constexpr std::size_t kMessageLimit = 256;

  /// A null `callbackOwner` is told nothing.
  MqttConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector,
                 MqttConnectionCbIf* callbackOwner);
  ~MqttConnection() override = default;
  MqttConnection(const MqttConnection&) = delete;
  MqttConnection& operator=(const MqttConnection&) = delete;

  /// Logs the connector's answer at info, or at error for a failure; so does Connect.
  [[nodiscard]] unsigned int Subscribe(const std::string& topic) override;
  [[nodiscard]] unsigned int Connect() override;

  /// A callback may still be under way afterwards.
  std::int32_t Disconnect() override;

  /// Takes no lock: never waits for a message that is being stored.
  [[nodiscard]] bool CheckReceivedUpdate() override;
  [[nodiscard]] std::string GetReceivedMessage() override EXCLUDES(queueLock);
  [[nodiscard]] std::int32_t Publish(const std::string& topic, const std::string& payload,
                                     bool flag, unsigned int first, unsigned int second,
                                     std::string text) override;

  /// Has the owner subscribe again when a lost connection (1) is back (0).
  void LumoPubSubConnectionState(std::int32_t state) override;

  /// This and what says nothing else below only write a line: at error for what failed, else at
  /// debug.
  void LumoPublishAcknowledgeReceived(const std::string& topic, std::uint16_t requestId) override;

  /// Keeps the message, while there is room, and tells the owner. The first of several that are
  /// dropped is a warning.
  void LumoPublishReceived(const std::string& topic, const std::vector<std::uint8_t>& payload,
                           std::uint16_t messageId) override EXCLUDES(queueLock);

  /// Tells the owner of a refusal (status 1).
  void LumoSubscribeAcknowledgeReceived(const std::string& topic, std::int32_t status,
                                        std::uint16_t requestId) override;

  /// Has the owner subscribe again.
  void LumoSubscribeFailed(const std::string& topic, std::uint16_t requestId) override;
  void LumoUnsubscribeAcknowledgeReceived(const std::string& topic,
                                          std::uint16_t requestId) override;
  void LumoUnsubscribeFailed(const std::string& topic, std::uint16_t requestId) override;
  void LumoPublishFailed(const std::string& topic, std::uint16_t requestId) override;
  void LumoConnectorStatus(lumo_connector::SessionStatus status) override;

 private:
  // Constant after construction.
  std::shared_ptr<lumo_connector::LumoConnector> connector;
  MqttConnectionCbIf* owner;

  /// Returns whether this one is dropped, and the one before was not.
  [[nodiscard]] bool BeginsToDrop(std::string message) EXCLUDES(queueLock);

  /// As last reported. Written by the connector's thread only.
  std::atomic<std::int32_t> connectionState{0};
  support::Mutex queueLock;
  std::vector<std::string> receivedMessages GUARDED_BY(queueLock);  ///< oldest first
  bool dropping GUARDED_BY(queueLock) = false;                      ///< the last one was dropped
  std::atomic<std::size_t> receivedCount{0};  ///< of the messages above; changed under the lock
};

}  // namespace csa_common

#endif
