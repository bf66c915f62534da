/// Opens connections to a server of this machine that listens on a Unix socket. Made for the TLS
/// alert client. Immutable after construction: any thread.
#ifndef SSOA_SOCKET_UNIXSTREAMCLIENTCONNECTOR_H
#define SSOA_SOCKET_UNIXSTREAMCLIENTCONNECTOR_H

#include <cstddef>
#include <memory>
#include <string>

#include "ssoa_socket/StreamClientConnectorIf.h"

namespace ssoa_socket {

class UnixStreamClientConnector final : public StreamClientConnectorIf {
 public:
  /// Bytes of the longest path that a socket's address takes, its terminator left out; unix(7).
  static constexpr std::size_t kLongestPath = 107;

  /// Connects to `socketPath`, of which only the first kLongestPath bytes count. `readTimeoutMs`
  /// and `clientName` go on to the connections; -1 is no timeout.
  UnixStreamClientConnector(std::string socketPath, int readTimeoutMs,
                            const std::string& clientName);

  /// Never waits for the server: one that is behind with its connections counts as one that
  /// refuses. Every failure is an error line.
  [[nodiscard]] std::shared_ptr<StreamCommunicatorIf> EstablishConnection() override;

 private:
  const std::string logName;
  const std::string name;
  const int readTimeout;  ///< milliseconds
  const std::string path;
};

}  // namespace ssoa_socket

#endif
