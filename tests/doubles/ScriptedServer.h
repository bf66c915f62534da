/// A TCP server on loopback that plays a script to each client.
#ifndef TESTS_DOUBLES_SCRIPTEDSERVER_H
#define TESTS_DOUBLES_SCRIPTEDSERVER_H

#include <cstdint>
#include <list>
#include <string>
#include <thread>

#include "support/UniqueFd.h"
#include "tests/doubles/PeerStream.h"

namespace tests {

/// Serves any number of clients at once, each on a thread of its own. Its operations are for one
/// thread.
class ScriptedServer {
 public:
  /// Without a script nobody listens at the port: connections are refused.
  explicit ScriptedServer(PeerScript peerScript);

  /// Interrupts all scripts and waits for their end.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::uint16_t Port() const { return port; }

  /// "127.0.0.1:PORT".
  [[nodiscard]] std::string Address() const { return "127.0.0.1:" + std::to_string(port); }

 private:
  void Accept();

  const PeerScript script;
  support::UniqueFd listener;
  std::uint16_t port = 0;
  std::list<ScriptedPeer> peers;  ///< of the accepting thread, and of the destructor after it
  std::thread accepting;          ///< last: it uses the members above
};

}  // namespace tests

#endif
