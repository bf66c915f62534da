/// The session with the broker: connects, serves, loses, pauses, connects again. Decides; what
/// MQTT is, its client knows, and who waits for what, BrokerThread does.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_BROKERSESSION_H
#define PLATFORM_HOST_LUMO_CONNECTOR_BROKERSESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/config/HostConfig.h"
#include "platform/host/lumo_connector/MqttClientIf.h"
#include "platform/host/lumo_connector/ReconnectPause.h"
#include "platform/host/lumo_connector/TopicEvents.h"
#include "platform/host/lumo_connector/TopicRequests.h"
#include "platform/host/lumo_connector/TransactionTypeStates.h"

namespace lumo_connector {

/// Belongs to one thread. Nothing waits here.
class BrokerSession : private MqttListenerIf {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// How long a broker may take to accept a connection, from the first packet of TCP on.
  static constexpr std::chrono::seconds kAcceptLimit{20};

  /// A session that held so long resets the pauses: longer than the longest pause, so that two
  /// units with one client id never throw each other out quicker and quicker.
  static constexpr std::chrono::seconds kGoodSession{120};

  /// Whom the session tells; all outlive it.
  struct Parties {
    TransactionTypeStates& states;
    TopicEvents& events;
    TopicRequests& requests;
    std::function<void()>
        rejected;  ///< the broker refuses the credentials: called once, at the end
  };

  /// What to wait for until the next Turn.
  struct Wait {
    MqttClientIf::Interest interest;
    TimePoint until;
  };

  /// `randomFraction` gives numbers from 0 to 1, `now` the time after something that blocked.
  BrokerSession(
      const platform_host::BrokerConfig& broker, std::unique_ptr<MqttClientIf> mqttClient,
      Parties listeners, std::function<double()> randomFraction,
      std::function<TimePoint()> now = [] { return std::chrono::steady_clock::now(); });

  /// Does what is due at `now`, `events` being what happened on the descriptor of the last Wait
  /// (0: nothing). Returns what to wait for; nothing once the credentials are refused. May throw
  /// std::bad_alloc; then Fail is called next. Blocks as MqttClientIf::Connect does.
  std::optional<Wait> Turn(short events, TimePoint now);

  /// The last Turn went wrong: the connection ends, another is tried after a pause.
  void Fail(const std::string& reason, TimePoint now);

  /// Ends the connection for good.
  void End();

  /// The broker for logs and people: HOST:PORT, an IPv6 address in brackets.
  [[nodiscard]] static std::string AddressOf(const platform_host::BrokerConfig& broker);

 private:
  enum class State { kPausing, kConnecting, kConnected, kRejected };

  void Connect();
  void Serve(short events, TimePoint now);
  void Lose(const std::string& reason, TimePoint now);

  /// The connection is there, or has gone.
  void Announce(bool isConnected);

  [[nodiscard]] Wait NextWait(TimePoint now);

  // MqttListenerIf, from inside Serve.
  void Accepted() override;
  void CredentialsRefused(const std::string& reason) override;
  void SubscribeAnswered(int number, bool isGranted) override;
  void PublishAcknowledged(int number) override;
  void PublicationsForgotten() override;
  void MessageArrived(const std::string& topic, std::vector<std::uint8_t> payload,
                      std::uint16_t messageId) override;
  void OversizedMessageArrived() override;

  const std::string peer;                ///< host:port
  const std::chrono::seconds attention;  ///< time between turns that keep the connection alive
  const std::unique_ptr<MqttClientIf> client;
  const Parties parties;
  const std::function<TimePoint()> clock;

  State state = State::kPausing;
  ReconnectPause pause;
  TimePoint due{};         ///< of the next try, or of the broker's answer to the last one
  TimePoint acceptedAt{};  ///< when the present connection was accepted
  TimePoint turnTime{};    ///< of the present turn
  bool isOutageTold = false;
  std::string rejection;  ///< why the credentials are refused
};

}  // namespace lumo_connector

#endif
