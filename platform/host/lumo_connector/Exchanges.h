/// Streams to peers of the backend: TCP, TLS where the operation demands it, and limits that every
/// exchange keeps. For LumoConnector, which owns one. docs/host-platform.md tells what a person
/// sees of it.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_EXCHANGES_H
#define PLATFORM_HOST_LUMO_CONNECTOR_EXCHANGES_H

#include <cstdint>
#include <string>

#include "lumo_connector/LumoTypes.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/lumo_connector/ConnectFailure.h"
#include "platform/host/lumo_connector/ConnectWait.h"
#include "platform/host/lumo_connector/Relay.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Opens streams and relays their bytes on one thread of its own, which begins with the first
/// stream. Any thread may call, but for the destructor. Nothing is called with a lock held, the log
/// included.
class Exchanges {
 public:
  /// With the system's clock.
  Exchanges();

  /// `now` tells the time of every limit; called on any thread.
  explicit Exchanges(SteadyClock now);

  /// Stops first if need be. No Connect may be under way.
  ~Exchanges() = default;
  Exchanges(const Exchanges&) = delete;
  Exchanges& operator=(const Exchanges&) = delete;

  /// Opens a stream to `port` of `host` for `operationTypeId`: a blocking descriptor, closed on
  /// exec, on which reading ends where the peer, a limit of `config` (one warning line tells which)
  /// or Stop ends it. With an https operation TLS is complete and verified when this returns. Fails
  /// with a status like an errno, a text, and one error line that says why: ENOENT for an operation
  /// without a URL, ECANCELED after Stop, ETIMEDOUT when the limit on time is passed, EHOSTUNREACH
  /// for a name that cannot be resolved, EACCES when one side refuses the other's certificate,
  /// EPROTO for other failures of TLS, EINVAL for a file that does not hold what it should, ENOMEM,
  /// EAGAIN and EMFILE when the system is at its limits, else the system's own. Never throws.
  /// Blocks for the resolver, then within the limit on time; Stop ends the wait.
  [[nodiscard]] lumo_connector::LumoSocketResult Connect(const HostConfig& config,
                                                         const std::string& operationTypeId,
                                                         const std::string& host,
                                                         std::uint16_t port) noexcept;

  /// Ends every stream and every Connect that waits; later ones fail at once. No stream is served
  /// after it has returned; a Connect may still be on its way out. Any time, again, and from
  /// several threads at once. Blocks for what the relay's thread has under way, never for a peer.
  void Stop();

  /// Looks at every limit now: for clocks that do not move by waiting.
  void CheckLimits() const { relay.Wake(); }

 private:
  struct Request;

  [[nodiscard]] lumo_connector::LumoSocketResult Open(const Request& request);

  const SteadyClock clock;
  const support::UniqueFd stopped;  ///< an eventfd, readable from Stop on
  Relay relay;
};

}  // namespace platform_host

#endif
