/// What an MqttConnection tells its owner. Called on the connector's thread with no lock held; the
/// owner wakes its own thread and returns at once.
#ifndef CSA_COMMON_MQTTCONNECTIONCBIF_H
#define CSA_COMMON_MQTTCONNECTIONCBIF_H

namespace csa_common {

class MqttConnectionCbIf {
 public:
  virtual ~MqttConnectionCbIf() = default;

  /// A message waits: MqttConnectionIf::GetReceivedMessage.
  virtual void MQTTMessageReceivedCb() = 0;

  /// What was subscribed has to be subscribed again: the connection came back, or was lost before
  /// the broker answered.
  virtual void MQTTResubscribeCb() = 0;

  /// The broker refused a subscription. Trying again at once is no use.
  virtual void MQTTSubscribeFailedCb() = 0;
};

}  // namespace csa_common

#endif
