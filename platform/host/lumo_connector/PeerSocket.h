/// From a host's name to a TCP connection. For Exchanges. Without state: any thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_PEERSOCKET_H
#define PLATFORM_HOST_LUMO_CONNECTOR_PEERSOCKET_H

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/host/lumo_connector/ConnectFailure.h"
#include "platform/host/lumo_connector/ConnectWait.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// The longest wait for one address while there are others to try.
inline constexpr std::chrono::seconds kAddressPatience{10};

/// A connected TCP socket, non-blocking.
struct PeerSocket {
  support::UniqueFd descriptor;
  std::string address;  ///< numeric address and port: "127.0.0.1:80", "[::1]:80"
};

/// Connects to `port` of the first address of `host` that answers. Fails with EINVAL for a host
/// that cannot be one, EHOSTUNREACH for a name without an address, ETIMEDOUT and ECANCELED as
/// `wait` says, else with the errno of the last address tried. Blocks for the system's resolver
/// (which nothing interrupts, and which gives up by its own configuration), then within `wait`.
[[nodiscard]] Connected<PeerSocket> ConnectTo(const std::string& host, std::uint16_t port,
                                              const ConnectWait& wait);

}  // namespace platform_host

#endif
