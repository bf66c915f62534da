/// The unit's end of its message broker: topics to listen to and to publish on. Implemented by
/// MqttConnection and by tests; owned and called by the client's main thread.
#ifndef CSA_COMMON_MQTTCONNECTIONIF_H
#define CSA_COMMON_MQTTCONNECTIONIF_H

#include <cstdint>
#include <string>

namespace csa_common {

/// None blocks for the broker.
class MqttConnectionIf {
 public:
  virtual ~MqttConnectionIf() = default;

  /// Asks for the messages of `topic`, also for those sent while the unit is away. Returns 0 when
  /// the request is on its way, 1 after a failure.
  [[nodiscard]] virtual unsigned int Subscribe(const std::string& topic) = 0;

  /// Listens to the broker from now on. Returns 0, also while the connection is under way, or 1.
  [[nodiscard]] virtual unsigned int Connect() = 0;

  /// Listens no more. Returns the connector's status: 0 done, else not.
  virtual std::int32_t Disconnect() = 0;

  /// Tells whether a received message waits.
  [[nodiscard]] virtual bool CheckReceivedUpdate() = 0;

  /// Takes the oldest waiting message. REQUIRES: CheckReceivedUpdate has said so on this thread.
  [[nodiscard]] virtual std::string GetReceivedMessage() = 0;

  /// Publishes the bytes of `payload`. `first` and `second` are the connector's time to live and
  /// priority, `text` its content type, `flag` its reliability. Returns the connector's status: 0
  /// sent or queued, else not.
  [[nodiscard]] virtual std::int32_t Publish(const std::string& topic, const std::string& payload,
                                             bool flag, unsigned int first, unsigned int second,
                                             std::string text) = 0;
};

}  // namespace csa_common

#endif
