/// Lets one thread wake others that wait on a socket: poll(2) alone would not see that this side
/// gives the socket up. Used by StreamCommunicator; any thread.
#ifndef SSOA_SOCKET_SOCKETCLOSEHELPER_H
#define SSOA_SOCKET_SOCKETCLOSEHELPER_H

#include <string>

#include "support/UniqueFd.h"

namespace ssoa_socket {

/// A pipe beside a socket. Immutable after construction. Whoever calls an operation shares in
/// owning the object, so that no descriptor is closed under it.
class SocketCloseHelper {
 public:
  /// Watches `watchedSocket`, which stays the caller's and open while this object lives. Lines
  /// begin with `ownerName`. When there can be no pipe, only the socket itself ends a wait.
  SocketCloseHelper(int watchedSocket, std::string ownerName);

  /// Waits at most `timeoutMs` milliseconds (-1: without limit), signals or not, for the socket to
  /// be readable. Returns 1 when it is (also when it has ended or failed: recv tells), 0 after the
  /// timeout, and a negative number once SocketClosed was called or when poll(2) fails.
  [[nodiscard]] int Poll(int timeoutMs) const;

  /// Ends every Poll, now and from now on. Never blocks.
  void SocketClosed() const;

 private:
  const int socket;
  const std::string name;
  support::UniqueFd readEnd;
  support::UniqueFd writeEnd;
};

}  // namespace ssoa_socket

#endif
