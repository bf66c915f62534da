/// The MQTT library as the broker session sees it: one connection at a time, nothing that blocks
/// but the resolution of the broker's name, and no thread of its own. Everything is called on one
/// thread, the session's.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_MQTTCLIENTIF_H
#define PLATFORM_HOST_LUMO_CONNECTOR_MQTTCLIENTIF_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/config/Result.h"

namespace lumo_connector {

/// What the broker says. Called from inside MqttClientIf::Serve.
class MqttListenerIf {
 public:
  virtual ~MqttListenerIf() = default;

  /// The broker accepted the connection.
  virtual void Accepted() = 0;

  /// The broker refuses the credentials (MQTT 3.1.1 section 3.2.2.3, codes 4 and 5); `reason` says
  /// it in words. Serve then returns an error.
  virtual void CredentialsRefused(const std::string& reason) = 0;

  /// The broker answered the subscription that Subscribe numbered.
  virtual void SubscribeAnswered(int number, bool isGranted) = 0;

  /// The broker took over what Publish numbered.
  virtual void PublishAcknowledged(int number) = 0;

  /// What has been published and not acknowledged will not be sent again: the client had to drop
  /// all that it had for a broker that misbehaves.
  virtual void PublicationsForgotten() = 0;

  /// A message, which the broker may send again with the same id.
  virtual void MessageArrived(const std::string& topic, std::vector<std::uint8_t> payload,
                              std::uint16_t messageId) = 0;

  /// A message whose payload is above the limit that the client was made with.
  virtual void OversizedMessageArrived() = 0;
};

/// One client of one broker, with a session that the broker keeps.
class MqttClientIf {
 public:
  /// What to wait for before the next Serve.
  struct Interest {
    int descriptor;         ///< -1: none
    short events;           ///< as poll(2) knows them
    bool hasInput = false;  ///< something is there to be served without waiting
  };

  /// What became of a request.
  struct Sent {
    enum class Outcome {
      kSent,
      kImpossible,   ///< never for this topic or payload, or without memory
      kNoConnection  ///< the connection is breaking; Serve will tell
    } outcome;
    int number = 0;  ///< the broker's answer will bear it
  };

  virtual ~MqttClientIf() = default;

  /// Begins a connection with the credentials and certificates as they are in their files now.
  /// Returns why it could not begin. Blocks for files and for the resolution of the broker's name.
  [[nodiscard]] virtual std::optional<platform_host::Error> Connect() = 0;

  [[nodiscard]] virtual Interest WaitsFor() = 0;

  /// Does what is due, `events` being what poll(2) reported. Returns why the connection is over.
  [[nodiscard]] virtual std::optional<platform_host::Error> Serve(short events,
                                                                  MqttListenerIf& listener) = 0;

  /// Ends the connection, if there is one, without waiting for anybody.
  virtual void Close() = 0;

  /// Asks for the messages of `topic` at quality of service 1.
  [[nodiscard]] virtual Sent Subscribe(const std::string& topic) = 0;

  /// Publishes at quality of service 1. What was sent is sent again after a lost connection, until
  /// the broker acknowledges it; kNoConnection is therefore no answer.
  [[nodiscard]] virtual Sent Publish(const std::string& topic,
                                     const std::vector<std::uint8_t>& payload) = 0;
};

}  // namespace lumo_connector

#endif
