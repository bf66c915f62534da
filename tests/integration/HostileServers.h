/// Servers that misbehave, one a row, and what each must come to.
#ifndef TESTS_INTEGRATION_HOSTILESERVERS_H
#define TESTS_INTEGRATION_HOSTILESERVERS_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "tests/doubles/PeerStream.h"

namespace tests {

/// What a server does and how a request to it ends.
struct HostileServer {
  std::string name;
  PeerScript script;  ///< none: nobody listens

  /// Of HttpConnection::Post: "STATUS, N bytes", "throws", or "result N"; a regular expression.
  std::string post;

  /// Of a download: its result, and what is logged at warning and above (and the one line at info
  /// that tells of an error), "PORT" in place of the port.
  unsigned int download;
  std::vector<std::string> lines;

  /// Of a revocation check.
  int check;

  // How the request is made.
  bool fallsSilent = false;            ///< the end is a silence: the client's waits are cut short
  bool isTls = false;                  ///< the client expects TLS
  unsigned int exchangeSeconds = 120;  ///< the connector's limit on time
};

/// How a failing test shows its row.
inline void PrintTo(const HostileServer& server, std::ostream* out) {
  *out << server.name;
}

/// The connector's limit on the bytes of an answer.
inline constexpr std::size_t kAnswerLimit = 1048576;

/// All of them.
[[nodiscard]] std::vector<HostileServer> HostileServers();

}  // namespace tests

#endif
