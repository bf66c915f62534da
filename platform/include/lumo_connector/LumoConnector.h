/// The unit's connector to its backend: so far its session. The client creates one and shares it
/// among all that talk to the backend.
#ifndef LUMO_CONNECTOR_LUMOCONNECTOR_H
#define LUMO_CONNECTOR_LUMOCONNECTOR_H

#include <cstdint>
#include <memory>

namespace lumo_connector {

/// State of the connector's session.
enum class SessionStatus : std::uint32_t {
  kStopped = 0,
  kFailed = 1,  ///< the configuration cannot be used
  kStarted = 2,
  kRejected = 3,  ///< the backend refused the unit's credentials
};

/// Receives the session's state. Called on a thread of the connector, never from inside a call into
/// it, never with a lock held, never after LumoConnector::Stop has returned.
class LumoSessionCallbackIf {
 public:
  virtual ~LumoSessionCallbackIf() = default;
  virtual void LumoConnectorStatus(SessionStatus status) = 0;
};

/// One session with the backend. All operations may be called from any thread but the connector's
/// own (a callback must not call Stop or destroy the connector).
class LumoConnector {
 public:
  /// `callback` outlives the last callback, which Stop guarantees; null: nobody listens.
  explicit LumoConnector(LumoSessionCallbackIf* callback);

  /// Stops first if need be.
  ~LumoConnector();
  LumoConnector(const LumoConnector&) = delete;
  LumoConnector& operator=(const LumoConnector&) = delete;

  /// Begins the session: reads the configuration and reports kStarted or kFailed through the
  /// callback, on a thread of its own, without waiting for any peer. A missing configuration is no
  /// failure. Does nothing when started already or after Stop.
  void Start();

  /// Ends the session and waits for callbacks under way; none follows. May be called in any state,
  /// and again.
  void Stop();

  [[nodiscard]] SessionStatus GetSessionStatus() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace lumo_connector

#endif
