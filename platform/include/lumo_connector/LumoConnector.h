/// The unit's connector to its backend: session, access tokens and addresses, streams to peers, and
/// topics. The client creates one and shares it among all that talk to the backend.
#ifndef LUMO_CONNECTOR_LUMOCONNECTOR_H
#define LUMO_CONNECTOR_LUMOCONNECTOR_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lumo_connector/LumoCallbacks.h"
#include "lumo_connector/LumoTypes.h"

namespace lumo_connector {

/// One session with the backend. All operations may be called from any thread but the connector's
/// own (a callback may ask and publish, but must not call Stop or destroy the connector). Errors
/// are results; but for the constructor nothing throws anything other than std::bad_alloc.
class LumoConnector {
 public:
  /// `callback` outlives the last callback, which Stop guarantees; null: nobody listens. Throws
  /// std::exception when the connector's thread cannot be made.
  explicit LumoConnector(LumoSessionCallbackIf* callback);

  /// Stops first if need be.
  ~LumoConnector();
  LumoConnector(const LumoConnector&) = delete;
  LumoConnector& operator=(const LumoConnector&) = delete;

  /// Begins the session: reads the configuration and reports kStarted or kFailed through the
  /// callback, on a thread of the connector, without waiting for any peer. A missing configuration
  /// is no failure. kRejected may follow when the broker refuses the credentials. Does nothing when
  /// started already or after Stop.
  void Start();

  /// Ends the session: every open stream, the connection to the broker, and every call that waits
  /// for a peer. Waits for callbacks under way; none follows. May be called in any state, and
  /// again.
  void Stop();

  [[nodiscard]] SessionStatus GetSessionStatus() const;

  /// From now on tells `callback` the connection state of `transactionTypeId`, at once and at each
  /// change. `callback` outlives the last callback, which Stop guarantees. Returns the
  /// subscription's id, or 0 for a null callback, after Stop, and when memory runs out. `options`
  /// is for connectors that know any; 0: none.
  [[nodiscard]] std::uint32_t SubscribeTransactionTypeState(
      const std::string& transactionTypeId, LumoServiceControllerCallbackIf* callback,
      std::uint32_t options);

  /// The access token for an operation of the backend, as it is now. Blocks for reading a file.
  [[nodiscard]] LumoTokenResult GetToken(const std::string& operationTypeId) const;

  /// The address of an operation of the backend.
  [[nodiscard]] SCUrlResult GetInvocationUrl(const std::string& operationTypeId) const;

  /// Opens a stream to `host` and `port` for an operation of the backend. What is written to it and
  /// read from it is plain; where the operation demands TLS, the connector speaks it behind the
  /// descriptor, with the peer's chain and name (RFC 9525) verified before this returns. The
  /// connector closes the stream when the peer does, when a limit on bytes or time is passed (one
  /// log line tells which) and on Stop. Blocks for the system's resolver, whose own limits hold,
  /// then for the peer, within the limit on time; Stop ends that wait.
  [[nodiscard]] LumoSocketResult SocketConnect(const std::string& operationTypeId,
                                               const std::string& host, std::uint16_t port);

  /// From now on tells `callback` of topics. Messages that came before are told first. `callback`
  /// outlives the last callback, which Stop guarantees. Returns 0 when connected to the broker, 1
  /// when that is under way, 2 without a broker in the configuration or without a session, 3 when
  /// somebody listens already.
  [[nodiscard]] std::int32_t PubSubConnect(LumoPubSubCallbackIf* callback);

  /// Asks the broker for the messages of `topic`; the answer comes through the callback.
  /// `persistent`: also for those sent while the unit is away (this demands a session that the
  /// broker keeps).
  [[nodiscard]] LumoPubSubResult PubSubSubscribe(const std::string& topic, bool persistent);

  /// Publishes `payload`; the broker's answer comes through the callback. `timeToLive` (seconds),
  /// `priority`, `payloadFormat` (0: bytes), `contentType` and `reliable` are hints to a connector
  /// that knows them. Returns 0 when sent, or queued for the next connection, 2 without a broker in
  /// the configuration or without a session, 4 when too many requests wait or the payload is too
  /// large.
  [[nodiscard]] std::int32_t PubSubPublish(const std::string& topic,
                                           const std::vector<std::uint8_t>& payload,
                                           std::uint32_t timeToLive, std::uint32_t priority,
                                           std::uint32_t payloadFormat,
                                           const std::string& contentType, bool reliable);

  /// Nobody hears of topics any more, until the next PubSubConnect; a callback under way may still
  /// be. What the broker sends meanwhile waits. Returns 0, or 2 when nobody listened.
  [[nodiscard]] std::int32_t PubSubDisconnect();

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace lumo_connector

#endif
