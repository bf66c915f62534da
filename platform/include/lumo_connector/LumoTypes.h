/// What the connector answers and tells. Plain values.
#ifndef LUMO_CONNECTOR_LUMOTYPES_H
#define LUMO_CONNECTOR_LUMOTYPES_H

#include <cstdint>
#include <string>

namespace lumo_connector {

/// State of the connector's session.
enum class SessionStatus : std::uint32_t {
  kStopped = 0,
  kFailed = 1,  ///< the configuration cannot be used
  kStarted = 2,
  kRejected = 3,  ///< the backend refused the unit's credentials
};

/// State of the service controller's session. Reported by connectors that have one.
enum class SCSessionStatus : std::uint32_t { kInactive = 0, kActive = 1 };

/// An access token for an operation of the backend.
struct LumoTokenResult {
  std::int32_t status = 0;  ///< 1 success, 2 not configured, 3 unreadable
  std::string token;        ///< empty unless the status is 1; opaque, without a line break
};

/// The address of an operation of the backend.
struct SCUrlResult {
  std::int32_t status = 0;      ///< 1 success, 2 not configured, 3 unreadable
  std::string operationTypeId;  ///< the operation asked for
  std::string url;              ///< empty unless the status is 1
};

/// A stream to a peer.
struct LumoSocketResult {
  std::int32_t status = 0;       ///< 0 success, else like an errno
  std::int32_t descriptor = -1;  ///< the caller's to close; -1 unless the status is 0
  std::string peerAddress;       ///< numeric address and port that answered; may be empty
  std::string text;              ///< why it failed; empty on success
};

/// A subscription under way.
struct LumoPubSubResult {
  std::int32_t status = 0;      ///< 0 sent, 2 not configured, 3 queued until there is a
                                ///< session, 4 refused: too many requests wait
  std::uint16_t requestId = 0;  ///< names the request in the callbacks about it
};

/// Whether a service of the backend is switched on. Reported by connectors that know.
struct SCActivationStateUpdate {
  std::string transactionTypeId;
  std::uint8_t state = 0;
};

/// Connection state of a transaction type.
struct SCConnectionStateUpdate {
  std::string transactionTypeId;
  std::uint8_t state = 0;  ///< 1 no connection, 2 connected, 3 connected but degraded, 4 suspended
};

}  // namespace lumo_connector

#endif
