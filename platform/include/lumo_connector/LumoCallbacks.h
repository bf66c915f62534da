/// What the connector tells those that listen to it.
///
/// Every operation is called on a thread of the connector, never from inside a call into it, never
/// with a lock held, and never after LumoConnector::Stop has returned. None may call Stop or
/// destroy the connector; each should return soon, as all wait for it.
#ifndef LUMO_CONNECTOR_LUMOCALLBACKS_H
#define LUMO_CONNECTOR_LUMOCALLBACKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "lumo_connector/LumoTypes.h"

namespace lumo_connector {

/// Hears of the session.
class LumoSessionCallbackIf {
 public:
  virtual ~LumoSessionCallbackIf() = default;

  /// Called once after Start, and again when the backend refuses the unit later.
  virtual void LumoConnectorStatus(SessionStatus status) = 0;
};

/// Hears of services and their connections.
class LumoServiceControllerCallbackIf {
 public:
  virtual ~LumoServiceControllerCallbackIf() = default;
  virtual void LumoSCSessionStatus(SCSessionStatus status) = 0;
  virtual void LumoSCInvocationURL(SCUrlResult result) = 0;
  virtual void LumoSCActivationState(SCActivationStateUpdate update) = 0;

  /// Called with the present state after SubscribeTransactionTypeState and at each change.
  virtual void LumoSCConnectionState(SCConnectionStateUpdate update) = 0;
};

/// Hears of topics: MQTT 3.1.1 at quality of service 1, at least once.
class LumoPubSubCallbackIf {
 public:
  virtual ~LumoPubSubCallbackIf() = default;

  /// 0 connected, 1 lost. Called at each change.
  virtual void LumoPubSubConnectionState(std::int32_t state) = 0;

  /// The broker took over what was published.
  virtual void LumoPublishAcknowledgeReceived(const std::string& topic,
                                              std::uint16_t requestId) = 0;

  /// A message for a subscribed topic; the broker may send one again with the same id.
  virtual void LumoPublishReceived(const std::string& topic,
                                   const std::vector<std::uint8_t>& payload,
                                   std::uint16_t messageId) = 0;

  /// The broker's answer to a subscription: 0 granted, 1 refused.
  virtual void LumoSubscribeAcknowledgeReceived(const std::string& topic, std::int32_t status,
                                                std::uint16_t requestId) = 0;

  /// The connection was lost before the answer. Comes when there is a connection again.
  virtual void LumoSubscribeFailed(const std::string& topic, std::uint16_t requestId) = 0;
  virtual void LumoUnsubscribeAcknowledgeReceived(const std::string& topic,
                                                  std::uint16_t requestId) = 0;
  virtual void LumoUnsubscribeFailed(const std::string& topic, std::uint16_t requestId) = 0;
  virtual void LumoPublishFailed(const std::string& topic, std::uint16_t requestId) = 0;
};

}  // namespace lumo_connector

#endif
