/// MqttClientIf by libmosquitto: the only file that knows that library.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_MOSQUITTOCLIENT_H
#define PLATFORM_HOST_LUMO_CONNECTOR_MOSQUITTOCLIENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/config/HostConfig.h"
#include "platform/host/config/Result.h"
#include "platform/host/lumo_connector/BrokerTls.h"
#include "platform/host/lumo_connector/MqttClientIf.h"

struct mosquitto;
struct mosquitto_message;

namespace lumo_connector {

/// MQTT 3.1.1. Runs no thread of the library's. Belongs to one thread, which blocks SIGPIPE: the
/// library may write to a broker that has gone.
///
/// What a broker keeps for a unit, it sends again on every connection until it is taken (section
/// 4.4). After a message that cannot be taken, the next connection only ends the session that the
/// broker keeps (section 3.1.2.4); the one after it begins another.
class MosquittoClient : public MqttClientIf {
 public:
  /// Largest password file that is read.
  static constexpr std::size_t kPasswordFileLimit = 4096;

  /// Bytes that may arrive without a packet being complete; a connection that passes it is closed.
  /// The library by itself takes up to 256 MiB, and does so still from a broker whose bytes come
  /// quicker than it can read them: it returns when there is nothing to read.
  static constexpr std::uint64_t kPacketLimit = 1048576;

  /// A client for the broker of `config` that hands on payloads up to `payloadLimit`. Fails when
  /// the library does not accept the client id, and without memory.
  static platform_host::Result<std::unique_ptr<MqttClientIf>> Make(
      const platform_host::BrokerConfig& config, std::size_t payloadLimit,
      std::uint64_t packetLimit = kPacketLimit);

  /// Closes first.
  ~MosquittoClient() override;
  MosquittoClient(const MosquittoClient&) = delete;
  MosquittoClient& operator=(const MosquittoClient&) = delete;

  std::optional<platform_host::Error> Connect() override;
  Interest WaitsFor() override;
  std::optional<platform_host::Error> Serve(short events, MqttListenerIf& receiver) override;
  void Close() override;
  Sent Subscribe(const std::string& topic) override;
  Sent Publish(const std::string& topic, const std::vector<std::uint8_t>& payload) override;

 private:
  struct Destroy {
    void operator()(mosquitto* ended) const;
  };
  class Callbacks;  ///< the functions that the library calls

  MosquittoClient(const platform_host::BrokerConfig& config, std::size_t payloadLimit,
                  std::uint64_t mostBytes);

  /// `library` stays null when it does not accept the client id, and without memory.
  void MakeLibrary();

  [[nodiscard]] std::optional<platform_host::Error> SetCredentials();
  [[nodiscard]] std::optional<platform_host::Error> SetTls();

  /// With all that it has taken in.
  void DropLibrary();

  /// Looks whether the connection that was begun has been made.
  [[nodiscard]] std::optional<platform_host::Error> CheckConnecting(short events);

  /// Runs the library once over input, output and time. Returns its result.
  [[nodiscard]] int Work();

  /// A packet that never ends is refused before it fills the memory.
  [[nodiscard]] bool IsPacketTooLong();

  /// Bytes that the socket has received so far.
  [[nodiscard]] std::uint64_t ReceivedBytes() const;

  /// Why the library returned `result`, `number` being errno then.
  [[nodiscard]] platform_host::Error Reason(int result, int number) const;

  /// Why TLS failed, in words.
  [[nodiscard]] std::string TlsReason() const;

  const platform_host::BrokerConfig broker;
  const std::size_t limit;                      ///< of payloads
  const std::uint64_t packetLimit;              ///< of bytes without a complete packet
  std::unique_ptr<BrokerTls> tls;               ///< the library's; outlives it
  std::unique_ptr<mosquitto, Destroy> library;  ///< null after a broker's misbehaviour
  MqttListenerIf* listener = nullptr;           ///< set during Serve
  bool isConnecting = false;  ///< the system has not told yet whether it is connected
  bool isAccepted = false;
  bool isSessionSpoilt = false;  ///< the next connection ends the session that the broker keeps
  bool isOutOfMemory = false;    ///< a callback could not hand on what came
  const char* misbehaviour = nullptr;  ///< what the broker does that it must not; null: nothing
  bool hasProgress = false;            ///< a packet was complete
  std::uint64_t completeBytes = 0;     ///< received when the last packet was complete
  std::string refusal;                 ///< the broker's, of the connection
  std::string tlsReason;               ///< the last error of the library's TLS
};

}  // namespace lumo_connector

#endif
